// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "decoding.h"
#include "temp_dir.h"

namespace tavithumb::maker {
namespace {

using test::Decode;
using test::File;
using test::PixelAt;
using test::WhyDeclined;

constexpr int kTiffWidth = 37;
constexpr int kTiffHeight = 21;

// A TIFF to write with libtiff.
struct TiffRecipe {
  std::uint16_t photometric = PHOTOMETRIC_RGB;
  std::uint16_t bits = 8;
  std::uint16_t samples = 3;
  std::uint16_t compression = COMPRESSION_NONE;
  std::uint32_t rowsPerStrip = 5;
  std::uint32_t tileSide = 0;  // 0 for strips
  bool isPlanar = false;       // one plane after the other
  int extra = -1;              // what the last sample is
  std::uint16_t orientation = ORIENTATION_TOPLEFT;
  File profile;
};

std::ostream& operator<<(std::ostream& out, const TiffRecipe& recipe) {
  return out << "photometric " << recipe.photometric << ", " << recipe.bits << " bits, " << recipe.samples
             << " samples, compression " << recipe.compression << ", strips " << recipe.rowsPerStrip << ", tiles "
             << recipe.tileSide << ", planar " << recipe.isPlanar << ", extra " << recipe.extra << ", orientation "
             << recipe.orientation;
}

// A sample of the scene, as stored.
unsigned SampleAt(const TiffRecipe& recipe, int x, int y, int channel) {
  const auto noise = static_cast<unsigned>(x * 7919 + y * 104729 + channel * 1299709);
  const unsigned sample = (noise ^ noise >> 7) & ((1U << recipe.bits) - 1);
  // Colours that have been multiplied by alpha are at most as large.
  const bool isPremultiplied = recipe.extra == EXTRASAMPLE_ASSOCALPHA;
  if (!isPremultiplied || channel == recipe.samples - 1) return sample;
  return std::min(sample, SampleAt(recipe, x, y, recipe.samples - 1));
}

void PutSample(unsigned sample, std::size_t index, int bits, File* row) {
  const std::size_t bit = index * static_cast<std::size_t>(bits);
  if (bits == 16) {
    const auto value = static_cast<std::uint16_t>(sample);
    std::copy_n(reinterpret_cast<const std::uint8_t*>(&value), 2, row->begin() + static_cast<long>(bit / 8));
  } else {
    std::uint8_t& byte = (*row)[bit / 8];
    byte = static_cast<std::uint8_t>(byte | sample << (8 - bits - static_cast<int>(bit % 8)));
  }
}

// A rectangle of the scene: all samples of a pixel, or those of one channel.
File Block(const TiffRecipe& recipe, int left, int top, int width, int height, int channel = -1) {
  File block;
  const int samples = channel < 0 ? recipe.samples : 1;
  for (int y = top; y < top + height; ++y) {
    File row(static_cast<std::size_t>(width * samples * recipe.bits + 7) / 8);
    for (int i = 0; i < width * samples; ++i) {
      const unsigned sample = SampleAt(recipe, left + i / samples, y, channel < 0 ? i % samples : channel);
      PutSample(sample, static_cast<std::size_t>(i), recipe.bits, &row);
    }
    block.insert(block.end(), row.begin(), row.end());
  }
  return block;
}

void SetPalette(TIFF* tiff, int bits) {
  std::vector<std::uint16_t> red;
  std::vector<std::uint16_t> green;
  std::vector<std::uint16_t> blue;
  for (unsigned i = 0; i < 1U << bits; ++i) {
    red.push_back(static_cast<std::uint16_t>((i * 3 & 255) * 257));
    green.push_back(static_cast<std::uint16_t>((255 - i) * 257));
    blue.push_back(static_cast<std::uint16_t>((i ^ 0x55) * 257));
  }
  TIFFSetField(tiff, TIFFTAG_COLORMAP, red.data(), green.data(), blue.data());
}

void SetFields(TIFF* tiff, const TiffRecipe& recipe) {
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, kTiffWidth);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, kTiffHeight);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, recipe.bits);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, recipe.samples);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, recipe.photometric);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, recipe.compression);
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, recipe.isPlanar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_ORIENTATION, recipe.orientation);
  if (recipe.extra >= 0) {
    const auto extra = static_cast<std::uint16_t>(recipe.extra);
    TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &extra);
  }
  if (recipe.photometric == PHOTOMETRIC_PALETTE) SetPalette(tiff, recipe.bits);
  if (!recipe.profile.empty()) {
    TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(recipe.profile.size()), recipe.profile.data());
  }
  if (recipe.tileSide > 0) {
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, recipe.tileSide);
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, recipe.tileSide);
  } else {
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, recipe.rowsPerStrip);
  }
}

