// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <jpeglib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "decoding.h"
#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "maker/encode/encode.h"
#include "maker/limits.h"
#include "pictures.h"
#include "temp_dir.h"

namespace tavithumb::maker {
namespace {

// Small files ------------------------------------------------------------------------------------------------------

// What a file is to be like.
struct JpegRecipe {
  std::string name;
  J_COLOR_SPACE given = JCS_YCbCr;   // of the samples
  J_COLOR_SPACE stored = JCS_YCbCr;  // in the file
  std::vector<std::array<int, 2>> sampling = {{1, 1}, {1, 1}, {1, 1}};
  bool isProgressive = false;
  bool isArithmetic = false;
  bool hasOneScanPerComponent = false;
  bool isMarkedAdobe = true;  // as far as libjpeg does that for its colours
  unsigned restartInterval = 0;
};

// The samples of a component: a slope in a direction of its own, so that a mean of neighbours is the sample between.
double SampleOf(std::size_t component, double x, double y, Size size) {
  const double right = x / size.width;
  const double down = y / size.height;
  const std::array<double, 4> slopes = {right, down, (right + 1 - down) / 2, 1 - right};
  return 40 + 170 * slopes[component];
}

void WriteRows(j_compress_ptr jpeg, Size size) {
  const auto count = static_cast<std::size_t>(jpeg->input_components);
  std::vector<JSAMPLE> row(count * static_cast<std::size_t>(size.width));
  for (int y = 0; y < size.height; ++y) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      const auto x = static_cast<double>(i / count);
      row[i] = static_cast<JSAMPLE>(std::lround(SampleOf(i % count, x + 0.5, y + 0.5, size)));
    }
    JSAMPROW pointer = row.data();
    jpeg_write_scanlines(jpeg, &pointer, 1);
  }
}

void ApplyTo(j_compress_ptr jpeg, const JpegRecipe& recipe, std::vector<jpeg_scan_info>* scans) {
  jpeg->in_color_space = recipe.given;
  jpeg->input_components = static_cast<int>(recipe.sampling.size());
  jpeg_set_defaults(jpeg);
  jpeg_set_colorspace(jpeg, recipe.stored);
  jpeg_set_quality(jpeg, 95, TRUE);
  for (std::size_t i = 0; i < recipe.sampling.size(); ++i) {
    jpeg->comp_info[i].h_samp_factor = recipe.sampling[i][0];
    jpeg->comp_info[i].v_samp_factor = recipe.sampling[i][1];
    scans->push_back({1, {static_cast<int>(i)}, 0, 63, 0, 0});
  }
  if (!recipe.isMarkedAdobe) jpeg->write_Adobe_marker = FALSE;
  jpeg->arith_code = recipe.isArithmetic ? TRUE : FALSE;
  jpeg->restart_interval = recipe.restartInterval;
  if (recipe.isProgressive) jpeg_simple_progression(jpeg);
  if (recipe.hasOneScanPerComponent) {
    jpeg->scan_info = scans->data();
    jpeg->num_scans = static_cast<int>(scans->size());
  }
}

// An error of libjpeg here is one of the test, and ends it.
test::File MakeFile(const JpegRecipe& recipe, Size size, const test::File& profile = {}) {
  jpeg_compress_struct jpeg = {};
  jpeg_error_mgr errors = {};
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  unsigned char* bytes = nullptr;
  unsigned long count = 0;
  jpeg_mem_dest(&jpeg, &bytes, &count);
  jpeg.image_width = static_cast<JDIMENSION>(size.width);
  jpeg.image_height = static_cast<JDIMENSION>(size.height);
  std::vector<jpeg_scan_info> scans;
  ApplyTo(&jpeg, recipe, &scans);
  jpeg_start_compress(&jpeg, TRUE);
  if (!profile.empty()) jpeg_write_icc_profile(&jpeg, profile.data(), static_cast<unsigned>(profile.size()));
  WriteRows(&jpeg, size);
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
  test::File content(bytes, bytes + count);
  std::free(bytes);
  return content;
}

const JpegRecipe kPlain = {"4:4:4"};
const JpegRecipe kHalved = {"4:2:0", JCS_YCbCr, JCS_YCbCr, {{2, 2}, {1, 1}, {1, 1}}};
const JpegRecipe kGray = {"gray", JCS_GRAYSCALE, JCS_GRAYSCALE, {{1, 1}}};
const JpegRecipe kRgb = {"RGB", JCS_RGB, JCS_RGB};
const JpegRecipe kCmyk = {"CMYK", JCS_CMYK, JCS_CMYK, {{1, 1}, {1, 1}, {1, 1}, {1, 1}}};

JpegRecipe With(JpegRecipe recipe, const std::string& name, const std::function<void(JpegRecipe*)>& change) {
  change(&recipe);
  recipe.name += ", " + name;
  return recipe;
}

JpegRecipe Sampled(const std::string& name, const std::array<int, 2>& y, const std::array<int, 2>& others) {
  return {name, JCS_YCbCr, JCS_YCbCr, {y, others, others}};
}

JpegRecipe Progressive(const JpegRecipe& recipe) {
  return With(recipe, "progressive", [](JpegRecipe* changed) { changed->isProgressive = true; });
}

Picture DecodeAtLeast(const test::File& content, Size atLeast) {
  const Input input(Bytes{content.data(), content.size()});
  return OpenJpeg(input)->Decode(atLeast);
}

// The size of the picture divided by the denominator.
Size Divided(Size size, int denominator) {
  return {(size.width + denominator - 1) / denominator, (size.height + denominator - 1) / denominator};
}

