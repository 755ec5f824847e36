// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/result.h"

#include <gtest/gtest.h>

namespace tavithumb::apps::command {
namespace {

Result PartlyFailed() {
  Result result;
  result.made = {"small", "big"};
  result.found = {"medium"};
  result.notNeeded = {"large"};
  result.bytes = 9876543210;
  result.byLibrary = "animation";
  result.Fail("xlarge", {Problem::Kind::kNoPlace, "the disk is full", "make room on it"});
  return result;
}

TEST(Results, AreALineForPeople) {
  EXPECT_EQ(ResultLine("a.png", PartlyFailed(), false),
            "a.png: made small, big; found medium; not needed large; failed\n");
  EXPECT_EQ(ResultLine("a.png", PartlyFailed(), true),
            "a.png: would make small, big; found medium; not needed large; failed\n");
  EXPECT_EQ(ResultLine("a.png", {}, false), "a.png: nothing to make\n");
}

TEST(Results, AreOneLineOfJson) {
  EXPECT_EQ(JsonResult("/a\n.png", PartlyFailed(), 1.25),
            R"({"source":"/a\n.png","made":["small","big"],"found":["medium"],"not_needed":["large"],)"
            R"("failed":[{"size":"xlarge","error":"the disk is full"}],"bytes":9876543210,"milliseconds":1.25,)"
            R"("by_library":"animation","error":null})"
            "\n");
}

TEST(Results, OfFilesThatFailedHaveAnError) {
  Result failed;
  failed.Fail("", {Problem::Kind::kDamaged, "it is damaged", "get a fresh copy of it"});
  EXPECT_EQ(JsonResult("/\xff", failed, 0.0),
            "{\"source\":\"/\xef\xbf\xbd\",\"source_hex\":\"2fff\",\"made\":[],\"found\":[],\"not_needed\":[],"
            "\"failed\":[],\"bytes\":0,\"milliseconds\":0.0,\"by_library\":null,\"error\":\"it is damaged\"}\n");
}

}  // namespace
}  // namespace tavithumb::apps::command
