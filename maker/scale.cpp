// SPDX-License-Identifier: GPL-3.0-or-later
#include <utility>

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

Channel ScaleChannel(const Plane& source, const Scaling& scaling, bool transposes) {
  Plane plane = Resample(source, scaling);
  if (transposes) return {Transpose(plane), scaling.height, scaling.width};
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
  for (std::size_t i = 0; i < source.channels.size(); ++i) {
    const Channel& channel = source.channels[i];
    const Region from = InSamplesOf(channel, source.channels[0], mirrored);
    const Scaling scaling = halvesChroma && IsChroma(source, i) ? Halved(from, size) : Full(from, size);
    result.channels.push_back(ScaleChannel(channel.plane, scaling, orientation.SwapsSides()));
  }
  return result;
}

}  // namespace tavithumb::maker
