// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/colour.h"

#include <gtest/gtest.h>
#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "maker/matrix_profile.h"
#include "tests/maker/colour_difference.h"
#include "tests/maker/instructions.h"

namespace tavithumb::maker {
namespace {

std::size_t ColoursOf(Model model) {
  if (model == Model::kGray) return 1;
  return model == Model::kCmyk ? 4 : 3;
}

// A picture of one row.
Picture PictureOf(Model model, const Samples& samples, const Samples& profile) {
  Picture picture;
  picture.model = model;
  picture.profile = profile;
  const std::size_t colours = ColoursOf(model);
  const int width = static_cast<int>(samples.size() / colours);
  for (std::size_t i = 0; i < colours; ++i) {
    Plane plane({width, 1});
    for (int x = 0; x < width; ++x) plane.Row(0)[x] = samples[static_cast<std::size_t>(x) * colours + i];
    picture.channels.push_back({std::move(plane), static_cast<double>(width), 1});
  }
  return picture;
}

Samples SamplesOf(const Picture& picture) {
  Samples samples;
  for (int x = 0; x < picture.channels[0].plane.Width(); ++x) {
    for (const Channel& channel : picture.channels) samples.push_back(channel.plane.Row(0)[x]);
  }
  return samples;
}

Samples Saved(cmsHPROFILE profile) {
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(profile, nullptr, &size);
  Samples bytes(size);
  cmsSaveProfileToMem(profile, bytes.data(), &size);
  cmsCloseProfile(profile);
  EXPECT_NE(size, 0U) << "lcms2 can't save the profile";
  return bytes;
}

constexpr cmsCIExyY kD65 = {0.3127, 0.3290, 1};
constexpr cmsCIExyYTRIPLE kSrgbPrimaries = {{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}};
constexpr cmsCIExyYTRIPLE kP3Primaries = {{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}};

cmsToneCurve* SrgbCurve() {
  const cmsFloat64Number parameters[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
  return cmsBuildParametricToneCurve(nullptr, 4, parameters);
}

// The same curve as a table, as most profiles of cameras have it.
cmsToneCurve* SrgbTable(std::size_t entries) {
  cmsToneCurve* exact = SrgbCurve();
  std::vector<cmsUInt16Number> table;
  for (std::size_t i = 0; i < entries; ++i) {
    const float place = static_cast<float>(i) / static_cast<float>(entries - 1);
    table.push_back(static_cast<cmsUInt16Number>(std::lround(65535 * cmsEvalToneCurveFloat(exact, place))));
  }
  cmsFreeToneCurve(exact);
  return cmsBuildTabulatedToneCurve16(nullptr, static_cast<cmsUInt32Number>(entries), table.data());
}

Samples RgbProfile(const cmsCIExyYTRIPLE& primaries, cmsToneCurve* curve, double version = 4.3) {
  cmsToneCurve* curves[] = {curve, curve, curve};
  cmsHPROFILE profile = cmsCreateRGBProfile(&kD65, &primaries, curves);
  cmsSetProfileVersion(profile, version);
  cmsFreeToneCurve(curve);
  return Saved(profile);
}

Samples GrayProfile(cmsToneCurve* curve) {
  const Samples bytes = Saved(cmsCreateGrayProfile(cmsD50_xyY(), curve));
  cmsFreeToneCurve(curve);
  return bytes;
}

// A gray profile whose samples mean other grays of sRGB.
Samples GrayProfileOf(const std::function<int(int)>& gray) {
  cmsToneCurve* exact = SrgbCurve();
  std::vector<cmsUInt16Number> table;
  for (int i = 0; i < 256; ++i) {
    const float value = cmsEvalToneCurveFloat(exact, static_cast<float>(gray(i)) / 255);
    table.push_back(static_cast<cmsUInt16Number>(std::lround(65535 * value)));
  }
  cmsFreeToneCurve(exact);
  return GrayProfile(cmsBuildTabulatedToneCurve16(nullptr, 256, table.data()));
}

Samples GrayProfileOff(int levels) {
  return GrayProfileOf([=](int gray) { return gray % 255 == 0 ? gray : std::min(255, gray + levels); });
}

Samples P3() {
  return RgbProfile(kP3Primaries, SrgbCurve());
}

// The Lab colour of inks that let light through as filters do, and of dirty paper.
cmsInt32Number InksToLab(const cmsUInt16Number in[], cmsUInt16Number out[], void* /*unused*/) {
  double rgb[3];
  for (int i = 0; i < 3; ++i) rgb[i] = (1 - 0.95 * in[i] / 65535.0) * (1 - 0.9 * in[3] / 65535.0);
  const double light = 0.3 * rgb[0] + 0.6 * rgb[1] + 0.1 * rgb[2];
  const cmsCIELab lab = {95 * std::cbrt(light), 90 * (rgb[0] - rgb[1]), 90 * (rgb[1] - rgb[2])};
  cmsFloat2LabEncodedV2(out, &lab);
  return TRUE;
}

// A press: a table from CMYK to Lab.
Samples CmykProfile() {
  cmsHPROFILE profile = cmsCreateProfilePlaceholder(nullptr);
  cmsSetProfileVersion(profile, 2.4);
  cmsSetDeviceClass(profile, cmsSigOutputClass);
  cmsSetColorSpace(profile, cmsSigCmykData);
  cmsSetPCS(profile, cmsSigLabData);
  cmsPipeline* pipeline = cmsPipelineAlloc(nullptr, 4, 3);
  cmsStage* table = cmsStageAllocCLut16bit(nullptr, 7, 4, 3, nullptr);
  cmsStageSampleCLut16bit(table, InksToLab, nullptr, 0);
  cmsPipelineInsertStage(pipeline, cmsAT_END, table);
  cmsWriteTag(profile, cmsSigMediaWhitePointTag, cmsD50_XYZ());
  for (const cmsTagSignature tag : {cmsSigAToB0Tag, cmsSigAToB1Tag}) cmsWriteTag(profile, tag, pipeline);
  cmsPipelineFree(pipeline);
  return Saved(profile);
}

Samples RandomSamples(std::size_t count) {
  std::mt19937 random(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): repeatable on purpose
  Samples samples(count);
  for (std::uint8_t& sample : samples) sample = static_cast<std::uint8_t>(random() % 256);
  return samples;
}

void ExpectNear(const Samples& actual, const Samples& expected, int tolerance, const std::string& name) {
  ASSERT_EQ(actual.size(), expected.size()) << name;
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_NEAR(actual[i], expected[i], tolerance) << name << ", sample " << i;
  }
}

TEST(IsSrgb, RecognizesProfilesByTheirContent) {
  const Samples gray = GrayProfile(SrgbCurve());
  const struct {
    const char* name;
    Model model;
    Samples profile;
    bool isSrgb;
  } rows[] = {
      {"no profile, RGB", Model::kRgb, {}, true},
      {"no profile, YCC", Model::kYcc, {}, true},
      {"no profile, gray", Model::kGray, {}, true},
      {"no profile, CMYK", Model::kCmyk, {}, false},
      {"sRGB of lcms2", Model::kRgb, Saved(cmsCreate_sRGBProfile()), true},
      {"sRGB, version 2", Model::kYcc, RgbProfile(kSrgbPrimaries, SrgbTable(1024), 2.1), true},
      {"sRGB, short tables", Model::kRgb, RgbProfile(kSrgbPrimaries, SrgbTable(256)), true},
      {"gray with the curve of sRGB", Model::kGray, gray, true},
      {"gray with the table of sRGB", Model::kGray, GrayProfile(SrgbTable(1024)), true},
      {"gray, two levels off", Model::kGray, GrayProfileOff(2), true},
      {"gray, three levels off", Model::kGray, GrayProfileOff(3), false},
      {"gray, without white", Model::kGray, GrayProfileOf([](int level) { return std::min(level, 240); }), false},
      {"primaries of sRGB, gamma 1.8", Model::kRgb, RgbProfile(kSrgbPrimaries, cmsBuildGamma(nullptr, 1.8)), false},
      {"primaries of sRGB, gamma 2.2", Model::kRgb, RgbProfile(kSrgbPrimaries, cmsBuildGamma(nullptr, 2.2)), false},
      {"gray, gamma 2.2", Model::kGray, GrayProfile(cmsBuildGamma(nullptr, 2.2)), false},
      {"P3", Model::kYcc, P3(), false},
      {"AdobeRGB", Model::kRgb, AdobeRgbProfile(), false},
      {"CMYK", Model::kCmyk, CmykProfile(), false},
      // Of no use, therefore ignored.
      {"not a profile", Model::kRgb, {1, 2, 3}, true},
      {"gray for RGB", Model::kRgb, GrayProfile(cmsBuildGamma(nullptr, 1.8)), true},
      {"RGB for gray", Model::kGray, P3(), true},
      {"CMYK for RGB", Model::kRgb, CmykProfile(), true},
  };
  for (const auto& row : rows) {
    Picture picture = PictureOf(row.model, Samples(ColoursOf(row.model)), row.profile);
    EXPECT_EQ(IsSrgb(picture), row.isSrgb) << row.name;
  }
}

TEST(ConvertToSrgb, LeavesWhatIsSrgb) {
  const Samples pixels = RandomSamples(3 * 100);
  for (const Samples& profile : {Samples(), Saved(cmsCreate_sRGBProfile()), GrayProfile(SrgbCurve())}) {
    for (const Model model : {Model::kRgb, Model::kYcc}) {
      Picture picture = PictureOf(model, pixels, profile);
      ConvertToSrgb(&picture);
      EXPECT_EQ(picture.model, model);
      EXPECT_EQ(picture.profile, profile);
      EXPECT_EQ(SamplesOf(picture), pixels);
    }
  }
}

TEST(ConvertToSrgb, ConvertsKnownColours) {
  const struct {
    const char* name;
    Samples profile;
    Samples pixel;
    Samples expected;
  } rows[] = {
      {"white stays white", AdobeRgbProfile(), {255, 255, 255}, {255, 255, 255}},
      {"black stays black", AdobeRgbProfile(), {0, 0, 0}, {0, 0, 0}},
      {"AdobeRGB's green is beyond sRGB", AdobeRgbProfile(), {0, 255, 0}, {0, 255, 0}},
      {"AdobeRGB's mixture", AdobeRgbProfile(), {200, 100, 50}, {227, 100, 42}},
      {"P3's red is beyond sRGB", P3(), {255, 0, 0}, {255, 0, 0}},
      {"P3's coordinates of sRGB's red", P3(), {234, 51, 35}, {255, 0, 0}},
      {"P3's skin", P3(), {200, 150, 120}, {209, 147, 115}},
  };
  for (const auto& row : rows) {
    Picture picture = PictureOf(Model::kRgb, row.pixel, row.profile);
    ConvertToSrgb(&picture);
    EXPECT_EQ(picture.model, Model::kRgb) << row.name;
    EXPECT_TRUE(picture.profile.empty()) << row.name;
    ExpectNear(SamplesOf(picture), row.expected, 2, row.name);
  }
}

TEST(ConvertToSrgb, GivesTheColoursOfLcms) {
  const struct {
    const char* name;
    Samples profile;
  } rows[] = {
      {"AdobeRGB", AdobeRgbProfile()},
      {"P3", P3()},
      {"P3, version 2, tables", RgbProfile(kP3Primaries, SrgbTable(1024), 2.1)},
      {"gamma 1.0", RgbProfile(kSrgbPrimaries, cmsBuildGamma(nullptr, 1))},
      {"gamma 1.8", RgbProfile(kSrgbPrimaries, cmsBuildGamma(nullptr, 1.8))},
  };
  const Samples pixels = RandomSamples(std::size_t{3} * 5000);
  for (const auto& row : rows) {
    Picture picture = PictureOf(Model::kRgb, pixels, row.profile);
    ConvertToSrgb(&picture);
    EXPECT_LT(MeanDifference(SamplesOf(picture), Converted(pixels, row.profile, TYPE_RGB_8)), 0.06) << row.name;
  }
}

TEST(ConvertToSrgb, ConvertsCmykWithAProfile) {
  const Samples profile = CmykProfile();
  const Samples pixels = RandomSamples(std::size_t{4} * 5000);
  Picture picture = PictureOf(Model::kCmyk, pixels, profile);
  ConvertToSrgb(&picture);
  EXPECT_EQ(picture.model, Model::kRgb);
  EXPECT_EQ(picture.channels.size(), 3U);
  EXPECT_TRUE(picture.profile.empty());
  EXPECT_LT(MeanDifference(SamplesOf(picture), Converted(pixels, profile, TYPE_CMYK_8_REV)), 1);
}

TEST(ConvertToSrgb, ConvertsCmykWithoutAUsableProfile) {
  const Samples pixels = {255, 255, 255, 255, 0,   255, 255, 255, 255, 0,   255, 255, 255, 255,
                          0,   255, 255, 255, 255, 0,   200, 100, 50,  128, 0,   0,   0,   0};
  const Samples expected = {255, 255, 255, 0, 255, 255, 255, 0, 255, 255, 255, 0, 0, 0, 0, 100, 50, 25, 0, 0, 0};
  for (const Samples& profile : {Samples(), Samples{1, 2, 3}, P3()}) {
    Picture picture = PictureOf(Model::kCmyk, pixels, profile);
    ConvertToSrgb(&picture);
    EXPECT_EQ(picture.model, Model::kRgb);
    EXPECT_TRUE(picture.profile.empty());
    EXPECT_EQ(SamplesOf(picture), expected) << "a profile of " << profile.size() << " bytes";
  }
}

TEST(ConvertToSrgb, KeepsGrayGray) {
  const Samples profile = GrayProfile(cmsBuildGamma(nullptr, 1.8));
  Samples grays;
  for (int i = 0; i < 256; ++i) grays.push_back(static_cast<std::uint8_t>(i));
  Picture picture = PictureOf(Model::kGray, grays, profile);
  ConvertToSrgb(&picture);
  EXPECT_EQ(picture.model, Model::kGray);
  EXPECT_TRUE(picture.profile.empty());
  const Samples rgb = Converted(grays, profile, TYPE_GRAY_8);
  Samples expected;
  for (std::size_t i = 0; i < rgb.size(); i += 3) expected.push_back(rgb[i]);
  ExpectNear(SamplesOf(picture), expected, 1, "gamma 1.8");
}

TEST(ConvertToSrgb, ConvertsYccThroughRgb) {
  const Samples pixels = RandomSamples(3 * 100);
  Picture ycc = PictureOf(Model::kYcc, pixels, P3());
  ycc.ycc = {0.2126, 0.0722, false};
  Picture rgb = PictureOf(Model::kYcc, pixels, P3());
  rgb.ycc = ycc.ycc;
  YccToRgb(&rgb);
  ConvertToSrgb(&ycc);
  ConvertToSrgb(&rgb);
  EXPECT_EQ(ycc.model, Model::kRgb);
  EXPECT_EQ(SamplesOf(ycc), SamplesOf(rgb));
}

TEST(ConvertToSrgb, KeepsAlpha) {
  for (const Model model : {Model::kGray, Model::kRgb, Model::kCmyk}) {
    const Samples profile = model == Model::kGray ? GrayProfile(cmsBuildGamma(nullptr, 1.8)) : P3();
    Picture picture = PictureOf(model, Samples(ColoursOf(model), 100), profile);
    Plane alpha({1, 1});
    alpha.Row(0)[0] = 77;
    picture.channels.push_back({std::move(alpha), 1, 1});
    picture.hasAlpha = true;
    ConvertToSrgb(&picture);
    EXPECT_EQ(picture.channels.size(), model == Model::kGray ? 2U : 4U);
    EXPECT_EQ(picture.channels.back().plane.Row(0)[0], 77);
  }
}

// Every byte of a profile damaged, one after the other; and every length.
TEST(ConvertToSrgb, SurvivesDamagedProfiles) {
  const Samples pixels = RandomSamples(3 * 16);
  const Samples whole = P3();
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (const int value : {0x00, 0x7f, 0xff}) {
      Samples damaged = whole;
      damaged[i] = static_cast<std::uint8_t>(value);
      Picture picture = PictureOf(Model::kRgb, pixels, damaged);
      ConvertToSrgb(&picture);
      ASSERT_EQ(picture.model, Model::kRgb) << "byte " << i;
    }
    Picture picture =
        PictureOf(Model::kRgb, pixels, Samples(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(i)));
    ConvertToSrgb(&picture);
    ASSERT_EQ(picture.model, Model::kRgb) << "the first " << i << " bytes";
  }
}

TEST(ConvertToSrgb, IgnoresProfilesOverTheLimit) {
  Samples large = P3();
  large.resize(std::size_t{5} << 20);
  Picture picture = PictureOf(Model::kRgb, {10, 200, 30}, large);
  EXPECT_TRUE(IsSrgb(picture));
}

// Matrix profiles ----------------------------------------------------------------------------------------------------

struct CloseProfile {
  void operator()(cmsHPROFILE profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<void, CloseProfile>;

Profile Opened(const Samples& bytes) {
  return Profile(cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
}

bool IsMatrixProfile(const Samples& bytes) {
  return MatrixToSrgb::Of(Opened(bytes).get()).has_value();
}

// A Display-P3 profile, changed.
Samples ChangedP3(const std::function<void(cmsHPROFILE)>& change) {
  const Profile profile = Opened(P3());
  change(profile.get());
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(profile.get(), nullptr, &size);
  Samples bytes(size);
  EXPECT_TRUE(cmsSaveProfileToMem(profile.get(), bytes.data(), &size));
  return bytes;
}

Samples P3WithTag(cmsTagSignature tag, const std::string& content) {
  return ChangedP3([&](cmsHPROFILE profile) {
    cmsWriteRawTag(profile, tag, content.data(), static_cast<cmsUInt32Number>(content.size()));
  });
}

Samples P3WithRed(const cmsCIEXYZ& red) {
  return ChangedP3([&](cmsHPROFILE profile) { cmsWriteTag(profile, cmsSigRedColorantTag, &red); });
}

// (factor * x + offset) ^ gamma from `start` on, slope * x + shift below.
Samples P3WithCurve(double gamma, double factor, double offset, double slope, double start, double shift) {
  const cmsFloat64Number parameters[] = {gamma, factor, offset, slope, start, 0, shift};
  return RgbProfile(kP3Primaries, cmsBuildParametricToneCurve(nullptr, 5, parameters));
}

TEST(MatrixProfiles, AreThoseWithThreeCurvesFromBlackToWhiteAndAMatrixOnly) {
  const struct {
    const char* name;
    Samples profile;
    bool isOne;
  } rows[] = {
      {"P3", P3(), true},
      {"P3, tables", RgbProfile(kP3Primaries, SrgbTable(1024), 2.1), true},
      {"AdobeRGB", AdobeRgbProfile(), true},
      {"gamma 1", RgbProfile(kSrgbPrimaries, cmsBuildGamma(nullptr, 1)), true},
      {"a curve of sRGB by its parameters", P3WithCurve(2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045, 0), true},
      {"black nearly black", P3WithCurve(1, 1, 0, 1, 0.1, 0.00008), true},
      {"another tag", P3WithTag(cmsSigBToA0Tag, "tabletable"), true},
      {"gray", GrayProfile(SrgbCurve()), false},
      {"CMYK", CmykProfile(), false},
      {"perceptual table", P3WithTag(cmsSigAToB0Tag, "tabletable"), false},
      {"colorimetric table", P3WithTag(cmsSigAToB1Tag, "tabletable"), false},
      {"perceptual table of floating point", P3WithTag(cmsSigDToB0Tag, "tabletable"), false},
      {"colorimetric table of floating point", P3WithTag(cmsSigDToB1Tag, "tabletable"), false},
      {"to Lab", ChangedP3([](cmsHPROFILE profile) { cmsSetPCS(profile, cmsSigLabData); }), false},
      {"damaged red", P3WithTag(cmsSigRedColorantTag, "redredredred"), false},
      {"damaged blue", P3WithTag(cmsSigBlueColorantTag, "blueblueblue"), false},
      {"damaged curve of green", P3WithTag(cmsSigGreenTRCTag, "curvecurve"), false},
      {"light beyond all reason", P3WithRed({4000, 2000, 10}), false},
      {"light below all reason", P3WithRed({-4000, 2000, 10}), false},
      {"black above black", P3WithCurve(1, 1, 0, 1, 0.1, 0.01), false},
      {"black below black", P3WithCurve(1, 1, 0, 1, 0.1, -0.01), false},
      {"white above white", P3WithCurve(1, 1.01, 0, 1, 0.1, 0), false},
  };
  for (const auto& row : rows) EXPECT_EQ(IsMatrixProfile(row.profile), row.isOne) << row.name;
}

TEST(MatrixProfiles, GiveEachSampleAsLcmsDoes) {
  const Samples pixels = RandomSamples(std::size_t{3} * 3 * 1024);
  for (const Samples& profile : {P3(), AdobeRgbProfile(), RgbProfile(kP3Primaries, SrgbTable(1024), 2.1),
                                 RgbProfile(kSrgbPrimaries, cmsBuildGamma(nullptr, 1))}) {
    const std::optional<MatrixToSrgb> matrix = MatrixToSrgb::Of(Opened(profile).get());
    ASSERT_TRUE(matrix);
    Picture picture = PictureOf(Model::kRgb, pixels, profile);
    const auto row = [&](std::size_t i) { return picture.channels[i].plane.Row(0); };
    matrix->Convert(row(0), row(1), row(2), static_cast<std::size_t>(picture.channels[0].plane.Width()));
    ExpectNear(SamplesOf(picture), Converted(pixels, profile, TYPE_RGB_8), 1, "a profile");
  }
}

// What lcms2 makes of pixels in floating point.
std::vector<float> ConvertedExactly(const Samples& pixels, const Samples& profile) {
  const Profile from = Opened(profile);
  const Profile to(cmsCreate_sRGBProfile());
  std::vector<float> values;
  for (const std::uint8_t sample : pixels) values.push_back(static_cast<float>(sample) / 255);
  cmsHTRANSFORM transform = cmsCreateTransform(from.get(), TYPE_RGB_FLT, to.get(), TYPE_RGB_FLT,
                                               INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE);
  cmsDoTransform(transform, values.data(), values.data(), static_cast<cmsUInt32Number>(values.size() / 3));
  cmsDeleteTransform(transform);
  return values;
}

// In the shadows the steps of light are coarsest: rounded up or down, they would make everything brighter or darker.
TEST(MatrixProfiles, GiveShadowsThatAreNeitherBrighterNorDarkerOnAverage) {
  Samples pixels = RandomSamples(std::size_t{3} * 32 * 1000);
  for (std::uint8_t& sample : pixels) sample = static_cast<std::uint8_t>(sample / 8);
  Picture picture = PictureOf(Model::kRgb, pixels, P3());
  ConvertToSrgb(&picture);
  const Samples samples = SamplesOf(picture);
  const std::vector<float> exact = ConvertedExactly(pixels, P3());
  double sum = 0;
  int count = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (exact[i] <= 2.0F / 255) continue;  // clipped, perhaps
    ASSERT_NEAR(samples[i], exact[i] * 255, 0.65) << i;
    sum += samples[i] - exact[i] * 255;
    ++count;
  }
  EXPECT_GT(count, 50000);
  EXPECT_NEAR(sum / count, 0, 0.02);
}

// Y, Cb and Cr ----------------------------------------------------------------------------------------------------

TEST(Ycc, BecomesRgbAsJpegDecodersDoIt) {
  const struct {
    Samples ycc;
    Samples rgb;
  } rows[] = {
      {{0, 128, 128}, {0, 0, 0}},         {{255, 128, 128}, {255, 255, 255}}, {{128, 128, 128}, {128, 128, 128}},
      {{76, 85, 255}, {254, 0, 0}},       {{150, 44, 21}, {0, 255, 1}},       {{29, 255, 107}, {0, 0, 254}},
      {{100, 50, 200}, {201, 75, 0}},     {{255, 255, 255}, {255, 121, 255}}, {{0, 0, 0}, {0, 135, 0}},
      {{200, 129, 127}, {199, 200, 202}},
  };
  for (const auto& row : rows) {
    Picture picture = PictureOf(Model::kYcc, row.ycc, {});
    YccToRgb(&picture);
    EXPECT_EQ(picture.model, Model::kRgb);
    EXPECT_EQ(SamplesOf(picture), row.rgb) << testing::PrintToString(row.ycc);
  }
}

TEST(Ycc, BecomesRgbByItsWeightsAndRange) {
  const struct {
    const char* name;
    Ycc ycc;
    Samples pixel;
    Samples rgb;
  } rows[] = {
      {"limited black", {0.2126, 0.0722, false}, {16, 128, 128}, {0, 0, 0}},
      {"limited white", {0.2126, 0.0722, false}, {235, 128, 128}, {255, 255, 255}},
      {"BT.709 red", {0.2126, 0.0722, false}, {63, 102, 240}, {255, 1, 0}},
      {"BT.709 red, full range", {0.2126, 0.0722, true}, {54, 99, 255}, {254, 0, 0}},
      {"BT.709 blue, full range", {0.2126, 0.0722, true}, {18, 255, 116}, {0, 0, 254}},
      {"BT.601 red, limited", {0.299, 0.114, false}, {81, 90, 240}, {254, 0, 0}},
      {"BT.601 green, limited", {0.299, 0.114, false}, {145, 54, 34}, {0, 255, 1}},
      {"BT.2020 green, limited", {0.2627, 0.0593, false}, {164, 39, 24}, {0, 255, 0}},
  };
  for (const auto& row : rows) {
    Picture picture = PictureOf(Model::kYcc, row.pixel, {});
    picture.ycc = row.ycc;
    YccToRgb(&picture);
    EXPECT_TRUE(picture.ycc.IsJpeg());
    ExpectNear(SamplesOf(picture), row.rgb, 1, row.name);
  }
}

TEST(Ycc, IsMadeOfRgbAsJpegEncodersDoIt) {
  const struct {
    Samples rgb;
    Samples ycc;
  } rows[] = {
      {{0, 0, 0}, {0, 128, 128}},     {{255, 255, 255}, {255, 128, 128}}, {{255, 0, 0}, {76, 85, 255}},
      {{0, 255, 0}, {150, 44, 21}},   {{0, 0, 255}, {29, 255, 107}},      {{255, 255, 0}, {226, 0, 149}},
      {{10, 200, 30}, {124, 75, 47}}, {{128, 128, 128}, {128, 128, 128}},
  };
  for (const auto& row : rows) {
    Picture picture = PictureOf(Model::kRgb, row.rgb, {});
    picture.ycc = {0.2126, 0.0722, false};
    RgbToYcc(&picture);
    EXPECT_EQ(picture.model, Model::kYcc);
    EXPECT_TRUE(picture.ycc.IsJpeg());
    EXPECT_EQ(SamplesOf(picture), row.ycc) << testing::PrintToString(row.rgb);
  }
}

double Clipped(double sample) {
  return std::clamp(sample, 0.0, 255.0);
}

// From the definition: Y is the weighted sum of red, green and blue, Cb and Cr are what blue and red differ from it.
std::array<double, 3> RgbByDefinition(const Ycc& ycc, const std::uint8_t* pixel) {
  const double luma = ycc.isFullRange ? pixel[0] : (pixel[0] - 16) * 255.0 / 219;
  const double scale = ycc.isFullRange ? 255 : 224;
  const double blue = luma + 2 * (1 - ycc.blueWeight) * (pixel[1] - 128) * 255 / scale;
  const double red = luma + 2 * (1 - ycc.redWeight) * (pixel[2] - 128) * 255 / scale;
  const double green = (luma - ycc.redWeight * red - ycc.blueWeight * blue) / (1 - ycc.redWeight - ycc.blueWeight);
  return {Clipped(red), Clipped(green), Clipped(blue)};
}

TEST(Ycc, OfEveryStandardBecomesTheNearestRgb) {
  const Samples pixels = RandomSamples(std::size_t{3} * 3000);
  for (const Ycc ycc :
       {Ycc{0.2126, 0.0722, true}, Ycc{0.2126, 0.0722, false}, Ycc{0.299, 0.114, false}, Ycc{0.2627, 0.0593, false}}) {
    Picture picture = PictureOf(Model::kYcc, pixels, {});
    picture.ycc = ycc;
    YccToRgb(&picture);
    const Samples rgb = SamplesOf(picture);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
      const double exact = RgbByDefinition(ycc, pixels.data() + i / 3 * 3)[i % 3];
      ASSERT_NEAR(rgb[i], exact, 0.51) << "weights " << ycc.redWeight << " and " << ycc.blueWeight << ", sample " << i;
    }
  }
}

int Rounded(int sum) {
  return std::clamp((sum + 32768) >> 16, 0, 255);
}

// By the integers of JPEG's reference code.
Samples RgbByReference(const Samples& ycc) {
  Samples rgb;
  for (std::size_t i = 0; i < ycc.size(); i += 3) {
    const int luma = ycc[i] * 65536;
    const int cb = ycc[i + 1] - 128;
    const int cr = ycc[i + 2] - 128;
    for (const int sum : {luma + 91881 * cr, luma - 22554 * cb - 46802 * cr, luma + 116130 * cb}) {
      rgb.push_back(static_cast<std::uint8_t>(Rounded(sum)));
    }
  }
  return rgb;
}

Samples YccByReference(const Samples& rgb) {
  Samples ycc;
  for (std::size_t i = 0; i < rgb.size(); i += 3) {
    const int red = rgb[i];
    const int green = rgb[i + 1];
    const int blue = rgb[i + 2];
    const int offset = 128 * 65536 - 1;
    for (const int sum :
         {19595 * red + 38470 * green + 7471 * blue, -11059 * red - 21709 * green + 32768 * blue + offset,
          32768 * red - 27439 * green - 5329 * blue + offset}) {
      ycc.push_back(static_cast<std::uint8_t>(Rounded(sum)));
    }
  }
  return ycc;
}

TEST(Ycc, IsConvertedExactlyByAllInstructions) {
  const Samples pixels = RandomSamples(std::size_t{3} * 10007);
  WithAllInstructions([&] {
    Picture picture = PictureOf(Model::kYcc, pixels, {});
    YccToRgb(&picture);
    EXPECT_EQ(SamplesOf(picture), RgbByReference(pixels));
    picture = PictureOf(Model::kRgb, pixels, {});
    RgbToYcc(&picture);
    EXPECT_EQ(SamplesOf(picture), YccByReference(pixels));
  });
}

TEST(Ycc, ReturnsTheColoursOfRgb) {
  const Samples pixels = RandomSamples(std::size_t{3} * 2000);
  Picture picture = PictureOf(Model::kRgb, pixels, {});
  RgbToYcc(&picture);
  YccToRgb(&picture);
  ExpectNear(SamplesOf(picture), pixels, 2, "there and back");
}

TEST(AdobeRgb, HasItsPrimariesAndItsGamma) {
  const Samples bytes = AdobeRgbProfile();
  cmsHPROFILE profile = cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size()));
  ASSERT_NE(profile, nullptr);
  const struct {
    cmsTagSignature tag;
    double xyz[3];
  } rows[] = {
      {cmsSigRedColorantTag, {0.60974, 0.31111, 0.01947}},
      {cmsSigGreenColorantTag, {0.20528, 0.62567, 0.06087}},
      {cmsSigBlueColorantTag, {0.14919, 0.06322, 0.74457}},
  };
  for (const auto& row : rows) {
    const auto* xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, row.tag));
    EXPECT_NEAR(xyz->X, row.xyz[0], 0.0005);
    EXPECT_NEAR(xyz->Y, row.xyz[1], 0.0005);
    EXPECT_NEAR(xyz->Z, row.xyz[2], 0.0005);
  }
  const auto* curve = static_cast<const cmsToneCurve*>(cmsReadTag(profile, cmsSigGreenTRCTag));
  EXPECT_NEAR(cmsEstimateGamma(curve, 0.01), 563.0 / 256, 0.001);
  cmsCloseProfile(profile);
}

}  // namespace
}  // namespace tavithumb::maker
