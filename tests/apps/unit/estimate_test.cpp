// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/estimate.h"

#include <gtest/gtest.h>
#include <temp_dir.h>

namespace tavithumb::apps::command {
namespace {

TEST(Estimates, GrowWithTheBytesOfAPhotoByItsKind) {
  const std::pair<const char*, double> rows[] = {
      {"a.jpg", 85},   {"A.JPEG", 85}, {"a.heic", 1690}, {"a.avif", 1690}, {"a.jxl", 994},
      {"a.gif", 1502}, {"a.png", 182}, {"a.webp", 183},  {"a.tif", 62},    {"a.nef", 46},
      {"a.cr3", 46},   {"a.mp4", 250}, {"a.mkv", 250},
  };
  for (const auto& [name, milliseconds] : rows) {
    EXPECT_DOUBLE_EQ(ExpectedMilliseconds(name, 3000000), milliseconds) << name;
  }
}

TEST(Estimates, OfAFileAreBasedOnItsSize) {
  const test::TempDir folder;
  test::WriteFile(folder / "a.jpg", std::string(1000000, 'x'));
  EXPECT_DOUBLE_EQ(ExpectedMilliseconds(folder / "a.jpg"), 31);
  EXPECT_DOUBLE_EQ(ExpectedMilliseconds(folder / "missing.jpg"), 4);
}

}  // namespace
}  // namespace tavithumb::apps::command
