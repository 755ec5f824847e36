// SPDX-License-Identifier: GPL-3.0-or-later
#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "maker/decode/interleaved.h"
#include "maker/decode/png_filters.h"
#include "maker/limits.h"

namespace tavithumb::maker {
namespace {

// A PNG of a camera or an editor has a handful.
constexpr int kMaxChunksBeforeData = 10000;
constexpr std::size_t kChunkHead = 8;  // length and name
constexpr std::size_t kChecksum = 4;

[[noreturn]] void Damaged(const char* text) {
  throw Declined(Reason::kDamaged, text);
}

std::uint32_t Big16(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(bytes[0] << 8 | bytes[1]);
}

std::uint32_t Big32(const std::uint8_t* bytes) {
  return Big16(bytes) << 16 | Big16(bytes + 2);
}

int Side(const std::uint8_t* bytes) {
  return static_cast<int>(std::min<std::uint32_t>(Big32(bytes), std::numeric_limits<int>::max()));
}

enum Colour { kGrayColour = 0, kRgbColour = 2, kPaletteColour = 3, kGrayAlphaColour = 4, kRgbAlphaColour = 6 };

// What the first chunk tells.
struct Kind {
  Size size;
  int depth = 8;
  int colour = kGrayColour;
  bool isInterlaced = false;

  std::size_t Samples() const {
    const std::array<std::size_t, 7> samples = {1, 0, 3, 1, 2, 0, 4};
    return samples[static_cast<std::size_t>(colour)];
  }
  std::size_t BitsPerPixel() const { return Samples() * static_cast<std::size_t>(depth); }
  std::size_t RowBytes(int width) const { return (static_cast<std::size_t>(width) * BitsPerPixel() + 7) / 8; }
  std::uint32_t Largest() const { return (1U << depth) - 1; }
};

bool IsPossible(int depth, int colour) {
  switch (colour) {
    case kGrayColour:
      return depth == 1 || depth == 2 || depth == 4 || depth == 8 || depth == 16;
    case kPaletteColour:
      return depth == 1 || depth == 2 || depth == 4 || depth == 8;
    case kRgbColour:
    case kGrayAlphaColour:
    case kRgbAlphaColour:
      return depth == 8 || depth == 16;
    default:
      return false;
  }
}

// The pixels of one pass over an interlaced picture, and the block that each stands for until later passes come.
struct Pass {
  int left = 0;
  int top = 0;
  int stepX = 1;
  int stepY = 1;
  Size block = {1, 1};

