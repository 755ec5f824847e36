// SPDX-License-Identifier: GPL-3.0-or-later
#include <jerror.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "maker/colour.h"
#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "maker/jpeg_errors.h"
#include "maker/limits.h"

namespace tavithumb::maker {
namespace {

// Reading ---------------------------------------------------------------------------------------------------------

// A larger one gains nothing; a small one costs time, as Huffman decoding is slower near its end.
constexpr std::size_t kBufferBytes = std::size_t{64} << 10;
// Of the file's start, which often is all that is needed: most headers of thumbnails fit.
constexpr std::size_t kFirstBytes = 4096;

// What libjpeg reads from. Behind the end it finds the marker of the end, and so shows what there is.
struct JpegSource {
  jpeg_source_mgr manager = {};  // first, so that libjpeg's pointer to it is one to the whole
  const Input* input = nullptr;
  std::uint64_t offset = 0;
  std::exception_ptr failure;
  std::array<JOCTET, kBufferBytes> buffer;
};

// Exceptions can't pass through libjpeg. Returns 0 after one.
std::size_t ReadMore(JpegSource* source) noexcept {
  try {
    const std::size_t count = source->offset == 0 ? kFirstBytes : source->buffer.size();
    return source->input->ReadAt(source->offset, source->buffer.data(), count);
  } catch (...) {
    source->failure = std::current_exception();
    return 0;
  }
}

JpegSource* SourceOf(j_decompress_ptr jpeg) {
  return reinterpret_cast<JpegSource*>(jpeg->src);
}

void StartReading(j_decompress_ptr) {}

boolean FillBuffer(j_decompress_ptr jpeg) {
  JpegSource* source = SourceOf(jpeg);
  std::size_t count = ReadMore(source);
  if (source->failure) ERREXIT(jpeg, JERR_FILE_READ);
  source->offset += count;
  if (count == 0) {
    source->buffer[0] = 0xFF;
    source->buffer[1] = JPEG_EOI;
    count = 2;
  }
  source->manager.next_input_byte = source->buffer.data();
  source->manager.bytes_in_buffer = count;
  return TRUE;
}

void SkipBytes(j_decompress_ptr jpeg, long count) {
  if (count <= 0) return;
  JpegSource* source = SourceOf(jpeg);
  const auto skipped = static_cast<std::size_t>(count);
  const std::size_t here = std::min(skipped, source->manager.bytes_in_buffer);
  source->manager.next_input_byte += here;
  source->manager.bytes_in_buffer -= here;
  source->offset += skipped - here;
}

void StopReading(j_decompress_ptr) {}

// A picture whose data ends within its first row of blocks shows nothing.
void NoteWarning(j_common_ptr common, int level) {
  if (level >= 0) return;
  ++common->err->num_warnings;
  const auto* jpeg = reinterpret_cast<j_decompress_ptr>(common);
  const bool isAtEnd = common->err->msg_code == JWRN_HIT_MARKER && jpeg->unread_marker == JPEG_EOI;
  if (isAtEnd && jpeg->input_scan_number <= 1 && jpeg->input_iMCU_row == 0) common->err->error_exit(common);
}

bool HasTooManyScans(const jpeg_decompress_struct& jpeg) {
  return jpeg.input_scan_number > kMaxScans;
}

void CheckScans(j_common_ptr common) {
  if (HasTooManyScans(*reinterpret_cast<j_decompress_ptr>(common))) common->err->error_exit(common);
}

// libjpeg's state, with where it reads and how it reports.
struct Decompressor {
  JpegErrors errors;
  JpegSource source;
  jpeg_progress_mgr progress = {};
  jpeg_decompress_struct jpeg = {};

  explicit Decompressor(const Input& input);
  ~Decompressor() { jpeg_destroy_decompress(&jpeg); }
  Decompressor(const Decompressor&) = delete;
  Decompressor& operator=(const Decompressor&) = delete;

  void ReadHeader();

  // Runs a step that calls libjpeg; see Completes(). Throws what went wrong.
  template <typename Step>
  void Run(const Step& step) {
    if (!Completes(errors, step)) Throw();
  }

