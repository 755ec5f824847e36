// SPDX-License-Identifier: GPL-3.0-or-later
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

constexpr int kBmpWidth = 13;
constexpr int kBmpHeight = 7;

// A BMP to write.
struct BmpRecipe {
  std::uint32_t headerSize = 40;
  int bits = 24;
  std::uint32_t compression = 0;
  bool isTopDown = false;
  std::array<std::uint32_t, 4> masks = {};  // R, G, B, alpha
  File pixels;                              // instead of those of the scene
  File profile;
};

std::ostream& operator<<(std::ostream& out, const BmpRecipe& recipe) {
  return out << "header " << recipe.headerSize << ", " << recipe.bits << " bits, compression " << recipe.compression
             << ", top-down " << recipe.isTopDown << ", alpha " << recipe.masks[3];
}

void PutNumber(std::uint64_t number, int bytes, File* file) {
  for (int i = 0; i < bytes; ++i) file->push_back(static_cast<std::uint8_t>(number >> (8 * i)));
}

// The bits of a pixel of the scene.
std::uint32_t RawAt(const BmpRecipe& recipe, int x, int y) {
  const auto hash = static_cast<std::uint32_t>(x * 2654435 + y * 40503001 + x * y * 7919);
  return recipe.bits == 32 ? hash * 2654435761U : hash & ((1U << recipe.bits) - 1);
}

std::array<std::uint8_t, 3> PaletteEntry(std::uint32_t index) {
  return {static_cast<std::uint8_t>(index * 5), static_cast<std::uint8_t>(250 - index),
          static_cast<std::uint8_t>(index ^ 0x2a)};
}

File PixelsOf(const BmpRecipe& recipe) {
  if (!recipe.pixels.empty()) return recipe.pixels;
  File pixels;
  for (int i = 0; i < kBmpHeight; ++i) {
    File row(static_cast<std::size_t>((recipe.bits * kBmpWidth + 31) / 32 * 4));
    for (int x = 0; x < kBmpWidth; ++x) {
      const std::uint32_t raw = RawAt(recipe, x, recipe.isTopDown ? i : kBmpHeight - 1 - i);
      const auto bit = static_cast<std::size_t>(x * recipe.bits);
      if (recipe.bits < 8) {
        row[bit / 8] = static_cast<std::uint8_t>(row[bit / 8] | raw << (8 - recipe.bits - static_cast<int>(bit % 8)));
      }
      for (std::size_t b = 0; b < static_cast<std::size_t>(recipe.bits / 8); ++b) {
        row[bit / 8 + b] = static_cast<std::uint8_t>(raw >> (8 * b));
      }
    }
    pixels.insert(pixels.end(), row.begin(), row.end());
  }
  return pixels;
}

File DibHeader(const BmpRecipe& recipe) {
  File header;
  const int sideBytes = recipe.headerSize == 12 ? 2 : 4;
  PutNumber(recipe.headerSize, 4, &header);
  PutNumber(kBmpWidth, sideBytes, &header);
  PutNumber(static_cast<std::uint64_t>(recipe.isTopDown ? -kBmpHeight : kBmpHeight), sideBytes, &header);
  PutNumber(1, 2, &header);
  PutNumber(static_cast<std::uint64_t>(recipe.bits), 2, &header);
  if (recipe.headerSize >= 40) PutNumber(recipe.compression, 4, &header);
  header.resize(std::max<std::size_t>(recipe.headerSize, 12));
  const bool hasMasks = recipe.compression == 3 || recipe.compression == 6;
  if (!hasMasks) return header;
  File masks;
  for (int i = 0; i < (recipe.headerSize > 52 || recipe.compression == 6 ? 4 : 3); ++i) {
    PutNumber(recipe.masks[static_cast<std::size_t>(i)], 4, &masks);
  }
  if (recipe.headerSize == 40) header.resize(40 + masks.size());
  std::copy(masks.begin(), masks.end(), header.begin() + 40);
  return header;
}

void Overwrite(File* file, std::size_t offset, std::uint64_t number, int bytes = 4) {
  File value;
  PutNumber(number, bytes, &value);
  std::copy(value.begin(), value.end(), file->begin() + static_cast<long>(offset));
}

