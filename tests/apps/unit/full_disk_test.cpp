// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/full_disk.h"

#include <gtest/gtest.h>
#include <temp_dir.h>

#include <string>
#include <utility>

namespace tavithumb::apps {
namespace {

TEST(CutOff, IsAPictureWithoutItsLastBytes) {
  const test::TempDir folder;
  const std::pair<std::string, bool> rows[] = {
      {"", true},
      {"other", false},
      {"\xFF\xD8 jpeg \xFF\xD9", false},
      {"\xFF\xD8 jpeg \xFF", true},
      {"\xFF\xD8", true},
      {"\x89PNG png IEND\xAE\x42\x60\x82", false},
      {"\x89PNG png IEND\xAE\x42\x60", true},
      {"\x89PNG", true},
      {"GIF89a;", false},
      {"GIF89a", true},
  };
  for (const auto& [content, isCutOff] : rows) {
    test::WriteFile(folder / "picture", content);
    EXPECT_EQ(IsCutOff(folder / "picture"), isCutOff) << testing::PrintToString(content);
  }
}

TEST(CutOff, IsNothingThatCannotBeRead) {
  const test::TempDir folder;
  EXPECT_FALSE(IsCutOff(folder / "missing"));
  test::WriteFile(folder / "in/file", "");
  EXPECT_FALSE(IsCutOff(folder / "in"));
}

TEST(FullDisk, IsNoneWithRoomForAThumbnailAndNoneThatIsMissing) {
  const test::TempDir folder;
  EXPECT_FALSE(IsDiskFull(folder / "a.jpg"));
  EXPECT_FALSE(IsDiskFull("/missing/a.jpg"));
}

}  // namespace
}  // namespace tavithumb::apps
