// SPDX-License-Identifier: GPL-3.0-or-later
// Files of more than 4 GiB, nearly all of it holes. Their sizes and offsets don't fit in 32 bits; cut down to them,
// each would be one of an ordinary small file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "decoding.h"
#include "maker/limits.h"
#include "pictures.h"
#include "temp_dir.h"

namespace tavithumb::maker {
namespace {

constexpr std::uint64_t k4GiB = std::uint64_t{1} << 32;

// Bytes at a place in a file.
struct Piece {
  std::uint64_t offset;
  std::string bytes;
};

class LargeFiles : public testing::Test {
 protected:
  // Skips the test where there can be no such file.
  void Write(std::uint64_t size, const std::vector<Piece>& pieces) {
    const int file = open64(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ASSERT_NE(file, -1);
    const bool isLarge = ftruncate64(file, static_cast<off64_t>(size)) == 0;
    for (const Piece& piece : pieces) {
      const ssize_t done = pwrite64(file, piece.bytes.data(), piece.bytes.size(), static_cast<off64_t>(piece.offset));
      EXPECT_EQ(done, static_cast<ssize_t>(piece.bytes.size()));
    }
    close(file);
    if (!isLarge) GTEST_SKIP() << "needs sparse files of more than 4 GiB";
  }

  test::File Pixels() const {
    const Input input(path_);
    return test::RgbaOf(OpenDecoder(input)->Decode({1, 1}));
  }

  // Of a small file.
  std::string Content(const std::string& name) const { return test::ReadFile(folder_ / name); }
  test::File PixelsOf(const std::string& content) const {
    const Input input(Bytes{reinterpret_cast<const std::uint8_t*>(content.data()), content.size()});
    return test::RgbaOf(OpenDecoder(input)->Decode({1, 1}));
  }

  const test::TempDir folder_;
  const std::string path_ = folder_ / "large";
};

std::string Number(std::uint32_t number, bool isBigEndian) {
  std::string bytes;
  for (const int i : {0, 1, 2, 3}) {
    bytes.push_back(static_cast<char>(number >> (8 * (isBigEndian ? 3 - i : i)) & 0xFF));
  }
  return bytes;
}

// Those whose decoders take the whole file into memory.
TEST_F(LargeFiles, AreDeclinedIfTheyWouldBeReadAsAWhole) {
  test::MakePng(folder_ / "small.png", 60, 40);
  test::MakeGif(folder_ / "small.gif", 60, 40, 1);
  test::RunTool({"/usr/bin/convert", folder_ / "small.png", folder_ / "small.webp"});
  test::RunTool({"/usr/bin/convert", folder_ / "small.png", "-type", "Palette", "-compress", "RLE",
                 "bmp3:" + (folder_ / "small.bmp")});
  for (const char* name : {"small.png", "small.gif", "small.webp", "small.bmp"}) {
    const std::string content = Content(name);
    ASSERT_NO_FATAL_FAILURE(Write(k4GiB + content.size(), {{0, content}}));
    if (IsSkipped()) return;
    try {
      Pixels();
      ADD_FAILURE() << "decoded: " << name;
    } catch (const Declined& declined) {
      EXPECT_EQ(declined.Why(), Reason::kTooLarge) << name << ": " << declined.what();
      EXPECT_EQ(std::string(declined.what()).rfind("the file ", 0), 0U) << name << ": " << declined.what();
    }
  }
}

TEST_F(LargeFiles, AreDecodedIfTheirDecodersReadOnlyWhatTheyNeed) {
  test::MakeJpeg(folder_ / "small.jpg", 60, 40);
  test::MakeBmp(folder_ / "small.bmp", 60, 40);
  test::MakeTiff(folder_ / "small.tif", 60, 40);
  for (const char* name : {"small.jpg", "small.bmp", "small.tif"}) {
    const std::string content = Content(name);
    ASSERT_NO_FATAL_FAILURE(Write(k4GiB + content.size() / 2, {{0, content}}));
    if (IsSkipped()) return;
    EXPECT_EQ(Pixels(), PixelsOf(content)) << name;
  }
}

TEST_F(LargeFiles, OfPngMayHaveAChunkOfNearly4GiBBeforeTheirData) {
  test::MakePng(folder_ / "small.png", 60, 40);
  const std::string content = Content("small.png");
  constexpr std::size_t header = 33;
  constexpr std::uint32_t length = 0xFFFFFFF0;
  const std::uint64_t rest = header + 8 + std::uint64_t{length} + 4;
  ASSERT_NO_FATAL_FAILURE(
      Write(rest + content.size() - header,
            {{0, content.substr(0, header)}, {header, Number(length, true) + "miSc"}, {rest, content.substr(header)}}));
  if (IsSkipped()) return;
  EXPECT_EQ(Pixels(), PixelsOf(content));
}

TEST_F(LargeFiles, OfBmpMayHaveTheirPixelsOnBothSidesOf4GiB) {
  test::MakeBmp(folder_ / "small.bmp", 60, 40);
  const std::string content = Content("small.bmp");
  constexpr std::size_t header = 54;
  constexpr std::uint32_t start = 0xFFFFFF00;
  std::string changed = content.substr(0, header);
  changed.replace(10, 4, Number(start, false));
  const std::string pixels = content.substr(header);
  ASSERT_NO_FATAL_FAILURE(Write(start + pixels.size(), {{0, changed}, {start, pixels}}));
  if (IsSkipped()) return;
  EXPECT_EQ(Pixels(), PixelsOf(content));
}

// A directory with single numbers, then pixels at 3 GiB.
TEST_F(LargeFiles, OfTiffMayHaveTheirPixelsBehind2GiB) {
  constexpr std::uint32_t start = 0xC0000000;
  const std::uint32_t fields[][2] = {{256, 10}, {257, 10},    {258, 8},  {259, 1},
                                     {262, 1},  {273, start}, {278, 10}, {279, 100}};
  std::string directory = "II*" + std::string(1, '\0') + Number(8, false) + std::string("\x08\0", 2);
  for (const auto& [tag, value] : fields) {
    directory += Number(tag | 4U << 16, false) + Number(1, false) + Number(value, false);
  }
  std::string pixels;
  for (int i = 0; i < 100; ++i) pixels.push_back(static_cast<char>(2 * i));
  ASSERT_NO_FATAL_FAILURE(Write(start + pixels.size(), {{0, directory + Number(0, false)}, {start, pixels}}));
  if (IsSkipped()) return;
  const Input input(path_);
  const Picture picture = OpenDecoder(input)->Decode({1, 1});
  EXPECT_EQ(test::PixelAt(picture, 0, 0), std::vector<int>{0});
  EXPECT_EQ(test::PixelAt(picture, 9, 9), std::vector<int>{198});
}

}  // namespace
}  // namespace tavithumb::maker