// Comparing ----------------------------------------------------------------------------------------------------------

// The largest difference of a channel from the slope that was stored. Samples that the picture doesn't cover in full
// may have been mixed with copies of its edge.
double DifferenceOf(const Channel& channel, std::size_t component, bool isInverted) {
  const Size size = channel.plane.Dimensions();
  const Size whole = {static_cast<int>(channel.width), static_cast<int>(channel.height)};
  double largest = 0;
  for (int y = 0; y < std::max(1, whole.height); ++y) {
    for (int x = 0; x < std::max(1, whole.width); ++x) {
      const double right = (x + 0.5) / channel.width;
      const double down = (y + 0.5) / channel.height;
      const double expected = SampleOf(component, std::min(1.0, right), std::min(1.0, down), {1, 1});
      const double sample = channel.plane.Row(y)[x];
      largest = std::max(largest, std::abs((isInverted ? 255 - sample : sample) - expected));
    }
  }
  EXPECT_EQ(size.width, std::ceil(channel.width - 1e-9));
  EXPECT_EQ(size.height, std::ceil(channel.height - 1e-9));
  return largest;
}

void ExpectSlopes(const Picture& picture, std::size_t components, const std::string& what, bool isInverted = false) {
  ASSERT_EQ(picture.channels.size(), components) << what;
  for (std::size_t i = 0; i < components; ++i) {
    EXPECT_LT(DifferenceOf(picture.channels[i], i, isInverted), 6) << what << ", component " << i;
  }
}

std::optional<Declined> DeclinedFor(const test::File& content) {
  try {
    DecodeAtLeast(content, {1, 1});
  } catch (const Declined& declined) {
    return declined;
  }
  return std::nullopt;
}

void ExpectDeclined(const test::File& content, Reason reason, const std::string& text) {
  const std::optional<Declined> declined = DeclinedFor(content);
  ASSERT_TRUE(declined) << "not declined: " << text;
  EXPECT_EQ(declined->what(), text);
  EXPECT_EQ(declined->Why(), reason) << text;
}

// Where a marker is; the file has it.
std::size_t PositionOf(const test::File& content, std::uint8_t marker) {
  const std::array<std::uint8_t, 2> wanted = {0xFF, marker};
  const auto found = std::search(content.begin(), content.end(), wanted.begin(), wanted.end());
  EXPECT_NE(found, content.end()) << static_cast<int>(marker);
  return static_cast<std::size_t>(found - content.begin());
}

constexpr std::uint8_t kBaselineFrame = 0xC0;
constexpr std::uint8_t kProgressiveFrame = 0xC2;
constexpr std::uint8_t kScan = 0xDA;

// A file whose header tells another size.
test::File Resized(test::File content, std::uint8_t frame, int width, int height) {
  const std::size_t at = PositionOf(content, frame);
  content[at + 5] = static_cast<std::uint8_t>(height >> 8);
  content[at + 6] = static_cast<std::uint8_t>(height & 0xFF);
  content[at + 7] = static_cast<std::uint8_t>(width >> 8);
  content[at + 8] = static_cast<std::uint8_t>(width & 0xFF);
  return content;
}

// Slopes in planes of the model; at 4:2:0 if `isHalved`. What is behind the rows is noise.
Picture MakePicture(Size size, Model model, bool isHalved) {
  Picture picture;
  picture.model = model;
  picture.storedSize = size;
  const std::size_t count = model == Model::kGray ? 1 : 3;
  for (std::size_t i = 0; i < count; ++i) {
    const double scale = isHalved && i > 0 ? 0.5 : 1;
    const double width = scale * size.width;
    const double height = scale * size.height;
    Plane plane(Size{static_cast<int>(std::ceil(width)), static_cast<int>(std::ceil(height))});
    for (int y = 0; y < plane.Height(); ++y) {
      for (int x = 0; x < static_cast<int>(plane.Stride()); ++x) {
        const double sample = SampleOf(i, std::min(1.0, (x + 0.5) / width), std::min(1.0, (y + 0.5) / height), {1, 1});
        plane.Row(y)[x] = static_cast<std::uint8_t>(x < plane.Width() ? std::lround(sample) : x * 89 % 256);
      }
    }
    picture.channels.push_back({std::move(plane), width, height});
  }
  return picture;
}

// Decoding -----------------------------------------------------------------------------------------------------------

TEST(JpegDecoder, TellsTheStoredSize) {
  const test::File content = MakeFile(kHalved, {83, 61});
  const Input input(Bytes{content.data(), content.size()});
  const std::unique_ptr<Decoder> decoder = OpenJpeg(input);
  EXPECT_EQ(decoder->Head().stored, (Size{83, 61}));
  EXPECT_FALSE(decoder->Head().isUpright);
  EXPECT_TRUE(decoder->Head().previews.empty());
  EXPECT_FALSE(decoder->IsAnimated());
}

std::vector<JpegRecipe> YccRecipes() {
  const JpegRecipe halvedAcross = Sampled("4:2:2", {2, 1}, {1, 1});
  return {kPlain,
          kHalved,
          halvedAcross,
          Sampled("4:4:0", {1, 2}, {1, 1}),
          Sampled("4:1:1", {4, 1}, {1, 1}),
          Sampled("4:1:0", {4, 2}, {1, 1}),
          Sampled("all 2 x 1", {2, 1}, {2, 1}),
          Sampled("Cb and Cr larger than Y", {1, 1}, {2, 2}),
          Sampled("Cb and Cr wider than Y", {1, 2}, {2, 2}),
          Sampled("Cb and Cr taller than Y", {2, 1}, {2, 2}),
          Progressive(kPlain),
          Progressive(kHalved),
          Progressive(halvedAcross),
          With(kHalved, "arithmetic", [](JpegRecipe* recipe) { recipe->isArithmetic = true; }),
          With(Progressive(kHalved), "arithmetic", [](JpegRecipe* recipe) { recipe->isArithmetic = true; }),
          With(kHalved, "a scan per component", [](JpegRecipe* recipe) { recipe->hasOneScanPerComponent = true; }),
          With(kHalved, "restarts", [](JpegRecipe* recipe) { recipe->restartInterval = 3; }),
          With(Progressive(kHalved), "restarts", [](JpegRecipe* recipe) { recipe->restartInterval = 2; })};
}

