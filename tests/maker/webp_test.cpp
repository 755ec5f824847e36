// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <webp/decode.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "decoding.h"
#include "maker/encode/encode.h"
#include "temp_dir.h"

namespace tavithumb::maker {
namespace {

using test::Decode;
using test::File;
using test::PixelAt;
using test::WhyDeclined;

// R, G, B and alpha of a scene that is smooth, and different in every corner.
File Scene(Size size, bool hasAlpha) {
  File pixels;
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      pixels.push_back(static_cast<std::uint8_t>(255 * x / size.width));
      pixels.push_back(static_cast<std::uint8_t>(255 * y / size.height));
      pixels.push_back(static_cast<std::uint8_t>(100 + 100 * x / size.width));
      pixels.push_back(static_cast<std::uint8_t>(hasAlpha ? 55 + 200 * y / size.height : 255));
    }
  }
  return pixels;
}

File TakeBytes(const std::uint8_t* bytes, std::size_t count) {
  File file(bytes, bytes + count);
  WebPFree(const_cast<std::uint8_t*>(bytes));
  return file;
}

File WriteLossless(Size size, bool hasAlpha) {
  const File pixels = Scene(size, hasAlpha);
  std::uint8_t* bytes = nullptr;
  const std::size_t count = WebPEncodeLosslessRGBA(pixels.data(), size.width, size.height, size.width * 4, &bytes);
  return TakeBytes(bytes, count);
}

File WriteLossy(Size size, bool hasAlpha) {
  const File pixels = Scene(size, hasAlpha);
  std::uint8_t* bytes = nullptr;
  const std::size_t count = WebPEncodeRGBA(pixels.data(), size.width, size.height, size.width * 4, 90, &bytes);
  return TakeBytes(bytes, count);
}

WebPData DataOf(const File& file) {
  return {file.data(), file.size()};
}

File Assemble(WebPMux* mux) {
  WebPData data = {};
  EXPECT_EQ(WebPMuxAssemble(mux, &data), WEBP_MUX_OK);
  WebPMuxDelete(mux);
  return TakeBytes(data.bytes, data.size);
}

File WithProfile(const File& file, const File& profile) {
  const WebPData picture = DataOf(file);
  WebPMux* mux = WebPMuxCreate(&picture, 1);
  const WebPData chunk = DataOf(profile);
  WebPMuxSetChunk(mux, "ICCP", &chunk, 1);
  return Assemble(mux);
}

// An animation whose frames all lie at the same place on the canvas.
File WriteAnimation(Size canvas, int left, int top, const std::vector<File>& frames) {
  WebPMux* mux = WebPMuxNew();
  for (const File& file : frames) {
    WebPMuxFrameInfo frame = {};
    frame.bitstream = DataOf(file);
    frame.x_offset = left;
    frame.y_offset = top;
    frame.duration = 100;
    frame.id = WEBP_CHUNK_ANMF;
    WebPMuxPushFrame(mux, &frame, 1);
  }
  const WebPMuxAnimParams repetition = {0xffffffff, 0};
  WebPMuxSetAnimationParams(mux, &repetition);
  WebPMuxSetCanvasSize(mux, canvas.width, canvas.height);
  return Assemble(mux);
}

