// SPDX-License-Identifier: GPL-3.0-or-later
#include <tiffio.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "maker/decode/interleaved.h"
#include "maker/limits.h"

namespace tavithumb::maker {
namespace {

// Of a picture: for as many pixels as are decoded, each with 16 bits of red, green, blue and alpha.
constexpr std::uint64_t kMostBytes = 8 * std::uint64_t{kMaxDecodedPixels};
// A tile may be larger than the picture, but not by more than that.
constexpr std::uint64_t kMostExcess = std::uint64_t{64} << 20;

// What libtiff reads from. Its functions are called from C: they must not throw.
struct Source {
  const Input& input;
  std::uint64_t position = 0;
  int errors = 0;
  std::vector<std::uint8_t> content = {};  // of the whole file, if libtiff is to take it from memory
};

tmsize_t ReadSource(thandle_t handle, void* buffer, tmsize_t count) {
  auto* source = static_cast<Source*>(handle);
  try {
    const std::size_t done = source->input.ReadAt(source->position, buffer, static_cast<std::size_t>(count));
    source->position += done;
    return static_cast<tmsize_t>(done);
  } catch (const Declined&) {
    return -1;
  }
}

tmsize_t WriteNothing(thandle_t /*handle*/, void* /*buffer*/, tmsize_t /*count*/) {
  return -1;
}

toff_t SeekSource(thandle_t handle, toff_t offset, int whence) {
  auto* source = static_cast<Source*>(handle);
  if (whence == SEEK_CUR) offset += source->position;
  if (whence == SEEK_END) offset += source->input.SizeInBytes();
  source->position = offset;
  return offset;
}

int CloseNothing(thandle_t /*handle*/) {
  return 0;
}

toff_t SizeOfSource(thandle_t handle) {
  return static_cast<Source*>(handle)->input.SizeInBytes();
}

int MapSource(thandle_t handle, void** content, toff_t* size) {
  auto* source = static_cast<Source*>(handle);
  *content = source->content.data();
  *size = source->content.size();
  return source->content.empty() ? 0 : 1;
}

void UnmapNothing(thandle_t /*handle*/, void* /*content*/, toff_t /*size*/) {}

int CountError(TIFF* /*tiff*/, void* source, const char* /*module*/, const char* /*format*/, va_list /*values*/) {
  ++static_cast<Source*>(source)->errors;
  return 1;
}

int IgnoreWarning(TIFF* /*tiff*/, void* /*source*/, const char* /*module*/, const char* /*format*/,
                  va_list /*values*/) {
  return 1;
}

struct CloseTiff {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, CloseTiff>;

struct FreeOptions {
  void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

// Reads the first directory.
Tiff OpenFirstPage(Source* source) {
  const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
  if (!options) throw std::bad_alloc();
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(kMaxFileBytes));
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), CountError, source);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), IgnoreWarning, source);
  Tiff tiff(TIFFClientOpenExt("", "r", source, ReadSource, WriteNothing, SeekSource, CloseNothing, SizeOfSource,
                              MapSource, UnmapNothing, options.get()));
  if (!tiff) throw Declined(Reason::kDamaged, "the TIFF header is damaged");
  return tiff;
}

std::uint16_t FieldOr(TIFF* tiff, std::uint32_t tag, std::uint16_t otherwise) {
  std::uint16_t value = 0;
  return TIFFGetFieldDefaulted(tiff, tag, &value) == 1 ? value : otherwise;
}

int SideOf(TIFF* tiff, std::uint32_t tag) {
  std::uint32_t value = 0;
  TIFFGetFieldDefaulted(tiff, tag, &value);
  return static_cast<int>(std::min<std::uint32_t>(value, std::numeric_limits<int>::max()));
}

// What an extra sample is: EXTRASAMPLE_ASSOCALPHA (premultiplied) or ..._UNASSALPHA. Others aren't shown.
std::uint16_t AlphaOf(TIFF* tiff) {
  std::uint16_t count = 0;
  std::uint16_t* kinds = nullptr;
  if (TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &count, &kinds) != 1 || count == 0) return 0;
  return kinds[0];
}