TEST(JpegDecoder, DecodesEverySubsamplingAndCodingAtEveryScale) {
  constexpr Size kSize = {187, 141};
  for (const JpegRecipe& recipe : YccRecipes()) {
    const test::File content = MakeFile(recipe, kSize);
    for (const int denominator : {1, 2, 4, 8}) {
      const std::string what = recipe.name + " by " + std::to_string(denominator);
      const Size size = Divided(kSize, denominator);
      const Picture picture = DecodeAtLeast(content, size);
      EXPECT_EQ(picture.model, Model::kYcc) << what;
      EXPECT_TRUE(picture.ycc.IsJpeg()) << what;
      EXPECT_FALSE(picture.hasAlpha) << what;
      EXPECT_TRUE(picture.profile.empty()) << what;
      EXPECT_EQ(picture.storedSize, kSize) << what;
      ASSERT_FALSE(picture.channels.empty()) << what;
      EXPECT_EQ(picture.channels[0].plane.Dimensions(), size) << what;
      EXPECT_DOUBLE_EQ(picture.channels[0].width, 187.0 / denominator) << what;
      EXPECT_DOUBLE_EQ(picture.channels[0].height, 141.0 / denominator) << what;
      ExpectSlopes(picture, 3, what);
    }
  }
}

TEST(JpegDecoder, KeepsTheSubsamplingOfUnscaledPlanes) {
  struct Row {
    JpegRecipe recipe;
    Size size;
    double width, height;
  };
  const std::vector<Row> rows = {{kPlain, {83, 61}, 83, 61},
                                 {kHalved, {42, 31}, 41.5, 30.5},
                                 {Sampled("4:2:2", {2, 1}, {1, 1}), {42, 61}, 41.5, 61},
                                 {Sampled("4:4:0", {1, 2}, {1, 1}), {83, 31}, 83, 30.5},
                                 {Sampled("4:1:1", {4, 1}, {1, 1}), {21, 61}, 20.75, 61}};
  for (const Row& row : rows) {
    const Picture picture = DecodeAtLeast(MakeFile(row.recipe, {83, 61}), {83, 61});
    for (std::size_t i : {1U, 2U}) {
      EXPECT_EQ(picture.channels[i].plane.Dimensions(), row.size) << row.recipe.name;
      EXPECT_DOUBLE_EQ(picture.channels[i].width, row.width) << row.recipe.name;
      EXPECT_DOUBLE_EQ(picture.channels[i].height, row.height) << row.recipe.name;
    }
  }
}

// Scaled, the library gives Cb and Cr as many samples as Y.
TEST(JpegDecoder, HalvesCbAndCrOfScaledPicturesThatHaveEnoughOfThem) {
  struct Row {
    Size stored, atLeast;
    Size y, cb;
    double cbWidth;
  };
  const std::vector<Row> rows = {
      {{1003, 707}, {501, 353}, {502, 354}, {251, 177}, 250.75},
      {{1003, 707}, {160, 113}, {251, 177}, {251, 177}, 250.75},  // 126 would not do for a thumbnail of 160 pixels
      {{1003, 707}, {126, 89}, {126, 89}, {126, 89}, 125.375},
      {{1003, 707}, {63, 45}, {126, 89}, {63, 45}, 62.6875},
      {{1003, 707}, {64, 45}, {126, 89}, {126, 89}, 125.375},
      {{1003, 707}, {63, 46}, {126, 89}, {126, 89}, 125.375},
      {{1003, 707}, {400, 353}, {502, 354}, {251, 177}, 250.75},
  };
  for (const Row& row : rows) {
    for (const JpegRecipe& recipe : {kHalved, Progressive(kHalved)}) {
      const Picture picture = DecodeAtLeast(MakeFile(recipe, row.stored), row.atLeast);
      const std::string what = recipe.name + " at least " + std::to_string(row.atLeast.width);
      EXPECT_EQ(picture.channels[0].plane.Dimensions(), row.y) << what;
      EXPECT_EQ(picture.channels[1].plane.Dimensions(), row.cb) << what;
      EXPECT_EQ(picture.channels[2].plane.Dimensions(), row.cb) << what;
      EXPECT_DOUBLE_EQ(picture.channels[1].width, row.cbWidth) << what;
      ExpectSlopes(picture, 3, what);
    }
  }
}

TEST(JpegDecoder, HalvesEachRowWithTheNext) {
  Picture striped = MakePicture({800, 600}, Model::kYcc, true);
  const auto sampleOf = [](int y) { return static_cast<std::uint8_t>(y / 2 % 2 == 0 ? 190 : 60); };
  for (int y = 0; y < 300; ++y) std::fill_n(striped.channels[1].plane.Row(y), 400, sampleOf(y));
  const Picture picture = DecodeAtLeast(EncodeJpeg(striped, 98), {400, 300});
  const Plane& cb = picture.channels[1].plane;
  ASSERT_EQ(cb.Dimensions(), (Size{200, 150}));
  for (int y = 0; y < 150; ++y) {
    for (int x = 0; x < 200; ++x) ASSERT_NEAR(cb.Row(y)[x], sampleOf(2 * y), 8) << x << ", " << y;
  }
}

