// SPDX-License-Identifier: GPL-3.0-or-later
#include <libraw/libraw.h>

#include <algorithm>
#include <cstdio>

#include "maker/declined.h"
#include "maker/decode/buffered_input.h"
#include "maker/decode/decoders.h"
#include "maker/decode/raw_previews.h"
#include "maker/limits.h"

// LibRaw's OpenMP library has it, if LibRaw was built with one.
extern "C" __attribute__((weak)) void omp_set_num_threads(int threads);

namespace tavithumb::maker {
namespace {

// Lets LibRaw read an input.
class Stream : public LibRaw_abstract_datastream {
 public:
  explicit Stream(const Input& input) : input_(input) {}

  bool IsUnreadable() const { return input_.IsUnreadable(); }

  int valid() override { return 1; }
  INT64 size() override { return static_cast<INT64>(input_.SizeInBytes()); }
  INT64 tell() override { return position_; }
  int eof() override { return position_ >= size() ? 1 : 0; }

  int seek(INT64 offset, int whence) override {
    if (++seeks_ > kMaxSeeks) throw LibRaw_exceptions{LIBRAW_EXCEPTION_IO_CORRUPT};
    if (whence == SEEK_CUR) offset += position_;
    if (whence == SEEK_END) offset += size();
    position_ = std::clamp<INT64>(offset, 0, size());
    return 0;
  }

  int read(void* data, size_t size, size_t count) override {
    if (size == 0) return 0;
    const std::size_t got = Copy(data, size * count);
    return static_cast<int>(got / size);
  }

  int get_char() override {
    std::uint8_t byte = 0;
    return Copy(&byte, 1) == 1 ? byte : EOF;
  }

  // Up to the end of the line, like fgets().
  char* gets(char* text, int size) override {
    int length = 0;
    while (length < size - 1) {
      const int letter = get_char();
      if (letter == EOF) break;
      text[length++] = static_cast<char>(letter);
      if (letter == '\n') break;
    }
    if (length == 0) return nullptr;
    text[length] = '\0';
    return text;
  }

  // A word, like fscanf() with a single conversion.
  int scanf_one(const char* format, void* value) override {
    char word[32] = "";
    int letter = get_char();
    while (letter == ' ' || (letter >= '\t' && letter <= '\r')) letter = get_char();
    for (std::size_t i = 0; i + 1 < sizeof word && letter > ' '; ++i, letter = get_char()) {
      word[i] = static_cast<char>(letter);
    }
    return std::sscanf(word, format, value);  // NOLINT(cert-err34-c): LibRaw checks the result
  }

#if !LIBRAW_COMPILE_CHECK_VERSION_NOTLESS(0, 21)
  void* make_jas_stream() override {
    return nullptr;
  }
#endif

 private:
  std::size_t Copy(void* data, std::size_t count) {
    const std::size_t done = input_.Read(static_cast<std::uint64_t>(position_), data, count);
    position_ += static_cast<INT64>(done);
    return done;
  }

  // In a damaged CR3, LibRaw looks for boxes of no bytes without end. Raw files take some hundred seeks, and a few more
  // for each row or tile of their raw data.
  static constexpr int kMaxSeeks = 100000;