File WriteBmp(const BmpRecipe& recipe) {
  File file = {'B', 'M'};
  file.resize(14);
  const File header = DibHeader(recipe);
  file.insert(file.end(), header.begin(), header.end());
  for (std::uint32_t i = 0; recipe.bits <= 8 && i < 1U << recipe.bits; ++i) {
    const std::array<std::uint8_t, 3> entry = PaletteEntry(i);
    file.insert(file.end(), {entry[2], entry[1], entry[0]});
    if (recipe.headerSize != 12) file.push_back(0);
  }
  Overwrite(&file, 10, file.size());
  const File pixels = PixelsOf(recipe);
  file.insert(file.end(), pixels.begin(), pixels.end());
  if (!recipe.profile.empty()) {
    Overwrite(&file, 14 + 56, 0x4d424544);
    Overwrite(&file, 14 + 112, file.size() - 14);
    Overwrite(&file, 14 + 116, recipe.profile.size());
    file.insert(file.end(), recipe.profile.begin(), recipe.profile.end());
  }
  return file;
}

int Sample(std::uint32_t raw, std::uint32_t mask) {
  if (mask == 0) return 0;
  const double lowest = mask & (~mask + 1);
  return static_cast<int>((raw & mask) / lowest / (mask / lowest) * 255 + 0.5);
}

std::array<std::uint32_t, 4> MasksOf(const BmpRecipe& recipe) {
  if (recipe.compression != 0) return recipe.masks;
  if (recipe.bits == 16) return {0x7c00, 0x3e0, 0x1f, 0};
  return {0xff0000, 0xff00, 0xff, recipe.bits == 32 ? 0xff000000 : 0};
}

std::vector<int> ExpectedPixel(const BmpRecipe& recipe, int x, int y) {
  const std::uint32_t raw = RawAt(recipe, x, y);
  if (recipe.bits <= 8) {
    const std::array<std::uint8_t, 3> entry = PaletteEntry(raw);
    return {entry[0], entry[1], entry[2]};
  }
  std::vector<int> pixel;
  for (const std::uint32_t mask : MasksOf(recipe)) pixel.push_back(Sample(raw, mask));
  if (MasksOf(recipe)[3] == 0) pixel.pop_back();
  return pixel;
}

void ExpectScene(const Picture& picture, const BmpRecipe& recipe) {
  EXPECT_EQ(picture.model, Model::kRgb) << recipe;
  ASSERT_EQ(picture.storedSize, (Size{kBmpWidth, kBmpHeight})) << recipe;
  for (int y = 0; y < kBmpHeight; ++y) {
    for (int x = 0; x < kBmpWidth; ++x) {
      ASSERT_EQ(PixelAt(picture, x, y), ExpectedPixel(recipe, x, y)) << recipe << " at " << x << ", " << y;
    }
  }
}

TEST(BmpDecoder, DecodesEveryKindOfPixels) {
  std::vector<BmpRecipe> recipes;
  for (const std::uint32_t headerSize : {12, 16, 40, 52, 56, 64, 108, 124}) {
    for (const int bits : {1, 2, 4, 8, 16, 24, 32}) {
      for (const bool isTopDown : {false, true}) {
        if (headerSize != 12 || !isTopDown) recipes.push_back({headerSize, bits, 0, isTopDown, {}, {}, {}});
      }
    }
  }
  for (const BmpRecipe& recipe : recipes) ExpectScene(Decode(OpenBmp, WriteBmp(recipe)), recipe);
}

TEST(BmpDecoder, DecodesBitFields) {
  for (const BmpRecipe& recipe : std::vector<BmpRecipe>{
           {40, 16, 3, false, {0xf800, 0x7e0, 0x1f, 0}, {}, {}},
           {40, 32, 3, false, {0xff, 0xff00, 0xff0000, 0}, {}, {}},
           {40, 32, 3, true, {0x3ff00000, 0xffc00, 0x3ff, 0}, {}, {}},
           {40, 16, 6, false, {0xf00, 0xf0, 0xf, 0xf000}, {}, {}},
           {52, 16, 3, false, {0xf800, 0x7e0, 0x1f, 0}, {}, {}},
           {56, 16, 3, false, {0x7c00, 0x3e0, 0x1f, 0x8000}, {}, {}},
           {108, 32, 3, false, {0xff0000, 0xff00, 0xff, 0xff000000}, {}, {}},
           {124, 32, 3, true, {0xff000000, 0xff0000, 0xff00, 0xff}, {}, {}},
           {124, 32, 3, false, {0, 0xff00, 0xffffffff, 0}, {}, {}},
       }) {
    ExpectScene(Decode(OpenBmp, WriteBmp(recipe)), recipe);
  }
}