TEST(JpegDecoder, DecodesOtherColours) {
  struct Row {
    JpegRecipe recipe;
    Model model;
    std::size_t components;
    bool isInverted;
  };
  const auto withoutAdobe = [](JpegRecipe* recipe) { recipe->isMarkedAdobe = false; };
  const auto asYcck = [](JpegRecipe* recipe) { recipe->stored = JCS_YCCK; };
  const auto subsampled = [](JpegRecipe* recipe) { recipe->sampling[0] = recipe->sampling[3] = {2, 2}; };
  const std::vector<Row> rows = {
      {kGray, Model::kGray, 1, false},
      {Progressive(kGray), Model::kGray, 1, false},
      {With(kGray, "2 x 2",
            [](JpegRecipe* recipe) {
              recipe->sampling[0] = {2, 2};
            }),
       Model::kGray, 1, false},
      {kRgb, Model::kRgb, 3, false},
      {Progressive(kRgb), Model::kRgb, 3, false},
      // Known by the names of the components.
      {With(kRgb, "no Adobe", withoutAdobe), Model::kRgb, 3, false},
      {kCmyk, Model::kCmyk, 4, false},
      {With(kCmyk, "no Adobe", withoutAdobe), Model::kCmyk, 4, true},
      {With(kCmyk, "YCCK", asYcck), Model::kCmyk, 4, false},
      {With(With(kCmyk, "YCCK", asYcck), "4:2:0", subsampled), Model::kCmyk, 4, false},
  };
  for (const Row& row : rows) {
    for (const int denominator : {1, 2, 4, 8}) {
      const std::string what = row.recipe.name + " by " + std::to_string(denominator);
      const Size size = Divided({187, 141}, denominator);
      const Picture picture = DecodeAtLeast(MakeFile(row.recipe, {187, 141}), size);
      EXPECT_EQ(picture.model, row.model) << what;
      ExpectSlopes(picture, row.components, what, row.isInverted);
      EXPECT_EQ(picture.channels[0].plane.Dimensions(), size) << what;
    }
  }
}

TEST(JpegDecoder, DecodesTinyAndNarrowPictures) {
  for (const Size size : {Size{1, 1}, Size{1, 700}, Size{700, 1}, Size{2, 2}, Size{8, 8}, Size{9, 17}, Size{16, 16}}) {
    for (const JpegRecipe& recipe : {kPlain, kHalved, kGray, kCmyk, Progressive(kHalved)}) {
      for (const int denominator : {1, 2, 4, 8}) {
        const Size wanted = Divided(size, denominator);
        const Picture picture = DecodeAtLeast(MakeFile(recipe, size), wanted);
        const Size decoded = picture.channels[0].plane.Dimensions();
        EXPECT_TRUE(decoded.width >= wanted.width && decoded.height >= wanted.height)
            << recipe.name << " of " << size.width << " x " << size.height << " by " << denominator;
        EXPECT_EQ(picture.storedSize, size);
      }
    }
  }
  const Picture dot = DecodeAtLeast(MakeFile(kHalved, {1, 1}), {1, 1});
  EXPECT_NEAR(dot.channels[0].plane.Row(0)[0], 125, 6);
}

TEST(JpegDecoder, DecodesAsOftenAsItIsAsked) {
  const test::File content = MakeFile(kHalved, {83, 61});
  const Input input(Bytes{content.data(), content.size()});
  const std::unique_ptr<Decoder> decoder = OpenJpeg(input);
  for (const int denominator : {8, 1, 2, 2}) {
    const Picture picture = decoder->Decode(Divided({83, 61}, denominator));
    EXPECT_EQ(picture.channels[0].plane.Dimensions(), Divided({83, 61}, denominator));
    ExpectSlopes(picture, 3, "by " + std::to_string(denominator));
  }
}

TEST(JpegDecoder, ReadsFilesLargerThanItsBuffer) {
  const test::TempDir folder;
  const test::File content = MakeFile(kHalved, {2600, 1900}, test::File(300000, 7));
  test::WriteFile(folder / "large.jpg", std::string(content.begin(), content.end()));
  const Input input(folder / "large.jpg");
  const Picture picture = OpenJpeg(input)->Decode({650, 475});
  EXPECT_EQ(picture.profile, test::File(300000, 7));
  ExpectSlopes(picture, 3, "from a file");
}

TEST(JpegDecoder, DecodesTheFirstOfSeveralPictures) {
  test::File content = MakeFile(kHalved, {83, 61});
  const test::File second = MakeFile(kGray, {40, 30}, test::File(100, 1));
  content.insert(content.end(), second.begin(), second.end());
  const Picture picture = DecodeAtLeast(content, {83, 61});
  EXPECT_EQ(picture.model, Model::kYcc);
  EXPECT_EQ(picture.storedSize, (Size{83, 61}));
  EXPECT_TRUE(picture.profile.empty());
}

TEST(JpegDecoder, FailsAsTheFileDoes) {
  const test::TempDir folder;
  const Input input(folder.Path());
  try {
    OpenJpeg(input);
    FAIL() << "decoded a folder";
  } catch (const Declined& declined) {
    EXPECT_EQ(declined.Why(), Reason::kUnreadable);
    EXPECT_STREQ(declined.what(), "Is a directory");
  }
}

// Profiles -----------------------------------------------------------------------------------------------------------