  static int Count(int side, int start, int step) { return (side - start + step - 1) / step; }
  Size SizeIn(Size picture) const { return {Count(picture.width, left, stepX), Count(picture.height, top, stepY)}; }
};

constexpr std::array<Pass, 7> kPasses = {{{0, 0, 8, 8, {8, 8}},
                                          {4, 0, 8, 8, {4, 8}},
                                          {0, 4, 4, 8, {4, 4}},
                                          {2, 0, 4, 4, {2, 4}},
                                          {0, 2, 2, 4, {2, 2}},
                                          {1, 0, 2, 2, {1, 2}},
                                          {0, 1, 1, 2, {1, 1}}}};

std::vector<Pass> PassesOf(const Kind& kind) {
  if (!kind.isInterlaced) return {Pass()};
  return {kPasses.begin(), kPasses.end()};
}

// The picture's bytes before compression: filters and rows.
std::size_t RawSize(const Kind& kind) {
  std::uint64_t bytes = 0;
  for (const Pass& pass : PassesOf(kind)) {
    const Size size = pass.SizeIn(kind.size);
    if (size.width > 0) bytes += (std::uint64_t{kind.RowBytes(size.width)} + 1) * static_cast<unsigned>(size.height);
  }
  if (bytes > std::numeric_limits<std::size_t>::max() / 2) throw std::bad_alloc();
  return static_cast<std::size_t>(bytes);
}

// Bytes that are not set to zero first.
struct Buffer {
  explicit Buffer(std::size_t size) : bytes(new std::uint8_t[size]) {}
  std::unique_ptr<std::uint8_t[]> bytes;
};

struct FreeDecompressor {
  void operator()(libdeflate_decompressor* decompressor) const { libdeflate_free_decompressor(decompressor); }
};
using Decompressor = std::unique_ptr<libdeflate_decompressor, FreeDecompressor>;

Decompressor MakeDecompressor() {
  Decompressor decompressor(libdeflate_alloc_decompressor());
  if (!decompressor) throw std::bad_alloc();
  return decompressor;
}

// As many bytes as there are before the data ends or is damaged.
std::size_t InflateSlowly(Bytes data, std::uint8_t* raw, std::size_t size) {
  z_stream stream = {};
  if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) throw std::bad_alloc();
  stream.next_in = const_cast<Bytef*>(data.data);  // NOLINT(cppcoreguidelines-pro-type-const-cast): it is only read
  stream.avail_in = static_cast<uInt>(data.size);
  stream.next_out = raw;
  stream.avail_out = static_cast<uInt>(size);
  inflate(&stream, Z_FINISH);
  inflateEnd(&stream);
  return size - stream.avail_out;
}

// Returns how many of the `size` bytes there are. The checksum at the end is not looked at.
std::size_t Inflate(Bytes data, std::uint8_t* raw, std::size_t size) {
  constexpr std::size_t kHead = 2;
  if (data.size <= kHead || (data.data[0] & 15) != 8 || (data.data[1] & 32) != 0) Damaged("the data is not compressed");
  const Bytes stream = {data.data + kHead, data.size - kHead};
  std::size_t count = 0;
  const Decompressor decompressor = MakeDecompressor();
  const libdeflate_result result =
      libdeflate_deflate_decompress(decompressor.get(), stream.data, stream.size, raw, size, &count);
  return result == LIBDEFLATE_SUCCESS ? count : InflateSlowly(stream, raw, size);
}

// Joins the contents of the data chunks at the beginning of `bytes` there, and returns their size.
std::size_t JoinData(std::uint8_t* bytes, std::size_t size) {
  std::size_t from = 0;
  std::size_t to = 0;
  while (size - from >= kChunkHead && std::memcmp(bytes + from + 4, "IDAT", 4) == 0) {
    const std::size_t length = std::min<std::size_t>(Big32(bytes + from), size - from - kChunkHead);
    std::memmove(bytes + to, bytes + from + kChunkHead, length);
    to += length;
    from += kChunkHead + length;
    from += std::min(kChecksum, size - from);
  }
  return to;
}

// The rows of the picture, or of one pass after the other, without their filters.
class RawRows {
 public:
  RawRows(std::uint8_t* raw, std::size_t available, const Kind& kind)
      : next_(raw),
        available_(available),
        kind_(kind),
        bytesPerPixel_(std::max<std::size_t>(kind.BitsPerPixel() / 8, 1)),
        zeros_(kind.RowBytes(kind.size.width) + kPngRowPadding) {}

  void StartPass(int width) {
    rowBytes_ = kind_.RowBytes(width);
    prior_ = zeros_.data();
  }

  // Null at the end and where the data is damaged.
  const std::uint8_t* Next() {
    if (available_ <= rowBytes_) return nullptr;
    std::uint8_t* row = next_ + 1;
    if (!Unfilter(*next_, row, prior_, rowBytes_, bytesPerPixel_)) return nullptr;
    prior_ = row;
    next_ += rowBytes_ + 1;
    available_ -= rowBytes_ + 1;
    ++count_;
    return row;
  }

  std::size_t Count() const { return count_; }

 private:
  std::uint8_t* next_;
  std::size_t available_;
  const Kind& kind_;
  std::size_t bytesPerPixel_;
  std::vector<std::uint8_t> zeros_;
  std::size_t rowBytes_ = 0;
  const std::uint8_t* prior_ = nullptr;
  std::size_t count_ = 0;
};

using Rgba = std::array<std::uint8_t, 4>;

class PngDecoder : public Decoder {
 public:
  explicit PngDecoder(const Input& input) : input_(input) {
    ReadHeader();
    ReadChunks();
    if (kind_.colour == kPaletteColour && !hasPalette_) Damaged("there is no palette");
    header_.stored = kind_.size;
  }

