// SPDX-License-Identifier: GPL-3.0-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <lcms2.h>
#include <libheif/heif.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "decoding.h"
#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "pictures.h"
#include "scene.h"
#include "temp_dir.h"

namespace tavithumb::maker {
namespace {

// An open file.
struct HeifFile {
  explicit HeifFile(const std::string& path) : input(path), decoder(OpenHeif(input)) {}
  Input input;
  std::unique_ptr<Decoder> decoder;
};

class Heif : public testing::Test {
 protected:
  std::string Encode(const std::string& source, std::vector<std::string> options) const {
    options.insert(options.begin(), "/usr/bin/heif-enc");
    const std::string target = directory_ / "encoded.heic";
    for (const std::string& word : {std::string("-q"), std::string("90"), source, std::string("-o"), target}) {
      options.push_back(word);
    }
    test::RunTool(options);
    return target;
  }

  std::string Scene(int width, int height, const std::vector<std::string>& options = {}) const {
    const std::string source = directory_ / "scene.jpg";
    test::MakeJpeg(source, width, height);
    return Encode(source, options);
  }

  std::string Converted(const std::string& from, const std::vector<std::string>& operators) const {
    const std::string target = directory_ / "converted.png";
    std::vector<std::string> words = {"/usr/bin/convert", from};
    words.insert(words.end(), operators.begin(), operators.end());
    words.push_back(target);
    test::RunTool(words);
    return target;
  }

