// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <libdeflate.h>
#include <png.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "decoding.h"
#include "maker/encode/encode.h"

namespace tavithumb::maker {
namespace {

using test::Decode;
using test::File;
using test::PixelAt;
using test::WhyDeclined;

// A PNG to write with libpng. The samples are a scene of edges, slopes and noise.
struct PngRecipe {
  int colour = PNG_COLOR_TYPE_RGB;
  int depth = 8;
  bool isInterlaced = false;
  int width = 37;
  int height = 21;
  int filters = PNG_ALL_FILTERS;
  bool isTransparent = false;  // has a transparent colour, or a palette with alpha
  int paletteSize = 256;
};

std::ostream& operator<<(std::ostream& out, const PngRecipe& recipe) {
  return out << "colour " << recipe.colour << ", depth " << recipe.depth << ", interlaced " << recipe.isInterlaced
             << ", " << recipe.width << " x " << recipe.height << ", filters " << recipe.filters << ", transparent "
             << recipe.isTransparent;
}

int SamplesOf(int colour) {
  if (colour == PNG_COLOR_TYPE_GRAY_ALPHA) return 2;
  if (colour == PNG_COLOR_TYPE_RGB) return 3;
  return colour == PNG_COLOR_TYPE_RGB_ALPHA ? 4 : 1;
}

// A sample of the scene, as stored.
unsigned SampleAt(const PngRecipe& recipe, int x, int y, int channel) {
  const auto noise = static_cast<unsigned>(x * 7919 + y * 104729 + channel * 1299709);
  const auto slope = static_cast<unsigned>((x + channel) * 1500 + y * 900);
  const unsigned sample = y % 7 < 3 ? slope : (noise ^ noise >> 7);
  const unsigned limited = recipe.depth == 16 ? sample & 0xffff : (sample >> 4) & ((1U << recipe.depth) - 1);
  return recipe.colour == PNG_COLOR_TYPE_PALETTE ? limited % static_cast<unsigned>(recipe.paletteSize) : limited;
}

png_color PngColour(unsigned index) {
  return {static_cast<png_byte>(index * 3), static_cast<png_byte>(255 - index), static_cast<png_byte>(index ^ 0x55)};
}

std::vector<png_byte> RowOf(const PngRecipe& recipe, int y) {
  const int samples = SamplesOf(recipe.colour);
  std::vector<png_byte> row(static_cast<std::size_t>(recipe.width * samples * recipe.depth + 7) / 8);
  for (int i = 0; i < recipe.width * samples; ++i) {
    const unsigned sample = SampleAt(recipe, i / samples, y, i % samples);
    const auto bit = static_cast<std::size_t>(i * recipe.depth);
    if (recipe.depth == 16) {
      row[bit / 8] = static_cast<png_byte>(sample >> 8);
      row[bit / 8 + 1] = static_cast<png_byte>(sample);
    } else {
      row[bit / 8] = static_cast<png_byte>(row[bit / 8] | sample << (8 - recipe.depth - static_cast<int>(bit % 8)));
    }
  }
  return row;
}

void WriteTransparency(png_structp png, png_infop info, const PngRecipe& recipe) {
  std::vector<png_byte> alpha(16);
  std::iota(alpha.begin(), alpha.end(), 100);
  const auto at = [&](int channel) { return static_cast<png_uint_16>(SampleAt(recipe, 1, 1, channel)); };
  png_color_16 key = {0, at(0), at(1), at(2), at(0)};
  png_set_tRNS(png, info, alpha.data(), std::min<int>(static_cast<int>(alpha.size()), recipe.paletteSize), &key);
}

void Append(png_structp png, png_bytep bytes, png_size_t count) {
  auto* file = static_cast<File*>(png_get_io_ptr(png));
  file->insert(file->end(), bytes, bytes + count);
}

File WritePng(const PngRecipe& recipe) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  File file;
  png_set_write_fn(png, &file, Append, nullptr);
  png_set_IHDR(png, info, static_cast<png_uint_32>(recipe.width), static_cast<png_uint_32>(recipe.height), recipe.depth,
               recipe.colour, recipe.isInterlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  std::vector<png_color> palette;
  for (int i = 0; i < recipe.paletteSize; ++i) palette.push_back(PngColour(static_cast<unsigned>(i)));
  if (recipe.colour == PNG_COLOR_TYPE_PALETTE) png_set_PLTE(png, info, palette.data(), recipe.paletteSize);
  if (recipe.isTransparent) WriteTransparency(png, info, recipe);
  png_set_filter(png, PNG_FILTER_TYPE_DEFAULT, recipe.filters);
  png_set_compression_buffer_size(png, 200);  // many small chunks
  std::vector<std::vector<png_byte>> rows;
  for (int y = 0; y < recipe.height; ++y) rows.push_back(RowOf(recipe, y));
  std::vector<png_bytep> pointers;
  for (std::vector<png_byte>& row : rows) pointers.push_back(row.data());
  png_write_info(png, info);
  png_write_image(png, pointers.data());
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return file;
}

int Rounded(unsigned sample, int depth) {
  const double largest = (1 << depth) - 1;
  return static_cast<int>(sample / largest * 255 + 0.5);
}

bool IsKey(const PngRecipe& recipe, int x, int y) {
  for (int c = 0; c < SamplesOf(recipe.colour); ++c) {
    if (SampleAt(recipe, x, y, c) != SampleAt(recipe, 1, 1, c)) return false;
  }
  return true;
}

std::vector<int> ExpectedPixel(const PngRecipe& recipe, int x, int y) {
  std::vector<int> pixel;
  if (recipe.colour == PNG_COLOR_TYPE_PALETTE) {
    const unsigned index = SampleAt(recipe, x, y, 0);
    const png_color entry = PngColour(index);
    pixel = {entry.red, entry.green, entry.blue};
    if (recipe.isTransparent) pixel.push_back(index < 16 ? static_cast<int>(100 + index) : 255);
    return pixel;
  }
  for (int c = 0; c < SamplesOf(recipe.colour); ++c) {
    pixel.push_back(Rounded(SampleAt(recipe, x, y, c), recipe.depth));
  }
  if (recipe.isTransparent) pixel.push_back(IsKey(recipe, x, y) ? 0 : 255);
  return pixel;
}

void ExpectScene(const Picture& picture, const PngRecipe& recipe) {
  const bool isGray = recipe.colour == PNG_COLOR_TYPE_GRAY || recipe.colour == PNG_COLOR_TYPE_GRAY_ALPHA;
  EXPECT_EQ(picture.model, isGray ? Model::kGray : Model::kRgb) << recipe;
  EXPECT_EQ(picture.hasAlpha, recipe.isTransparent || (recipe.colour & PNG_COLOR_MASK_ALPHA) != 0) << recipe;
  EXPECT_FALSE(picture.isPremultiplied);
  ASSERT_EQ(picture.storedSize, (Size{recipe.width, recipe.height})) << recipe;
  for (int y = 0; y < recipe.height; ++y) {
    for (int x = 0; x < recipe.width; ++x) {
      ASSERT_EQ(PixelAt(picture, x, y), ExpectedPixel(recipe, x, y)) << recipe << " at " << x << ", " << y;
    }
  }
}

struct ColourAndDepth {
  int colour;
  int depth;
};

constexpr ColourAndDepth kKinds[] = {
    {PNG_COLOR_TYPE_GRAY, 1},        {PNG_COLOR_TYPE_GRAY, 2},      {PNG_COLOR_TYPE_GRAY, 4},
    {PNG_COLOR_TYPE_GRAY, 8},        {PNG_COLOR_TYPE_GRAY, 16},     {PNG_COLOR_TYPE_PALETTE, 1},
    {PNG_COLOR_TYPE_PALETTE, 2},     {PNG_COLOR_TYPE_PALETTE, 4},   {PNG_COLOR_TYPE_PALETTE, 8},
    {PNG_COLOR_TYPE_RGB, 8},         {PNG_COLOR_TYPE_RGB, 16},      {PNG_COLOR_TYPE_GRAY_ALPHA, 8},
    {PNG_COLOR_TYPE_GRAY_ALPHA, 16}, {PNG_COLOR_TYPE_RGB_ALPHA, 8}, {PNG_COLOR_TYPE_RGB_ALPHA, 16}};

// Every kind of pixels, interlaced or not.
std::vector<PngRecipe> AllPngKinds() {
  std::vector<PngRecipe> recipes;
  for (const auto [colour, depth] : kKinds) {
    for (const bool isInterlaced : {false, true}) {
      PngRecipe recipe;
      recipe.colour = colour;
      recipe.depth = depth;
      recipe.isInterlaced = isInterlaced;
      if (colour == PNG_COLOR_TYPE_PALETTE) recipe.paletteSize = 1 << depth;
      recipes.push_back(recipe);
    }
  }
  return recipes;
}

TEST(PngDecoder, DecodesEveryKindOfPixels) {
  for (const PngRecipe& recipe : AllPngKinds()) ExpectScene(Decode(OpenPng, WritePng(recipe)), recipe);
}

TEST(PngDecoder, MakesTransparentColoursTransparent) {
  for (PngRecipe recipe : AllPngKinds()) {
    if ((recipe.colour & PNG_COLOR_MASK_ALPHA) != 0) continue;
    recipe.isTransparent = true;
    ExpectScene(Decode(OpenPng, WritePng(recipe)), recipe);
  }
}

TEST(PngDecoder, UndoesEveryFilterAtEveryWidth) {
  for (const int filter : {PNG_FILTER_NONE, PNG_FILTER_SUB, PNG_FILTER_UP, PNG_FILTER_AVG, PNG_FILTER_PAETH}) {
    for (const auto [colour, depth] : kKinds) {
      for (const int width : {1, 2, 3, 17, 64, 131}) {
        PngRecipe recipe;
        recipe.colour = colour;
        recipe.depth = depth;
        recipe.filters = filter;
        recipe.width = width;
        recipe.height = 5;
        if (colour == PNG_COLOR_TYPE_PALETTE) recipe.paletteSize = 1 << depth;
        ExpectScene(Decode(OpenPng, WritePng(recipe)), recipe);
      }
    }
  }
}

TEST(PngDecoder, DecodesInterlacedPicturesOfEverySmallSize) {
  for (int width = 1; width <= 9; ++width) {
    for (int height = 1; height <= 9; ++height) {
      PngRecipe recipe;
      recipe.isInterlaced = true;
      recipe.width = width;
      recipe.height = height;
      ExpectScene(Decode(OpenPng, WritePng(recipe)), recipe);
    }
  }
}

TEST(PngDecoder, ShowsWhatThereIsOfACutOffPicture) {
  PngRecipe recipe;
  recipe.width = 50;
  recipe.height = 50;
  const File whole = WritePng(recipe);
  const Picture picture = Decode(OpenPng, File(whole.begin(), whole.begin() + static_cast<long>(whole.size() / 2)));
  for (int y = 0; y < 10; ++y) {
    for (int x = 0; x < recipe.width; ++x) ASSERT_EQ(PixelAt(picture, x, y), ExpectedPixel(recipe, x, y)) << x << y;
  }
  EXPECT_EQ(PixelAt(picture, 49, 49), (std::vector<int>{0, 0, 0}));
}

TEST(PngDecoder, FillsTheGapsOfACutOffInterlacedPicture) {
  PngRecipe recipe;
  recipe.isInterlaced = true;
  recipe.width = 64;
  recipe.height = 64;
  const File whole = WritePng(recipe);
  const Picture picture = Decode(OpenPng, File(whole.begin(), whole.begin() + static_cast<long>(whole.size() / 16)));
  // The first pass is there, and each of its pixels fills a block.
  EXPECT_EQ(PixelAt(picture, 56, 56), ExpectedPixel(recipe, 56, 56));
  EXPECT_EQ(PixelAt(picture, 57, 57), ExpectedPixel(recipe, 56, 56));
}

TEST(PngDecoder, SurvivesFilesThatAreCutOffOrDamaged) {
  for (const PngRecipe& recipe : AllPngKinds()) {
    const File file = WritePng(recipe);
    EXPECT_GT(test::DecodeCutOff(OpenPng, file, 7), 0) << recipe;
    test::DecodeDamaged(OpenPng, file, 5);
  }
}

File MakeChunk(const std::string& name, const File& content) {
  File chunk;
  const auto append = [&](std::uint32_t number) {
    for (const int shift : {24, 16, 8, 0}) chunk.push_back(static_cast<std::uint8_t>(number >> shift));
  };
  append(static_cast<std::uint32_t>(content.size()));
  chunk.insert(chunk.end(), name.begin(), name.end());
  chunk.insert(chunk.end(), content.begin(), content.end());
  append(libdeflate_crc32(0, chunk.data() + 4, chunk.size() - 4));
  return chunk;
}

constexpr std::size_t kAfterHeader = 33;

File Insert(File file, const File& chunk) {
  file.insert(file.begin() + kAfterHeader, chunk.begin(), chunk.end());
  return file;
}

File Compressed(const File& content) {
  libdeflate_compressor* compressor = libdeflate_alloc_compressor(6);
  File compressed(libdeflate_zlib_compress_bound(compressor, content.size()));
  compressed.resize(
      libdeflate_zlib_compress(compressor, content.data(), content.size(), compressed.data(), compressed.size()));
  libdeflate_free_compressor(compressor);
  return compressed;
}

File ProfileChunk(const File& profile) {
  File content = {'n', 'a', 'm', 'e', 0, 0};
  const File compressed = Compressed(profile);
  content.insert(content.end(), compressed.begin(), compressed.end());
  return MakeChunk("iCCP", content);
}

TEST(PngDecoder, ReadsTheProfile) {
  const File file = WritePng({});
  const File profile(5000, 7);
  EXPECT_EQ(Decode(OpenPng, Insert(file, ProfileChunk(profile))).profile, profile);
  EXPECT_EQ(Decode(OpenPng, file).profile, File());
}

TEST(PngDecoder, IgnoresAProfileThatIsDamagedOrTooLarge) {
  const File file = WritePng({});
  for (const File& chunk :
       {MakeChunk("iCCP", {}), MakeChunk("iCCP", {'n'}), MakeChunk("iCCP", {'n', 0}), MakeChunk("iCCP", {'n', 0, 0}),
        MakeChunk("iCCP", {'n', 0, 0, 0x78, 0x9c, 1, 2}), ProfileChunk(File(std::size_t{5} << 20))}) {
    const Picture picture = Decode(OpenPng, Insert(file, chunk));
    EXPECT_EQ(picture.profile, File());
    ExpectScene(picture, PngRecipe());
  }
}

TEST(PngDecoder, TellsWhetherThereAreSeveralFrames) {
  const struct {
    File file;
    bool isAnimated;
  } rows[] = {{WritePng({}), false},
              {Insert(WritePng({}), MakeChunk("acTL", {0, 0, 0, 1, 0, 0, 0, 0})), false},
              {Insert(WritePng({}), MakeChunk("acTL", {0, 0, 0, 2, 0, 0, 0, 0})), true}};
  for (const auto& row : rows) {
    const Input input(test::BytesOf(row.file));
    EXPECT_EQ(OpenPng(input)->IsAnimated(), row.isAnimated);
  }
}

// Writes numbers over the file's header, which begins at 16 with the width.
File WithHeader(File file, std::size_t offset, const File& bytes) {
  std::copy(bytes.begin(), bytes.end(), file.begin() + 16 + static_cast<long>(offset));
  return file;
}

TEST(PngDecoder, DeclinesHeadersThatAreWrongOrHostile) {
  const File file = WritePng({});
  const struct {
    const char* what;
    File file;
    Reason reason;
  } rows[] = {
      {"empty", {}, Reason::kDamaged},
      {"text", File(100, 'x'), Reason::kDamaged},
      {"no width", WithHeader(file, 0, {0, 0, 0, 0}), Reason::kDamaged},
      {"no height", WithHeader(file, 4, {0, 0, 0, 0}), Reason::kDamaged},
      {"65535 x 65535", WithHeader(file, 0, {0, 0, 0xff, 0xff, 0, 0, 0xff, 0xff}), Reason::kTooLarge},
      {"4294967295 wide", WithHeader(file, 0, {0xff, 0xff, 0xff, 0xff}), Reason::kTooLarge},
      {"depth 3", WithHeader(file, 8, {3}), Reason::kUnsupported},
      {"depth 4 in colour", WithHeader(file, 8, {4}), Reason::kUnsupported},
      {"colour 7", WithHeader(file, 9, {7}), Reason::kUnsupported},
      {"other compression", WithHeader(file, 10, {1}), Reason::kUnsupported},
      {"other filters", WithHeader(file, 11, {1}), Reason::kUnsupported},
      {"other interlacing", WithHeader(file, 12, {2}), Reason::kUnsupported},
      {"no palette", WithHeader(file, 9, {PNG_COLOR_TYPE_PALETTE}), Reason::kDamaged},
      {"no data", File(file.begin(), file.begin() + kAfterHeader), Reason::kDamaged},
      {"ends before data", Insert(file, MakeChunk("IEND", {})), Reason::kDamaged},
      {"data that is not compressed", Insert(file, MakeChunk("IDAT", {0, 0, 0})), Reason::kDamaged},
  };
  for (const auto& row : rows) EXPECT_EQ(WhyDeclined(OpenPng, row.file), row.reason) << row.what;
}

TEST(PngDecoder, DeclinesWhatHasTooManyChunksBeforeItsData) {
  File many;
  const File chunk = MakeChunk("tEXt", {});
  for (int i = 0; i < 10001; ++i) many.insert(many.end(), chunk.begin(), chunk.end());
  EXPECT_EQ(WhyDeclined(OpenPng, Insert(WritePng({}), many)), Reason::kDamaged);
}

TEST(PngDecoder, ShowsIndicesBeyondThePaletteInBlack) {
  PngRecipe recipe;
  recipe.colour = PNG_COLOR_TYPE_PALETTE;
  File file = WritePng(recipe);
  // Only the first two entries are left: the palette becomes an unknown chunk behind a short one.
  std::memcpy(&file[kAfterHeader + 4], "teXt", 4);
  const Picture picture = Decode(OpenPng, Insert(file, MakeChunk("PLTE", {1, 2, 3, 4, 5, 6})));
  for (int y = 0; y < recipe.height; ++y) {
    for (int x = 0; x < recipe.width; ++x) {
      const unsigned index = SampleAt(recipe, x, y, 0);
      const std::vector<int> expected = index == 0   ? std::vector<int>{1, 2, 3}
                                        : index == 1 ? std::vector<int>{4, 5, 6}
                                                     : std::vector<int>{0, 0, 0};
      ASSERT_EQ(PixelAt(picture, x, y), expected) << index;
    }
  }
}

TEST(PngDecoder, DecodesDataBeyondThePictureAndWrongChecksums) {
  File file = WritePng({});
  file.back() ^= 1;
  file[kAfterHeader - 1] ^= 1;
  ExpectScene(Decode(OpenPng, file), PngRecipe());

  // A picture one row less high than its data.
  PngRecipe lower;
  lower.height = 20;
  ExpectScene(Decode(OpenPng, WithHeader(WritePng({}), 7, {20})), lower);
}

TEST(PngDecoder, DecodesSampleFilesLikeImageMagick) {
  if (test::SamplesFolder().empty()) GTEST_SKIP() << "no samples";
  for (const char* name : {"indexed.png", "rgba.png", "sample.png"}) {
    const std::string path = test::SamplesFolder() + "/still/" + name;
    const Picture picture = Decode(OpenPng, test::ReadSample(path));
    // ImageMagick rounds 16 bits differently.
    EXPECT_LE(test::LargestDifference(test::RgbaOf(picture), test::ReferenceRgba(path)), 1) << name;
  }
}

// What libpng reads: R, G, B and alpha.
File DecodeWithLibpng(const File& file) {
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_memory(&image, file.data(), file.size()) == 0) return {};
  image.format = PNG_FORMAT_RGBA;
  File pixels(PNG_IMAGE_SIZE(image));
  return png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) != 0 ? pixels : File();
}

