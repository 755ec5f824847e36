// SPDX-License-Identifier: GPL-3.0-or-later
#include <gif_lib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "decoding.h"

namespace tavithumb::maker {
namespace {

using test::Decode;
using test::File;
using test::PixelAt;
using test::WhyDeclined;

// A GIF to write with giflib.
struct GifRecipe {
  Size canvas = {20, 13};
  int left = 0;
  int top = 0;
  Size frame = {20, 13};
  bool isInterlaced = false;
  int transparent = NO_TRANSPARENT_COLOR;
  bool hasOwnColours = false;  // else the global ones
  int frames = 1;
};

std::ostream& operator<<(std::ostream& out, const GifRecipe& recipe) {
  return out << recipe.frame.width << " x " << recipe.frame.height << " at " << recipe.left << ", " << recipe.top
             << " on " << recipe.canvas.width << " x " << recipe.canvas.height << ", interlaced " << recipe.isInterlaced
             << ", transparent " << recipe.transparent << ", own " << recipe.hasOwnColours;
}

constexpr int kColours = 16;

GifColorType ColourAt(int index, bool isOwn) {
  const int base = isOwn ? 7 : 0;
  return {static_cast<GifByteType>(base + index * 15), static_cast<GifByteType>(255 - index * 11),
          static_cast<GifByteType>(index * index)};
}

int IndexAt(int x, int y) {
  return (x + 3 * y) % kColours;
}

int Append(GifFileType* gif, const GifByteType* bytes, int count) {
  auto* file = static_cast<File*>(gif->UserData);
  file->insert(file->end(), bytes, bytes + count);
  return count;
}

ColorMapObject* MakeColours(bool isOwn) {
  ColorMapObject* map = GifMakeMapObject(kColours, nullptr);
  for (int i = 0; i < kColours; ++i) map->Colors[i] = ColourAt(i, isOwn);
  return map;
}

void WriteFrame(GifFileType* gif, const GifRecipe& recipe) {
  GraphicsControlBlock control = {DISPOSAL_UNSPECIFIED, false, 10, recipe.transparent};
  std::array<GifByteType, 4> extension = {};
  EGifGCBToExtension(&control, extension.data());
  EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, extension.size(), extension.data());
  ColorMapObject* own = recipe.hasOwnColours ? MakeColours(true) : nullptr;
  EGifPutImageDesc(gif, recipe.left, recipe.top, recipe.frame.width, recipe.frame.height, recipe.isInterlaced, own);
  GifFreeMapObject(own);
  const int starts[] = {0, 4, 2, 1};
  const int steps[] = {8, 8, 4, 2};
  for (int pass = 0; pass < (recipe.isInterlaced ? 4 : 1); ++pass) {
    for (int y = starts[pass]; y < recipe.frame.height; y += recipe.isInterlaced ? steps[pass] : 1) {
      std::vector<GifPixelType> row;
      for (int x = 0; x < recipe.frame.width; ++x) row.push_back(static_cast<GifPixelType>(IndexAt(x, y)));
      EGifPutLine(gif, row.data(), recipe.frame.width);
    }
  }
}

File WriteGif(const GifRecipe& recipe) {
  File file;
  GifFileType* gif = EGifOpen(&file, Append, nullptr);
  EGifSetGifVersion(gif, true);
  ColorMapObject* global = MakeColours(false);
  EGifPutScreenDesc(gif, recipe.canvas.width, recipe.canvas.height, 8, 0, global);
  GifFreeMapObject(global);
  for (int i = 0; i < recipe.frames; ++i) WriteFrame(gif, recipe);
  EGifCloseFile(gif, nullptr);
  return file;
}

std::vector<int> ExpectedPixel(const GifRecipe& recipe, int x, int y, bool hasAlpha) {
  x -= recipe.left;
  y -= recipe.top;
  if (x < 0 || y < 0 || x >= recipe.frame.width || y >= recipe.frame.height) return {0, 0, 0, 0};
  const GifColorType colour = ColourAt(IndexAt(x, y), recipe.hasOwnColours);
  std::vector<int> pixel = {colour.Red, colour.Green, colour.Blue};
  if (hasAlpha) pixel.push_back(IndexAt(x, y) == recipe.transparent ? 0 : 255);
  return pixel;
}

void ExpectScene(const Picture& picture, const GifRecipe& recipe, bool hasAlpha) {
  EXPECT_EQ(picture.model, Model::kRgb) << recipe;
  EXPECT_EQ(picture.hasAlpha, hasAlpha) << recipe;
  ASSERT_EQ(test::SizeOf(picture), recipe.canvas) << recipe;
  for (int y = 0; y < recipe.canvas.height; ++y) {
    for (int x = 0; x < recipe.canvas.width; ++x) {
      ASSERT_EQ(PixelAt(picture, x, y), ExpectedPixel(recipe, x, y, hasAlpha)) << recipe << " at " << x << ", " << y;
    }
  }
}

TEST(GifDecoder, PutsTheFirstFrameOnItsCanvas) {
  const Size canvas = {20, 13};
  const struct {
    GifRecipe recipe;
    bool hasAlpha;
  } rows[] = {
      {{}, false},
      {{canvas, 0, 0, canvas, true}, false},
      {{canvas, 0, 0, canvas, false, 5}, true},
      {{canvas, 0, 0, canvas, true, 0, true}, true},
      {{canvas, 0, 0, canvas, false, NO_TRANSPARENT_COLOR, true}, false},
      {{canvas, 3, 2, {10, 9}}, true},
      {{canvas, 3, 2, {10, 9}, true, 4}, true},
      {{canvas, 15, 10, {20, 13}}, true},  // reaches over the edges
      {{canvas, 0, 0, {30, 40}}, false},   // larger than the canvas
      {{canvas, 20, 0, {5, 5}}, true},     // beside the canvas
      {{canvas, 0, 0, canvas, false, NO_TRANSPARENT_COLOR, false, 3}, false},
      {{{1, 1}, 0, 0, {1, 1}}, false},
  };
  for (const auto& row : rows) ExpectScene(Decode(OpenGif, WriteGif(row.recipe)), row.recipe, row.hasAlpha);
}

TEST(GifDecoder, DecodesTheSamePictureAgain) {
  const File file = WriteGif({});
  const Input input(test::BytesOf(file));
  const std::unique_ptr<Decoder> decoder = OpenGif(input);
  EXPECT_EQ(decoder->Head().stored, (Size{20, 13}));
  for (int i = 0; i < 2; ++i) ExpectScene(decoder->Decode({1, 1}), {}, false);
}

TEST(GifDecoder, TellsWhetherThereAreSeveralFrames) {
  for (const int frames : {1, 2, 3}) {
    GifRecipe recipe;
    recipe.frames = frames;
    recipe.hasOwnColours = frames == 2;
    const File file = WriteGif(recipe);
    const Input input(test::BytesOf(file));
    EXPECT_EQ(OpenGif(input)->IsAnimated(), frames > 1) << frames;
  }
}

TEST(GifDecoder, UsesTheFrameIfThereIsNoCanvas) {
  File file = WriteGif({});
  std::fill_n(file.begin() + 6, 4, std::uint8_t{0});
  ExpectScene(Decode(OpenGif, file), {}, false);
}

TEST(GifDecoder, ShowsWhatThereIsOfACutOffPicture) {
  GifRecipe recipe;
  recipe.canvas = recipe.frame = {100, 100};
  const File whole = WriteGif(recipe);
  const Picture picture = Decode(OpenGif, File(whole.begin(), whole.begin() + static_cast<long>(whole.size() / 2)));
  EXPECT_EQ(PixelAt(picture, 99, 10), ExpectedPixel(recipe, 99, 10, false));
  EXPECT_EQ(PixelAt(picture, 99, 99), (std::vector<int>{0, 0, 0}));
}

TEST(GifDecoder, SurvivesFilesThatAreCutOffOrDamaged) {
  GifRecipe recipe;
  recipe.canvas = recipe.frame = {60, 60};
  recipe.hasOwnColours = true;
  recipe.frames = 2;
  const File file = WriteGif(recipe);
  EXPECT_GT(test::DecodeCutOff(OpenGif, file, 1), 0);
  test::DecodeDamaged(OpenGif, file, 3);
  for (std::size_t length = 0; length < file.size(); ++length) {
    const File start(file.begin(), file.begin() + static_cast<long>(length));
    const Input input(test::BytesOf(start));
    try {
      OpenGif(input)->IsAnimated();
    } catch (const Declined& declined) {
      EXPECT_EQ(declined.Why(), Reason::kDamaged);
    }
  }
}

TEST(GifDecoder, DeclinesWhatIsTooLargeOrHasNoPicture) {
  const File file = WriteGif({});
  File canvas = file;
  std::fill_n(canvas.begin() + 6, 4, std::uint8_t{0xff});
  File frame = file;
  const auto start = std::find(frame.begin() + 13 + 3 * kColours, frame.end(), ',');
  std::fill_n(start + 5, 4, std::uint8_t{0xff});
  File noColours = file;
  noColours[10] = 0;
  noColours.erase(noColours.begin() + 13, noColours.begin() + 13 + 3 * kColours);
  const struct {
    const char* what;
    File file;
    Reason reason;
  } rows[] = {{"empty", {}, Reason::kDamaged},
              {"text", File(100, 'x'), Reason::kDamaged},
              {"canvas of 65535 x 65535", canvas, Reason::kTooLarge},
              {"frame of 65535 x 65535", frame, Reason::kTooLarge},
              {"no colours", noColours, Reason::kDamaged},
              {"no frame", {'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0, 0, 0, 0, ';'}, Reason::kDamaged}};
  for (const auto& row : rows) EXPECT_EQ(WhyDeclined(OpenGif, row.file), row.reason) << row.what;
}

TEST(GifDecoder, DecodesSampleFilesLikeImageMagick) {
  if (test::SamplesFolder().empty()) GTEST_SKIP() << "no samples";
  for (const char* name : {"cogs.gif", "dispose-background.gif", "dispose-previous.gif", "issue-201.gif"}) {
    const std::string path = test::SamplesFolder() + "/gif/" + name;
    const File reference = test::ReferenceRgba(path, {"-coalesce"});
    const Picture picture = Decode(OpenGif, test::ReadSample(path));
    EXPECT_EQ(test::LargestDifference(test::RgbaOf(picture), reference), 0) << name;
  }
}

}  // namespace
}  // namespace tavithumb::maker
