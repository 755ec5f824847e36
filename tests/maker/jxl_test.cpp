// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <jxl/encode.h>
#include <lcms2.h>

#include <cmath>
#include <cstdint>
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

struct FreeEncoder {
  void operator()(JxlEncoder* encoder) const { JxlEncoderDestroy(encoder); }
};

struct JxlEncoding {
  Size size = {160, 120};
  std::uint32_t colours = 3;
  bool hasAlpha = false;
  std::uint32_t bits = 8;
  int orientation = 1;
  bool isLossless = true;
  bool isAnimated = false;
  bool hasContainer = false;
  JxlPrimaries primaries = JXL_PRIMARIES_SRGB;
  JxlTransferFunction transfer = JXL_TRANSFER_FUNCTION_SRGB;
  std::string profile;  // instead of primaries and transfer
};

JxlBasicInfo InfoOf(const JxlEncoding& encoding) {
  JxlBasicInfo info;
  JxlEncoderInitBasicInfo(&info);
  info.xsize = static_cast<std::uint32_t>(encoding.size.width);
  info.ysize = static_cast<std::uint32_t>(encoding.size.height);
  info.bits_per_sample = encoding.bits;
  info.num_color_channels = encoding.colours;
  info.num_extra_channels = encoding.hasAlpha ? 1 : 0;
  info.alpha_bits = encoding.hasAlpha ? encoding.bits : 0;
  info.orientation = static_cast<JxlOrientation>(encoding.orientation);
  info.uses_original_profile = encoding.isLossless ? JXL_TRUE : JXL_FALSE;
  info.have_animation = encoding.isAnimated ? JXL_TRUE : JXL_FALSE;
  info.animation.tps_numerator = 10;
  info.animation.tps_denominator = 1;
  return info;
}

void SetColours(JxlEncoder* encoder, const JxlEncoding& encoding) {
  if (!encoding.profile.empty()) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(encoding.profile.data());
    ASSERT_EQ(JxlEncoderSetICCProfile(encoder, bytes, encoding.profile.size()), JXL_ENC_SUCCESS);
    return;
  }
  JxlColorEncoding colours;
  JxlColorEncodingSetToSRGB(&colours, encoding.colours == 1 ? JXL_TRUE : JXL_FALSE);
  colours.primaries = encoding.primaries;
  colours.transfer_function = encoding.transfer;
  ASSERT_EQ(JxlEncoderSetColorEncoding(encoder, &colours), JXL_ENC_SUCCESS);
}

std::string OutputOf(JxlEncoder* encoder) {
  std::string file(1 << 20, '\0');
  auto* next = reinterpret_cast<std::uint8_t*>(file.data());
  std::size_t left = file.size();
  EXPECT_EQ(JxlEncoderProcessOutput(encoder, &next, &left), JXL_ENC_SUCCESS);
  file.resize(file.size() - left);
  return file;
}

// `samples` are interleaved, in the byte order of the machine.
std::string Encode(const std::string& samples, const JxlEncoding& encoding) {
  const std::unique_ptr<JxlEncoder, FreeEncoder> encoder(JxlEncoderCreate(nullptr));
  JxlEncoderUseContainer(encoder.get(), encoding.hasContainer ? JXL_TRUE : JXL_FALSE);
  const JxlBasicInfo info = InfoOf(encoding);
  EXPECT_EQ(JxlEncoderSetBasicInfo(encoder.get(), &info), JXL_ENC_SUCCESS);
  SetColours(encoder.get(), encoding);
  JxlEncoderFrameSettings* settings = JxlEncoderFrameSettingsCreate(encoder.get(), nullptr);
  if (encoding.isLossless) JxlEncoderSetFrameLossless(settings, JXL_TRUE);
  JxlEncoderFrameSettingsSetOption(settings, JXL_ENC_FRAME_SETTING_EFFORT, 3);
  const JxlPixelFormat format = {encoding.colours + (encoding.hasAlpha ? 1 : 0),
                                 encoding.bits == 8 ? JXL_TYPE_UINT8 : JXL_TYPE_UINT16, JXL_NATIVE_ENDIAN, 0};
  for (int frame = 0; frame < (encoding.isAnimated ? 3 : 1); ++frame) {
    EXPECT_EQ(JxlEncoderAddImageFrame(settings, &format, samples.data(), samples.size()), JXL_ENC_SUCCESS);
  }
  JxlEncoderCloseInput(encoder.get());
  return OutputOf(encoder.get());
}

// A file in memory.
struct JxlFile {
  explicit JxlFile(std::string bytes)
      : content(std::move(bytes)),
        input(Bytes{reinterpret_cast<const std::uint8_t*>(content.data()), content.size()}),
        decoder(OpenJxl(input)) {}
  std::string content;
  Input input;
  std::unique_ptr<Decoder> decoder;
};

class Jxl : public testing::Test {
 protected:
  // The samples of the scene.
  std::string Scene(Size size, const std::vector<std::string>& operators) const {
    test::MakePng(directory_ / "scene.png", size.width, size.height);
    std::vector<std::string> words = {"/usr/bin/convert", directory_ / "scene.png"};
    words.insert(words.end(), operators.begin(), operators.end());
    return test::RunTool(words);
  }