void WritePlane(TIFF* tiff, const TiffRecipe& recipe, int channel, std::uint32_t* index) {
  const auto tile = static_cast<int>(recipe.tileSide);
  const int blockHeight = tile > 0 ? tile : static_cast<int>(recipe.rowsPerStrip);
  for (int top = 0; top < kTiffHeight; top += blockHeight) {
    if (tile > 0) {
      for (int left = 0; left < kTiffWidth; left += tile) {
        File block = Block(recipe, left, top, tile, tile, channel);
        TIFFWriteEncodedTile(tiff, (*index)++, block.data(), static_cast<tmsize_t>(block.size()));
      }
    } else {
      File block = Block(recipe, 0, top, kTiffWidth, std::min(blockHeight, kTiffHeight - top), channel);
      TIFFWriteEncodedStrip(tiff, (*index)++, block.data(), static_cast<tmsize_t>(block.size()));
    }
  }
}

File WriteTiff(const TiffRecipe& recipe, const char* mode = "w") {
  const test::TempDir folder;
  const std::string path = folder / "a.tif";
  TIFF* tiff = TIFFOpen(path.c_str(), mode);
  SetFields(tiff, recipe);
  std::uint32_t index = 0;
  for (int channel = 0; channel < (recipe.isPlanar ? recipe.samples : 1); ++channel) {
    WritePlane(tiff, recipe, recipe.isPlanar ? channel : -1, &index);
  }
  TIFFClose(tiff);
  return test::ReadSample(path);
}

int RoundedSample(unsigned sample, int bits) {
  return static_cast<int>(std::lround(sample * 255.0 / ((1 << bits) - 1)));
}

std::vector<int> ExpectedPixel(const TiffRecipe& recipe, int x, int y) {
  if (recipe.photometric == PHOTOMETRIC_PALETTE) {
    const int index = static_cast<int>(SampleAt(recipe, x, y, 0));
    return {index * 3 & 255, 255 - index, index ^ 0x55};
  }
  std::vector<int> pixel;
  for (int c = 0; c < recipe.samples; ++c) pixel.push_back(RoundedSample(SampleAt(recipe, x, y, c), recipe.bits));
  if (recipe.extra == EXTRASAMPLE_UNSPECIFIED || (recipe.extra >= 0 && recipe.photometric == PHOTOMETRIC_SEPARATED)) {
    pixel.pop_back();
  }
  if (recipe.extra == EXTRASAMPLE_ASSOCALPHA && pixel.back() > 0) {
    for (std::size_t c = 0; c + 1 < pixel.size(); ++c) {
      pixel[c] = std::min(255, static_cast<int>(std::lround(pixel[c] * 255.0 / pixel.back())));
    }
  }
  const bool isInverted = recipe.photometric == PHOTOMETRIC_MINISWHITE || recipe.photometric == PHOTOMETRIC_SEPARATED;
  for (std::size_t c = 0; isInverted && c < (pixel.size() == 2 ? 1 : pixel.size()); ++c) pixel[c] = 255 - pixel[c];
  return pixel;
}

Model ExpectedModel(const TiffRecipe& recipe) {
  if (recipe.photometric == PHOTOMETRIC_SEPARATED) return Model::kCmyk;
  const bool isGray = recipe.photometric == PHOTOMETRIC_MINISBLACK || recipe.photometric == PHOTOMETRIC_MINISWHITE;
  return isGray ? Model::kGray : Model::kRgb;
}