TEST(PngEncoder, KeepsEveryPixel) {
  for (const PngRecipe& recipe : AllPngKinds()) {
    const Picture picture = Decode(OpenPng, WritePng(recipe));
    const File file = EncodePng(picture);
    EXPECT_EQ(DecodeWithLibpng(file), test::RgbaOf(picture)) << recipe;
    ExpectScene(Decode(OpenPng, file), recipe);
  }
}

TEST(PngEncoder, LeavesOutAlphaThatIsOpaqueEverywhere) {
  for (const int colour : {PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_GRAY}) {
    PngRecipe recipe;
    recipe.colour = colour;
    Picture picture = Decode(OpenPng, WritePng(recipe));
    Plane alpha({recipe.width, recipe.height});
    for (int y = 0; y < recipe.height; ++y) std::fill_n(alpha.Row(y), recipe.width, std::uint8_t{255});
    picture.channels.push_back({std::move(alpha), 37, 21});
    picture.hasAlpha = true;
    ExpectScene(Decode(OpenPng, EncodePng(picture)), recipe);
    picture.channels.back().plane.Row(20)[36] = 254;
    EXPECT_TRUE(Decode(OpenPng, EncodePng(picture)).hasAlpha);
  }
}

TEST(PngEncoder, CompressesSlopesWell) {
  Picture picture = Decode(OpenPng, WritePng({PNG_COLOR_TYPE_RGB, 8, false, 300, 300}));
  for (Channel& channel : picture.channels) {
    for (int y = 0; y < 300; ++y) {
      for (int x = 0; x < 300; ++x) channel.plane.Row(y)[x] = static_cast<std::uint8_t>(3 * x + 5 * y);
    }
  }
  EXPECT_LT(EncodePng(picture).size(), 5000U);
}

TEST(PngEncoder, WritesTextsBeforeThePixels) {
  const PngRecipe recipe;
  const Picture picture = Decode(OpenPng, WritePng(recipe));
  const File plain = EncodePng(picture);
  const File file = EncodePng(picture, {{"Thumb::URI", "file:///a%20b"}, {"Empty", ""}});
  const std::string bytes(file.begin(), file.end());
  const std::string first("\0\0\0\x18tEXtThumb::URI\0file:///a%20b", 32), second("\0\0\0\x06tEXtEmpty\0", 14);
  EXPECT_EQ(bytes.find(first), 33U) << "behind the header";
  EXPECT_EQ(bytes.find(second), 33U + first.size() + 4);
  EXPECT_EQ(file.size(), plain.size() + first.size() + second.size() + 8);
  EXPECT_EQ(DecodeWithLibpng(file), DecodeWithLibpng(plain));
}

}  // namespace
}  // namespace tavithumb::maker