// How the first page stores its pixels.
struct Layout {
  explicit Layout(TIFF* tiff)
      : size{SideOf(tiff, TIFFTAG_IMAGEWIDTH), SideOf(tiff, TIFFTAG_IMAGELENGTH)},
        bits(FieldOr(tiff, TIFFTAG_BITSPERSAMPLE, 1)),
        samples(FieldOr(tiff, TIFFTAG_SAMPLESPERPIXEL, 1)),
        photometric(FieldOr(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK)),
        compression(FieldOr(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE)),
        sampleFormat(FieldOr(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT)),
        isInterleaved(FieldOr(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_CONTIG),
        inkSet(FieldOr(tiff, TIFFTAG_INKSET, INKSET_CMYK)),
        alpha(AlphaOf(tiff)),
        isTiled(TIFFIsTiled(tiff) != 0) {}

  bool IsGray() const { return photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE; }
  bool IsCmyk() const { return photometric == PHOTOMETRIC_SEPARATED && inkSet == INKSET_CMYK; }
  // libjpeg makes RGB of these.
  bool IsYccJpeg() const { return photometric == PHOTOMETRIC_YCBCR && compression == COMPRESSION_JPEG && bits == 8; }

  std::size_t Colours() const { return IsGray() ? 1 : IsCmyk() ? 4 : 3; }
  // Alpha of CMYK isn't shown.
  bool HasAlpha() const {
    return samples > Colours() && !IsCmyk() && (alpha == EXTRASAMPLE_ASSOCALPHA || alpha == EXTRASAMPLE_UNASSALPHA);
  }
  std::size_t Channels() const { return Colours() + (HasAlpha() ? 1 : 0); }

  // Whole samples, that need no more than to be split.
  bool IsPlain() const {
    const bool isKnown = IsGray() || IsCmyk() || IsYccJpeg() || photometric == PHOTOMETRIC_RGB;
    return isKnown && isInterleaved && (bits == 8 || bits == 16) && sampleFormat == SAMPLEFORMAT_UINT &&
           samples >= Colours();
  }

  std::uint64_t BytesOf(Size part) const {
    const std::uint64_t pixels = std::uint64_t{static_cast<unsigned>(part.width)} * static_cast<unsigned>(part.height);
    return pixels * samples * bits / 8;
  }

  Size size;
  std::uint16_t bits;
  std::uint16_t samples;
  std::uint16_t photometric;
  std::uint16_t compression;
  std::uint16_t sampleFormat;
  bool isInterleaved;
  std::uint16_t inkSet;
  std::uint16_t alpha;
  bool isTiled;
};

bool HasContent(const std::vector<std::uint8_t>& bytes) {
  return std::any_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte != 0; });
}

// Rounded to the nearest.
void DivideByAlpha(std::uint8_t* pixels, std::size_t count, std::size_t channels) {
  for (std::uint8_t* pixel = pixels; pixel != pixels + count * channels; pixel += channels) {
    const unsigned alpha = pixel[channels - 1];
    if (alpha == 0 || alpha == 255) continue;
    for (std::size_t c = 0; c + 1 < channels; ++c) {
      pixel[c] = static_cast<std::uint8_t>(std::min(255U, (pixel[c] * 255 + alpha / 2) / alpha));
    }
  }
}

// Rows of whole samples as they are in the file become rows of the picture's channels with 8 bits.
class PlainRows {
 public:
  PlainRows(const Layout& layout, std::size_t width) : layout_(layout), line_(width * layout.samples) {}

  // In a buffer that the next call overwrites, or the row itself.
  const std::uint8_t* Convert(const std::uint8_t* row, std::size_t width) {
    const bool isInverted = layout_.photometric == PHOTOMETRIC_MINISWHITE || layout_.IsCmyk();
    const bool isPremultiplied = layout_.HasAlpha() && layout_.alpha == EXTRASAMPLE_ASSOCALPHA;
    const std::size_t channels = layout_.Channels();
    if (layout_.bits == 8 && layout_.samples == channels && !isInverted && !isPremultiplied) return row;
    To8Bits(row, width * layout_.samples);
    if (layout_.samples != channels) DropSamples(width, channels);
    if (isInverted) Invert(width * channels, channels);
    if (isPremultiplied) DivideByAlpha(line_.data(), width, channels);
    return line_.data();
  }

 private:
  void To8Bits(const std::uint8_t* row, std::size_t count) {
    if (layout_.bits == 8) {
      std::copy_n(row, count, line_.data());
      return;
    }
    for (std::size_t i = 0; i < count; ++i) {
      std::uint16_t sample = 0;
      std::memcpy(&sample, row + 2 * i, sizeof(sample));
      line_[i] = From16Bits(sample);
    }
  }

  void DropSamples(std::size_t width, std::size_t channels) {
    for (std::size_t x = 0; x < width; ++x) {
      std::memmove(&line_[x * channels], &line_[x * layout_.samples], channels);
    }
  }

  void Invert(std::size_t count, std::size_t channels) {
    for (std::size_t i = 0; i < count; ++i) {
      const bool isAlpha = layout_.HasAlpha() && i % channels == channels - 1;
      if (!isAlpha) line_[i] = static_cast<std::uint8_t>(255 - line_[i]);
    }
  }

