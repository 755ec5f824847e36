// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/result.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tavithumb::apps::command {
namespace {

Result PartlyFailed() {
  Result result;
  result.made = {"small", "big"};
  result.found = {"medium"};
  result.notNeeded = {"large"};
  result.bytes = 9876543210;
  result.Fail("xlarge", {Problem::Kind::kNoPlace, "the disk is full", "make room on it"});
  return result;
}

TEST(Results, ComeFromWorkersAsTheyWereSent) {
  const Result sent = PartlyFailed();
  const Result received = nlohmann::json::parse(nlohmann::json(sent).dump()).get<Result>();
  EXPECT_EQ(received.made, sent.made);
  EXPECT_EQ(received.found, sent.found);
  EXPECT_EQ(received.notNeeded, sent.notNeeded);
  EXPECT_EQ(received.bytes, sent.bytes);
  ASSERT_EQ(received.failures.size(), 1u);
  EXPECT_EQ(received.failures.front().size, "xlarge");
  EXPECT_EQ(received.failures.front().reason, "the disk is full");
  EXPECT_EQ(received.failures.front().remedy, "make room on it");
}

TEST(Results, ThatAreIncompleteAreRefused) {
  nlohmann::json whole = PartlyFailed();
  for (const char* key : {"made", "found", "notNeeded", "failures", "bytes"}) {
    nlohmann::json incomplete = whole;
    incomplete.erase(key);
    EXPECT_THROW(static_cast<void>(incomplete.get<Result>()), nlohmann::json::exception) << key;
  }
}

TEST(Results, AreOneLineOfJson) {
  EXPECT_EQ(JsonResult("/a\n.png", PartlyFailed(), 1.25),
            R"({"source":"/a\n.png","made":["small","big"],"found":["medium"],"not_needed":["large"],)"
            R"("failed":[{"size":"xlarge","error":"the disk is full"}],"bytes":9876543210,"milliseconds":1.25,)"
            R"("error":null})"
            "\n");
}

TEST(Results, OfFilesThatFailedHaveAnError) {
  Result failed;
  failed.Fail("", {Problem::Kind::kDamaged, "it is damaged", "get a fresh copy of it"});
  EXPECT_EQ(JsonResult("/\xff", failed, 0.0),
            "{\"source\":\"/\xef\xbf\xbd\",\"source_hex\":\"2fff\",\"made\":[],\"found\":[],\"not_needed\":[],"
            "\"failed\":[],\"bytes\":0,\"milliseconds\":0.0,\"error\":\"it is damaged\"}\n");
}

}  // namespace
}  // namespace tavithumb::apps::command