TEST(BmpDecoder, TakesAlphaThatIsZeroEverywhereForOpaque) {
  BmpRecipe recipe = {124, 32, 3, false, {0xff0000, 0xff00, 0xff, 0xff000000}, {}, {}};
  recipe.pixels = File(kBmpWidth * kBmpHeight * 4);
  for (std::size_t i = 0; i < recipe.pixels.size(); i += 4) recipe.pixels[i] = 9;
  const Picture picture = Decode(OpenBmp, WriteBmp(recipe));
  EXPECT_FALSE(picture.hasAlpha);
  EXPECT_EQ(PixelAt(picture, 5, 5), (std::vector<int>{0, 0, 9}));
}

std::vector<int> Indices(const Picture& picture, int y) {
  std::vector<int> indices;
  for (int x = 0; x < kBmpWidth; ++x) indices.push_back(250 - PixelAt(picture, x, y)[1]);
  return indices;
}

TEST(BmpDecoder, DecodesRunsOf8Bits) {
  BmpRecipe recipe = {40, 8, 1, false, {}, {}, {}};
  recipe.pixels = {3, 7, 0, 3, 1,   2, 3, 0, 2, 9, 0, 0,  // a run, three pixels and a padding byte, a run, end of row
                   0, 2, 4, 2, 200, 5,                    // 4 to the right, 2 rows up; a run that reaches over the edge
                   0, 1, 4, 8};                           // end of picture; what follows is ignored
  const Picture picture = Decode(OpenBmp, WriteBmp(recipe));
  EXPECT_EQ(Indices(picture, 6), (std::vector<int>{7, 7, 7, 1, 2, 3, 9, 9, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Indices(picture, 5), std::vector<int>(13));
  EXPECT_EQ(Indices(picture, 4), std::vector<int>(13));
  EXPECT_EQ(Indices(picture, 3), (std::vector<int>{0, 0, 0, 0, 5, 5, 5, 5, 5, 5, 5, 5, 5}));
  EXPECT_EQ(Indices(picture, 2), std::vector<int>(13));
}

TEST(BmpDecoder, DecodesRunsOf4Bits) {
  BmpRecipe recipe = {40, 4, 2, false, {}, {}, {}};
  recipe.pixels = {5, 0x1e, 0, 5, 0x23, 0x45, 0x60, 0, 0, 0,  // a run of two colours, five pixels and a padding byte
                   2, 0x77};                                  // the file ends
  const Picture picture = Decode(OpenBmp, WriteBmp(recipe));
  EXPECT_EQ(Indices(picture, 6), (std::vector<int>{1, 14, 1, 14, 1, 2, 3, 4, 5, 6, 0, 0, 0}));
  EXPECT_EQ(Indices(picture, 5), (std::vector<int>{7, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(BmpDecoder, SurvivesRunsThatLeaveThePicture) {
  for (const File& pixels : {File{0, 2, 255, 255, 9, 9}, File{0, 2, 9}, File{0, 200, 1, 2},
                             File{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 5},
                             File{255, 1, 255, 1, 0, 3, 1, 2, 3, 0}, File{0, 2, 0, 6, 3, 1, 0, 0, 3, 1}}) {
    EXPECT_EQ(WhyDeclined(OpenBmp, WriteBmp({40, 8, 1, false, {}, pixels, {}})), std::nullopt);
    EXPECT_EQ(WhyDeclined(OpenBmp, WriteBmp({40, 4, 2, false, {}, pixels, {}})), std::nullopt);
  }
}

TEST(BmpDecoder, ReadsTheProfile) {
  BmpRecipe recipe;
  recipe.headerSize = 124;
  recipe.profile = File(300, 3);
  const File file = WriteBmp(recipe);
  EXPECT_EQ(Decode(OpenBmp, file).profile, recipe.profile);
  File cutOff = file;
  cutOff.pop_back();
  EXPECT_EQ(Decode(OpenBmp, cutOff).profile, File());
  File tooLarge = file;
  Overwrite(&tooLarge, 14 + 116, 0xffffffff);
  EXPECT_EQ(Decode(OpenBmp, tooLarge).profile, File());
}

TEST(BmpDecoder, ShowsIndicesBeyondThePaletteInBlack) {
  BmpRecipe recipe;
  recipe.bits = 8;
  File file = WriteBmp(recipe);
  Overwrite(&file, 14 + 32, 2);
  EXPECT_EQ(PixelAt(Decode(OpenBmp, file), 1, 1), (std::vector<int>{0, 0, 0}));
}

TEST(BmpDecoder, ShowsWhatThereIsOfACutOffPicture) {
  File file = WriteBmp({});
  file.resize(file.size() - 60);
  const Picture picture = Decode(OpenBmp, file);
  EXPECT_EQ(PixelAt(picture, 3, 6), ExpectedPixel({}, 3, 6));
  EXPECT_EQ(PixelAt(picture, 3, 0), (std::vector<int>{0, 0, 0}));
}

TEST(BmpDecoder, SurvivesFilesThatAreCutOffOrDamaged) {
  for (const BmpRecipe& recipe :
       std::vector<BmpRecipe>{{},
                              {40, 8, 1, false, {}, {5, 5, 0, 0, 5, 9, 0, 3, 1, 2, 3, 0}, {}},
                              {124, 16, 3, true, {0xf00, 0xf0, 0xf, 0xf000}, {}, File(50, 7)}}) {
    const File file = WriteBmp(recipe);
    EXPECT_GT(test::DecodeCutOff(OpenBmp, file, 1), 0) << recipe;
    test::DecodeDamaged(OpenBmp, file, 1);
  }
}

File With(std::size_t offset, std::uint64_t number, int bytes) {
  File file = WriteBmp({});
  Overwrite(&file, offset, number, bytes);
  return file;
}

TEST(BmpDecoder, DeclinesHeadersThatAreWrongOrHostile) {
  File large = With(18, 65535, 4);
  Overwrite(&large, 22, 65535);
  const struct {
    const char* what;
    File file;
    Reason reason;
  } rows[] = {{"empty", {}, Reason::kDamaged},
              {"text", File(100, 'x'), Reason::kDamaged},
              {"65535 x 65535", large, Reason::kTooLarge},
              {"lowest height", With(22, 0x80000000, 4), Reason::kTooLarge},
              {"no width", With(18, 0, 4), Reason::kDamaged},
              {"negative width", With(18, 0xffffffff, 4), Reason::kDamaged},
              {"no height", With(22, 0, 4), Reason::kDamaged},
              {"header of 41 bytes", With(14, 41, 4), Reason::kUnsupported},
              {"header of 4 GB", With(14, 0xfffffffc, 4), Reason::kUnsupported},
              {"3 bits", With(28, 3, 2), Reason::kUnsupported},
              {"no bits", With(28, 0, 2), Reason::kUnsupported},
              {"JPEG inside", With(30, 4, 4), Reason::kUnsupported},
              {"runs of 24 bits", With(30, 1, 4), Reason::kUnsupported},
              {"bit fields of 24 bits", With(30, 3, 4), Reason::kUnsupported},
              {"top-down runs", WriteBmp({40, 8, 1, true, {}, {1, 1}, {}}), Reason::kUnsupported},
              {"Huffman codes of OS/2", WriteBmp({64, 16, 3, false, {}, {}, {}}), Reason::kUnsupported},
              {"pixels beyond the end", With(10, 0xffffffff, 4), Reason::kDamaged}};
  for (const auto& row : rows) EXPECT_EQ(WhyDeclined(OpenBmp, row.file), row.reason) << row.what;
}

TEST(BmpDecoder, DecodesSampleFilesLikeImageMagick) {
  if (test::SamplesFolder().empty()) GTEST_SKIP() << "no samples";
  for (const char* name : {"rgb24.bmp", "small.bmp"}) {
    const std::string path = test::SamplesFolder() + "/still/" + name;
    const Picture picture = Decode(OpenBmp, test::ReadSample(path));
    EXPECT_EQ(test::LargestDifference(test::RgbaOf(picture), test::ReferenceRgba(path)), 0) << name;
  }
}

}  // namespace
}  // namespace tavithumb::maker