test::File NoiseOf(std::size_t count) {
  test::File noise(count);
  unsigned state = 1;
  for (std::uint8_t& byte : noise) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return noise;
}

TEST(JpegProfiles, ComeBackAsTheyWereStored) {
  for (const std::size_t count : {std::size_t{1}, std::size_t{3144}, std::size_t{65519}, std::size_t{65520},
                                  std::size_t{560000}, kMaxProfileBytes}) {
    for (const JpegRecipe& recipe : {kHalved, kCmyk}) {
      EXPECT_EQ(DecodeAtLeast(MakeFile(recipe, {16, 16}, NoiseOf(count)), {1, 1}).profile, NoiseOf(count)) << count;
    }
  }
}

TEST(JpegProfiles, OverTheLimitAreIgnored) {
  const Picture picture = DecodeAtLeast(MakeFile(kPlain, {83, 61}, NoiseOf(kMaxProfileBytes + 1)), {83, 61});
  EXPECT_TRUE(picture.profile.empty());
  ExpectSlopes(picture, 3, "profile too large");
}

TEST(JpegProfiles, ThatAreDamagedAreIgnored) {
  struct Row {
    const char* name;
    std::function<void(test::File*, std::size_t)> damage;  // the position is that of the second part
  };
  const std::vector<Row> rows = {
      {"number 0", [](test::File* content, std::size_t at) { (*content)[at + 16] = 0; }},
      {"number too large", [](test::File* content, std::size_t at) { (*content)[at + 16] = 3; }},
      {"number twice", [](test::File* content, std::size_t at) { (*content)[at + 16] = 1; }},
      {"other count before", [](test::File* content, std::size_t at) { (*content)[at - 65537 + 17] = 3; }},
      {"other count", [](test::File* content, std::size_t at) { (*content)[at + 17] = 3; }},
      {"other name", [](test::File* content, std::size_t at) { (*content)[at + 5] = 'X'; }},
      {"name not terminated", [](test::File* content, std::size_t at) { (*content)[at + 15] = 'X'; }},
      {"other segment", [](test::File* content, std::size_t at) { (*content)[at + 1] = 0xE3; }},
  };
  const test::File intact = MakeFile(kPlain, {83, 61}, NoiseOf(65519 + 100));
  const std::size_t second = PositionOf(intact, 0xE2) + 2 + 65535;
  ASSERT_EQ(intact[second + 1], 0xE2);
  for (const Row& row : rows) {
    test::File content = intact;
    row.damage(&content, second);
    const Picture picture = DecodeAtLeast(content, {83, 61});
    EXPECT_TRUE(picture.profile.empty()) << row.name;
    ExpectSlopes(picture, 3, row.name);
  }
}

// A segment of 2 + 2 + `length` bytes behind the start of the file.
void InsertSegment(test::File* content, std::uint8_t marker, std::size_t length, std::size_t times) {
  test::File segments;
  for (std::size_t i = 0; i < times; ++i) {
    const std::size_t stored = length + 2;
    segments.insert(segments.end(),
                    {0xFF, marker, static_cast<std::uint8_t>(stored >> 8), static_cast<std::uint8_t>(stored & 0xFF)});
    segments.resize(segments.size() + length);
  }
  content->insert(content->begin() + 2, segments.begin(), segments.end());
}

TEST(JpegProfiles, AreFoundBehindOtherSegmentsButNotBehindThousandsOfThem) {
  for (const bool hasThousands : {false, true}) {
    test::File content = MakeFile(kPlain, {83, 61}, NoiseOf(500));
    InsertSegment(&content, 0xE1, 60000, 3);
    InsertSegment(&content, 0xE2, 14, 1);
    InsertSegment(&content, 0xFE, 0, hasThousands ? 5000 : 50);
    const Picture picture = DecodeAtLeast(content, {83, 61});
    EXPECT_EQ(picture.profile, hasThousands ? test::File() : NoiseOf(500));
    ExpectSlopes(picture, 3, "behind segments");
  }
}

// Real files ---------------------------------------------------------------------------------------------------------

TEST(JpegSamples, AreDecodedAlsoIfTheyAreDamaged) {
  struct Row {
    const char* path;
    Model model;
    Size stored;
    bool hasProfile;
  };
  const std::vector<Row> rows = {
      {"samples/broken/truncated.jpg", Model::kYcc, {290, 442}, true},
      {"samples/photos/fuji-sp2500-tiny.jpg", Model::kYcc, {81, 121}, false},
      {"samples/photos/iphone-6-plus.jpg", Model::kYcc, {2448, 3264}, true},
      {"samples-more/broken/cmyk-extraneous-bytes.jpg", Model::kCmyk, {100, 100}, false},
      {"samples-more/broken/cmyk-progressive-cut.jpg", Model::kCmyk, {194, 71}, false},
      {"samples-more/broken/grey-progressive-bad-code.jpg", Model::kGray, {325, 407}, false},
      {"samples-more/colour/gain-map.jpg", Model::kYcc, {3840, 2160}, true},
      {"samples-more/colour/xyb.jpg", Model::kRgb, {290, 442}, true},
  };
  const std::string folder = test::SamplesFolder();
  if (folder.empty()) GTEST_SKIP() << "no samples";
  for (const Row& row : rows) {
    const std::string path = folder + "/../" + row.path;
    if (!test::Exists(path)) continue;
    const Input input(path);
    const Picture picture = OpenJpeg(input)->Decode({50, 50});
    EXPECT_EQ(picture.model, row.model) << row.path;
    EXPECT_EQ(picture.storedSize, row.stored) << row.path;
    EXPECT_EQ(!picture.profile.empty(), row.hasProfile) << row.path;
  }
}

