// SPDX-License-Identifier: GPL-3.0-or-later
#include <webp/encode.h>

#include <new>

#include "maker/declined.h"
#include "maker/encode/encode.h"

namespace tavithumb::maker {
namespace {

// libwebp's picture, and the file that it becomes.
struct Encoding {
  WebPPicture picture = {};
  WebPMemoryWriter file = {};

  Encoding() {
    WebPMemoryWriterInit(&file);
    if (WebPPictureInit(&picture) == 0) throw std::bad_alloc();
    picture.writer = WebPMemoryWrite;
    picture.custom_ptr = &file;
  }
  ~Encoding() {
    WebPPictureFree(&picture);
    WebPMemoryWriterClear(&file);
  }
  Encoding(const Encoding&) = delete;
  Encoding& operator=(const Encoding&) = delete;
};

std::vector<std::uint8_t> Interleaved(const Picture& picture) {
  const Size size = picture.channels[0].plane.Dimensions();
  const std::size_t step = picture.hasAlpha ? 4 : 3;
  std::vector<std::uint8_t> pixels(step * static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height));
  for (std::size_t c = 0; c < step; ++c) {
    const bool isAlpha = c == 3;
    const std::size_t gray = isAlpha ? 1 : 0;
    const Plane& plane = picture.channels[picture.model == Model::kGray ? gray : c].plane;
    std::uint8_t* to = pixels.data() + c;
    for (int y = 0; y < size.height; ++y) {
      const std::uint8_t* row = plane.Row(y);
      for (int x = 0; x < size.width; ++x, to += step) *to = row[x];
    }
  }
  return pixels;
}

void Import(const Picture& picture, WebPPicture* to) {
  const Size size = picture.channels[0].plane.Dimensions();
  to->width = size.width;
  to->height = size.height;
  const std::vector<std::uint8_t> pixels = Interleaved(picture);
  const auto import = picture.hasAlpha ? WebPPictureImportRGBA : WebPPictureImportRGB;
  if (import(to, pixels.data(), size.width * (picture.hasAlpha ? 4 : 3)) == 0) throw std::bad_alloc();
}

}  // namespace

std::vector<std::uint8_t> EncodeWebp(const Picture& picture, int quality) {
  const Size size = picture.channels[0].plane.Dimensions();
  if (size.width > WEBP_MAX_DIMENSION || size.height > WEBP_MAX_DIMENSION) {
    throw Declined(Reason::kTooLarge, "a side has more pixels than WebP allows");
  }
  WebPConfig config;
  if (WebPConfigPreset(&config, WEBP_PRESET_PHOTO, static_cast<float>(quality)) == 0) throw std::bad_alloc();
  Encoding encoding;
  Import(picture, &encoding.picture);
  if (WebPEncode(&config, &encoding.picture) == 0) throw std::bad_alloc();
  return {encoding.file.mem, encoding.file.mem + encoding.file.size};
}

}  // namespace tavithumb::maker
