// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/report.h"

#include <gtest/gtest.h>

namespace tavithumb::apps::command {
namespace {

Report Sample() {
  Report report;
  report.result.made = {"small"};
  report.result.found = {"medium", "large"};
  report.result.notNeeded = {"xlarge"};
  report.result.bytes = 9876543210;
  report.result.Fail("200", {Problem::Kind::kNoPlace, "the disk is \"full\"", "make room on it"});
  report.result.byLibrary = "damaged";
  report.making = {"entry.jpg", {"first", "second"}, 1700000000};
  return report;
}

TEST(Reports, ArriveAsTheyWereSent) {
  const Report sent = Sample();
  const std::optional<Report> received = ParseReport(Serialise(sent));
  ASSERT_TRUE(received);
  EXPECT_EQ(received->result.made, sent.result.made);
  EXPECT_EQ(received->result.found, sent.result.found);
  EXPECT_EQ(received->result.notNeeded, sent.result.notNeeded);
  EXPECT_EQ(received->result.bytes, sent.result.bytes);
  EXPECT_EQ(received->result.byLibrary, "damaged");
  ASSERT_EQ(received->result.failures.size(), 1U);
  EXPECT_EQ(received->result.failures[0].size, "200");
  EXPECT_EQ(received->result.failures[0].reason, "the disk is \"full\"");
  EXPECT_EQ(received->result.failures[0].remedy, "make room on it");
  EXPECT_EQ(received->making.entry, sent.making.entry);
  EXPECT_EQ(received->making.temporaries, sent.making.temporaries);
  EXPECT_EQ(received->making.since, sent.making.since);
}

TEST(Reports, WithBytesThatAreNotUtf8CanBeSent) {
  Report report = Sample();
  report.making.entry = "\xff";
  const std::optional<Report> received = ParseReport(Serialise(report));
  ASSERT_TRUE(received);
  EXPECT_EQ(received->making.entry, "\xef\xbf\xbd");
}

TEST(Reports, ThatAreIncompleteAreNone) {
  const std::string whole = Serialise(Sample());
  for (const std::string key : {"result", "making", "made", "found", "notNeeded", "failures", "bytes", "size", "reason",
                                "remedy", "byLibrary", "entry", "temporaries", "since"}) {
    const std::size_t place = whole.find("\"" + key + "\":");
    ASSERT_NE(place, whole.npos) << key;
    EXPECT_FALSE(ParseReport(std::string(whole).insert(place + 1, "not-"))) << key;
  }
}

TEST(Reports, ThatAreMalformedAreNone) {
  const std::string whole = Serialise(Sample());
  const std::string noNumber =
      R"({"result":{"made":[],"found":[],"notNeeded":[],"failures":[],"bytes":"many","byLibrary":""},)"
      R"("making":{"entry":"","temporaries":[],"since":0}})";
  for (const std::string& message : {std::string(), std::string(1, '\0'), std::string("null"), std::string("[]"),
                                     std::string("{}"), noNumber, whole.substr(0, whole.size() - 1), whole + "x"}) {
    EXPECT_FALSE(ParseReport(message)) << message;
  }
}

}  // namespace
}  // namespace tavithumb::apps::command