  const Header& Head() const override { return header_; }
  bool IsAnimated() const override { return isAnimated_; }
  Picture Decode(Size atLeast) override;

 private:
  struct Chunk {
    std::uint64_t start = 0;  // of its content
    std::size_t length = 0;
    std::array<char, 4> name = {};

    bool Is(const char* other) const { return std::memcmp(name.data(), other, name.size()) == 0; }
  };

  void ReadHeader();
  void ReadChunks();
  Chunk ChunkAt(std::uint64_t offset) const;
  std::vector<std::uint8_t> Content(const Chunk& chunk, std::size_t most) const;
  void Understand(const Chunk& chunk);
  void ReadPalette(const std::vector<std::uint8_t>& content);
  void ReadTransparency(const std::vector<std::uint8_t>& content);
  void ReadProfile(const std::vector<std::uint8_t>& content);

  bool HasAlpha() const;
  std::size_t ReadRaw(std::uint8_t* raw, std::size_t size) const;
  const std::uint8_t* Expand(const std::uint8_t* row, int width);
  bool DecodePass(const Pass& pass, RawRows* rows, Picture* picture);
  void ExpandPalette(const std::uint8_t* row, std::size_t width);
  void ExpandSamples(const std::uint8_t* row, std::size_t width);
  void Expand16Bits(const std::uint8_t* row, std::size_t width);
  std::uint32_t SampleAt(const std::uint8_t* row, std::size_t index) const;
  std::uint8_t To8Bits(std::uint32_t sample) const;

