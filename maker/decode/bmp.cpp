// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "maker/decode/interleaved.h"
#include "maker/limits.h"

namespace tavithumb::maker {
namespace {

constexpr std::size_t kFileHeader = 14;

enum Compression { kNone = 0, kRle8 = 1, kRle4 = 2, kBitFields = 3, kAlphaBitFields = 6 };
// Sizes of the second header, which tell its version.
enum HeaderSize { kCore = 12, kOs2Short = 16, kInfo = 40, kWithMasks = 52, kWithAlphaMask = 56, kOs2 = 64, kV5 = 124 };

[[noreturn]] void Damaged(const char* text) {
  throw Declined(Reason::kDamaged, text);
}

std::uint32_t Little16(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0] | bytes[1] << 8);
}

std::uint32_t Little32(const std::uint8_t* bytes) {
  return Little16(bytes) | Little16(bytes + 2) << 16;
}

// The bits of a pixel that hold one sample.
struct Mask {
  std::uint32_t bits = 0;
  unsigned shift = 0;
  std::uint32_t largest = 0;

  explicit Mask(std::uint32_t mask = 0) : bits(mask) {
    if (mask == 0) return;
    while ((mask >> shift & 1) == 0) ++shift;
    largest = mask >> shift;
  }

  std::uint8_t SampleOf(std::uint32_t pixel) const {
    if (largest == 0) return 0;
    const std::uint64_t sample = (pixel & bits) >> shift;
    return static_cast<std::uint8_t>((sample * 255 + largest / 2) / largest);
  }
};

struct BmpHeader {
  std::uint32_t dataStart = 0;
  std::uint32_t headerSize = 0;
  Size size;
  bool isTopDown = false;
  std::uint32_t bits = 0;
  std::uint32_t compression = kNone;
  std::uint32_t colours = 0;
  std::array<Mask, 4> masks;  // R, G, B, alpha

  bool IsOs2() const { return headerSize == kCore || headerSize == kOs2Short || headerSize == kOs2; }
  bool IsIndexed() const { return bits <= 8; }
  bool IsRle() const { return compression == kRle8 || compression == kRle4; }
  bool HasMasks() const { return compression == kBitFields || compression == kAlphaBitFields; }
  // Of a row, which is padded to a multiple of four bytes.
  std::size_t RowBytes() const { return (std::size_t{bits} * static_cast<unsigned>(size.width) + 31) / 32 * 4; }
  std::uint64_t PaletteStart() const {
    const bool masksFollow = headerSize == kInfo && HasMasks();
    return kFileHeader + headerSize + (masksFollow ? compression == kAlphaBitFields ? 16U : 12U : 0U);
  }
};

int Side(std::int64_t side) {
  return static_cast<int>(std::clamp<std::int64_t>(side, 0, std::numeric_limits<int>::max()));
}

bool IsKnownSize(std::uint32_t size) {
  return size == kCore || size == kOs2Short || (size >= kInfo && size <= kV5 && size % 4 == 0);
}

void CheckKind(const BmpHeader& header) {
  const std::uint32_t bits = header.bits;
  bool isKnown = false;
  switch (header.compression) {
    case kNone:
      isKnown = bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
      break;
    case kRle8:
      isKnown = bits == 8 && !header.isTopDown;
      break;
    case kRle4:
      isKnown = bits == 4 && !header.isTopDown;
      break;
    case kBitFields:
    case kAlphaBitFields:
      isKnown = (bits == 16 || bits == 32) && !header.IsOs2();
      break;
    default:
      break;
  }
  if (!isKnown) throw Declined(Reason::kUnsupported, "the kind of BMP is not known");
}

void ReadMasks(const std::uint8_t* bytes, BmpHeader* header) {
  if (header->HasMasks()) {
    const bool hasAlpha = header->compression == kAlphaBitFields || header->headerSize >= kWithAlphaMask;
    for (std::size_t i = 0; i < (hasAlpha ? 4U : 3U); ++i) header->masks[i] = Mask(Little32(bytes + 4 * i));
  } else if (header->bits == 16) {
    header->masks = {Mask(0x7c00), Mask(0x03e0), Mask(0x001f), Mask()};
  } else {
    // The fourth byte has no meaning by the book, but programs store alpha there.
    header->masks = {Mask(0xff0000), Mask(0x00ff00), Mask(0x0000ff), Mask(header->bits == 32 ? 0xff000000 : 0)};
  }
}

