// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "decoding.h"
#include "maker/declined.h"
#include "maker/decode/decoders.h"
#include "modern_pictures.h"
#include "pictures.h"
#include "scene.h"
#include "temp_dir.h"

namespace tavithumb::maker {
namespace {

// An open file.
struct RawFile {
  explicit RawFile(const std::string& path) : input(path), decoder(OpenRaw(input)) {}
  Input input;
  std::unique_ptr<Decoder> decoder;
};

class Raw : public testing::Test {
 protected:
  std::string Jpeg(int width, int height) const {
    test::MakeJpeg(directory_ / "scene.jpg", width, height);
    return directory_ / "scene.jpg";
  }

  const test::TempDir directory_;
};

std::string LittleEndian(std::uint32_t number, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i) bytes.push_back(static_cast<char>(number >> (8 * i) & 0xFF));
  return bytes;
}

std::string FieldBytes(std::uint32_t tag, std::uint32_t type, std::uint32_t count, std::uint32_t value) {
  return LittleEndian(tag, 2) + LittleEndian(type, 2) + LittleEndian(count, 4) + LittleEndian(value, 4);
}

// A DNG without a preview, 200 x 120: its left half is red, its right half is green.
std::string MakeDng(std::uint32_t orientation) {
  constexpr std::uint32_t kFields = 15;
  constexpr std::uint32_t kMatrix = 8 + 2 + 12 * kFields + 4;
  constexpr std::uint32_t kSamples = kMatrix + 72;
  std::string file = std::string("II*\0\x08\0\0\0", 8) + LittleEndian(kFields, 2) + FieldBytes(254, 4, 1, 0) +
                     FieldBytes(256, 4, 1, 200) + FieldBytes(257, 4, 1, 120) + FieldBytes(258, 3, 1, 16) +
                     FieldBytes(259, 3, 1, 1) + FieldBytes(262, 3, 1, 32803) + FieldBytes(273, 4, 1, kSamples) +
                     FieldBytes(274, 3, 1, orientation) + FieldBytes(277, 3, 1, 1) + FieldBytes(278, 4, 1, 120) +
                     FieldBytes(279, 4, 1, 200 * 120 * 2) + FieldBytes(33421, 3, 2, 0x00020002) +
                     FieldBytes(33422, 1, 4, 0x02010100) + FieldBytes(50706, 1, 4, 0x00000401) +
                     FieldBytes(50721, 10, 9, kMatrix) + LittleEndian(0, 4);
  for (int i = 0; i < 9; ++i) file += LittleEndian(i % 4 == 0 ? 1 : 0, 4) + LittleEndian(1, 4);
  for (int y = 0; y < 120; ++y) {
    for (int x = 0; x < 200; ++x) {
      const bool isRed = y % 2 == 0 && x % 2 == 0;
      const bool isGreen = (y + x) % 2 != 0;
      const bool isBright = x < 100 ? isRed : isGreen;
      file += LittleEndian(isBright ? 40000 : 2000, 2);
    }
  }
  return file;
}

TEST_F(Raw, WithoutAPreviewIsDeveloped) {
  test::WriteFile(directory_ / "raw.dng", MakeDng(6));
  const RawFile file(directory_ / "raw.dng");
  EXPECT_EQ(file.decoder->Head().stored, (Size{200, 120}));
  EXPECT_FALSE(file.decoder->Head().isUpright);
  ASSERT_TRUE(file.decoder->Head().orientation);
  EXPECT_EQ(file.decoder->Head().orientation->quarterTurns, 1);
  const Picture picture = file.decoder->Decode(test::kWhole);
  EXPECT_EQ(picture.channels[0].plane.Dimensions(), (Size{200, 120}));
  const Colour left = ColourAt(picture, {0.25, 0.5});
  const Colour right = ColourAt(picture, {0.75, 0.5});
  EXPECT_GT(left.red, left.green + 50);
  EXPECT_GT(right.green, right.red + 50);
}

TEST_F(Raw, IsDevelopedAtHalfTheSizeWhereThatSuffices) {
  test::WriteFile(directory_ / "raw.dng", MakeDng(1));
  const Picture picture = RawFile(directory_ / "raw.dng").decoder->Decode({100, 60});
  EXPECT_EQ(picture.channels[0].plane.Dimensions(), (Size{100, 60}));
  EXPECT_EQ(picture.storedSize, (Size{200, 120}));
}

TEST_F(Raw, IsItsPreview) {
  test::MakeRaf(directory_ / "raw.raf", Jpeg(480, 360));
  const RawFile file(directory_ / "raw.raf");
  EXPECT_EQ(file.decoder->Head().stored, (Size{480, 360}));
  EXPECT_FALSE(file.decoder->Head().isUpright);
  EXPECT_FALSE(file.decoder->Head().orientation);
  const Picture picture = file.decoder->Decode(test::kWhole);
  EXPECT_EQ(picture.channels[0].plane.Dimensions(), (Size{480, 360}));
  EXPECT_EQ(WrongSpots(picture, 24), "");
}

TEST_F(Raw, IsReducedWhileItsPreviewIsDecoded) {
  test::MakeRaf(directory_ / "raw.raf", Jpeg(480, 360));
  const RawFile file(directory_ / "raw.raf");
  EXPECT_EQ(file.decoder->Decode({120, 90}).channels[0].plane.Dimensions(), (Size{120, 90}));
}

TEST_F(Raw, CutOffIsDeclinedOrShown) {
  test::MakeRaf(directory_ / "raw.raf", Jpeg(120, 90));
  const std::string whole = test::ReadFile(directory_ / "raw.raf");
  for (std::size_t size = 0; size < whole.size(); size += 1 + size / 20) {
    const Input input(Bytes{reinterpret_cast<const std::uint8_t*>(whole.data()), size});
    try {
      EXPECT_FALSE(OpenRaw(input)->Decode(test::kWhole).channels.empty()) << size;
    } catch (const Declined& declined) {
      EXPECT_STRNE(declined.what(), "") << size;
    }
  }
}

TEST_F(Raw, OfCr3IsTheSmallestPreviewThatSuffices) {
  const std::string small = test::ReadFile(Jpeg(160, 120));  // of another aspect, as cameras write it
  const std::string medium = test::ReadFile(Jpeg(300, 200));
  const std::string full = test::ReadFile(Jpeg(600, 400));
  test::WriteFile(directory_ / "raw.cr3", test::Cr3Of({small, medium, full, 1}));
  const RawFile file(directory_ / "raw.cr3");
  EXPECT_EQ(file.decoder->Head().stored, (Size{600, 400}));
  struct {
    Size atLeast;
    Size stored;
  } const rows[] = {
      {{150, 100}, {300, 200}}, {{300, 200}, {300, 200}}, {{301, 200}, {600, 400}}, {test::kWhole, {600, 400}}};
  for (const auto& row : rows) {
    const Picture picture = file.decoder->Decode(row.atLeast);
    EXPECT_EQ(picture.storedSize, row.stored) << row.atLeast.width;
    EXPECT_EQ(WrongSpots(picture, 24), "") << row.atLeast.width;
  }
}

TEST_F(Raw, OfCr3TellsItsOrientation) {
  struct {
    int quarterTurns;
    bool isMirrored;
  } const rows[] = {{0, false}, {0, true}, {2, false}, {2, true}, {3, true}, {1, false}, {1, true}, {3, false}};
  const std::string jpeg = test::ReadFile(Jpeg(300, 200));
  for (int orientation = 1; orientation <= 8; ++orientation) {
    const auto& row = rows[orientation - 1];
    test::WriteFile(directory_ / "raw.cr3", test::Cr3Of({jpeg, jpeg, jpeg, orientation}));
    const std::optional<Orientation> found = RawFile(directory_ / "raw.cr3").decoder->Head().orientation;
    ASSERT_TRUE(found) << orientation;
    EXPECT_EQ(found->quarterTurns, row.quarterTurns) << orientation;
    EXPECT_EQ(found->isMirrored, row.isMirrored) << orientation;
  }
  test::WriteFile(directory_ / "raw.cr3", test::Cr3Of({jpeg, jpeg, jpeg, 9}));
  EXPECT_FALSE(RawFile(directory_ / "raw.cr3").decoder->Head().orientation);
}

TEST_F(Raw, OfCr3CutOffIsWhatIsLeftOfItsPreviews) {
  const std::string medium = test::ReadFile(Jpeg(300, 200));
  const std::string full = test::ReadFile(Jpeg(600, 400));
  const std::string whole = test::Cr3Of({medium, medium, full, 1});
  for (std::size_t size = 0; size < whole.size(); size += 1 + size / 20) {
    const Input input(Bytes{reinterpret_cast<const std::uint8_t*>(whole.data()), size});
    if (size > whole.size() - full.size()) {
      EXPECT_EQ(OpenRaw(input)->Head().stored, (Size{300, 200})) << size;
      continue;
    }
    try {
      EXPECT_FALSE(OpenRaw(input)->Decode(test::kWhole).channels.empty()) << size;
    } catch (const Declined& declined) {
      EXPECT_STRNE(declined.what(), "") << size;
    }
  }
}

TEST_F(Raw, WithBoxesInBoxesWithoutEndIsDeclined) {
  std::string nested = test::Cr3Of({"", "", "", 1}).substr(0, 24);
  for (int i = 0; i < 100; ++i) nested += std::string("\0\0\x03\xE8moov", 8);
  const Input input(Bytes{reinterpret_cast<const std::uint8_t*>(nested.data()), nested.size()});
  EXPECT_NE(ReasonFor([&] { OpenRaw(input); }), Reason::kUnknownType);
}

TEST_F(Raw, SamplesAreTheirLargestPreviewOrDeclined) {
  const std::string samples = test::SamplesFolder();
  if (samples.empty()) GTEST_SKIP() << "no sample files";
  struct {
    const char* name;
    Size size;
  } const rows[] = {{"raw/fuji-1920-preview.raf", {1920, 1440}},
                    {"raw/FujiFilm.raf", {160, 120}},
                    {"../samples-more/modern/canon-r6.cr3", {1620, 1080}}};
  for (const auto& row : rows) {
    const std::string path = samples + "/" + row.name;
    if (!test::Exists(path)) continue;
    const RawFile file(path);
    EXPECT_EQ(file.decoder->Head().stored, row.size) << path;
    EXPECT_EQ(file.decoder->Decode(test::kWhole).channels[0].plane.Dimensions(), row.size) << path;
  }
  for (const char* name : {"raw/KyoceraRaw.raw", "raw/SigmaDP2.x3f", "raw/CanonRaw.cr2", "raw/CanonRaw.crw",
                           "broken/issue_1097_poc.crw", "broken/issue_843_poc.crw", "broken/issue_1791_new.raf",
                           "broken/issue_857_poc.raf", "broken/issue_839_poc.rw2", "broken/text.jpg"}) {
    const Input input(samples + "/" + name);
    EXPECT_NE(ReasonFor([&] { OpenRaw(input)->Decode(test::kWhole); }), Reason::kUnknownType) << name;
  }
}

}  // namespace
}  // namespace tavithumb::maker