  const Input& input_;
  Header header_;
  Kind kind_;
  std::uint64_t dataStart_ = 0;
  bool isAnimated_ = false;
  bool hasPalette_ = false;
  bool hasTransparency_ = false;
  std::array<Rgba, 256> palette_ = {};
  std::array<std::uint32_t, 3> key_ = {};  // the transparent colour
  std::vector<std::uint8_t> profile_;
  std::vector<std::uint8_t> line_;  // a row of 8-bit samples
};

void PngDecoder::ReadHeader() {
  constexpr std::size_t kSignature = 8;
  std::array<std::uint8_t, kSignature + kChunkHead + 13> bytes = {};
  if (input_.ReadAt(0, bytes.data(), bytes.size()) < bytes.size()) Damaged("the header is cut off");
  if (std::memcmp(bytes.data(), "\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16) != 0) Damaged("there is no header");
  const std::uint8_t* fields = bytes.data() + kSignature + kChunkHead;
  kind_.size = {Side(fields), Side(fields + 4)};
  CheckDecodedSize(kind_.size);
  kind_.depth = fields[8];
  kind_.colour = fields[9];
  kind_.isInterlaced = fields[12] == 1;
  if (!IsPossible(kind_.depth, kind_.colour) || fields[10] != 0 || fields[11] != 0 || fields[12] > 1) {
    throw Declined(Reason::kUnsupported, "the header has values that PNG does not know");
  }
  dataStart_ = bytes.size() + kChecksum;
}

PngDecoder::Chunk PngDecoder::ChunkAt(std::uint64_t offset) const {
  std::array<std::uint8_t, kChunkHead> head = {};
  if (input_.ReadAt(offset, head.data(), head.size()) < head.size()) Damaged("there is no picture data");
  Chunk chunk;
  chunk.start = offset + kChunkHead;
  chunk.length = Big32(head.data());
  std::memcpy(chunk.name.data(), head.data() + 4, chunk.name.size());
  return chunk;
}

// Up to the data of the picture.
void PngDecoder::ReadChunks() {
  for (int count = 0; count < kMaxChunksBeforeData; ++count) {
    const Chunk chunk = ChunkAt(dataStart_);
    if (chunk.Is("IDAT")) return;
    if (chunk.Is("IEND")) break;
    Understand(chunk);
    dataStart_ = chunk.start + chunk.length + kChecksum;
  }
  Damaged("there is no picture data");
}

std::vector<std::uint8_t> PngDecoder::Content(const Chunk& chunk, std::size_t most) const {
  std::vector<std::uint8_t> content(std::min(chunk.length, most));
  if (!content.empty()) content.resize(input_.ReadAt(chunk.start, content.data(), content.size()));
  return content;
}

void PngDecoder::Understand(const Chunk& chunk) {
  if (chunk.Is("PLTE")) ReadPalette(Content(chunk, 3 * palette_.size()));
  if (chunk.Is("tRNS")) ReadTransparency(Content(chunk, palette_.size()));
  if (chunk.Is("iCCP") && chunk.length <= kMaxProfileBytes) ReadProfile(Content(chunk, chunk.length));
  if (chunk.Is("acTL")) {
    const std::vector<std::uint8_t> content = Content(chunk, 4);
    isAnimated_ = content.size() == 4 && Big32(content.data()) > 1;
  }
}

// Indices beyond the palette are black, as most programs show them.
void PngDecoder::ReadPalette(const std::vector<std::uint8_t>& content) {
  hasPalette_ = true;
  for (std::size_t i = 0; i < palette_.size(); ++i) {
    if (3 * i + 2 < content.size()) std::memcpy(palette_[i].data(), &content[3 * i], 3);
    if (!hasTransparency_) palette_[i][3] = 255;
  }
}

void PngDecoder::ReadTransparency(const std::vector<std::uint8_t>& content) {
  if (kind_.colour == kPaletteColour) {
    for (std::size_t i = 0; i < palette_.size(); ++i) palette_[i][3] = i < content.size() ? content[i] : 255;
  } else if (kind_.Samples() % 2 == 1 && content.size() >= 2 * kind_.Samples()) {
    for (std::size_t i = 0; i < kind_.Samples(); ++i) key_[i] = Big16(&content[2 * i]) & kind_.Largest();
  } else {
    return;
  }
  hasTransparency_ = true;
}

// A name, a byte for the compression, the compressed profile. One that is damaged counts as none.
void PngDecoder::ReadProfile(const std::vector<std::uint8_t>& content) {
  const auto end = std::find(content.begin(), content.end(), 0);
  if (content.end() - end < 2) return;
  const auto start = static_cast<std::size_t>(end - content.begin()) + 2;
  const Decompressor decompressor = MakeDecompressor();
  const Buffer room(kMaxProfileBytes);
  std::size_t size = 0;
  if (libdeflate_zlib_decompress(decompressor.get(), content.data() + start, content.size() - start, room.bytes.get(),
                                 kMaxProfileBytes, &size) == LIBDEFLATE_SUCCESS) {
    profile_.assign(room.bytes.get(), room.bytes.get() + size);
  }
}

bool PngDecoder::HasAlpha() const {
  return hasTransparency_ || kind_.colour == kGrayAlphaColour || kind_.colour == kRgbAlphaColour;
}

// Reads and decompresses; returns how many bytes there are.
std::size_t PngDecoder::ReadRaw(std::uint8_t* raw, std::size_t size) const {
  const std::uint64_t rest = input_.SizeInBytes() - dataStart_;
  if (rest > kMaxFileBytes) throw Declined(Reason::kTooLarge, "the file is too large");
  const Buffer file(static_cast<std::size_t>(rest));
  const std::size_t read = input_.ReadAt(dataStart_, file.bytes.get(), static_cast<std::size_t>(rest));
  return Inflate({file.bytes.get(), JoinData(file.bytes.get(), read)}, raw, size);
}

std::uint32_t PngDecoder::SampleAt(const std::uint8_t* row, std::size_t index) const {
  if (kind_.depth == 8) return row[index];
  if (kind_.depth == 16) return Big16(row + 2 * index);
  const std::size_t depth = static_cast<std::size_t>(kind_.depth);
  const std::size_t bit = index * depth;
  return row[bit / 8] >> (8 - depth - bit % 8) & kind_.Largest();
}

std::uint8_t PngDecoder::To8Bits(std::uint32_t sample) const {
  return kind_.depth == 16 ? From16Bits(sample) : static_cast<std::uint8_t>(sample * 255 / kind_.Largest());
}

void PngDecoder::ExpandPalette(const std::uint8_t* row, std::size_t width) {
  const std::size_t channels = hasTransparency_ ? 4 : 3;
  for (std::size_t x = 0; x < width; ++x) {
    std::memcpy(&line_[x * channels], palette_[SampleAt(row, x)].data(), channels);
  }
}

void PngDecoder::ExpandSamples(const std::uint8_t* row, std::size_t width) {
  const std::size_t samples = kind_.Samples();
  std::uint8_t* to = line_.data();
  for (std::size_t x = 0; x < width; ++x) {
    bool isKey = hasTransparency_;
    for (std::size_t i = 0; i < samples; ++i) {
      const std::uint32_t sample = SampleAt(row, x * samples + i);
      isKey = isKey && sample == key_[i];
      *to++ = To8Bits(sample);
    }
    if (hasTransparency_) *to++ = isKey ? 0 : 255;
  }
}

void PngDecoder::Expand16Bits(const std::uint8_t* row, std::size_t width) {
  const std::size_t count = width * kind_.Samples();
  for (std::size_t i = 0; i < count; ++i) line_[i] = From16Bits(Big16(row + 2 * i));
}

// The row with 8-bit samples, as many per pixel as the picture has channels.
const std::uint8_t* PngDecoder::Expand(const std::uint8_t* row, int width) {
  const auto count = static_cast<std::size_t>(width);
  if (kind_.colour == kPaletteColour) {
    ExpandPalette(row, count);
  } else if (hasTransparency_ || kind_.depth < 8) {
    ExpandSamples(row, count);
  } else if (kind_.depth == 16) {
    Expand16Bits(row, count);
  } else {
    return row;
  }
  return line_.data();
}

void FillBlock(Size block, int x, int y, std::uint8_t sample, Plane* plane) {
  const int right = std::min(x + block.width, plane->Width());
  const int bottom = std::min(y + block.height, plane->Height());
  for (int i = y; i < bottom; ++i) std::fill(plane->Row(i) + x, plane->Row(i) + right, sample);
}

// Spreads a row of a pass over the picture.
void SpreadRow(const std::uint8_t* pixels, const Pass& pass, int y, Picture* picture) {
  const int width = pass.SizeIn(picture->storedSize).width;
  for (int x = 0; x < width; ++x) {
    for (Channel& channel : picture->channels) {
      FillBlock(pass.block, pass.left + x * pass.stepX, pass.top + y * pass.stepY, *pixels++, &channel.plane);
    }
  }
}

Picture PngDecoder::Decode(Size /*atLeast*/) {
  const std::size_t rawSize = RawSize(kind_);
  const Buffer raw(rawSize + kPngRowPadding);
  const std::size_t available = ReadRaw(raw.bytes.get(), rawSize);
  const bool isGray = kind_.colour == kGrayColour || kind_.colour == kGrayAlphaColour;
  Picture picture = BlankPicture(isGray ? Model::kGray : Model::kRgb, HasAlpha(), kind_.size);
  picture.profile = profile_;
  picture.isCutOff = available < rawSize;
  line_.resize(static_cast<std::size_t>(kind_.size.width) * picture.channels.size());

  RawRows rows(raw.bytes.get(), available, kind_);
  for (Pass pass : PassesOf(kind_)) {
    // If later passes are missing, their pixels are those of earlier ones.
    if (available == rawSize) pass.block = {1, 1};
    if (!DecodePass(pass, &rows, &picture)) break;
  }
  if (rows.Count() == 0) Damaged("there is not even one row of pixels");
  return picture;
}

// Returns false if the data ends.
bool PngDecoder::DecodePass(const Pass& pass, RawRows* rows, Picture* picture) {
  const Size size = pass.SizeIn(kind_.size);
  if (size.width == 0) return true;
  rows->StartPass(size.width);
  for (int y = 0; y < size.height; ++y) {
    const std::uint8_t* row = rows->Next();
    if (row == nullptr) return false;
    const std::uint8_t* pixels = Expand(row, size.width);
    if (kind_.isInterlaced) {
      SpreadRow(pixels, pass, y, picture);
    } else {
      SplitRow(pixels, size.width, 0, y, picture);
    }
  }
  return true;
}

}  // namespace

std::unique_ptr<Decoder> OpenPng(const Input& input) {
  return std::make_unique<PngDecoder>(input);
}

}  // namespace tavithumb::maker