  BufferedInput input_;
  INT64 position_ = 0;
  int seeks_ = 0;
};

struct Free {
  void operator()(libraw_processed_image_t* image) const { LibRaw::dcraw_clear_mem(image); }
};
using Developed = std::unique_ptr<libraw_processed_image_t, Free>;

void Check(int result) {
  switch (result) {
    case LIBRAW_SUCCESS:
      return;
    case LIBRAW_UNSUFFICIENT_MEMORY:
      throw std::bad_alloc();
    case LIBRAW_TOO_BIG:
      throw Declined(Reason::kTooLarge, libraw_strerror(result));
    case LIBRAW_FILE_UNSUPPORTED:
    case LIBRAW_NOT_IMPLEMENTED:
      throw Declined(Reason::kUnsupported, libraw_strerror(result));
    default:
      // System errors are positive.
      throw Declined(Reason::kDamaged, result > 0 ? "the raw file cannot be read" : libraw_strerror(result));
  }
}

// What LibRaw calls flip: 1 is left-right, 2 is top-bottom, 4 swaps rows and columns, last.
Orientation OrientationOf(int flip) {
  constexpr Orientation kOrientations[] = {{0, false}, {0, true},  {2, true},  {2, false},
                                           {3, true},  {3, false}, {1, false}, {1, true}};
  return kOrientations[flip & 7];
}

// A picture of interleaved samples: gray, or RGB.
Picture PictureOf(const std::uint8_t* samples, Size size, int colours) {
  Picture picture;
  picture.model = colours == 1 ? Model::kGray : Model::kRgb;
  picture.storedSize = size;
  for (int colour = 0; colour < colours; ++colour) {
    Plane plane(size);
    const std::uint8_t* next = samples + colour;
    for (int y = 0; y < size.height; ++y) {
      std::uint8_t* row = plane.Row(y);
      for (int x = 0; x < size.width; ++x, next += colours) row[x] = *next;
    }
    picture.channels.push_back({std::move(plane), static_cast<double>(size.width), static_cast<double>(size.height)});
  }
  return picture;
}

// The largest preview in a raw file is its picture; only without one the raw data are developed.
class RawDecoder : public Decoder {
 public:
  explicit RawDecoder(const Input& input) : stream_(input) {
    raw_.set_dataerror_handler(nullptr, nullptr);  // the default writes to standard error
    const int result = raw_.open_datastream(&stream_);
    if (stream_.IsUnreadable()) throw Declined(Reason::kUnreadable, "the file cannot be read");
    Check(result);
    UsePreview();
    if (!HasPreview()) UseRawData();
    header_.orientation = OrientationOf(raw_.imgdata.sizes.flip);
    // Some cameras store the preview upright: it doesn't lie as the raw data do.
    header_.isUpright =
        HasPreview() && header_.orientation->SwapsSides() && IsWide(header_.stored) != IsWide(RawSize());
  }

  const Header& Head() const override { return header_; }

  Picture Decode(Size atLeast) override {
    if (jpeg_) return jpeg_->Decode(atLeast);
    const libraw_thumbnail_t& preview = raw_.imgdata.thumbnail;
    if (isBitmap_) return PictureOf(PreviewBytes().data, header_.stored, preview.tcolors);
    return Develop(atLeast);
  }

 private:
  static bool IsWide(Size size) { return size.width > size.height; }

  Size RawSize() const { return {raw_.imgdata.sizes.width, raw_.imgdata.sizes.height}; }

  bool HasPreview() const { return jpeg_ || isBitmap_; }

  Bytes PreviewBytes() const {
    const libraw_thumbnail_t& preview = raw_.imgdata.thumbnail;
    return {reinterpret_cast<const std::uint8_t*>(preview.thumb), preview.tlength};
  }

  void UsePreview() {
    if (raw_.imgdata.thumbnail.tlength > kMaxFileBytes || raw_.unpack_thumb() != LIBRAW_SUCCESS) return;
    const libraw_thumbnail_t& preview = raw_.imgdata.thumbnail;
    if (preview.thumb == nullptr) return;
    if (preview.tformat == LIBRAW_THUMBNAIL_JPEG) UseJpeg();
    if (preview.tformat == LIBRAW_THUMBNAIL_BITMAP) UseBitmap();
  }

  // A preview that can't be decoded is none.
  void UseJpeg() {
    try {
      jpegInput_.emplace(PreviewBytes());
      jpeg_ = OpenJpeg(*jpegInput_);
      header_.stored = jpeg_->Head().stored;
    } catch (const Declined&) {
      jpeg_.reset();
    }
  }