  std::string Rgb() const { return Scene({160, 120}, {"-depth", "8", "rgb:-"}); }

  const test::TempDir directory_;
};

TEST_F(Jxl, IsDecodedToRgb) {
  for (const bool isLossless : {true, false}) {
    for (const bool hasContainer : {true, false}) {
      JxlEncoding encoding;
      encoding.isLossless = isLossless;
      encoding.hasContainer = hasContainer;
      const JxlFile file(Encode(Rgb(), encoding));
      EXPECT_EQ(file.decoder->Head().stored, (Size{160, 120}));
      EXPECT_TRUE(file.decoder->Head().isUpright);
      EXPECT_FALSE(file.decoder->IsAnimated());
      const Picture picture = file.decoder->Decode(test::kWhole);
      EXPECT_EQ(picture.model, Model::kRgb);
      EXPECT_EQ(picture.channels.size(), 3U);
      EXPECT_EQ(picture.storedSize, (Size{160, 120}));
      EXPECT_EQ(picture.channels[0].plane.Dimensions(), (Size{160, 120}));
      EXPECT_TRUE(picture.profile.empty());
      EXPECT_EQ(WrongSpots(picture, isLossless ? 0 : 24), "") << isLossless << hasContainer;
    }
  }
}

TEST_F(Jxl, MayBeDecodedAgain) {
  const JxlFile file(Encode(Rgb(), {}));
  file.decoder->Decode(test::kWhole);
  EXPECT_EQ(WrongSpots(file.decoder->Decode(test::kWhole), 0), "");
}

TEST_F(Jxl, OfGrayHasOnePlane) {
  JxlEncoding encoding;
  encoding.colours = 1;
  const JxlFile file(Encode(Scene({160, 120}, {"-colorspace", "Gray", "-depth", "8", "gray:-"}), encoding));
  const Picture picture = file.decoder->Decode(test::kWhole);
  EXPECT_EQ(picture.model, Model::kGray);
  ASSERT_EQ(picture.channels.size(), 1U);
  EXPECT_TRUE(picture.profile.empty());
  EXPECT_EQ(SampleAt(picture.channels[0], {0.13, 0.20}), 0);
  EXPECT_NEAR(SampleAt(picture.channels[0], {0.75, 0.75}), 237, 2);
}

TEST_F(Jxl, WithTransparencyHasItAsALastPlane) {
  for (const std::uint32_t colours : {1U, 3U}) {
    JxlEncoding encoding;
    encoding.colours = colours;
    encoding.hasAlpha = true;
    std::string samples;
    for (int i = 0; i < 160 * 120; ++i) samples += std::string(colours, '\x40') + static_cast<char>(i % 160);
    const Picture picture = JxlFile(Encode(samples, encoding)).decoder->Decode(test::kWhole);
    EXPECT_TRUE(picture.hasAlpha);
    EXPECT_FALSE(picture.isPremultiplied);
    ASSERT_EQ(picture.channels.size(), colours + 1);
    EXPECT_EQ(picture.channels[0].plane.Row(60)[100], 0x40);
    EXPECT_EQ(picture.channels[colours].plane.Row(60)[100], 100);
  }
}

TEST_F(Jxl, Of16BitsIsReducedTo8) {
  JxlEncoding encoding;
  encoding.bits = 16;
  const std::string samples = Scene({160, 120}, {"-depth", "16", "-endian", "LSB", "rgb:-"});
  EXPECT_EQ(WrongSpots(JxlFile(Encode(samples, encoding)).decoder->Decode(test::kWhole), 1), "");
}

TEST_F(Jxl, IsUprightHoweverItIsStored) {
  // How the scene must be stored for each orientation to undo it.
  const std::vector<std::string> stored[] = {{},
                                             {"-flop"},
                                             {"-rotate", "180"},
                                             {"-flip"},
                                             {"-transpose"},
                                             {"-rotate", "270"},
                                             {"-transverse"},
                                             {"-rotate", "90"}};
  for (int orientation = 1; orientation <= 8; ++orientation) {
    std::vector<std::string> operators = stored[orientation - 1];
    for (const char* word : {"-depth", "8", "rgb:-"}) operators.emplace_back(word);
    JxlEncoding encoding;
    encoding.orientation = orientation;
    if (orientation >= 5) encoding.size = {120, 160};
    const JxlFile file(Encode(Scene({160, 120}, operators), encoding));
    EXPECT_EQ(file.decoder->Head().stored, (Size{160, 120})) << orientation;
    const Picture picture = file.decoder->Decode(test::kWhole);
    EXPECT_EQ(picture.channels[0].plane.Dimensions(), (Size{160, 120})) << orientation;
    EXPECT_EQ(WrongSpots(picture, 0), "") << orientation;
  }
}