int LargestDifference(const std::vector<int>& a, const std::vector<int>& b) {
  if (a.size() != b.size()) return 256;
  int largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i) largest = std::max(largest, std::abs(a[i] - b[i]));
  return largest;
}

void ExpectScene(const Picture& picture, const TiffRecipe& recipe, int tolerance = 0) {
  EXPECT_EQ(picture.model, ExpectedModel(recipe)) << recipe;
  EXPECT_FALSE(picture.isPremultiplied) << recipe;
  ASSERT_EQ(picture.storedSize, (Size{kTiffWidth, kTiffHeight})) << recipe;
  for (int y = 0; y < kTiffHeight; ++y) {
    for (int x = 0; x < kTiffWidth; ++x) {
      const std::vector<int> pixel = PixelAt(picture, x, y);
      if (LargestDifference(pixel, ExpectedPixel(recipe, x, y)) <= tolerance) continue;
      ASSERT_EQ(pixel, ExpectedPixel(recipe, x, y)) << recipe << " at " << x << ", " << y;
    }
  }
}

TiffRecipe Kind(int photometric, int bits, int samples, int extra = -1) {
  TiffRecipe recipe;
  recipe.photometric = static_cast<std::uint16_t>(photometric);
  recipe.bits = static_cast<std::uint16_t>(bits);
  recipe.samples = static_cast<std::uint16_t>(samples);
  recipe.extra = extra;
  return recipe;
}

// Every kind of pixels that is exact.
std::vector<TiffRecipe> AllTiffKinds() {
  std::vector<TiffRecipe> recipes;
  for (const int bits : {1, 2, 4, 8, 16}) {
    recipes.push_back(Kind(PHOTOMETRIC_MINISBLACK, bits, 1));
    recipes.push_back(Kind(PHOTOMETRIC_MINISWHITE, bits, 1));
  }
  for (const int bits : {1, 2, 4, 8}) recipes.push_back(Kind(PHOTOMETRIC_PALETTE, bits, 1));
  for (const int bits : {8, 16}) {
    recipes.push_back(Kind(PHOTOMETRIC_RGB, bits, 3));
    recipes.push_back(Kind(PHOTOMETRIC_RGB, bits, 4, EXTRASAMPLE_UNASSALPHA));
    recipes.push_back(Kind(PHOTOMETRIC_RGB, bits, 4, EXTRASAMPLE_ASSOCALPHA));
    recipes.push_back(Kind(PHOTOMETRIC_RGB, bits, 4, EXTRASAMPLE_UNSPECIFIED));
    recipes.push_back(Kind(PHOTOMETRIC_MINISBLACK, bits, 2, EXTRASAMPLE_UNASSALPHA));
    recipes.push_back(Kind(PHOTOMETRIC_MINISWHITE, bits, 2, EXTRASAMPLE_UNASSALPHA));
    recipes.push_back(Kind(PHOTOMETRIC_SEPARATED, bits, 4));
    recipes.push_back(Kind(PHOTOMETRIC_SEPARATED, bits, 5, EXTRASAMPLE_UNASSALPHA));
  }
  return recipes;
}

TEST(TiffDecoder, DecodesEveryKindOfPixels) {
  for (const TiffRecipe& recipe : AllTiffKinds()) ExpectScene(Decode(OpenTiff, WriteTiff(recipe)), recipe);
}

TEST(TiffDecoder, DecodesTiles) {
  for (TiffRecipe recipe : AllTiffKinds()) {
    recipe.tileSide = 16;
    ExpectScene(Decode(OpenTiff, WriteTiff(recipe)), recipe);
  }
}