  const Layout& layout_;
  std::vector<std::uint8_t> line_;
};

class TiffDecoder : public Decoder {
 public:
  explicit TiffDecoder(const Input& input) : source_{input}, tiff_(OpenFirstPage(&source_)), layout_(tiff_.get()) {
    CheckDecodedSize(layout_.size);
    if (layout_.BytesOf(layout_.size) > kMostBytes) throw Declined(Reason::kTooLarge, "the pixels have too many bits");
    header_.stored = layout_.size;
  }

  const Header& Head() const override { return header_; }

  Picture Decode(Size /*atLeast*/) override {
    Picture picture = layout_.IsPlain() ? DecodePlain() : DecodeAny();
    if (layout_.IsPlain() || layout_.IsGray() || layout_.photometric == PHOTOMETRIC_PALETTE) ReadProfile(&picture);
    return picture;
  }

 private:
  Picture DecodePlain();
  Picture DecodeAny();
  void OpenInMemory();
  Size BlockSize();
  std::size_t BlockBytes();
  bool ReadBlock(std::uint32_t index, std::vector<std::uint8_t>* block);
  tmsize_t ReadOnce(std::uint32_t index, std::vector<std::uint8_t>* block);
  void ReadProfile(Picture* picture);

  Source source_;
  Tiff tiff_;
  Layout layout_;
  Header header_;
};

// The strips or tiles of the file.
Size TiffDecoder::BlockSize() {
  TIFF* tiff = tiff_.get();
  Size block = {SideOf(tiff, TIFFTAG_TILEWIDTH), SideOf(tiff, TIFFTAG_TILELENGTH)};
  if (!layout_.isTiled) {
    block = {layout_.size.width, std::min(SideOf(tiff, TIFFTAG_ROWSPERSTRIP), layout_.size.height)};
  }
  if (block.width <= 0 || block.height <= 0) throw Declined(Reason::kDamaged, "a strip or tile has no pixels");
  return block;
}

// Checked before memory is taken.
std::size_t TiffDecoder::BlockBytes() {
  const std::uint64_t bytes = layout_.isTiled ? TIFFTileSize64(tiff_.get()) : TIFFStripSize64(tiff_.get());
  const std::uint64_t most = layout_.BytesOf(layout_.size) + kMostExcess;
  if (bytes == 0) throw Declined(Reason::kDamaged, "a strip or tile has no pixels");
  if (bytes > most) throw Declined(Reason::kTooLarge, "a strip or tile is too large");
  return static_cast<std::size_t>(bytes);
}

tmsize_t TiffDecoder::ReadOnce(std::uint32_t index, std::vector<std::uint8_t>* block) {
  const auto size = static_cast<tmsize_t>(block->size());
  return layout_.isTiled ? TIFFReadEncodedTile(tiff_.get(), index, block->data(), size)
                         : TIFFReadEncodedStrip(tiff_.get(), index, block->data(), size);
}

// Of a damaged block, what precedes the damage is there, the rest is zero. Returns false if that is nothing.
bool TiffDecoder::ReadBlock(std::uint32_t index, std::vector<std::uint8_t>* block) {
  if (ReadOnce(index, block) >= 0) return true;
  std::fill(block->begin(), block->end(), std::uint8_t{0});
  ReadOnce(index, block);
  return HasContent(*block);
}

