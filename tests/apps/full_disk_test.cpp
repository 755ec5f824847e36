// SPDX-License-Identifier: GPL-3.0-or-later
// A picture truncated by a full disk is distinguished from a complete one.
#include "thumbs/full_disk.h"

#include <gtest/gtest.h>
#include <pictures.h>
#include <temp_dir.h>

#include <filesystem>
#include <string>

namespace fs = std::filesystem;

namespace tavithumb::apps {
namespace {

struct Made {
  const char* name;
  void (*make)(const std::string& path, int width, int height);
  bool isTold;  // false: its tool reports a truncated file itself
};

void MakeGif(const std::string& path, int width, int height) {
  test::MakeGif(path, width, height, 2);
}

TEST(FullDisk, IsRecognisedByTheMissingEndOfAPicture) {
  const test::TempDir folder;
  const Made rows[] = {{"a.jpg", test::MakeJpeg, true},
                       {"a.png", test::MakePng, true},
                       {"a.gif", MakeGif, true},
                       {"a.bmp", test::MakeBmp, false}};
  for (const Made& row : rows) {
    const std::string path = folder / row.name;
    row.make(path, 60, 40);
    const std::uintmax_t whole = fs::file_size(path);
    EXPECT_FALSE(IsCutOff(path)) << row.name;
    for (const std::uintmax_t size : {whole - 1, whole / 2, std::uintmax_t{8}}) {
      fs::resize_file(path, size);
      EXPECT_EQ(IsCutOff(path), row.isTold) << row.name << " of " << size << " bytes";
    }
    fs::resize_file(path, 0);
    EXPECT_TRUE(IsCutOff(path)) << row.name << " of no bytes";
  }
}

TEST(FullDisk, IsNotBlamedForAMissingFile) {
  const test::TempDir folder;
  EXPECT_FALSE(IsCutOff(folder / "missing.jpg"));
}

}  // namespace
}  // namespace tavithumb::apps