BmpHeader ReadHeader(const Input& input) {
  std::array<std::uint8_t, kFileHeader + kInfo + 16> bytes = {};
  const std::size_t count = input.ReadAt(0, bytes.data(), bytes.size());
  if (count < kFileHeader + kCore || bytes[0] != 'B' || bytes[1] != 'M') Damaged("the header is cut off");
  BmpHeader header;
  header.dataStart = Little32(&bytes[10]);
  const std::uint8_t* fields = &bytes[kFileHeader];
  header.headerSize = Little32(fields);
  if (!IsKnownSize(header.headerSize)) throw Declined(Reason::kUnsupported, "the version of BMP is not known");
  if (count < std::min(bytes.size(), kFileHeader + header.headerSize)) Damaged("the header is cut off");
  if (header.headerSize == kCore) {
    header.size = {static_cast<int>(Little16(fields + 4)), static_cast<int>(Little16(fields + 6))};
    header.bits = Little16(fields + 10);
  } else {
    const auto height = static_cast<std::int32_t>(Little32(fields + 8));
    header.size = {Side(static_cast<std::int32_t>(Little32(fields + 4))), Side(std::abs(std::int64_t{height}))};
    header.isTopDown = height < 0;
    header.bits = Little16(fields + 14);
    if (header.headerSize >= kInfo) header.compression = Little32(fields + 16);
    if (header.headerSize >= kInfo) header.colours = Little32(fields + 32);
  }
  CheckDecodedSize(header.size);
  CheckKind(header);
  ReadMasks(fields + kInfo, &header);
  return header;
}

class BmpDecoder : public Decoder {
 public:
  explicit BmpDecoder(const Input& input) : input_(input), bmp_(ReadHeader(input)) {
    head_.stored = bmp_.size;
    if (bmp_.IsIndexed()) ReadPalette();
  }

  const Header& Head() const override { return head_; }

  Picture Decode(Size /*atLeast*/) override {
    const bool hasAlpha = bmp_.masks[3].bits != 0 && !bmp_.IsIndexed();
    Picture picture = BlankPicture(Model::kRgb, hasAlpha, bmp_.size);
    line_.resize(static_cast<std::size_t>(bmp_.size.width) * picture.channels.size());
    if (bmp_.IsRle()) {
      DecodeRuns(&picture);
    } else {
      DecodeRows(&picture);
    }
    if (hasAlpha) DropEmptyAlpha(&picture);
    ReadProfile(&picture);
    return picture;
  }

 private:
  using Rgb = std::array<std::uint8_t, 3>;

  void ReadPalette();
  void DecodeRows(Picture* picture);
  void DecodeRuns(Picture* picture);
  void PutRow(const std::uint8_t* row, int y, Picture* picture);
  void ExpandIndices(const std::uint8_t* row);
  void ExpandMasks(const std::uint8_t* row, std::size_t channels);
  static void DropEmptyAlpha(Picture* picture);
  void ReadProfile(Picture* picture) const;
  int FromTop(int row) const { return bmp_.isTopDown ? row : bmp_.size.height - 1 - row; }

  const Input& input_;
  BmpHeader bmp_;
  Header head_;
  std::array<Rgb, 256> palette_ = {};  // indices beyond it are black
  std::vector<std::uint8_t> line_;
};

void BmpDecoder::ReadPalette() {
  const std::size_t entryBytes = bmp_.headerSize == kCore ? 3 : 4;
  std::size_t count = std::size_t{1} << bmp_.bits;
  if (bmp_.colours > 0) count = std::min<std::size_t>(count, bmp_.colours);
  constexpr std::size_t kMostBytes = 1024;  // 256 entries of four
  std::array<std::uint8_t, kMostBytes> bytes = {};
  input_.ReadAt(bmp_.PaletteStart(), bytes.data(), count * entryBytes);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint8_t* entry = &bytes[i * entryBytes];
    palette_[i] = {entry[2], entry[1], entry[0]};
  }
}

void BmpDecoder::ExpandIndices(const std::uint8_t* row) {
  const auto width = static_cast<std::size_t>(bmp_.size.width);
  for (std::size_t x = 0; x < width; ++x) {
    const std::size_t bit = x * bmp_.bits;
    const unsigned index = row[bit / 8] >> (8 - bmp_.bits - bit % 8) & ((1U << bmp_.bits) - 1);
    std::memcpy(&line_[3 * x], palette_[index].data(), 3);
  }
}

void BmpDecoder::ExpandMasks(const std::uint8_t* row, std::size_t channels) {
  std::uint8_t* to = line_.data();
  for (int x = 0; x < bmp_.size.width; ++x, row += bmp_.bits / 8) {
    const std::uint32_t pixel = bmp_.bits == 16 ? Little16(row) : Little32(row);
    for (std::size_t c = 0; c < channels; ++c) *to++ = bmp_.masks[c].SampleOf(pixel);
  }
}

void BmpDecoder::PutRow(const std::uint8_t* row, int y, Picture* picture) {
  if (bmp_.IsIndexed()) {
    ExpandIndices(row);
  } else if (bmp_.bits == 24) {
    for (std::size_t i = 0; i < line_.size(); i += 3) {
      line_[i] = row[i + 2];
      line_[i + 1] = row[i + 1];
      line_[i + 2] = row[i];
    }
  } else {
    ExpandMasks(row, picture->channels.size());
  }
  SplitRow(line_.data(), bmp_.size.width, 0, y, picture);
}