  const test::TempDir directory_;
};

void ExpectWhole(const Picture& picture, Size size) {
  EXPECT_EQ(picture.storedSize, size);
  EXPECT_EQ(picture.channels[0].plane.Dimensions(), size);
  EXPECT_EQ(WrongSpots(picture, 24), "");
}

TEST_F(Heif, IsDecodedToPlanesOfLumaAndChroma) {
  const HeifFile file(Scene(160, 120));
  const Header& header = file.decoder->Head();
  EXPECT_EQ(header.stored, (Size{160, 120}));
  EXPECT_TRUE(header.isUpright);
  EXPECT_TRUE(header.previews.empty());
  EXPECT_FALSE(file.decoder->IsAnimated());
  const Picture picture = file.decoder->Decode(test::kWhole);
  EXPECT_EQ(picture.model, Model::kYcc);
  ASSERT_EQ(picture.channels.size(), 3U);
  EXPECT_EQ(picture.channels[1].plane.Dimensions(), (Size{80, 60}));
  EXPECT_EQ(picture.channels[2].plane.Dimensions(), (Size{80, 60}));
  EXPECT_FALSE(picture.hasAlpha);
  EXPECT_TRUE(picture.profile.empty());
  ExpectWhole(picture, {160, 120});
}

TEST_F(Heif, IsAvifAsWell) {
  if (heif_have_encoder_for_format(heif_compression_AV1) == 0) GTEST_SKIP() << "no AV1 encoder";
  const HeifFile file(Scene(160, 120, {"-A"}));
  ExpectWhole(file.decoder->Decode(test::kWhole), {160, 120});
}

TEST_F(Heif, OfOddSizesHasChromaThatCoversHalfASampleLess) {
  const HeifFile file(Scene(161, 121));
  const Picture picture = file.decoder->Decode(test::kWhole);
  ExpectWhole(picture, {161, 121});
  EXPECT_EQ(picture.channels[1].plane.Dimensions(), (Size{81, 61}));
  EXPECT_EQ(picture.channels[1].width, 80.5);
  EXPECT_EQ(picture.channels[1].height, 60.5);
}

TEST_F(Heif, MayHaveAnySubsampling) {
  for (const char* chroma : {"420", "422", "444"}) {
    const HeifFile file(Scene(160, 120, {"-p", std::string("chroma=") + chroma}));
    EXPECT_EQ(WrongSpots(file.decoder->Decode(test::kWhole), 24), "") << chroma;
  }
}

TEST_F(Heif, OfMoreThan8BitsIsRoundedTo8) {
  const Colour colour = {0x40, 0x80, 0xC0};
  const std::string source = Converted("xc:#4080C0", {"-resize", "64x64!", "-depth", "16", "-define",
                                                      "png:color-type=2", "-define", "png:bit-depth=16"});
  for (const char* bits : {"10", "12"}) {
    const HeifFile file(Encode(source, {"-b", bits}));
    EXPECT_LE(Distance(ColourAt(file.decoder->Decode(test::kWhole), {0.5, 0.5}), colour), 3) << bits;
  }
}

TEST_F(Heif, OfGrayHasOnePlane) {
  test::MakePng(directory_ / "scene.png", 160, 120);
  const std::string source = Converted(directory_ / "scene.png", {"-colorspace", "Gray", "-type", "Grayscale"});
  const HeifFile file(Encode(source, {}));
  const Picture picture = file.decoder->Decode(test::kWhole);
  EXPECT_EQ(picture.model, Model::kGray);
  ASSERT_EQ(picture.channels.size(), 1U);
  EXPECT_LE(SampleAt(picture.channels[0], {0.13, 0.20}), 8);
  EXPECT_NEAR(SampleAt(picture.channels[0], {0.75, 0.75}), 237, 8);
}

TEST_F(Heif, WithTransparencyHasItAsALastPlane) {
  const std::string source = Converted("-size", {"160x120", "gradient:red-blue", "-alpha", "set", "-channel", "A",
                                                 "-fx", "i/w", "+channel", "-depth", "8"});
  const HeifFile file(Encode(source, {}));
  const Picture picture = file.decoder->Decode(test::kWhole);
  EXPECT_TRUE(picture.hasAlpha);
  EXPECT_FALSE(picture.isPremultiplied);
  ASSERT_EQ(picture.channels.size(), 4U);
  EXPECT_EQ(picture.channels[3].plane.Dimensions(), (Size{160, 120}));
  EXPECT_NEAR(SampleAt(picture.channels[3], {0.1, 0.5}), 25, 6);
  EXPECT_NEAR(SampleAt(picture.channels[3], {0.9, 0.5}), 230, 6);
}

struct Free {
  void operator()(heif_context* context) const { heif_context_free(context); }
  void operator()(heif_encoder* encoder) const { heif_encoder_release(encoder); }
  void operator()(heif_image* image) const { heif_image_release(image); }
  void operator()(heif_color_profile_nclx* colours) const { heif_nclx_color_profile_free(colours); }
  void operator()(heif_encoding_options* options) const { heif_encoding_options_free(options); }
};

// What heif-enc has no options for, or ignores. As AVIF: older versions of libheif write the numbers of the colours
// only there, and x265 leaks.
struct Encoding {
  heif_orientation orientation = heif_orientation_normal;
  heif_color_primaries primaries = heif_color_primaries_unspecified;
  heif_matrix_coefficients matrix = heif_matrix_coefficients_ITU_R_BT_601_6;
  bool isFullRange = true;
};

std::unique_ptr<heif_image, Free> ImageOf(const std::string& rgb, Size size) {
  heif_image* image = nullptr;
  heif_image_create(size.width, size.height, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &image);
  heif_image_add_plane(image, heif_channel_interleaved, size.width, size.height, 8);
  int stride = 0;
  std::uint8_t* samples = heif_image_get_plane(image, heif_channel_interleaved, &stride);
  const auto row = static_cast<std::size_t>(size.width) * 3;
  for (int y = 0; y < size.height; ++y) {
    std::memcpy(samples + static_cast<std::ptrdiff_t>(y) * stride, rgb.data() + static_cast<std::size_t>(y) * row, row);
  }
  return std::unique_ptr<heif_image, Free>(image);
}

void Encode(const std::string& rgb, Size size, const Encoding& encoding, const std::string& path) {
  const std::unique_ptr<heif_context, Free> context(heif_context_alloc());
  heif_encoder* encoder = nullptr;
  ASSERT_EQ(heif_context_get_encoder_for_format(context.get(), heif_compression_AV1, &encoder).code, heif_error_Ok);
  const std::unique_ptr<heif_encoder, Free> owned(encoder);
  const std::unique_ptr<heif_image, Free> image = ImageOf(rgb, size);
  heif_color_profile_nclx* colours = heif_nclx_color_profile_alloc();
  const std::unique_ptr<heif_color_profile_nclx, Free> ownedColours(colours);
  colours->color_primaries = encoding.primaries;
  colours->transfer_characteristics = heif_transfer_characteristic_IEC_61966_2_1;
  colours->matrix_coefficients = encoding.matrix;
  colours->full_range_flag = encoding.isFullRange ? 1 : 0;
  const std::unique_ptr<heif_encoding_options, Free> options(heif_encoding_options_alloc());
  options->image_orientation = encoding.orientation;
  options->output_nclx_profile = colours;
  heif_image_set_nclx_color_profile(image.get(), colours);
  heif_encoder_set_lossy_quality(encoder, 90);
  ASSERT_EQ(heif_context_encode_image(context.get(), image.get(), encoder, options.get(), nullptr).code, heif_error_Ok);
  ASSERT_EQ(heif_context_write_to_file(context.get(), path.c_str()).code, heif_error_Ok);
}

TEST_F(Heif, IsUprightHoweverItIsStored) {
  if (heif_have_encoder_for_format(heif_compression_AV1) == 0) GTEST_SKIP() << "no AV1 encoder";
  // How the scene must be stored for each orientation to undo it.
  const std::vector<std::string> stored[] = {{"-flop", "-flop"}, {"-flop"},        {"-rotate", "180"},
                                             {"-flip"},          {"-transpose"},   {"-rotate", "270"},
                                             {"-transverse"},    {"-rotate", "90"}};
  const std::string scene = directory_ / "scene.png";
  test::MakePng(scene, 160, 120);
  for (int orientation = 1; orientation <= 8; ++orientation) {
    std::vector<std::string> words = {"/usr/bin/convert", scene};
    for (const std::string& word : stored[orientation - 1]) words.push_back(word);
    for (const char* word : {"-depth", "8", "rgb:-"}) words.emplace_back(word);
    const Size size = orientation < 5 ? Size{160, 120} : Size{120, 160};
    const std::string path = directory_ / "oriented.heic";
    Encoding encoding;
    encoding.orientation = static_cast<heif_orientation>(orientation);
    maker::Encode(test::RunTool(words), size, encoding, path);
    const HeifFile file(path);
    EXPECT_EQ(file.decoder->Head().stored, (Size{160, 120})) << orientation;
    const Picture picture = file.decoder->Decode(test::kWhole);
    EXPECT_EQ(picture.channels[0].plane.Dimensions(), (Size{160, 120})) << orientation;
    EXPECT_EQ(WrongSpots(picture, 24), "") << orientation;
  }
}

TEST_F(Heif, ListsItsThumbnailItem) {
  const HeifFile file(Scene(320, 240, {"--thumb", "160"}));
  const std::vector<Preview>& previews = file.decoder->Head().previews;
  ASSERT_EQ(previews.size(), 1U);
  EXPECT_EQ(previews[0].size, (Size{160, 120}));
  ExpectWhole(file.decoder->DecodePreview(0, test::kWhole), {160, 120});
  ExpectWhole(file.decoder->Decode(test::kWhole), {320, 240});
}

TEST_F(Heif, HasNoPreviewThatLacksItsTransparency) {
  test::MakePng(directory_ / "scene.png", 320, 240);
  const std::string source = Converted(directory_ / "scene.png", {"-depth", "8", "-alpha", "set", "-channel", "A",
                                                                  "-evaluate", "set", "50%", "+channel"});
  const HeifFile with(Encode(source, {"--thumb", "100"}));
  EXPECT_EQ(with.decoder->Head().previews.size(), 1U);
  const HeifFile without(Encode(source, {"--thumb", "100", "--no-thumb-alpha"}));
  EXPECT_TRUE(without.decoder->Head().previews.empty());
}

TEST_F(Heif, KeepsItsProfile) {
  const cmsHPROFILE profile = cmsCreate_sRGBProfile();
  cmsSaveProfileToFile(profile, (directory_ / "srgb.icc").c_str());
  cmsCloseProfile(profile);
  test::MakePng(directory_ / "scene.png", 160, 120);
  const std::string source = Converted(directory_ / "scene.png", {"-depth", "8", "-profile", directory_ / "srgb.icc"});
  const HeifFile file(Encode(source, {"--thumb", "100"}));
  const std::string expected = test::ReadFile(directory_ / "srgb.icc");
  for (const Picture& picture : {file.decoder->Decode(test::kWhole), file.decoder->DecodePreview(0, test::kWhole)}) {
    EXPECT_EQ(std::string(picture.profile.begin(), picture.profile.end()), expected);
  }
}

// The scene, 160 x 120.
std::string EncodedScene(const test::TempDir& directory, const Encoding& encoding) {
  test::MakePng(directory / "scene.png", 160, 120);
  const std::string rgb = test::RunTool({"/usr/bin/convert", directory / "scene.png", "-depth", "8", "rgb:-"});
  Encode(rgb, {160, 120}, encoding, directory / "coded.heic");
  return directory / "coded.heic";
}

TEST_F(Heif, ShowsItsColoursHoweverTheyAreCoded) {
  if (heif_have_encoder_for_format(heif_compression_AV1) == 0) GTEST_SKIP() << "no AV1 encoder";
  for (const heif_matrix_coefficients matrix :
       {heif_matrix_coefficients_ITU_R_BT_709_5, heif_matrix_coefficients_ITU_R_BT_470_6_System_B_G,
        heif_matrix_coefficients_ITU_R_BT_601_6, heif_matrix_coefficients_ITU_R_BT_2020_2_non_constant_luminance}) {
    for (const bool isFullRange : {false, true}) {
      Encoding encoding;
      encoding.matrix = matrix;
      encoding.isFullRange = isFullRange;
      const HeifFile file(EncodedScene(directory_, encoding));
      EXPECT_EQ(WrongSpots(file.decoder->Decode(test::kWhole), 24), "") << matrix << isFullRange;
    }
  }
}

// X and Y of a profile's red, by its chromaticities.
std::string PrimariesOf(const std::vector<std::uint8_t>& bytes) {
  const cmsHPROFILE profile = cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size()));
  if (profile == nullptr) return "no profile";
  const auto* red = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, cmsSigRedColorantTag));
  const std::string text =
      std::to_string(std::lround(red->X * 1000)) + " " + std::to_string(std::lround(red->Y * 1000));
  cmsCloseProfile(profile);
  return text;
}

