// SPDX-License-Identifier: GPL-3.0-or-later
#include <lcms2.h>
#include <libheif/heif.h>
#include <malloc.h>
#include <sched.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "maker/declined.h"
#include "maker/decode/buffered_input.h"
#include "maker/decode/decoders.h"
#include "maker/limits.h"
#include "maker/resample.h"

namespace tavithumb::maker {
namespace {

struct Free {
  void operator()(heif_context* context) const { heif_context_free(context); }
  void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
  void operator()(heif_image* image) const { heif_image_release(image); }
  void operator()(heif_decoding_options* options) const { heif_decoding_options_free(options); }
  void operator()(heif_color_profile_nclx* coding) const { heif_nclx_color_profile_free(coding); }
};
using Context = std::unique_ptr<heif_context, Free>;
using Handle = std::unique_ptr<heif_image_handle, Free>;
using Image = std::unique_ptr<heif_image, Free>;
using DecodingOptions = std::unique_ptr<heif_decoding_options, Free>;
using Coding = std::unique_ptr<heif_color_profile_nclx, Free>;

Reason ReasonOf(const heif_error& error) {
  if (error.subcode == heif_suberror_Security_limit_exceeded) return Reason::kTooLarge;
  if (error.code == heif_error_Unsupported_feature || error.code == heif_error_Unsupported_filetype ||
      error.code == heif_error_Plugin_loading_error) {
    return Reason::kUnsupported;
  }
  return Reason::kDamaged;
}

// Some versions of libheif end their messages with a new line.
std::string FirstLineOf(std::string_view message) {
  return std::string(message.substr(0, message.find('\n')));
}

void Check(const heif_error& error) {
  if (error.code != heif_error_Ok) throw Declined(ReasonOf(error), FirstLineOf(error.message));
}

// What libheif reads from: it wants a file with a position.
struct Cursor {
  BufferedInput input;
  std::int64_t position = 0;
};

std::int64_t Position(void* cursor) {
  return static_cast<Cursor*>(cursor)->position;
}

int Read(void* data, std::size_t size, void* userData) {
  Cursor& cursor = *static_cast<Cursor*>(userData);
  const std::size_t got = cursor.input.Read(static_cast<std::uint64_t>(cursor.position), data, size);
  cursor.position += static_cast<std::int64_t>(got);
  return got == size ? 0 : 1;
}

int Seek(std::int64_t position, void* cursor) {
  if (position < 0) return 1;
  static_cast<Cursor*>(cursor)->position = position;
  return 0;
}

heif_reader_grow_status WaitForFileSize(std::int64_t size, void* cursor) {
  const std::uint64_t whole = static_cast<Cursor*>(cursor)->input.SizeInBytes();
  const bool isThere = size >= 0 && static_cast<std::uint64_t>(size) <= whole;
  return isThere ? heif_reader_grow_status_size_reached : heif_reader_grow_status_size_beyond_eof;
}

heif_reader Reader() {
  heif_reader reader = {};
  reader.reader_api_version = 1;
  reader.get_position = Position;
  reader.read = Read;
  reader.seek = Seek;
  reader.wait_for_file_size = WaitForFileSize;
  return reader;
}

// dav1d starts a thread for each processor that this thread may run on, whatever libheif has been told: while this
// lives, that is the one it runs on. libheif gives libde265 one thread.
class OneProcessor {
 public:
  OneProcessor() : isKnown_(sched_getaffinity(0, sizeof before_, &before_) == 0) {
    const int current = sched_getcpu();
    if (!isKnown_ || current < 0) return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned>(current), &one);
    sched_setaffinity(0, sizeof one, &one);
  }
  ~OneProcessor() {
    if (isKnown_) sched_setaffinity(0, sizeof before_, &before_);
  }
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  cpu_set_t before_ = {};
  bool isKnown_;
};

// Called before the first tile is decoded. libheif has no way to cancel there, but it is C++ and unwinds.
void CheckTiles(heif_progress_step step, int tiles, void* /*userData*/) {
  if (step == heif_progress_step_total && tiles > kMaxTiles) throw Declined(Reason::kTooLarge, "too many tiles");
}

struct Layout {
  heif_colorspace colours = heif_colorspace_RGB;
  heif_chroma chroma = heif_chroma_444;
};

// The one in which libheif has the samples without converting them. The older versions make RGB of all tiles.
Layout NativeLayout([[maybe_unused]] const heif_image_handle* handle) {
  Layout layout;
#if LIBHEIF_HAVE_VERSION(1, 17, 0)
  heif_image_handle_get_preferred_decoding_colorspace(handle, &layout.colours, &layout.chroma);
  if (layout.colours != heif_colorspace_YCbCr && layout.colours != heif_colorspace_monochrome) return {};
#endif
  return layout;
}

Image DecodeAs(const heif_image_handle* handle, const Layout& layout) {
  const DecodingOptions options(heif_decoding_options_alloc());
  if (!options) throw std::bad_alloc();
  options->start_progress = CheckTiles;
  heif_image* image = nullptr;
  const heif_error error = heif_decode_image(handle, &image, layout.colours, layout.chroma, options.get());
  Image owned(image);
  Check(error);
  return owned;
}

// Older versions have limits of their own that can't be lowered in a useful way.
void BoundContext([[maybe_unused]] heif_context* context) {
#if LIBHEIF_HAVE_VERSION(1, 19, 0)
  heif_security_limits* limits = heif_context_get_security_limits(context);
  limits->max_image_size_pixels = kMaxDecodedPixels;
  limits->max_number_of_tiles = kMaxTiles;
#endif
}

Size SizeOf(const heif_image_handle* handle) {
  return {heif_image_handle_get_width(handle), heif_image_handle_get_height(handle)};
}

// What the file says of its colours by numbers.
heif_color_profile_nclx CodingOf(const heif_image_handle* handle, const heif_image* image) {
  heif_color_profile_nclx* coding = nullptr;
  if (heif_image_get_nclx_color_profile(image, &coding).code == heif_error_Ok && coding != nullptr) {
    return *Coding(coding);
  }
  // The older libheif doesn't tell how it has coded the samples: as JPEG's.
  heif_color_profile_nclx jpeg = {};
  jpeg.matrix_coefficients = heif_matrix_coefficients_unspecified;
  jpeg.full_range_flag = 1;
  if (heif_image_handle_get_nclx_color_profile(handle, &coding).code == heif_error_Ok && coding != nullptr) {
    jpeg.color_primaries = Coding(coding)->color_primaries;
  }
  return jpeg;
}

struct Weights {
  double red;
  double blue;
};

Weights WeightsOf(const heif_color_profile_nclx& coding) {
  switch (coding.matrix_coefficients) {
    case heif_matrix_coefficients_ITU_R_BT_709_5:
      return {0.2126, 0.0722};
    case heif_matrix_coefficients_US_FCC_T47:
      return {0.30, 0.11};
    case heif_matrix_coefficients_SMPTE_240M:
      return {0.212, 0.087};
    case heif_matrix_coefficients_ITU_R_BT_2020_2_non_constant_luminance:
    case heif_matrix_coefficients_ITU_R_BT_2020_2_constant_luminance:
      return {0.2627, 0.0593};
    default:
      return {0.299, 0.114};
  }
}

// Whether weights alone tell how Y, Cb and Cr were made of R, G and B.
bool IsYcc(const heif_color_profile_nclx& coding) {
  switch (coding.matrix_coefficients) {
    case heif_matrix_coefficients_RGB_GBR:
    case heif_matrix_coefficients_YCgCo:
    case heif_matrix_coefficients_SMPTE_ST_2085:
    case heif_matrix_coefficients_chromaticity_derived_non_constant_luminance:
    case heif_matrix_coefficients_chromaticity_derived_constant_luminance:
    case heif_matrix_coefficients_ICtCp:
      return false;
    default:
      return true;
  }
}

// Rounds samples of 9 to 16 bits to 8.
void Round(const std::uint8_t* from, int bits, std::uint8_t* to, int width) {
  const int shift = bits - 8;
  for (int x = 0; x < width; ++x) {
    std::uint16_t sample = 0;
    std::memcpy(&sample, from + 2 * static_cast<std::ptrdiff_t>(x), sizeof sample);
    to[x] = static_cast<std::uint8_t>(std::min((sample + (1 << shift >> 1)) >> shift, 255));
  }
}

constexpr char kTooSmall[] = "the picture is smaller than the file says";

// A channel of a decoded image. Cameras pad pictures to whole blocks, and libheif leaves the padding in some: no more
// than `most` belongs to the picture.
class Samples {
 public:
  Samples(const heif_image* image, heif_channel channel, Size most)
      : size_{std::min(heif_image_get_width(image, channel), most.width),
              std::min(heif_image_get_height(image, channel), most.height)},
        bits_(heif_image_get_bits_per_pixel_range(image, channel)),
        samples_(heif_image_get_plane_readonly(image, channel, &stride_)) {
    CheckDecodedSize(size_);
    if (samples_ == nullptr || bits_ < 8 || bits_ > 16) throw Declined(Reason::kUnsupported, "a channel is missing");
    if (bits_ > 8) rounded_.resize(static_cast<std::size_t>(size_.width));
  }