// Damage -------------------------------------------------------------------------------------------------------------

TEST(DamagedJpegs, ThatAreCutOffShowWhatThereIs) {
  for (const JpegRecipe& recipe : {kHalved, kPlain, Progressive(kHalved), kCmyk}) {
    const test::File whole = MakeFile(recipe, {400, 300});
    const std::size_t end = recipe.isProgressive ? whole.size() - 10 : whole.size() * 3 / 4;
    const Picture cut =
        DecodeAtLeast(test::File(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(end)), {400, 300});
    const Picture picture = DecodeAtLeast(whole, {400, 300});
    ASSERT_EQ(cut.channels.size(), picture.channels.size()) << recipe.name;
    for (std::size_t i = 0; i < cut.channels.size(); ++i) {
      const Plane& expected = picture.channels[i].plane;
      const int sure = expected.Height() / 3;
      for (int y = 0; y < sure; ++y) {
        ASSERT_TRUE(std::equal(expected.Row(y), expected.Row(y) + expected.Width(), cut.channels[i].plane.Row(y)))
            << recipe.name << ", component " << i << ", row " << y;
      }
    }
  }
}

TEST(DamagedJpegs, WithoutTheirLastBytesAreComplete) {
  const test::File whole = MakeFile(kHalved, {83, 61});
  ExpectSlopes(DecodeAtLeast(test::File(whole.begin(), whole.end() - 2), {83, 61}), 3, "without the end's marker");
  const test::File small = MakeFile(kHalved, {16, 16});
  ExpectSlopes(DecodeAtLeast(test::File(small.begin(), small.end() - 2), {16, 16}), 3, "a row of blocks");
}

TEST(DamagedJpegs, WithoutPixelsAreDeclined) {
  for (const JpegRecipe& recipe : {kHalved, Progressive(kHalved), kCmyk}) {
    const test::File whole = MakeFile(recipe, {400, 300});
    const std::size_t data = PositionOf(whole, kScan) + 20;
    for (const std::size_t end : {data, data + 20}) {
      ExpectDeclined(test::File(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(end)), Reason::kDamaged,
                     "Corrupt JPEG data: premature end of data segment");
    }
  }
}

TEST(DamagedJpegs, CutOffAnywhereAreShownOrDeclined) {
  std::vector<JpegRecipe> recipes = YccRecipes();
  recipes.insert(recipes.end(), {kGray, kRgb, kCmyk});
  for (const JpegRecipe& recipe : recipes) {
    const test::File whole = MakeFile(recipe, {75, 53}, NoiseOf(40));
    for (std::size_t end = 0; end < whole.size(); end += 5) {
      const test::File cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(end));
      const std::optional<Declined> declined = DeclinedFor(cut);
      EXPECT_TRUE(!declined || declined->Why() == Reason::kDamaged) << recipe.name << " at " << end;
      EXPECT_TRUE(declined || end > PositionOf(whole, kScan)) << recipe.name << " at " << end;
    }
  }
}

TEST(DamagedJpegs, WithAnyByteChangedAreShownOrDeclined) {
  for (const JpegRecipe& recipe : {kHalved, Progressive(kHalved), kCmyk}) {
    const test::File whole = MakeFile(recipe, {75, 53}, NoiseOf(40));
    for (std::size_t at = 0; at < whole.size(); ++at) {
      for (const unsigned change : {0x01U, 0x80U, 0xFFU}) {
        test::File content = whole;
        content[at] = static_cast<std::uint8_t>(content[at] ^ change);
        DeclinedFor(content);
      }
    }
  }
}

