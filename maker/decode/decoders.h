// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "maker/format.h"
#include "maker/input.h"
#include "maker/picture.h"
#include "maker/plan.h"

namespace tavithumb::maker {

// One decoder per format; a file's first bytes decide which, never its name. Each throws Declined for what it can't
// decode or what is over the limits (limits.h), std::bad_alloc, and nothing else; a picture cut off at its end is shown
// as far as it goes if at least a part of it was decoded.

// By the first bytes; nothing if no decoder knows them. kRaw is tried for TIFF containers of camera makers.
std::optional<Format> FormatOf(const Input& input);

// The MIME type, by the first bytes; "" if no decoder knows them.
std::string MimeTypeOf(const Input& input);

// What a decoder tells before it decodes.
struct Header {
  Size stored;
  // The decoder applies what the file says of orientation: its pictures are upright, and `stored` is upright too.
  bool isUpright = false;
  // What the file says of orientation, of types that only the decoder knows; facts from elsewhere count more.
  std::optional<Orientation> orientation;
  std::vector<Preview> previews;  // what DecodePreview() can decode
};

// A source that has been opened by the decoder of its format.
class Decoder {
 public:
  virtual ~Decoder() = default;

  virtual const Header& Head() const = 0;

  // Decodes the (first) picture. The result may be smaller than it is stored, but not smaller than `atLeast`.
  virtual Picture Decode(Size atLeast) = 0;

  // Decodes one of the previews in the header.
  virtual Picture DecodePreview(std::size_t index, Size atLeast);

  // Whether it is known that the picture's samples mean what sRGB says, as those of a preview without a profile do.
  virtual bool IsSrgb() const { return false; }

  // Whether there are several frames.
  virtual bool IsAnimated() const { return false; }

  // The Exif data, a TIFF structure, of the formats in which only the decoder finds it.
  virtual std::vector<std::uint8_t> Exif() const { return {}; }
};

// Each reads the header. The input must outlive the decoder.
std::unique_ptr<Decoder> OpenJpeg(const Input& input);
std::unique_ptr<Decoder> OpenPng(const Input& input);
std::unique_ptr<Decoder> OpenGif(const Input& input);
std::unique_ptr<Decoder> OpenBmp(const Input& input);
std::unique_ptr<Decoder> OpenTiff(const Input& input);
std::unique_ptr<Decoder> OpenWebp(const Input& input);
std::unique_ptr<Decoder> OpenHeif(const Input& input);
std::unique_ptr<Decoder> OpenJxl(const Input& input);
std::unique_ptr<Decoder> OpenRaw(const Input& input);

// The one for its format. Throws Declined (kUnknownType).
std::unique_ptr<Decoder> OpenDecoder(const Input& input);

}  // namespace tavithumb::maker