TEST_F(Heif, WithWideColoursByNumberHasAProfile) {
  if (heif_have_encoder_for_format(heif_compression_AV1) == 0) GTEST_SKIP() << "no AV1 encoder";
  struct {
    heif_color_primaries primaries;
    const char* red;
  } const rows[] = {{heif_color_primaries_ITU_R_BT_709_5, "no profile"},
                    {heif_color_primaries_SMPTE_EG_432_1, "515 241"},
                    {heif_color_primaries_ITU_R_BT_2020_2_and_2100_0, "673 279"}};
  for (const auto& row : rows) {
    Encoding encoding;
    encoding.primaries = row.primaries;
    const HeifFile file(EncodedScene(directory_, encoding));
    EXPECT_EQ(PrimariesOf(file.decoder->Decode(test::kWhole).profile), row.red) << row.primaries;
  }
}

// What becomes of a file: the reason if it is declined, else nothing.
std::optional<Reason> TryHeif(const std::string& path) {
  try {
    const HeifFile file(path);
    const Picture picture = file.decoder->Decode(test::kWhole);
    EXPECT_FALSE(picture.channels.empty());
    return {};
  } catch (const Declined& declined) {
    EXPECT_THAT(declined.what(), testing::AllOf(testing::StrNe(""), testing::Not(testing::HasSubstr("\n"))));
    return declined.Why();
  }
}

