// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace tavithumb::maker {

// Bytes in memory that belong to somebody else.
struct Bytes {
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;
};

// Pixels.
struct Size {
  int width = 0;
  int height = 0;

  friend bool operator==(const Size& a, const Size& b) { return a.width == b.width && a.height == b.height; }
  friend bool operator!=(const Size& a, const Size& b) { return !(a == b); }
};

// One channel of a picture: rows of 8-bit samples. Each row starts at a multiple of 64 bytes; up to 64 bytes behind any
// row may be read, so that vector code needs no special case at its end. Moves, never copies by accident.
class Plane {
 public:
  static constexpr std::size_t kAlignment = 64;

  Plane() = default;
  // The samples are zero. Throws std::bad_alloc.
  explicit Plane(Size size);

  Size Dimensions() const { return size_; }
  int Width() const { return size_.width; }
  int Height() const { return size_.height; }
  // Bytes from one row to the next.
  std::size_t Stride() const { return stride_; }
  std::uint8_t* Row(int y) { return samples_.get() + static_cast<std::size_t>(y) * stride_; }
  const std::uint8_t* Row(int y) const { return samples_.get() + static_cast<std::size_t>(y) * stride_; }

 private:
  struct Free {
    void operator()(std::uint8_t* samples) const { std::free(samples); }
  };

  Size size_;
  std::size_t stride_ = 0;
  std::unique_ptr<std::uint8_t[], Free> samples_;
};

// A plane and how much of it the picture covers, from its top left corner: less than the whole plane where a smaller
// plane or a scaled decode has been rounded up. A picture of 479 pixels has 239.5 chroma samples per row at 4:2:0.
struct Channel {
  Plane plane;
  double width = 0;
  double height = 0;
};

enum class Model {
  kGray,  // Y
  kYcc,   // Y, Cb, Cr; see Ycc
  kRgb,   // R, G, B
  kCmyk,  // C, M, Y, K; 255 means no ink, as in files written by Adobe programs
};

// How Y, Cb and Cr were made of R, G and B. The default is that of JPEG files.
struct Ycc {
  double redWeight = 0.299;
  double blueWeight = 0.114;
  bool isFullRange = true;  // else Y is 16 to 235, and Cb and Cr are 16 to 240

  bool IsJpeg() const { return redWeight == 0.299 && blueWeight == 0.114 && isFullRange; }
};

// A decoded picture. The planes of a model come in its order, then alpha, if there is one. Cb and Cr may have fewer
// samples than Y; all other planes are equally large.
struct Picture {
  Model model = Model::kRgb;
  Ycc ycc;
  bool hasAlpha = false;
  bool isPremultiplied = false;  // the colour samples have been multiplied by alpha
  std::vector<Channel> channels;
  std::vector<std::uint8_t> profile;  // the ICC profile of the samples; empty for sRGB
  bool isCutOff = false;              // parts are missing in the file, though not in a JPEG, where nothing tells them
  // The whole picture's size before the decoder scaled it, as stored.
  Size storedSize;
};

}  // namespace tavithumb::maker