 private:
  [[noreturn]] void Throw();
};

Decompressor::Decompressor(const Input& input) {
  source.input = &input;
  source.manager.init_source = StartReading;
  source.manager.fill_input_buffer = FillBuffer;
  source.manager.skip_input_data = SkipBytes;
  source.manager.resync_to_restart = jpeg_resync_to_restart;
  source.manager.term_source = StopReading;
  progress.progress_monitor = CheckScans;
  jpeg.err = errors.Prepare();
  jpeg.err->emit_message = NoteWarning;
  Run([this] { jpeg_create_decompress(&jpeg); });
  jpeg.src = &source.manager;
  jpeg.progress = &progress;
}

void Decompressor::ReadHeader() {
  source.offset = 0;
  source.manager.bytes_in_buffer = 0;
  Run([this] {
    jpeg_abort_decompress(&jpeg);
    jpeg_read_header(&jpeg, TRUE);
  });
}

void Decompressor::Throw() {
  if (source.failure) std::rethrow_exception(source.failure);
  if (HasTooManyScans(jpeg)) {
    throw Declined(Reason::kTooLarge, "the JPEG has more than " + std::to_string(kMaxScans) + " scans");
  }
  ThrowError(reinterpret_cast<j_common_ptr>(&jpeg));
}

// The profile -----------------------------------------------------------------------------------------------------

// Segments before the picture's data that are looked at: a profile of the permitted size has 65.
constexpr int kMaxSegments = 1000;

// Where a part of the profile is in the file.
struct Chunk {
  std::uint64_t offset = 0;
  std::size_t size = 0;
};

// The parts of a profile by their numbers, from 1.
struct Chunks {
  std::array<Chunk, 256> parts;
  std::size_t count = 0;
  bool isDamaged = false;