File DecodeWithLibwebp(const File& file) {
  int width = 0;
  int height = 0;
  const std::uint8_t* bytes = WebPDecodeRGBA(file.data(), file.size(), &width, &height);
  return TakeBytes(bytes, static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
}

TEST(WebpDecoder, DecodesLosslessPicturesExactly) {
  for (const Size size : {Size{1, 1}, Size{3, 50}, Size{64, 48}}) {
    for (const bool hasAlpha : {false, true}) {
      const Picture picture = Decode(OpenWebp, WriteLossless(size, hasAlpha), size);
      EXPECT_EQ(picture.model, Model::kRgb);
      EXPECT_EQ(picture.hasAlpha, hasAlpha);
      EXPECT_FALSE(picture.isPremultiplied);
      EXPECT_EQ(picture.storedSize, size);
      EXPECT_EQ(test::RgbaOf(picture), Scene(size, hasAlpha)) << size.width << " x " << size.height;
    }
  }
}

TEST(WebpDecoder, DecodesLossyPicturesLikeLibwebp) {
  for (const bool hasAlpha : {false, true}) {
    const File file = WriteLossy({61, 47}, hasAlpha);
    const Picture picture = Decode(OpenWebp, file, {61, 47});
    EXPECT_EQ(picture.hasAlpha, hasAlpha);
    EXPECT_EQ(test::RgbaOf(picture), DecodeWithLibwebp(file));
  }
}

TEST(WebpDecoder, ScalesToTwiceWhatIsWanted) {
  const Size stored = {400, 300};
  const File file = WriteLossy(stored, true);
  const struct {
    Size atLeast;
    Size decoded;
  } rows[] = {{{400, 300}, {400, 300}}, {{200, 150}, {400, 300}}, {{151, 113}, {400, 300}},
              {{150, 112}, {300, 225}}, {{100, 75}, {200, 150}},  {{10, 75}, {200, 150}},
              {{100, 1}, {200, 150}},   {{33, 20}, {66, 50}},     {{1, 1}, {3, 2}}};
  for (const auto& row : rows) {
    const Picture picture = Decode(OpenWebp, file, row.atLeast);
    EXPECT_EQ(test::SizeOf(picture), row.decoded) << row.atLeast.width;
    EXPECT_EQ(picture.storedSize, stored);
    EXPECT_EQ(picture.channels[0].width, row.decoded.width);
    EXPECT_LE(row.atLeast.width, row.decoded.width);
    EXPECT_LE(row.atLeast.height, row.decoded.height);
  }
}

TEST(WebpDecoder, KeepsTheSceneWhenItScales) {
  const Picture picture = Decode(OpenWebp, WriteLossless({400, 300}, true), {100, 75});
  const File expected = Scene({200, 150}, true);
  EXPECT_LE(test::LargestDifference(test::RgbaOf(picture), expected), 3);
}

TEST(WebpDecoder, ReadsTheProfile) {
  const File file = WriteLossy({30, 20}, false);
  const File profile(3000, 5);
  EXPECT_EQ(Decode(OpenWebp, file).profile, File());
  EXPECT_EQ(Decode(OpenWebp, WithProfile(file, profile)).profile, profile);
  EXPECT_EQ(Decode(OpenWebp, WithProfile(file, File((std::size_t{4} << 20) + 2))).profile, File());
}

TEST(WebpDecoder, PutsTheFirstFrameOnItsCanvas) {
  const Size size = {20, 10};
  const File first = WriteLossless(size, false);
  const File animation = WriteAnimation({50, 30}, 8, 6, {first, WriteLossless(size, true)});
  const Picture picture = Decode(OpenWebp, animation);
  ASSERT_EQ(test::SizeOf(picture), (Size{50, 30}));
  ASSERT_TRUE(picture.hasAlpha);
  const File scene = Scene(size, false);
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 50; ++x) {
      const bool isInside = x >= 8 && y >= 6 && x < 28 && y < 16;
      const auto at = isInside ? 4 * static_cast<std::size_t>((y - 6) * size.width + x - 8) : 0;
      const std::vector<int> inside = {scene[at], scene[at + 1], scene[at + 2], 255};
      ASSERT_EQ(PixelAt(picture, x, y), isInside ? inside : std::vector<int>(4)) << x << ", " << y;
    }
  }
}

TEST(WebpDecoder, TellsWhetherThereAreSeveralFrames) {
  const Size size = {20, 10};
  const File frame = WriteLossless(size, false);
  const struct {
    File file;
    bool isAnimated;
  } rows[] = {
      {frame, false}, {WriteAnimation(size, 0, 0, {frame}), false}, {WriteAnimation(size, 0, 0, {frame, frame}), true}};
  for (const auto& row : rows) {
    const Input input(test::BytesOf(row.file));
    const std::unique_ptr<Decoder> decoder = OpenWebp(input);
    EXPECT_EQ(decoder->IsAnimated(), row.isAnimated);
    EXPECT_EQ(decoder->Head().stored, size);
    EXPECT_EQ(test::RgbaOf(decoder->Decode(size)), Scene(size, false));
  }
}

TEST(WebpDecoder, ShowsWhatThereIsOfACutOffPicture) {
  const Size size = {300, 300};
  for (const File& whole : {WriteLossy(size, false), WriteLossless(size, false)}) {
    const File reference = DecodeWithLibwebp(whole);
    const Picture picture =
        Decode(OpenWebp, File(whole.begin(), whole.begin() + static_cast<long>(whole.size() * 3 / 4)), size);
    for (int x = 0; x < size.width; ++x) {
      const auto at = 4 * static_cast<std::size_t>(5 * size.width + x);
      ASSERT_EQ(PixelAt(picture, x, 5), (std::vector<int>{reference[at], reference[at + 1], reference[at + 2]})) << x;
    }
    EXPECT_EQ(PixelAt(picture, 299, 299), (std::vector<int>{0, 0, 0}));
  }
}