TEST(DamagedJpegs, PrintNothing) {
  test::File content = MakeFile(kHalved, {200, 200});
  content.resize(content.size() / 2);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  DecodeAtLeast(content, {200, 200});
  DeclinedFor(test::File(content.begin(), content.begin() + 30));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(DamagedJpegs, AreDeclinedForWhatIsWrong) {
  const test::File plain = MakeFile(kHalved, {83, 61});
  const std::size_t frame = PositionOf(plain, kBaselineFrame);
  const auto changed = [&plain](std::size_t at, std::uint8_t byte) {
    test::File content = plain;
    content[at] = byte;
    return content;
  };
  ExpectDeclined({}, Reason::kDamaged, "Not a JPEG file: starts with 0xff 0xd9");
  ExpectDeclined({'B', 'M', 0, 0}, Reason::kDamaged, "Not a JPEG file: starts with 0x42 0x4d");
  ExpectDeclined({0xFF, 0xD8, 0xFF, 0xD9}, Reason::kDamaged, "JPEG datastream contains no image");
  ExpectDeclined(changed(frame + 1, 0xC3), Reason::kUnsupported, "Unsupported JPEG process: SOF type 0xc3");
  ExpectDeclined(changed(frame + 4, 12), Reason::kUnsupported, "Unsupported JPEG data precision 12");
  ExpectDeclined(Resized(plain, kBaselineFrame, 0, 61), Reason::kDamaged, "Empty JPEG image (DNL not supported)");
  ExpectDeclined(Resized(plain, kBaselineFrame, 83, 0), Reason::kDamaged, "Empty JPEG image (DNL not supported)");
  const JpegRecipe two = {"two", JCS_UNKNOWN, JCS_UNKNOWN, {{1, 1}, {1, 1}}};
  ExpectDeclined(MakeFile(two, {83, 61}), Reason::kUnsupported, "the JPEG has 2 unknown components");
}

TEST(Bombs, AreDeclinedBeforeTheyTakeMemory) {
  const test::File plain = MakeFile(kHalved, {83, 61});
  const test::File progressive = MakeFile(Progressive(kHalved), {83, 61});
  ExpectDeclined(Resized(plain, kBaselineFrame, 65535, 65535), Reason::kTooLarge,
                 "Maximum supported image dimension is 65500 pixels");
  ExpectDeclined(Resized(plain, kBaselineFrame, 65500, 65500), Reason::kTooLarge,
                 "the picture has 65500 x 65500 pixels, more than are decoded");
  ExpectDeclined(Resized(progressive, kProgressiveFrame, 13000, 10000), Reason::kTooLarge,
                 "the picture has 13000 x 10000 pixels, more than are decoded");
}

TEST(Bombs, HaveMorePixelsThanAreDecodedUnscaled) {
  const test::File content = Resized(MakeFile(kHalved, {83, 61}), kBaselineFrame, 13000, 10000);
  try {
    DecodeAtLeast(content, {13000, 1});
    FAIL() << "not declined";
  } catch (const Declined& declined) {
    EXPECT_EQ(declined.Why(), Reason::kTooLarge);
    EXPECT_STREQ(declined.what(), "the picture has 13000 x 10000 pixels, more than are decoded");
  }
}

// A progressive file whose last scan is repeated, so that it has that many. There are six in a gray one.
test::File WithScans(int count) {
  const test::File whole = MakeFile(Progressive(kGray), {83, 61});
  const std::array<std::uint8_t, 2> marker = {0xFF, kScan};
  const auto last = std::find_end(whole.begin(), whole.end(), marker.begin(), marker.end());
  test::File content(whole.begin(), whole.end() - 2);
  for (int i = 6; i < count; ++i) content.insert(content.end(), last, whole.end() - 2);
  content.insert(content.end(), {0xFF, JPEG_EOI});
  return content;
}

TEST(Bombs, HaveMoreScansThanAnyProgram) {
  EXPECT_EQ(DecodeAtLeast(WithScans(kMaxScans), {83, 61}).storedSize, (Size{83, 61}));
  ExpectDeclined(WithScans(kMaxScans + 1), Reason::kTooLarge, "the JPEG has more than 100 scans");
  ExpectDeclined(WithScans(2000), Reason::kTooLarge, "the JPEG has more than 100 scans");
}

// Encoding -----------------------------------------------------------------------------------------------------------

TEST(JpegEncoder, StoresWhatThePlanesHave) {
  for (const Size size : {Size{7, 9}, Size{16, 16}, Size{17, 33}, Size{83, 61}, Size{640, 2}, Size{1, 99},
                          Size{120, 90}, Size{360, 270}}) {
    for (const bool isHalved : {false, true}) {
      for (const Model model : {Model::kGray, Model::kYcc}) {
        const test::File content = EncodeJpeg(MakePicture(size, model, isHalved), 100);
        const Picture picture = DecodeAtLeast(content, size);
        const std::string what = std::to_string(size.width) + " x " + std::to_string(size.height);
        EXPECT_EQ(picture.model, model) << what;
        EXPECT_EQ(picture.storedSize, size) << what;
        ExpectSlopes(picture, model == Model::kGray ? 1 : 3, what);
        if (model == Model::kYcc) {
          EXPECT_EQ(picture.channels[1].plane.Dimensions(), isHalved ? Divided(size, 2) : size) << what;
        }
      }
    }
  }
}

TEST(JpegEncoder, StoresASinglePixel) {
  const Picture picture = DecodeAtLeast(EncodeJpeg(MakePicture({1, 1}, Model::kYcc, false), 95), {1, 1});
  for (const Channel& channel : picture.channels) EXPECT_NEAR(channel.plane.Row(0)[0], 125, 2);
}

TEST(JpegEncoder, WritesBaselineWithOptimisedTablesAndNoMetadata) {
  const test::File content = EncodeJpeg(MakePicture({83, 61}, Model::kYcc, true), 80);
  std::vector<int> markers;
  std::size_t at = 2;
  while (content[at + 1] != kScan) {
    markers.push_back(content[at + 1]);
    at += 2 + static_cast<std::size_t>(content[at + 2] * 256 + content[at + 3]);
  }
  EXPECT_EQ(markers, (std::vector<int>{0xE0, 0xDB, 0xDB, 0xC0, 0xC4, 0xC4, 0xC4, 0xC4}));
  EXPECT_LT(at, 400U) << "the usual tables have 420 bytes alone";
  EXPECT_EQ(std::string(content.end() - 2, content.end()), "\xFF\xD9");
}

TEST(JpegEncoder, IgnoresWhatIsBehindTheRowsAndRepeatsTheEdge) {
  Picture flat = MakePicture({83, 61}, Model::kYcc, true);
  for (Channel& channel : flat.channels) {
    for (int y = 0; y < channel.plane.Height(); ++y) {
      std::fill_n(channel.plane.Row(y), channel.plane.Width(), static_cast<std::uint8_t>(200));
    }
  }
  const test::File content = EncodeJpeg(flat, 80);
  Picture whole = MakePicture({96, 64}, Model::kYcc, true);
  for (Channel& channel : whole.channels) {
    std::fill_n(channel.plane.Row(0), channel.plane.Stride() * static_cast<std::size_t>(channel.plane.Height()),
                static_cast<std::uint8_t>(200));
  }
  EXPECT_EQ(content, Resized(EncodeJpeg(whole, 80), kBaselineFrame, 83, 61));
}

TEST(JpegEncoder, TakesMoreBytesForABetterQuality) {
  Picture noise = MakePicture({160, 120}, Model::kYcc, true);
  const test::File samples = NoiseOf(160);
  for (int y = 0; y < 120; ++y) {
    for (int x = 0; x < 160; ++x) noise.channels[0].plane.Row(y)[x] = samples[static_cast<std::size_t>((x * y) % 160)];
  }
  std::size_t before = 0;
  for (const int quality : {1, 30, 60, 80, 95, 100}) {
    const std::size_t bytes = EncodeJpeg(noise, quality).size();
    EXPECT_GT(bytes, before) << quality;
    before = bytes;
  }
}

// Noise in one place only, so that the strips that are looked at for the tables have none of it.
TEST(JpegEncoder, EncodesSymbolsThatItsSampleOfALargePictureLacks) {
  for (const Model model : {Model::kGray, Model::kYcc}) {
    for (const bool isHalved : {false, true}) {
      Picture picture = MakePicture({640, 480}, model, isHalved);
      const test::File noise = NoiseOf(640);
      for (Channel& channel : picture.channels) {
        for (int y = 0; y < 8; ++y) {
          for (int x = 0; x < channel.plane.Width(); ++x) {
            channel.plane.Row(y)[x] = noise[static_cast<std::size_t>((x + y * 77) % 640)] < 128 ? 0 : 255;
          }
        }
      }
      const Picture decoded = DecodeAtLeast(EncodeJpeg(picture, 100), {640, 480});
      ASSERT_EQ(decoded.channels.size(), picture.channels.size());
      for (std::size_t i = 0; i < picture.channels.size(); ++i) {
        const Plane& plane = picture.channels[i].plane;
        ASSERT_EQ(decoded.channels[i].plane.Dimensions(), plane.Dimensions());
        for (int y = 0; y < plane.Height(); ++y) {
          for (int x = 0; x < plane.Width(); ++x) {
            ASSERT_NEAR(decoded.channels[i].plane.Row(y)[x], plane.Row(y)[x], 3) << x << ", " << y;
          }
        }
      }
    }
  }
}

// Its tables have all symbols, which takes 609 bytes up to the scan.
bool HasTablesOfASample(const test::File& content) {
  return PositionOf(content, kScan) == 609;
}

TEST(JpegEncoder, MakesLargePicturesLittleLargerThanWithTheBestTables) {
  Picture picture = MakePicture({640, 480}, Model::kYcc, true);
  const test::File noise = NoiseOf(64000);
  for (int y = 0; y < 480; ++y) {
    for (int x = 0; x < 640; ++x) {
      std::uint8_t& sample = picture.channels[0].plane.Row(y)[x];
      sample = static_cast<std::uint8_t>(sample + noise[static_cast<std::size_t>(x * y % 64000)] % 40);
    }
  }
  const test::File large = EncodeJpeg(picture, 80);
  // Just below the number of pixels from which a sample is taken; its bytes per pixel are the best.
  Picture small = MakePicture({640, 304}, Model::kYcc, true);
  for (int y = 0; y < 304; ++y) std::copy_n(picture.channels[0].plane.Row(y), 640, small.channels[0].plane.Row(y));
  EXPECT_TRUE(HasTablesOfASample(large));
  EXPECT_LT(static_cast<double>(large.size()) / 480, 1.02 * static_cast<double>(EncodeJpeg(small, 80).size()) / 304);
}

TEST(JpegEncoder, TakesASampleOfPicturesWithMoreThanFourStripsOnly) {
  struct Row {
    Size size;
    bool isHalved;
    bool isSampled;
  };
  for (const Row& row : {Row{{6400, 64}, true, false}, Row{{6400, 65}, true, true}, Row{{6400, 32}, false, false},
                         Row{{6400, 33}, false, true}, Row{{640, 312}, true, false}, Row{{640, 313}, true, true}}) {
    const Picture picture = MakePicture(row.size, Model::kYcc, row.isHalved);
    const test::File content = EncodeJpeg(picture, 80);
    EXPECT_EQ(HasTablesOfASample(content), row.isSampled) << row.size.width << " x " << row.size.height;
    EXPECT_EQ(DecodeAtLeast(content, row.size).storedSize, row.size);
  }
}

// A block without detail, that looks like the one before, takes two codes. Their tables come from the picture itself:
// the usual ones have six bits for both, and eight for chroma's.
TEST(JpegEncoder, StoresFlatBlocksOfLargePicturesInTwoBits) {
  for (const Model model : {Model::kGray, Model::kYcc}) {
    Picture flat = MakePicture({1280, 800}, model, false);
    for (Channel& channel : flat.channels) {
      for (int y = 0; y < 800; ++y) std::fill_n(channel.plane.Row(y), 1280, static_cast<std::uint8_t>(77));
    }
    const test::File content = EncodeJpeg(flat, 80);
    const std::size_t blocks = flat.channels.size() * (1280 / 8) * (800 / 8);
    EXPECT_NEAR(static_cast<double>(content.size() - PositionOf(content, kScan)), static_cast<double>(blocks) / 4, 40)
        << flat.channels.size() << " planes";
  }
}

TEST(JpegEncoder, DeclinesWhatAJpegCanNotHave) {
  EXPECT_FALSE(EncodeJpeg(MakePicture({65500, 1}, Model::kGray, false), 80).empty());
  try {
    EncodeJpeg(MakePicture({65501, 1}, Model::kGray, false), 80);
    FAIL() << "encoded";
  } catch (const Declined& declined) {
    EXPECT_EQ(declined.Why(), Reason::kTooLarge);
    EXPECT_STREQ(declined.what(), "Maximum supported image dimension is 65500 pixels");
  }
}

}  // namespace
}  // namespace tavithumb::maker