// The thumbnail comes last: newer versions of libheif decode a photo that is followed by a part of its thumbnail.
TEST_F(Heif, CutOffIsDeclinedOrShownWhole) {
  const std::string whole = test::ReadFile(Scene(160, 120, {"--thumb", "80"}));
  const std::string path = directory_ / "cut.heic";
  for (std::size_t size = 0; size < whole.size(); size += 1 + size / 20) {
    test::WriteFile(path, whole.substr(0, size));
    SCOPED_TRACE(std::to_string(size) + " of " + std::to_string(whole.size()));
    if (const std::optional<Reason> reason = TryHeif(path)) {
      EXPECT_TRUE(reason == Reason::kDamaged || reason == Reason::kUnsupported);
    } else {
      ExpectWhole(HeifFile(path).decoder->Decode(test::kWhole), {160, 120});
    }
  }
}

TEST_F(Heif, WithOneByteChangedIsDecodedOrDeclined) {
  const std::string whole = test::ReadFile(Scene(64, 48, {"--thumb", "32"}));
  const std::string path = directory_ / "changed.heic";
  for (std::size_t at = 0; at < whole.size(); at += 3) {
    std::string changed = whole;
    changed[at] = static_cast<char>(~changed[at]);
    test::WriteFile(path, changed);
    TryHeif(path);
  }
}

