// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/work.h"

#include <gtest/gtest.h>
#include <pictures.h>
#include <temp_dir.h>

#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace tavithumb::apps::command {
namespace {

TEST(Work, ThatFailsLeavesNoTemporaryFile) {
  const test::TempDir folder;
  test::MakeBmp(folder / "a.bmp", 800, 600);
  fs::resize_file(folder / "a.bmp", 60);
  Order order;
  order.sizes = {"small"};
  order.byLibrary = true;
  int announced = 0;
  const Result result = WorkOn(folder / "a.bmp", order, [&](const Result&, const Making& making) {
    ++announced;
    test::WriteFile((folder / ".tavi_ea/a.bmp/") + making.temporaries.front() + "left by a tool", "half");
  });
  EXPECT_EQ(announced, 1);
  EXPECT_EQ(result.made, std::vector<std::string>{});
  EXPECT_EQ(result.failures.size(), 1u);
  EXPECT_EQ(test::Names(folder / ".tavi_ea/a.bmp"), std::vector<std::string>{});
}

}  // namespace
}  // namespace tavithumb::apps::command