Picture TiffDecoder::DecodePlain() {
  if (layout_.IsYccJpeg()) TIFFSetField(tiff_.get(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  const Size whole = layout_.size;
  const Size block = BlockSize();
  std::vector<std::uint8_t> bytes(BlockBytes());
  if (bytes.size() < layout_.BytesOf(block)) throw Declined(Reason::kDamaged, "a strip or tile has a wrong size");
  const auto rowBytes = static_cast<std::size_t>(layout_.BytesOf({block.width, 1}));
  const Model model = layout_.IsGray() ? Model::kGray : layout_.IsCmyk() ? Model::kCmyk : Model::kRgb;
  Picture picture = BlankPicture(model, layout_.HasAlpha(), whole);
  PlainRows rows(layout_, static_cast<std::size_t>(std::min(block.width, whole.width)));
  bool isDecoded = false;
  std::uint32_t index = 0;
  for (int top = 0; top < whole.height; top += block.height) {
    for (int left = 0; left < whole.width; left += block.width) {
      const bool isWhole = ReadBlock(index++, &bytes);
      isDecoded |= isWhole;
      picture.isCutOff |= !isWhole;
      const int width = std::min(block.width, whole.width - left);
      for (int y = top; y < std::min(top + block.height, whole.height); ++y) {
        const std::uint8_t* row = bytes.data() + static_cast<std::size_t>(y - top) * rowBytes;
        SplitRow(rows.Convert(row, static_cast<std::size_t>(width)), width, left, y, &picture);
      }
    }
  }
  if (!isDecoded) throw Declined(Reason::kDamaged, "nothing can be decoded");
  return picture;
}

// libtiff's own conversion to 8-bit RGB with premultiplied alpha, a band of rows at a time.
class RgbaImage {
 public:
  explicit RgbaImage(TIFF* tiff) {
    char text[1024] = "";
    constexpr int kGoesOn = 0;  // after errors
    if (TIFFRGBAImageBegin(&image_, tiff, kGoesOn, text) == 0) {
      throw Declined(Reason::kUnsupported, std::string("not decoded: ") + text);
    }
    image_.req_orientation = image_.orientation;  // as stored
  }
  ~RgbaImage() { TIFFRGBAImageEnd(&image_); }
  RgbaImage(const RgbaImage&) = delete;
  RgbaImage& operator=(const RgbaImage&) = delete;

  bool HasAlpha() const { return image_.alpha != 0; }

  void Read(int top, int height, std::vector<std::uint32_t>* pixels) {
    std::fill(pixels->begin(), pixels->end(), 0U);
    image_.row_offset = top;
    image_.col_offset = 0;
    TIFFRGBAImageGet(&image_, pixels->data(), image_.width, static_cast<std::uint32_t>(height));
  }

 private:
  TIFFRGBAImage image_ = {};
};

// The first `channels` of R, G, B and alpha; of two, R and alpha.
void Unpack(const std::uint32_t* pixels, std::size_t count, std::size_t channels, std::uint8_t* to) {
  for (std::size_t x = 0; x < count; ++x) {
    const std::uint32_t pixel = pixels[x];
    *to++ = static_cast<std::uint8_t>(TIFFGetR(pixel));
    if (channels >= 3) {
      *to++ = static_cast<std::uint8_t>(TIFFGetG(pixel));
      *to++ = static_cast<std::uint8_t>(TIFFGetB(pixel));
    }
    if (channels % 2 == 0) *to++ = static_cast<std::uint8_t>(TIFFGetA(pixel));
  }
}

// libtiff 4.5 converts tiles without compression only if it need not read them.
void TiffDecoder::OpenInMemory() {
  tiff_.reset();
  source_.content = source_.input.ReadAll(kMaxFileBytes);
  source_.position = 0;
  tiff_ = OpenFirstPage(&source_);
}

bool IsUniform(const std::vector<std::uint32_t>& pixels) {
  return std::all_of(pixels.begin(), pixels.end(), [&](std::uint32_t pixel) { return pixel == pixels[0]; });
}

Picture TiffDecoder::DecodeAny() {
  const Size block = BlockSize();
  BlockBytes();
  if (layout_.isTiled) OpenInMemory();
  RgbaImage image(tiff_.get());
  const Size whole = layout_.size;
  const auto width = static_cast<std::size_t>(whole.width);
  const int bandHeight = std::min(block.height, whole.height);
  Picture picture = BlankPicture(layout_.IsGray() ? Model::kGray : Model::kRgb, image.HasAlpha(), whole);
  const std::size_t channels = picture.channels.size();
  std::vector<std::uint32_t> pixels(width * static_cast<std::size_t>(bandHeight));
  std::vector<std::uint8_t> line(width * channels);
  bool isDecoded = false;
  for (int top = 0; top < whole.height; top += bandHeight) {
    const int height = std::min(bandHeight, whole.height - top);
    source_.errors = 0;
    image.Read(top, height, &pixels);
    isDecoded |= source_.errors == 0 || !IsUniform(pixels);
    picture.isCutOff |= source_.errors != 0;
    for (int y = 0; y < height; ++y) {
      Unpack(pixels.data() + static_cast<std::size_t>(y) * width, width, channels, line.data());
      if (image.HasAlpha()) DivideByAlpha(line.data(), width, channels);
      SplitRow(line.data(), whole.width, 0, top + y, &picture);
    }
  }
  if (!isDecoded) throw Declined(Reason::kDamaged, "nothing can be decoded");
  return picture;
}

void TiffDecoder::ReadProfile(Picture* picture) {
  std::uint32_t size = 0;
  const std::uint8_t* bytes = nullptr;
  if (TIFFGetField(tiff_.get(), TIFFTAG_ICCPROFILE, &size, &bytes) != 1 || size > kMaxProfileBytes) return;
  picture->profile.assign(bytes, bytes + size);
}

}  // namespace

std::unique_ptr<Decoder> OpenTiff(const Input& input) {
  return std::make_unique<TiffDecoder>(input);
}

}  // namespace tavithumb::maker
