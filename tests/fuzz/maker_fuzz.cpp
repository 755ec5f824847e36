// SPDX-License-Identifier: GPL-3.0-or-later
// A picture of any type: through its decoder at two sizes, its previews, and from a file to thumbnails.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <vector>

#include "fuzz.h"
#include "maker/decode/decoders.h"
#include "maker/maker.h"

namespace maker = tavithumb::maker;

namespace {

// Larger pictures take longer, and show nothing more.
constexpr std::int64_t kMostPixels = std::int64_t{512} * 512;

const std::vector<maker::Target> kTargets = {{{40, 40}, false}, {{200, 9}, true}, {{65535, 65535}, false}};

// In memory, rewritten for each picture.
class File {
 public:
  File() : descriptor_(memfd_create("picture", MFD_CLOEXEC)) {}
  ~File() { close(descriptor_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  std::string Path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
  void Fill(maker::Bytes bytes) const {
    Require(ftruncate(descriptor_, 0) == 0);
    Require(pwrite(descriptor_, bytes.data, bytes.size, 0) == static_cast<ssize_t>(bytes.size));
  }

 private:
  int descriptor_;
};

bool IsSmall(maker::Size size) {
  return std::int64_t{size.width} * size.height <= kMostPixels;
}

bool IsSmall(const maker::Header& header) {
  const std::vector<maker::Preview>& previews = header.previews;
  return IsSmall(header.stored) && std::all_of(previews.begin(), previews.end(),
                                               [](const maker::Preview& preview) { return IsSmall(preview.size); });
}

std::size_t ColoursOf(maker::Model model) {
  if (model == maker::Model::kGray) return 1;
  return model == maker::Model::kCmyk ? 4 : 3;
}

// Also reads all that may be read of a plane, for the sanitizer.
void RequireSense(const maker::Channel& channel) {
  const maker::Plane& plane = channel.plane;
  Require(plane.Width() > 0 && plane.Height() > 0);
  Require(channel.width > 0 && channel.width <= plane.Width() && channel.height > 0 &&
          channel.height <= plane.Height());
  volatile unsigned sum = 0;
  for (int y = 0; y < plane.Height(); ++y) {
    for (std::size_t x = 0; x < plane.Stride(); x += 32) sum = sum + plane.Row(y)[x];
    sum = sum + plane.Row(y)[plane.Stride() - 1];
  }
}

void RequireSense(const maker::Picture& picture, maker::Size atLeast) {
  Require(picture.channels.size() == ColoursOf(picture.model) + (picture.hasAlpha ? 1 : 0));
  for (const maker::Channel& channel : picture.channels) RequireSense(channel);
  const maker::Size size = picture.channels[0].plane.Dimensions();
  const bool isRoundedUp = picture.channels[0].width < size.width || picture.channels[0].height < size.height;
  const maker::Size stored = picture.storedSize;
  Require(stored.width > 0 && stored.height > 0);
  Require(isRoundedUp || (size.width <= stored.width && size.height <= stored.height));
  Require(size.width >= std::min(atLeast.width, stored.width));
  Require(size.height >= std::min(atLeast.height, stored.height));
}

// False if nothing of the file is decoded, or too much of it.
bool Decodes(maker::Bytes bytes) {
  try {
    const maker::Input input(bytes);
    const std::unique_ptr<maker::Decoder> decoder = maker::OpenDecoder(input);
    const maker::Header& header = decoder->Head();
    if (!IsSmall(header)) return false;
    decoder->IsAnimated();
    for (const maker::Size atLeast : {maker::Size{1, 1}, header.stored}) {
      for (std::size_t i = 0; i < header.previews.size(); ++i) decoder->DecodePreview(i, atLeast);
      RequireSense(decoder->Decode(atLeast), atLeast);
    }
    return true;
  } catch (const maker::Declined&) {
    return false;
  }
}

// It can be decoded again.
void RequireSense(const maker::Thumbnail& thumbnail, maker::Size box) {
  Require(thumbnail.size.width <= box.width && thumbnail.size.height <= box.height);
  const maker::Input input(maker::Bytes{thumbnail.bytes.data(), thumbnail.bytes.size()});
  const std::unique_ptr<maker::Decoder> decoder = maker::OpenDecoder(input);
  Require(decoder->Head().stored == thumbnail.size);
  decoder->Decode(thumbnail.size);
}

// All orientations come up: the size of the file tells them apart.
void MakeThumbnails(const std::string& path, std::size_t variant) {
  maker::Source source;
  source.path = path;
  source.orientation = maker::Orientation{static_cast<int>(variant % 4), variant / 4 % 2 == 1};
  source.isAdobeRgb = variant / 8 % 2 == 1;
  std::vector<maker::Thumbnail> thumbnails;
  try {
    thumbnails = maker::Make(source, kTargets, {});
  } catch (const maker::Declined&) {
    return;
  }
  Require(thumbnails.size() == kTargets.size());
  for (std::size_t i = 0; i < thumbnails.size(); ++i) RequireSense(thumbnails[i], kTargets[i].box);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const File file;
  const maker::Bytes bytes = {data, size};
  if (!Decodes(bytes)) return 0;
  file.Fill(bytes);
  maker::ReadExif(file.Path());
  MakeThumbnails(file.Path(), size);
  return 0;
}