TEST(TiffDecoder, DecodesEveryLosslessCompression) {
  for (const int compression : {COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_PACKBITS, COMPRESSION_ZSTD}) {
    for (TiffRecipe recipe : AllTiffKinds()) {
      recipe.compression = static_cast<std::uint16_t>(compression);
      recipe.rowsPerStrip = 1000;
      ExpectScene(Decode(OpenTiff, WriteTiff(recipe)), recipe);
    }
  }
  TiffRecipe fax = Kind(PHOTOMETRIC_MINISWHITE, 1, 1);
  fax.compression = COMPRESSION_CCITTFAX4;
  ExpectScene(Decode(OpenTiff, WriteTiff(fax)), fax);
}

TEST(TiffDecoder, DecodesEitherByteOrderAndBigTiff) {
  for (const char* mode : {"wl", "wb", "w8"}) {
    const TiffRecipe recipe = Kind(PHOTOMETRIC_RGB, 16, 3);
    ExpectScene(Decode(OpenTiff, WriteTiff(recipe, mode)), recipe);
  }
}

TEST(TiffDecoder, DecodesOnePlaneAfterTheOther) {
  for (const int bits : {8, 16}) {
    TiffRecipe recipe = Kind(PHOTOMETRIC_RGB, bits, 3);
    recipe.isPlanar = true;
    ExpectScene(Decode(OpenTiff, WriteTiff(recipe)), recipe, bits == 16 ? 1 : 0);
  }
}

TEST(TiffDecoder, ReturnsPixelsAsStored) {
  for (std::uint16_t orientation = ORIENTATION_TOPLEFT; orientation <= ORIENTATION_LEFTBOT; ++orientation) {
    for (TiffRecipe recipe : {Kind(PHOTOMETRIC_RGB, 8, 3), Kind(PHOTOMETRIC_PALETTE, 8, 1)}) {
      recipe.orientation = orientation;
      ExpectScene(Decode(OpenTiff, WriteTiff(recipe)), recipe);
      recipe.tileSide = 16;
      ExpectScene(Decode(OpenTiff, WriteTiff(recipe)), recipe);
    }
  }
}

TEST(TiffDecoder, ReadsTheProfileOfPixelsThatItDescribes) {
  for (const auto& [photometric, samples, hasProfile] :
       {std::array<int, 3>{PHOTOMETRIC_RGB, 3, 1}, std::array<int, 3>{PHOTOMETRIC_SEPARATED, 4, 1},
        std::array<int, 3>{PHOTOMETRIC_MINISBLACK, 1, 1}, std::array<int, 3>{PHOTOMETRIC_PALETTE, 1, 1},
        std::array<int, 3>{PHOTOMETRIC_CIELAB, 3, 0}}) {
    TiffRecipe recipe = Kind(photometric, 8, samples);
    recipe.profile = File(400, 9);
    EXPECT_EQ(Decode(OpenTiff, WriteTiff(recipe)).profile, hasProfile != 0 ? recipe.profile : File()) << recipe;
  }
}

TEST(TiffDecoder, IgnoresAProfileThatIsTooLarge) {
  TiffRecipe recipe;
  recipe.profile = File((std::size_t{4} << 20) + 1);
  EXPECT_EQ(Decode(OpenTiff, WriteTiff(recipe)).profile, File());
}

TEST(TiffDecoder, DecodesJpegInside) {
  const test::TempDir folder;
  test::MakeTiff(folder / "plain.tif", 160, 120);
  for (const char* space : {"RGB", "YCbCr", "Gray"}) {
    const std::string path = folder / "jpeg.tif";
    test::RunTool({"/usr/bin/convert", folder / "plain.tif", "-alpha", "off", "-colorspace", space, "-compress", "JPEG",
                   "-quality", "95", path});
    const Picture picture = Decode(OpenTiff, test::ReadSample(path));
    EXPECT_EQ(test::SizeOf(picture), (Size{160, 120})) << space;
    EXPECT_LE(test::LargestDifference(test::RgbaOf(picture), test::ReferenceRgba(path, {"-colorspace", "sRGB"})), 3)
        << space;
  }
}