void BmpDecoder::DecodeRows(Picture* picture) {
  std::vector<std::uint8_t> row(bmp_.RowBytes());
  for (int y = 0; y < bmp_.size.height; ++y) {
    const std::uint64_t offset = bmp_.dataStart + std::uint64_t{row.size()} * static_cast<unsigned>(y);
    if (input_.ReadAt(offset, row.data(), row.size()) < row.size()) {
      if (y == 0) Damaged("there is not even one row of pixels");
      picture->isCutOff = true;
      return;
    }
    PutRow(row.data(), FromTop(y), picture);
  }
}

// Colour indices of a run-length encoded picture, its lowest row first. What isn't set has index 0.
class Runs {
 public:
  Runs(const std::vector<std::uint8_t>& data, const BmpHeader& header)
      : data_(data), isNarrow_(header.bits == 4), size_(header.size), indices_(header.size) {}

  // Goes as far as there is data.
  const Plane& Decode() {
    while (y_ < size_.height && at_ + 2 <= data_.size()) {
      const std::uint8_t count = data_[at_];
      const std::uint8_t value = data_[at_ + 1];
      at_ += 2;
      if (count > 0) {
        for (unsigned i = 0; i < count; ++i) Put(IndexOf(value, i));
      } else if (!Escape(value)) {
        break;
      }
    }
    return indices_;
  }

 private:
  enum { kEndOfRow = 0, kEndOfPicture = 1, kMove = 2 };

  // Two of four bits in one byte, or one of eight.
  unsigned IndexOf(std::uint8_t byte, unsigned i) const {
    if (!isNarrow_) return byte;
    return i % 2 == 0 ? byte >> 4U : byte & 15U;
  }

  void Put(unsigned index) {
    if (x_ < size_.width) indices_.Row(y_)[x_++] = static_cast<std::uint8_t>(index);
  }

  // Returns false at the end.
  bool Escape(std::uint8_t code) {
    if (code == kEndOfPicture) return false;
    if (code == kEndOfRow) {
      x_ = 0;
      ++y_;
      return true;
    }
    if (code == kMove) {
      if (at_ + 2 > data_.size()) return false;
      x_ = std::min(x_ + data_[at_], size_.width);
      y_ += data_[at_ + 1];
      at_ += 2;
      return true;
    }
    return CopyIndices(code);
  }

  bool CopyIndices(unsigned count) {
    const std::size_t bytes = isNarrow_ ? (count + 1) / 2 : count;
    if (at_ + bytes > data_.size()) return false;
    for (unsigned i = 0; i < count; ++i) Put(IndexOf(data_[at_ + (isNarrow_ ? i / 2 : i)], i));
    at_ += (bytes + 1) / 2 * 2;
    return true;
  }

  const std::vector<std::uint8_t>& data_;
  bool isNarrow_;
  Size size_;
  Plane indices_;
  std::size_t at_ = 0;
  int x_ = 0;
  int y_ = 0;
};

void BmpDecoder::DecodeRuns(Picture* picture) {
  std::vector<std::uint8_t> file = input_.ReadAll(kMaxFileBytes);
  if (std::uint64_t{bmp_.dataStart} + 2 > file.size()) Damaged("there are no pixels");
  file.erase(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(bmp_.dataStart));
  Runs runs(file, bmp_);
  const Plane& indices = runs.Decode();
  for (int y = 0; y < bmp_.size.height; ++y) {
    for (int x = 0; x < bmp_.size.width; ++x) {
      std::memcpy(&line_[3 * static_cast<std::size_t>(x)], palette_[indices.Row(y)[x]].data(), 3);
    }
    SplitRow(line_.data(), bmp_.size.width, 0, FromTop(y), picture);
  }
}

// Some programs leave the byte for alpha zero, but mean opaque.
void BmpDecoder::DropEmptyAlpha(Picture* picture) {
  const Plane& alpha = picture->channels.back().plane;
  for (int y = 0; y < alpha.Height(); ++y) {
    const std::uint8_t* row = alpha.Row(y);
    if (std::any_of(row, row + alpha.Width(), [](std::uint8_t sample) { return sample != 0; })) return;
  }
  picture->channels.pop_back();
  picture->hasAlpha = false;
}

void BmpDecoder::ReadProfile(Picture* picture) const {
  constexpr std::uint32_t kEmbedded = 0x4d424544;  // "MBED"
  std::array<std::uint8_t, kV5> fields = {};
  if (bmp_.headerSize != kV5 || input_.ReadAt(kFileHeader, fields.data(), fields.size()) < fields.size()) return;
  const std::uint32_t size = Little32(&fields[116]);
  if (Little32(&fields[56]) != kEmbedded || size == 0 || size > kMaxProfileBytes) return;
  picture->profile.resize(size);
  const std::uint64_t start = kFileHeader + std::uint64_t{Little32(&fields[112])};
  if (input_.ReadAt(start, picture->profile.data(), size) < size) picture->profile.clear();
}

}  // namespace

std::unique_ptr<Decoder> OpenBmp(const Input& input) {
  return std::make_unique<BmpDecoder>(input);
}

}  // namespace tavithumb::maker