  void Add(std::size_t number, std::size_t total, Chunk chunk);
};

void Chunks::Add(std::size_t number, std::size_t total, Chunk chunk) {
  isDamaged = isDamaged || number == 0 || number > total || (count != 0 && count != total) || parts[number].offset != 0;
  count = total;
  parts[number] = chunk;
}

// The first bytes of a segment: marker, length, and what tells that it is a part of a profile.
using SegmentStart = std::array<std::uint8_t, 18>;

std::size_t LengthOf(const SegmentStart& start) {
  return static_cast<std::size_t>(start[2]) << 8 | start[3];
}

bool IsProfile(const SegmentStart& start) {
  return start[1] == JPEG_APP0 + 2 && LengthOf(start) >= 16 && std::memcmp(&start[4], "ICC_PROFILE", 12) == 0;
}

bool EndsHeader(const SegmentStart& start) {
  const bool isSegment = start[0] == 0xFF && start[1] >= 0xC0 && LengthOf(start) >= 2;
  constexpr int kStartOfScan = 0xDA;
  return !isSegment || start[1] == kStartOfScan || start[1] == JPEG_EOI;
}

Chunks FindProfile(const Input& input) {
  Chunks chunks;
  std::uint64_t offset = 2;
  for (int i = 0; i < kMaxSegments; ++i) {
    SegmentStart start = {};
    input.ReadAt(offset, start.data(), start.size());
    if (EndsHeader(start)) break;
    if (IsProfile(start)) chunks.Add(start[16], start[17], {offset + start.size(), LengthOf(start) - 16});
    offset += 2 + LengthOf(start);
  }
  return chunks;
}

// Empty if there is none, or not all of it, or too much.
std::vector<std::uint8_t> ReadProfile(const Input& input) {
  const Chunks chunks = FindProfile(input);
  std::vector<std::uint8_t> profile;
  if (chunks.isDamaged) return {};
  for (std::size_t number = 1; number <= chunks.count; ++number) {
    const Chunk& chunk = chunks.parts[number];
    const std::size_t before = profile.size();
    if (chunk.offset == 0 || before + chunk.size > kMaxProfileBytes) return {};
    profile.resize(before + chunk.size);
    if (input.ReadAt(chunk.offset, profile.data() + before, chunk.size) < chunk.size) return {};
  }
  return profile;
}

// Planes ----------------------------------------------------------------------------------------------------------

Size HalfOf(Size size) {
  return {(size.width + 1) / 2, (size.height + 1) / 2};
}

// Each sample becomes the mean of 2 x 2 of the rows above and below. The compiler makes vector instructions of the
// inner loops, as their count is known; they go beyond the width, but not beyond what may be read and written of a row.
void Halve(const std::uint8_t* above, const std::uint8_t* below, std::uint8_t* half, int width) {
  constexpr std::size_t kStep = 16;
  std::array<std::uint16_t, kStep> upper = {};
  std::array<std::uint16_t, kStep> lower = {};
  for (std::size_t x = 0; x < static_cast<std::size_t>(width); x += kStep) {
    std::memcpy(upper.data(), above + 2 * x, 2 * kStep);
    std::memcpy(lower.data(), below + 2 * x, 2 * kStep);
    for (std::size_t i = 0; i < kStep; ++i) {
      const auto a = static_cast<std::uint16_t>((upper[i] & 0xFF) + (upper[i] >> 8));
      const auto b = static_cast<std::uint16_t>((lower[i] & 0xFF) + (lower[i] >> 8));
      half[x + i] = static_cast<std::uint8_t>((a + b + 2) >> 2);
    }
  }
}

// A plane while libjpeg decodes into it: a row of blocks at a time.
struct RawPlane {
  Plane* plane = nullptr;
  Plane rowOfBlocks;  // decoded here first if the plane is to have half the size; else without samples
  int rows = 0;       // of a row of blocks
};

constexpr int kMaxPlanes = 3;
constexpr int kMaxRows = MAX_SAMP_FACTOR * DCTSIZE;

struct RawPlanes {
  std::array<RawPlane, kMaxPlanes> planes;
  Plane unused;  // a row for the samples of the last blocks that are below the picture
};

bool IsHalved(const RawPlane& raw) {
  return raw.rowOfBlocks.Height() > 0;
}

std::uint8_t* RowFor(RawPlanes* raws, RawPlane* raw, int step, int row) {
  if (IsHalved(*raw)) return raw->rowOfBlocks.Row(row);
  const int y = step * raw->rows + row;
  return y < raw->plane->Height() ? raw->plane->Row(y) : raws->unused.Row(0);
}

void HalveRowOfBlocks(RawPlane* raw, int step) {
  const int top = step * raw->rows / 2;
  for (int row = 0; row < raw->rows && top + row / 2 < raw->plane->Height(); row += 2) {
    const Plane& from = raw->rowOfBlocks;
    Halve(from.Row(row), from.Row(row + 1), raw->plane->Row(top + row / 2), raw->plane->Width());
  }
}

// Called within Completes().
void ReadPlanes(j_decompress_ptr jpeg, RawPlanes* raws) {
  std::array<std::array<JSAMPROW, kMaxRows>, kMaxPlanes> rows = {};
  std::array<JSAMPARRAY, kMaxPlanes> planes = {rows[0].data(), rows[1].data(), rows[2].data()};
  jpeg_start_decompress(jpeg);
  const int lines = jpeg->max_v_samp_factor * jpeg->min_DCT_scaled_size;
  const auto count = static_cast<std::size_t>(jpeg->num_components);
  for (int step = 0; jpeg->output_scanline < jpeg->output_height; ++step) {
    for (std::size_t i = 0; i < count; ++i) {
      RawPlane* raw = &raws->planes[i];
      for (int row = 0; row < raw->rows; ++row) rows[i][static_cast<std::size_t>(row)] = RowFor(raws, raw, step, row);
    }
    jpeg_read_raw_data(jpeg, planes.data(), static_cast<JDIMENSION>(lines));
    for (std::size_t i = 0; i < count; ++i) {
      if (IsHalved(raws->planes[i])) HalveRowOfBlocks(&raws->planes[i], step);
    }
  }
}

// Called within Completes(). Adobe's samples are those of the model already; others have 0 for no ink.
void ReadRows(j_decompress_ptr jpeg, JSAMPROW pixels, std::vector<Channel>* channels) {
  jpeg_start_decompress(jpeg);
  const bool isInverted = jpeg->out_color_space == JCS_CMYK && !jpeg->saw_Adobe_marker;
  const unsigned inversion = isInverted ? 0xFF : 0;
  const std::size_t count = channels->size();
  while (jpeg->output_scanline < jpeg->output_height) {
    const auto y = static_cast<int>(jpeg->output_scanline);
    jpeg_read_scanlines(jpeg, &pixels, 1);
    for (std::size_t i = 0; i < count; ++i) {
      std::uint8_t* row = (*channels)[i].plane.Row(y);
      for (std::size_t x = 0; x < jpeg->output_width; ++x) {
        row[x] = static_cast<std::uint8_t>(pixels[x * count + i] ^ inversion);
      }
    }
  }
}

// The decoder -----------------------------------------------------------------------------------------------------

struct Colours {
  Model model;
  J_COLOR_SPACE space;  // that libjpeg is to give
};

Colours ColoursOf(const jpeg_decompress_struct& jpeg) {
  switch (jpeg.jpeg_color_space) {
    case JCS_GRAYSCALE:
      return {Model::kGray, JCS_GRAYSCALE};
    case JCS_YCbCr:
      return {Model::kYcc, JCS_YCbCr};
    case JCS_RGB:
      return {Model::kRgb, JCS_RGB};
    case JCS_CMYK:
    case JCS_YCCK:
      return {Model::kCmyk, JCS_CMYK};
    default:
      throw Declined(Reason::kUnsupported,
                     "the JPEG has " + std::to_string(jpeg.num_components) + " unknown components");
  }
}

// Whether the planes can be taken as they are: Y must have the most samples.
bool HasUsablePlanes(const jpeg_decompress_struct& jpeg, Model model) {
  const jpeg_component_info& first = jpeg.comp_info[0];
  const bool isFull = first.h_samp_factor == jpeg.max_h_samp_factor && first.v_samp_factor == jpeg.max_v_samp_factor;
  return model == Model::kGray || (model == Model::kYcc && isFull);
}

class JpegDecoder final : public Decoder {
 public:
  explicit JpegDecoder(const Input& input);