TEST(TiffDecoder, ShowsTheFirstPage) {
  const test::TempDir folder;
  test::RunTool({"/usr/bin/convert", "-size", "10x10", "xc:#ff8000", "-size", "20x20", "xc:blue", folder / "two.tif"});
  const File file = test::ReadSample(folder / "two.tif");
  const Input input(test::BytesOf(file));
  const std::unique_ptr<Decoder> decoder = OpenTiff(input);
  EXPECT_EQ(decoder->Head().stored, (Size{10, 10}));
  EXPECT_FALSE(decoder->IsAnimated());
  EXPECT_EQ(PixelAt(decoder->Decode({1, 1}), 9, 9), (std::vector<int>{255, 128, 0}));
}

TEST(TiffDecoder, ShowsWhatThereIsOfADamagedPicture) {
  TiffRecipe recipe;
  recipe.compression = COMPRESSION_LZW;
  File file = WriteTiff(recipe);
  // The strips come first: those after the first are damaged.
  std::fill(file.begin() + 800, file.begin() + 1500, std::uint8_t{0xff});
  const Picture picture = Decode(OpenTiff, file);
  EXPECT_EQ(PixelAt(picture, 5, 2), ExpectedPixel(recipe, 5, 2));
  EXPECT_NE(PixelAt(picture, 5, 12), ExpectedPixel(recipe, 5, 12));
}

TEST(TiffDecoder, SurvivesFilesThatAreCutOffOrDamaged) {
  std::vector<TiffRecipe> recipes = {Kind(PHOTOMETRIC_RGB, 8, 3), Kind(PHOTOMETRIC_PALETTE, 4, 1),
                                     Kind(PHOTOMETRIC_RGB, 16, 4, EXTRASAMPLE_ASSOCALPHA)};
  recipes.push_back(recipes[0]);
  recipes.back().tileSide = 16;
  recipes.push_back(recipes[0]);
  recipes.back().compression = COMPRESSION_LZW;
  recipes.push_back(recipes[0]);
  recipes.back().compression = COMPRESSION_ADOBE_DEFLATE;
  for (const TiffRecipe& recipe : recipes) {
    const File file = WriteTiff(recipe);
    test::DecodeCutOff(OpenTiff, file, 17);
    // The directory is at the end.
    for (std::size_t i = file.size() > 400 ? file.size() - 400 : 0; i < file.size(); ++i) {
      for (const int value : {0, 1, 0x7f, 0xff}) {
        File damaged = file;
        damaged[i] = static_cast<std::uint8_t>(value);
        WhyDeclined(OpenTiff, damaged);
      }
    }
  }
}

void PutBytes(std::uint32_t number, int bytes, File* file) {
  for (int i = 0; i < bytes; ++i) file->push_back(static_cast<std::uint8_t>(number >> (8 * i)));
}

struct SingleField {
  std::uint32_t tag;
  std::uint32_t value;
};

// A little-endian file with nothing but a directory of single numbers, which says that it comes again.
File DirectoryOf(const std::vector<SingleField>& fields) {
  File file = {'I', 'I', 42, 0, 8, 0, 0, 0};
  PutBytes(static_cast<std::uint32_t>(fields.size()), 2, &file);
  for (const SingleField& field : fields) {
    PutBytes(field.tag, 2, &file);
    PutBytes(4, 2, &file);
    PutBytes(1, 4, &file);
    PutBytes(field.value, 4, &file);
  }
  PutBytes(8, 4, &file);
  return file;
}

std::vector<SingleField> Fields(std::uint32_t width, std::uint32_t height, std::uint32_t rowsPerStrip) {
  return {{TIFFTAG_IMAGEWIDTH, width},
          {TIFFTAG_IMAGELENGTH, height},
          {TIFFTAG_BITSPERSAMPLE, 8},
          {TIFFTAG_COMPRESSION, COMPRESSION_NONE},
          {TIFFTAG_PHOTOMETRIC, 1},
          {TIFFTAG_STRIPOFFSETS, 8},
          {TIFFTAG_ROWSPERSTRIP, rowsPerStrip},
          {TIFFTAG_STRIPBYTECOUNTS, 100}};
}