TEST(WebpDecoder, SurvivesFilesThatAreCutOffOrDamaged) {
  const Size size = {40, 40};
  for (const File& file : {WriteLossy(size, false), WriteLossy(size, true), WriteLossless(size, true),
                           WriteAnimation(size, 0, 0, {WriteLossy(size, true), WriteLossless(size, false)}),
                           WithProfile(WriteLossy(size, false), File(20, 1))}) {
    test::DecodeCutOff(OpenWebp, file, 1);
    test::DecodeDamaged(OpenWebp, file, 3);
  }
}

TEST(WebpDecoder, DeclinesWhatIsTooLargeOrDamaged) {
  File canvas = WriteAnimation({50, 30}, 0, 0, {WriteLossless({20, 10}, false)});
  // 65536 x 30 pixels.
  std::fill_n(canvas.begin() + 24, 2, std::uint8_t{0xff});
  // 16384 x 16384 pixels.
  File lossless = WriteLossless({20, 10}, false);
  std::fill_n(lossless.begin() + 21, 3, std::uint8_t{0xff});
  lossless[24] = static_cast<std::uint8_t>(lossless[24] | 0x0f);
  const struct {
    const char* what;
    File file;
    Reason reason;
  } rows[] = {{"empty", {}, Reason::kDamaged},
              {"text", File(100, 'x'), Reason::kDamaged},
              {"huge canvas", canvas, Reason::kTooLarge},
              {"a large lossless picture", lossless, Reason::kTooLarge}};
  for (const auto& row : rows) EXPECT_EQ(WhyDeclined(OpenWebp, row.file), row.reason) << row.what;
}

TEST(WebpDecoder, DecodesSampleFilesLikeImageMagick) {
  if (test::SamplesFolder().empty()) GTEST_SKIP() << "no samples";
  for (const char* name :
       {"samples/still/1.webp", "samples-more/modern/alpha.webp", "samples-more/modern/animated.webp",
        "samples-more/modern/lossless.webp", "samples-more/modern/photo.webp"}) {
    const std::string path = test::SamplesFolder() + "/../" + name;
    if (!test::Exists(path)) continue;
    const Picture picture = Decode(OpenWebp, test::ReadSample(path), {10000, 10000});
    EXPECT_EQ(test::LargestDifference(test::RgbaOf(picture), test::ReferenceRgba(path)), 0) << name;
  }
}

TEST(WebpEncoder, KeepsColoursNearlyAndAlphaExactly) {
  for (const bool hasAlpha : {false, true}) {
    const Picture picture = Decode(OpenWebp, WriteLossless({200, 100}, hasAlpha), test::kWhole);
    const Picture again = Decode(OpenWebp, EncodeWebp(picture, 95), test::kWhole);
    ASSERT_EQ(again.hasAlpha, hasAlpha);
    EXPECT_LT(test::LargestDifference(test::RgbaOf(again), test::RgbaOf(picture)), 16);
    for (int y = 0; hasAlpha && y < 100; ++y) {
      EXPECT_EQ(PixelAt(again, 50, y).back(), PixelAt(picture, 50, y).back()) << y;
    }
  }
}

TEST(WebpEncoder, TakesGrayPictures) {
  for (const bool hasAlpha : {false, true}) {
    Picture picture = Decode(OpenWebp, WriteLossless({200, 100}, hasAlpha), test::kWhole);
    const Picture colour = Decode(OpenWebp, WriteLossless({200, 100}, hasAlpha), test::kWhole);
    picture.model = Model::kGray;
    picture.channels.erase(picture.channels.begin() + 1, picture.channels.begin() + 3);
    const Picture again = Decode(OpenWebp, EncodeWebp(picture, 95), test::kWhole);
    ASSERT_EQ(again.hasAlpha, hasAlpha);
    EXPECT_LT(test::LargestDifference(test::RgbaOf(again), test::RgbaOf(picture)), 8);
  }
}

TEST(WebpEncoder, TakesFewerBytesForALowerQuality) {
  const Picture picture = Decode(OpenWebp, WriteLossless({200, 100}, false), test::kWhole);
  EXPECT_LT(EncodeWebp(picture, 20).size(), EncodeWebp(picture, 95).size());
}

TEST(WebpEncoder, DeclinesSidesThatWebpDoesNotAllow) {
  for (const Size size : {Size{16384, 1}, Size{1, 16384}}) {
    Picture picture;
    picture.model = Model::kGray;
    picture.channels.push_back({Plane(size), static_cast<double>(size.width), static_cast<double>(size.height)});
    try {
      EncodeWebp(picture, 80);
      ADD_FAILURE() << size.width;
    } catch (const Declined& declined) {
      EXPECT_EQ(declined.Why(), Reason::kTooLarge);
    }
  }
}

}  // namespace
}  // namespace tavithumb::maker