  const Header& Head() const override { return head_; }
  Picture Decode(Size atLeast) override;
  bool IsSrgb() const override;

 private:
  void Configure(Size atLeast, J_COLOR_SPACE space);
  std::vector<Channel> DecodePlanes(Size atLeast);
  std::vector<Channel> DecodeRows();
  bool CanHalve(const jpeg_component_info& component, Size atLeast) const;

  const Input& input_;
  Header head_;
  Decompressor decompressor_;
  jpeg_decompress_struct& jpeg_ = decompressor_.jpeg;
  bool isHeaderRead_ = false;
};

JpegDecoder::JpegDecoder(const Input& input) : input_(input), decompressor_(input) {
  decompressor_.ReadHeader();
  isHeaderRead_ = true;
  head_.stored = {static_cast<int>(jpeg_.image_width), static_cast<int>(jpeg_.image_height)};
  CheckStoredSize(head_.stored);
}

void JpegDecoder::Configure(Size atLeast, J_COLOR_SPACE space) {
  if (!isHeaderRead_) decompressor_.ReadHeader();
  isHeaderRead_ = false;
  jpeg_.out_color_space = space;
  jpeg_.scale_num = 1;
  jpeg_.scale_denom = static_cast<unsigned>(JpegDenominator(head_.stored, atLeast));
  jpeg_.dct_method = JDCT_ISLOW;
  jpeg_.do_fancy_upsampling = FALSE;
  jpeg_.do_block_smoothing = FALSE;
  decompressor_.Run([this] { jpeg_calc_output_dimensions(&jpeg_); });
  CheckDecodedSize({static_cast<int>(jpeg_.output_width), static_cast<int>(jpeg_.output_height)});
  // All coefficients are in memory until the last scan.
  if (jpeg_has_multiple_scans(&jpeg_)) CheckDecodedSize(head_.stored);
}

// Scaled down, Cb and Cr come with as many samples as Y, though the file has half of them. The thumbnails will not have
// more either.
bool JpegDecoder::CanHalve(const jpeg_component_info& component, Size atLeast) const {
  if (component.DCT_scaled_size == jpeg_.min_DCT_scaled_size) return false;
  const Size half =
      HalfOf({static_cast<int>(component.downsampled_width), static_cast<int>(component.downsampled_height)});
  const Size ofLarge = HalfOf(atLeast);
  const Size ofSmall = FitInto(atLeast, {kFullChromaSide, kFullChromaSide});
  return half.width >= std::max(ofLarge.width, ofSmall.width) &&
         half.height >= std::max(ofLarge.height, ofSmall.height);
}

std::vector<Channel> JpegDecoder::DecodePlanes(Size atLeast) {
  jpeg_.raw_data_out = TRUE;
  std::vector<Channel> channels(static_cast<std::size_t>(jpeg_.num_components));
  RawPlanes raws;
  int widest = 0;
  for (std::size_t i = 0; i < channels.size(); ++i) {
    const jpeg_component_info& component = jpeg_.comp_info[i];
    const int dct = component.DCT_scaled_size;
    const Size size = {static_cast<int>(component.downsampled_width), static_cast<int>(component.downsampled_height)};
    const bool isHalved = CanHalve(component, atLeast);
    const double scale = dct / (isHalved ? 2.0 : 1.0) / DCTSIZE;
    channels[i].plane = Plane(isHalved ? HalfOf(size) : size);
    channels[i].width = scale * head_.stored.width * component.h_samp_factor / jpeg_.max_h_samp_factor;
    channels[i].height = scale * head_.stored.height * component.v_samp_factor / jpeg_.max_v_samp_factor;
    raws.planes[i].plane = &channels[i].plane;
    raws.planes[i].rows = component.v_samp_factor * dct;
    if (isHalved) raws.planes[i].rowOfBlocks = Plane({size.width, raws.planes[i].rows});
    widest = std::max(widest, size.width);
  }
  raws.unused = Plane({widest, 1});
  decompressor_.Run([&] { ReadPlanes(&jpeg_, &raws); });
  return channels;
}

std::vector<Channel> JpegDecoder::DecodeRows() {
  const Size size = {static_cast<int>(jpeg_.output_width), static_cast<int>(jpeg_.output_height)};
  std::vector<Channel> channels(static_cast<std::size_t>(jpeg_.out_color_components));
  for (Channel& channel : channels) {
    channel.plane = Plane(size);
    channel.width = static_cast<double>(head_.stored.width) / jpeg_.scale_denom;
    channel.height = static_cast<double>(head_.stored.height) / jpeg_.scale_denom;
  }
  std::vector<JSAMPLE> pixels(channels.size() * static_cast<std::size_t>(size.width));
  decompressor_.Run([&] { ReadRows(&jpeg_, pixels.data(), &channels); });
  return channels;
}

Picture JpegDecoder::Decode(Size atLeast) {
  const Colours colours = ColoursOf(jpeg_);
  Configure(atLeast, colours.space);
  Picture picture;
  picture.model = colours.model;
  picture.storedSize = head_.stored;
  picture.channels = HasUsablePlanes(jpeg_, colours.model) ? DecodePlanes(atLeast) : DecodeRows();
  picture.profile = ReadProfile(input_);
  return picture;
}

bool JpegDecoder::IsSrgb() const {
  Picture described;
  described.model = ColoursOf(jpeg_).model;
  described.profile = ReadProfile(input_);
  return maker::IsSrgb(described);
}

}  // namespace

std::unique_ptr<Decoder> OpenJpeg(const Input& input) {
  return std::make_unique<JpegDecoder>(input);
}

}  // namespace tavithumb::maker