  void UseBitmap() {
    const libraw_thumbnail_t& preview = raw_.imgdata.thumbnail;
    const std::size_t pixels = std::size_t{preview.twidth} * preview.theight;
    if (pixels == 0 || (preview.tcolors != 1 && preview.tcolors != 3)) return;
    if (preview.tlength / static_cast<unsigned>(preview.tcolors) < pixels) return;
    header_.stored = {preview.twidth, preview.theight};
    CheckDecodedSize(header_.stored);
    isBitmap_ = true;
  }

  void UseRawData() {
    header_.stored = RawSize();
    CheckDecodedSize(header_.stored);
    CheckDecodedSize({raw_.imgdata.sizes.raw_width, raw_.imgdata.sizes.raw_height});
  }

  Picture Develop(Size atLeast) {
    const Size size = RawSize();
    libraw_output_params_t& params = raw_.imgdata.params;
    params.half_size = size.width / 2 >= atLeast.width && size.height / 2 >= atLeast.height ? 1 : 0;
    params.use_camera_wb = 1;
    params.user_flip = 0;  // as stored
    params.user_qual = 0;  // bilinear: the picture is going to be reduced
    if (omp_set_num_threads != nullptr) omp_set_num_threads(1);
    Check(raw_.unpack());
    Check(raw_.dcraw_process());
    int result = LIBRAW_SUCCESS;
    const Developed image(raw_.dcraw_make_mem_image(&result));
    Check(result);
    if (!image || image->bits != 8 || (image->colors != 1 && image->colors != 3)) {
      throw Declined(Reason::kUnsupported, "raw data of an unknown kind");
    }
    Picture picture = PictureOf(image->data, {image->width, image->height}, image->colors);
    picture.storedSize = size;
    return picture;
  }

  Stream stream_;
  LibRaw raw_;
  std::optional<Input> jpegInput_;
  std::unique_ptr<Decoder> jpeg_;
  bool isBitmap_ = false;
  Header header_;
};

// A raw file by its previews, of which the smallest one that suffices is decoded: LibRaw offers only the largest, and
// none of a camera that it doesn't know.
class PreviewDecoder : public Decoder {
 public:
  explicit PreviewDecoder(RawPreviews previews) : jpegs_(std::move(previews.jpegs)) {
    for (const std::vector<std::uint8_t>& jpeg : jpegs_) Add({jpeg.data(), jpeg.size()});
    header_.orientation = previews.orientation;
  }

  bool HasPreview() const { return !files_.empty(); }
  const Header& Head() const override { return header_; }

  Picture Decode(Size atLeast) override {
    const std::size_t index = ChoosePreview(header_.stored, previews_, atLeast, true).value_or(0);
    return files_[index]->decoder->Decode(atLeast);
  }

 private:
  struct File {
    explicit File(Bytes bytes) : input(bytes), decoder(OpenJpeg(input)) {}
    Input input;
    std::unique_ptr<Decoder> decoder;
  };

  // Tools that strip raw files leave a preview of a few pixels.
  static constexpr int kLeastSide = 64;

  // A preview that can't be decoded is none.
  void Add(Bytes jpeg) {
    try {
      auto file = std::make_unique<File>(jpeg);
      const Size size = file->decoder->Head().stored;
      if (size.width < kLeastSide && size.height < kLeastSide) return;
      if (size.width > header_.stored.width) header_.stored = size;
      previews_.push_back({size});
      files_.push_back(std::move(file));
    } catch (const Declined&) {
      return;
    }
  }

  std::vector<std::vector<std::uint8_t>> jpegs_;
  std::vector<std::unique_ptr<File>> files_;
  std::vector<Preview> previews_;
  Header header_;
};

}  // namespace

std::unique_ptr<Decoder> OpenRaw(const Input& input) {
  auto previews = std::make_unique<PreviewDecoder>(ReadRawPreviews(input));
  if (previews->HasPreview()) return previews;
  return std::make_unique<RawDecoder>(input);
}

}  // namespace tavithumb::maker