std::vector<SingleField> TileFields(std::uint32_t tileSide) {
  return {{TIFFTAG_IMAGEWIDTH, 10},       {TIFFTAG_IMAGELENGTH, 10}, {TIFFTAG_BITSPERSAMPLE, 8},
          {TIFFTAG_COMPRESSION, 1},       {TIFFTAG_PHOTOMETRIC, 1},  {TIFFTAG_TILEWIDTH, tileSide},
          {TIFFTAG_TILELENGTH, tileSide}, {TIFFTAG_TILEOFFSETS, 8},  {TIFFTAG_TILEBYTECOUNTS, 100}};
}

// In the order of the tags.
std::vector<SingleField> WithSamples(std::vector<SingleField> fields, std::uint32_t samples) {
  fields.insert(fields.begin() + 6, {TIFFTAG_SAMPLESPERPIXEL, samples});
  return fields;
}

TEST(TiffDecoder, DeclinesHeadersThatAreWrongOrHostile) {
  // With 32 bits, libtiff itself refuses what is too large for a size.
  constexpr Reason huge = sizeof(std::size_t) == 4 ? Reason::kDamaged : Reason::kTooLarge;
  const struct {
    const char* what;
    File file;
    Reason reason;
  } rows[] = {
      {"empty", {}, Reason::kDamaged},
      {"text", File(100, 'x'), Reason::kDamaged},
      {"no directory", {'I', 'I', 42, 0, 200, 0, 0, 0}, Reason::kDamaged},
      {"65535 x 65535", DirectoryOf(Fields(65535, 65535, 65535)), Reason::kTooLarge},
      {"4294967295 x 1", DirectoryOf(Fields(0xffffffff, 1, 1)), huge},
      {"one row per strip, without end", DirectoryOf(Fields(1, 0xfffffff0, 1)), Reason::kDamaged},
      {"no width", DirectoryOf(Fields(0, 10, 10)), Reason::kDamaged},
      {"no rows in a strip", DirectoryOf(Fields(10, 10, 0)), Reason::kDamaged},
      {"many samples of each pixel", DirectoryOf(WithSamples(Fields(10000, 10000, 10000), 65535)), Reason::kTooLarge},
      {"huge tile", DirectoryOf(TileFields(20000)), Reason::kTooLarge},
      {"tile of 3.6 GB", DirectoryOf(TileFields(60000)), huge},
      {"tile of 16 exabytes", DirectoryOf(TileFields(0xfffffff0)), Reason::kDamaged},
      {"tile without pixels", DirectoryOf(TileFields(0)), Reason::kDamaged}};
  for (const auto& row : rows) EXPECT_EQ(WhyDeclined(OpenTiff, row.file), row.reason) << row.what;
}

TEST(TiffDecoder, DecodesADirectoryThatPointsToItself) {
  EXPECT_EQ(test::SizeOf(Decode(OpenTiff, DirectoryOf(Fields(5, 5, 5)))), (Size{5, 5}));
}

TEST(TiffDecoder, DecodesSampleFilesLikeImageMagick) {
  if (test::SamplesFolder().empty()) GTEST_SKIP() << "no samples";
  for (const char* name : {"samples/still/sample.tif", "samples-more/still/1bit.tif", "samples-more/still/4bit.tif",
                           "samples-more/still/many-pages.tif"}) {
    const std::string path = test::SamplesFolder() + "/../" + name;
    if (!test::Exists(path)) continue;
    const Picture picture = Decode(OpenTiff, test::ReadSample(path));
    EXPECT_LE(test::LargestDifference(test::RgbaOf(picture), test::ReferenceRgba(path)), 2) << name;
  }
}

TEST(TiffDecoder, SurvivesOldJpegInTiles) {
  if (test::SamplesFolder().empty()) GTEST_SKIP() << "no samples";
  WhyDeclined(OpenTiff, test::ReadSample(test::SamplesFolder() + "/../samples-more/broken/ojpeg-tile.tif"));
}

}  // namespace
}  // namespace tavithumb::maker