  Size Dimensions() const { return size_; }

  // Valid until the next call.
  const std::uint8_t* Row(int y) {
    const std::uint8_t* row = samples_ + static_cast<std::ptrdiff_t>(y) * stride_;
    if (bits_ == 8) return row;
    Round(row, bits_, rounded_.data(), size_.width);
    return rounded_.data();
  }

 private:
  Size size_;
  int bits_;
  int stride_ = 0;
  const std::uint8_t* samples_;
  std::vector<std::uint8_t> rounded_;
};

// libheif's rows end where its memory may end: vector code needs copies.
Plane CopyOf(const heif_image* image, heif_channel channel, Size most) {
  Samples samples(image, channel, most);
  Plane plane(samples.Dimensions());
  for (int y = 0; y < plane.Height(); ++y) {
    std::memcpy(plane.Row(y), samples.Row(y), static_cast<std::size_t>(plane.Width()));
  }
  return plane;
}

// A picture smaller than the file says would be distorted.
Plane CopyOfWhole(const heif_image* image, heif_channel channel, Size size) {
  Plane plane = CopyOf(image, channel, size);
  if (plane.Dimensions() != size) throw Declined(Reason::kDamaged, kTooSmall);
  return plane;
}

// 16 to 235 become 0 to 255.
void ExpandRange(Plane* plane) {
  std::uint8_t expanded[256];
  for (int i = 0; i < 256; ++i) {
    expanded[i] = static_cast<std::uint8_t>(std::clamp(((i - 16) * 510 + 219) / 438, 0, 255));
  }
  for (int y = 0; y < plane->Height(); ++y) {
    std::uint8_t* row = plane->Row(y);
    for (int x = 0; x < plane->Width(); ++x) row[x] = expanded[row[x]];
  }
}

void Append(Plane plane, double width, double height, Picture* picture) {
  picture->channels.push_back({std::move(plane), width, height});
}

void AppendWhole(Plane plane, Picture* picture) {
  const Size size = plane.Dimensions();
  Append(std::move(plane), size.width, size.height, picture);
}

void AppendYcc(const heif_image* image, const heif_color_profile_nclx& coding, Picture* picture) {
  const Weights weights = WeightsOf(coding);
  const heif_chroma chroma = heif_image_get_chroma_format(image);
  picture->model = Model::kYcc;
  picture->ycc = {weights.red, weights.blue, coding.full_range_flag != 0};
  AppendWhole(CopyOfWhole(image, heif_channel_Y, picture->storedSize), picture);
  const Size size = picture->channels[0].plane.Dimensions();
  const int across = chroma == heif_chroma_444 ? 1 : 2;
  const int down = chroma == heif_chroma_420 ? 2 : 1;
  const Size subsampled = {(size.width + across - 1) / across, (size.height + down - 1) / down};
  for (const heif_channel channel : {heif_channel_Cb, heif_channel_Cr}) {
    const double width = static_cast<double>(size.width) / across;
    Append(CopyOfWhole(image, channel, subsampled), width, static_cast<double>(size.height) / down, picture);
  }
}

void AppendGray(const heif_image* image, const heif_color_profile_nclx& coding, Picture* picture) {
  Plane plane = CopyOfWhole(image, heif_channel_Y, picture->storedSize);
  if (coding.full_range_flag == 0) ExpandRange(&plane);
  picture->model = Model::kGray;
  AppendWhole(std::move(plane), picture);
}

struct RgbRow {
  const std::uint8_t* red;
  const std::uint8_t* green;
  const std::uint8_t* blue;
};

void ToLuma(const RgbRow& row, std::uint8_t* luma, int width) {
  for (int x = 0; x < width; ++x) {
    luma[x] = static_cast<std::uint8_t>((19595 * row.red[x] + 38470 * row.green[x] + 7471 * row.blue[x] + 32768) >> 16);
  }
}

// Adds up two neighbours; at the end of a row of odd length, the last one twice.
void AddPairs(const std::uint8_t* row, std::uint16_t* sums, int width) {
  for (int x = 0; x < width / 2; ++x, row += 2) sums[x] = static_cast<std::uint16_t>(sums[x] + row[0] + row[1]);
  if (width % 2 != 0) sums[width / 2] = static_cast<std::uint16_t>(sums[width / 2] + 2 * row[0]);
}

// `sums` are those of four pixels each.
void ToChroma(const std::vector<std::uint16_t> (&sums)[3], std::uint8_t* cb, std::uint8_t* cr) {
  constexpr int kMiddle = (128 << 18) + (1 << 17);
  for (std::size_t x = 0; x < sums[0].size(); ++x) {
    const int red = sums[0][x];
    const int green = sums[1][x];
    const int blue = sums[2][x];
    cb[x] = static_cast<std::uint8_t>(std::min((-11059 * red - 21709 * green + 32768 * blue + kMiddle) >> 18, 255));
    cr[x] = static_cast<std::uint8_t>(std::min((32768 * red - 27439 * green - 5329 * blue + kMiddle) >> 18, 255));
  }
}

bool IsNeutral(const Plane& chroma) {
  for (int y = 0; y < chroma.Height(); ++y) {
    const std::uint8_t* row = chroma.Row(y);
    if (!std::all_of(row, row + chroma.Width(), [](std::uint8_t sample) { return sample == 128; })) return false;
  }
  return true;
}

// RGB takes twice the memory of JPEG's Y, Cb and Cr at 4:2:0, which most pictures had in the file anyway.
void AppendRgb(const heif_image* image, Picture* picture) {
  const Size most = picture->storedSize;
  Samples channels[] = {{image, heif_channel_R, most}, {image, heif_channel_G, most}, {image, heif_channel_B, most}};
  const Size size = channels[0].Dimensions();
  if (size != most) throw Declined(Reason::kDamaged, kTooSmall);
  if (channels[1].Dimensions() != size || channels[2].Dimensions() != size) {
    throw Declined(Reason::kUnsupported, "channels of different sizes");
  }
  const Size half = {(size.width + 1) / 2, (size.height + 1) / 2};
  Plane planes[] = {Plane(size), Plane(half), Plane(half)};
  std::vector<std::uint16_t> sums[3];
  for (int y = 0; y < half.height; ++y) {
    for (auto& sum : sums) sum.assign(static_cast<std::size_t>(half.width), 0);
    for (const int line : {2 * y, std::min(2 * y + 1, size.height - 1)}) {
      const RgbRow row = {channels[0].Row(line), channels[1].Row(line), channels[2].Row(line)};
      ToLuma(row, planes[0].Row(line), size.width);
      AddPairs(row.red, sums[0].data(), size.width);
      AddPairs(row.green, sums[1].data(), size.width);
      AddPairs(row.blue, sums[2].data(), size.width);
    }
    ToChroma(sums, planes[1].Row(y), planes[2].Row(y));
  }
  picture->model = IsNeutral(planes[1]) && IsNeutral(planes[2]) ? Model::kGray : Model::kYcc;
  AppendWhole(std::move(planes[0]), picture);
  if (picture->model == Model::kGray) return;
  Append(std::move(planes[1]), size.width / 2.0, size.height / 2.0, picture);
  Append(std::move(planes[2]), size.width / 2.0, size.height / 2.0, picture);
}

void AppendAlpha(const heif_image_handle* handle, const heif_image* image, Picture* picture) {
  if (heif_image_has_channel(image, heif_channel_Alpha) == 0) return;
  Plane alpha = CopyOf(image, heif_channel_Alpha, picture->storedSize);
  const Size from = alpha.Dimensions();
  const Size to = picture->channels[0].plane.Dimensions();
  if (from != to) {
    const Region whole = {0, 0, static_cast<double>(from.width), static_cast<double>(from.height)};
    alpha = Resample(alpha, {whole, to, static_cast<double>(to.width), static_cast<double>(to.height)});
  }
  picture->hasAlpha = true;
  picture->isPremultiplied = heif_image_handle_is_premultiplied_alpha(handle) != 0;
  AppendWhole(std::move(alpha), picture);
}

std::vector<std::uint8_t> EmbeddedProfileOf(const heif_image_handle* handle) {
  const std::size_t size = heif_image_handle_get_raw_color_profile_size(handle);
  if (size == 0 || size > kMaxProfileBytes) return {};
  std::vector<std::uint8_t> profile(size);
  if (heif_image_handle_get_raw_color_profile(handle, profile.data()).code != heif_error_Ok) return {};
  return profile;
}

std::vector<std::uint8_t> ExifOf(const heif_image_handle* handle) {
  constexpr std::size_t kMost = 1048576;
  constexpr std::size_t kOffsetBytes = 4;  // how far behind it the structure starts
  heif_item_id id = 0;
  if (heif_image_handle_get_list_of_metadata_block_IDs(handle, "Exif", &id, 1) != 1) return {};
  const std::size_t size = heif_image_handle_get_metadata_size(handle, id);
  if (size <= kOffsetBytes || size > kMost) return {};
  std::vector<std::uint8_t> block(size);
  if (heif_image_handle_get_metadata(handle, id, block.data()).code != heif_error_Ok) return {};
  std::size_t offset = 0;
  for (std::size_t i = 0; i < kOffsetBytes; ++i) offset = offset << 8 | block[i];
  if (offset > size - kOffsetBytes) return {};
  block.erase(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(kOffsetBytes + offset));
  return block;
}

// The curve of sRGB: those of films and photos are close to it, and brighter light than a screen's isn't mapped.
std::vector<std::uint8_t> ProfileWith(const cmsCIExyYTRIPLE& primaries) {
  const cmsCIExyY d65 = {0.3127, 0.3290, 1};
  const cmsFloat64Number srgb[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
  cmsToneCurve* curve = cmsBuildParametricToneCurve(nullptr, 4, srgb);
  cmsToneCurve* const curves[] = {curve, curve, curve};
  const cmsHPROFILE profile = cmsCreateRGBProfile(&d65, &primaries, curves);
  cmsUInt32Number size = 0;
  std::vector<std::uint8_t> bytes;
  if (cmsSaveProfileToMem(profile, nullptr, &size) != 0) {
    bytes.resize(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
  }
  cmsCloseProfile(profile);
  cmsFreeToneCurve(curve);
  return bytes;
}

// For files that name their colours by a number instead of an ICC profile; all but the wide ones count as sRGB.
std::vector<std::uint8_t> ProfileOf(heif_color_primaries primaries) {
  switch (primaries) {
    case heif_color_primaries_ITU_R_BT_2020_2_and_2100_0:
      return ProfileWith({{0.708, 0.292, 1}, {0.170, 0.797, 1}, {0.131, 0.046, 1}});
    case heif_color_primaries_SMPTE_RP_431_2:
    case heif_color_primaries_SMPTE_EG_432_1:  // Display P3
      return ProfileWith({{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}});
    default:
      return {};
  }
}

// Photos are made of tiles of half a mebibyte or less each. By default, the memory of each would be returned to the
// system and asked for again, which takes up to a tenth of the time of a decode. This stays so in this process.
void KeepMemoryBetweenTiles() {
  constexpr int kMebibyte = 1048576;
  // NOLINTBEGIN(concurrency-mt-unsafe): libheif's threads have not started
  mallopt(M_MMAP_THRESHOLD, kMebibyte);
  mallopt(M_TRIM_THRESHOLD, 2 * kMebibyte);
  // NOLINTEND(concurrency-mt-unsafe)
}

Picture DecodeItem(const heif_image_handle* handle) {
  KeepMemoryBetweenTiles();
  CheckDecodedSize(SizeOf(handle));
  Image image = DecodeAs(handle, NativeLayout(handle));
  const heif_color_profile_nclx coding = CodingOf(handle, image.get());
  const heif_colorspace colours = heif_image_get_colorspace(image.get());
  if (colours == heif_colorspace_YCbCr && !IsYcc(coding)) {
    image.reset();
    image = DecodeAs(handle, {});
  }
  Picture picture;
  picture.storedSize = SizeOf(handle);
  if (colours == heif_colorspace_monochrome) {
    AppendGray(image.get(), coding, &picture);
  } else if (heif_image_get_colorspace(image.get()) == heif_colorspace_YCbCr) {
    AppendYcc(image.get(), coding, &picture);
  } else {
    AppendRgb(image.get(), &picture);
  }
  AppendAlpha(handle, image.get(), &picture);
  picture.profile = EmbeddedProfileOf(handle);
  if (picture.profile.empty() && picture.model != Model::kGray) picture.profile = ProfileOf(coding.color_primaries);
  return picture;
}

class HeifDecoder : public Decoder {
 public:
  explicit HeifDecoder(const Input& input)
      : cursor_{BufferedInput(input)}, reader_(Reader()), context_(heif_context_alloc()) {
    if (!context_) throw std::bad_alloc();
    ReadBrand(input);
    heif_context_set_max_decoding_threads(context_.get(), 0);
    BoundContext(context_.get());
    ReadHeader();
  }

  const Header& Head() const override { return header_; }

  Picture Decode(Size /*atLeast*/) override { return DecodeWith(photo_.get()); }

  Picture DecodePreview(std::size_t index, Size /*atLeast*/) override {
    Picture picture = DecodeWith(previews_.at(index).get());
    if (picture.profile.empty()) picture.profile = EmbeddedProfileOf(photo_.get());
    return picture;
  }

  std::vector<std::uint8_t> Exif() const override { return ExifOf(photo_.get()); }

  // Photos may have a film inside as well: only those that are a film first are one.
  bool IsAnimated() const override {
    constexpr std::string_view kSequences[] = {"hevc", "hevx", "hevm", "hevs", "msf1", "avis"};
    return std::find(std::begin(kSequences), std::end(kSequences), Brand()) != std::end(kSequences);
  }

 private:
  static constexpr int kMaxPreviews = 8;

  std::string_view Brand() const { return {brand_, sizeof brand_}; }

  void ReadBrand(const Input& input) { input.ReadAt(8, brand_, sizeof brand_); }

  void CheckRead(const heif_error& error) const {
    if (cursor_.input.IsUnreadable()) throw Declined(Reason::kUnreadable, "the file cannot be read");
    Check(error);
  }

  void ReadHeader() {
    CheckRead(heif_context_read_from_reader(context_.get(), &reader_, &cursor_, nullptr));
    heif_image_handle* handle = nullptr;
    const heif_error error = heif_context_get_primary_image_handle(context_.get(), &handle);
    photo_.reset(handle);
    CheckRead(error);
    header_.stored = SizeOf(photo_.get());
    header_.isUpright = true;
    CheckDecodedSize(header_.stored);
    ReadPreviews();
  }

  // A preview that has lost the photo's transparency is no picture of it.
  void ReadPreviews() {
    heif_item_id ids[kMaxPreviews];
    const int count = heif_image_handle_get_list_of_thumbnail_IDs(photo_.get(), ids, kMaxPreviews);
    for (int i = 0; i < count; ++i) {
      heif_image_handle* handle = nullptr;
      const heif_error error = heif_image_handle_get_thumbnail(photo_.get(), ids[i], &handle);
      Handle preview(handle);
      if (error.code != heif_error_Ok || HasAlpha(preview.get()) != HasAlpha(photo_.get())) continue;
      header_.previews.push_back({SizeOf(preview.get())});
      previews_.push_back(std::move(preview));
    }
  }

  static bool HasAlpha(const heif_image_handle* handle) { return heif_image_handle_has_alpha_channel(handle) != 0; }

  Picture DecodeWith(const heif_image_handle* handle) const {
    std::optional<OneProcessor> one;
    if (Brand().substr(0, 3) == "avi") one.emplace();
    return DecodeItem(handle);
  }

  Cursor cursor_;
  heif_reader reader_;
  char brand_[4] = {};
  Context context_;
  Handle photo_;
  std::vector<Handle> previews_;
  Header header_;
};

}  // namespace

std::unique_ptr<Decoder> OpenHeif(const Input& input) {
  return std::make_unique<HeifDecoder>(input);
}

}  // namespace tavithumb::maker
