// SPDX-License-Identifier: GPL-3.0-or-later
#include <utility>

#include "maker/kernel.h"
#include "maker/resample.h"

namespace tavithumb::maker {
namespace {

// The part, with its sides exchanged so that resampling mirrors it as the orientation demands. A quarter turn clockwise
// is upside down, then transposed; three are left-right, then transposed.
Region Mirrored(Region part, const Orientation& orientation) {
  const int turns = orientation.quarterTurns;
  const bool mirrorsAcross = orientation.isMirrored != (turns == 2 || turns == 3);
  const bool mirrorsDown = turns == 1 || turns == 2;
  if (mirrorsAcross) std::swap(part.left, part.right);
  if (mirrorsDown) std::swap(part.top, part.bottom);
  return part;
}

bool IsChroma(const Picture& picture, std::size_t channel) {
  return picture.model == Model::kYcc && (channel == 1 || channel == 2);
}

// The part in the samples of another channel, which covers the same picture.
Region InSamplesOf(const Channel& channel, const Channel& first, const Region& part) {
  const double across = channel.width / first.width;
  const double down = channel.height / first.height;
  return {part.left * across, part.top * down, part.right * across, part.bottom * down};
}

Scaling Full(const Region& from, Size size) {
  return {from, size, static_cast<double>(size.width), static_cast<double>(size.height)};
}

Scaling Halved(const Region& from, Size size) {
  return {from, {(size.width + 1) / 2, (size.height + 1) / 2}, size.width / 2.0, size.height / 2.0};
}

bool AreEqual(const Scaling& a, const Scaling& b) {
  return a.from.left == b.from.left && a.from.top == b.from.top && a.from.right == b.from.right &&
         a.from.bottom == b.from.bottom && a.size == b.size && a.width == b.width && a.height == b.height;
}

// Resamples planes one after the other; those of the same sizes share their kernels.
class Resampler {
 public:
  Plane Apply(const Plane& source, const Scaling& scaling) {
    if (source.Dimensions() != source_ || !AreEqual(scaling, scaling_)) {
      source_ = source.Dimensions();
      scaling_ = scaling;
      const Region& from = scaling.from;
      across_ = MakeKernel(from.left, from.right, scaling.width, scaling.size.width, source_.width);
      down_ = MakeKernel(from.top, from.bottom, scaling.height, scaling.size.height, source_.height);
    }
    return ResampleBy(source, across_, down_);
  }

 private:
  Size source_;
  Scaling scaling_;
  Kernel across_;
  Kernel down_;
};

// Transposed where the orientation swaps the sides.
Channel Oriented(Plane plane, const Scaling& scaling, const Orientation& orientation) {
  if (orientation.SwapsSides()) return {Transpose(plane), scaling.height, scaling.width};
  return {std::move(plane), scaling.width, scaling.height};
}

Picture WithoutChannels(const Picture& source) {
  Picture result;
  result.model = source.model;
  result.ycc = source.ycc;
  result.hasAlpha = source.hasAlpha;
  result.isPremultiplied = source.isPremultiplied;
  result.profile = source.profile;
  result.storedSize = source.storedSize;
  return result;
}

}  // namespace

Picture Scale(const Picture& source, const Region& part, const Orientation& orientation, Size size, bool halvesChroma) {
  Picture result = WithoutChannels(source);
  const Region mirrored = Mirrored(part, orientation);
  Resampler resampler;
  for (std::size_t i = 0; i < source.channels.size(); ++i) {
    const Channel& channel = source.channels[i];
    const Region from = InSamplesOf(channel, source.channels[0], mirrored);
    const Scaling scaling = halvesChroma && IsChroma(source, i) ? Halved(from, size) : Full(from, size);
    result.channels.push_back(Oriented(resampler.Apply(channel.plane, scaling), scaling, orientation));
  }
  return result;
}

}  // namespace tavithumb::maker