TEST_F(Heif, ThatIsAFilmFirstIsAnimated) {
  const std::string path = directory_ / "film.heic";
  std::string content = test::ReadFile(Scene(64, 48));
  for (const char* brand : {"hevc", "msf1", "avis"}) {
    test::WriteFile(path, content.replace(8, 4, brand));
    EXPECT_TRUE(HeifFile(path).decoder->IsAnimated()) << brand;
  }
}

TEST_F(Heif, SamplesAreDecodedOrDeclined) {
  const std::string samples = test::SamplesFolder();
  if (samples.empty()) GTEST_SKIP() << "no sample files";
  struct {
    const char* name;
    Size size;
    std::vector<Size> previews;
  } const rows[] = {
      {"heic/iphone-13.HEIC", {3024, 4032}, {{240, 320}}},
      {"heic/iphone-7.HEIC", {2566, 3313}, {}},
      {"heic/nokia-8.heif", {4608, 3456}, {}},
      {"heic/no-exif.heic", {1440, 960}, {{240, 160}}},
      {"../samples-more/modern/sony.hif", {8640, 5760}, {{1616, 1080}, {320, 212}}},
      {"../samples-more/modern/photo.avif", {1920, 1080}, {}},
      {"../samples-more/modern/small.avif", {120, 120}, {}},
  };
  for (const auto& row : rows) {
    const std::string path = samples + "/" + row.name;
    if (!test::Exists(path)) continue;
    const HeifFile file(path);
    EXPECT_EQ(file.decoder->Head().stored, row.size) << path;
    EXPECT_EQ(file.decoder->Decode(test::kWhole).channels[0].plane.Dimensions(), row.size) << path;
    std::vector<Size> previews;
    for (const Preview& preview : file.decoder->Head().previews) {
      EXPECT_EQ(file.decoder->DecodePreview(previews.size(), test::kWhole).channels[0].plane.Dimensions(), preview.size)
          << path;
      previews.push_back(preview.size);
    }
    // Newer versions of libheif list one more of a camera's.
    if (previews.size() > row.previews.size()) previews.resize(row.previews.size());
    EXPECT_EQ(previews, row.previews) << path;
  }
  EXPECT_EQ(TryHeif(samples + "/broken/text.heic"), Reason::kDamaged);
  EXPECT_EQ(TryHeif(samples + "/broken/iteminfo.heif"), Reason::kDamaged);
  const std::string large = samples + "/../samples-more/broken/17000x17000.avif";
  if (test::Exists(large)) {
    EXPECT_EQ(TryHeif(large), Reason::kTooLarge);
  }
}

}  // namespace
}  // namespace tavithumb::maker