// X and Y of a profile's red, by its chromaticities.
std::string RedOf(const std::vector<std::uint8_t>& bytes) {
  const cmsHPROFILE profile = cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size()));
  if (profile == nullptr) return "no profile";
  const auto* red = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, cmsSigRedColorantTag));
  const std::string text =
      std::to_string(std::lround(red->X * 1000)) + " " + std::to_string(std::lround(red->Y * 1000));
  cmsCloseProfile(profile);
  return text;
}

TEST_F(Jxl, KeepsWideColoursWithAProfile) {
  for (const bool isLossless : {true, false}) {
    JxlEncoding encoding;
    encoding.isLossless = isLossless;
    encoding.primaries = JXL_PRIMARIES_P3;
    const Picture picture = JxlFile(Encode(Rgb(), encoding)).decoder->Decode(test::kWhole);
    EXPECT_EQ(RedOf(picture.profile), "515 241") << isLossless;
    EXPECT_EQ(WrongSpots(picture, isLossless ? 0 : 24), "") << isLossless;
  }
}

std::string SrgbProfile() {
  const cmsHPROFILE profile = cmsCreate_sRGBProfile();
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(profile, nullptr, &size);
  std::string bytes(size, '\0');
  cmsSaveProfileToMem(profile, bytes.data(), &size);
  cmsCloseProfile(profile);
  return bytes;
}

TEST_F(Jxl, WithAProfileIsDecodedToItOrToSrgb) {
  JxlEncoding encoding;
  encoding.profile = SrgbProfile();
  EXPECT_EQ(WrongSpots(JxlFile(Encode(Rgb(), encoding)).decoder->Decode(test::kWhole), 0), "");
  encoding.isLossless = false;
  const Picture picture = JxlFile(Encode(Rgb(), encoding)).decoder->Decode(test::kWhole);
  EXPECT_EQ(WrongSpots(picture, 24), "");
  EXPECT_TRUE(picture.profile.empty());
}

TEST_F(Jxl, OfLinearLightOrHighDynamicRangeIsDecodedToSrgb) {
  for (const JxlTransferFunction transfer :
       {JXL_TRANSFER_FUNCTION_LINEAR, JXL_TRANSFER_FUNCTION_PQ, JXL_TRANSFER_FUNCTION_HLG}) {
    JxlEncoding encoding;
    encoding.isLossless = false;
    encoding.transfer = transfer;
    const Picture picture = JxlFile(Encode(Rgb(), encoding)).decoder->Decode(test::kWhole);
    EXPECT_TRUE(picture.profile.empty()) << transfer;
    EXPECT_LE(Distance(ColourAt(picture, {0.13, 0.20}), {0, 0, 0}), 24) << transfer;
  }
}

TEST_F(Jxl, ThatIsAnimatedShowsItsFirstFrame) {
  JxlEncoding encoding;
  encoding.isAnimated = true;
  const JxlFile file(Encode(Rgb(), encoding));
  EXPECT_TRUE(file.decoder->IsAnimated());
  EXPECT_EQ(WrongSpots(file.decoder->Decode(test::kWhole), 0), "");
}

// What becomes of a file: the reason if it is declined, else nothing.
std::optional<Reason> TryJxl(const std::string& content) {
  try {
    EXPECT_FALSE(JxlFile(content).decoder->Decode(test::kWhole).channels.empty());
    return {};
  } catch (const Declined& declined) {
    EXPECT_STRNE(declined.what(), "");
    return declined.Why();
  }
}

TEST_F(Jxl, CutOffIsDeclinedOrShown) {
  JxlEncoding encoding;
  encoding.size = {600, 400};
  encoding.isLossless = false;
  for (const bool hasContainer : {true, false}) {
    encoding.hasContainer = hasContainer;
    const std::string whole = Encode(Scene({600, 400}, {"-depth", "8", "rgb:-"}), encoding);
    EXPECT_EQ(TryJxl(whole), std::nullopt);
    for (std::size_t size = 0; size < whole.size(); size += 1 + size / 20) {
      const std::optional<Reason> reason = TryJxl(whole.substr(0, size));
      EXPECT_TRUE(reason == std::nullopt || reason == Reason::kDamaged) << size;
    }
    EXPECT_EQ(TryJxl(whole.substr(0, 12)), Reason::kDamaged);
    EXPECT_EQ(TryJxl(whole.substr(0, whole.size() - 20)), std::nullopt);
  }
}

TEST_F(Jxl, WithOneByteChangedIsDecodedOrDeclined) {
  const std::string whole = Encode(Rgb(), {});
  for (std::size_t at = 0; at < whole.size(); at += 1 + at / 40) {
    std::string changed = whole;
    changed[at] = static_cast<char>(~changed[at]);
    TryJxl(changed);
  }
}

TEST_F(Jxl, SampleIsDecoded) {
  const std::string path = test::SamplesFolder() + "/../samples-more/modern/grey.jxl";
  if (!test::Exists(path)) GTEST_SKIP() << "no sample files";
  const JxlFile file(test::ReadFile(path));
  const Picture picture = file.decoder->Decode(test::kWhole);
  EXPECT_EQ(picture.channels[0].plane.Dimensions(), file.decoder->Head().stored);
}

}  // namespace
}  // namespace tavithumb::maker
