// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/summary.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tavithumb::apps::command {
namespace {

Result Made(const std::vector<std::string>& sizes, std::uint64_t bytes) {
  Result result;
  result.made = sizes;
  result.bytes = bytes;
  return result;
}

Result Failed(const std::vector<std::string>& reasons) {
  Result result;
  for (const std::string& reason : reasons) result.Fail("", {Problem::Kind::kDamaged, reason, "remedy"});
  return result;
}

class Summaries : public testing::Test {
 protected:
  // Four files with made or found thumbnails, or none, four that failed.
  void AddSome() {
    summary.Add(Made({"small", "big"}, 3000000000));
    summary.Add(Made({"small"}, 2000000000));
    Result animation = Made({}, 0);
    animation.byLibrary = "animation";
    summary.Add(animation);
    Result found;
    found.found = {"small", "medium", "big"};
    found.notNeeded = {"large", "xlarge"};
    summary.Add(found);
    summary.Add(Failed({"b rare"}));
    summary.Add(Failed({"c common", "c common"}));
    summary.Add(Failed({"c common", "a rare"}));
    Result partly = Made({"small"}, 1);
    partly.Fail("big", {Problem::Kind::kNoPlace, "c common", "remedy"});
    summary.Add(partly);
  }

  Clock::time_point time;
  Summary summary{[this] { return time; }};
};

TEST_F(Summaries, StartEmpty) {
  EXPECT_EQ(summary.Files(), 0u);
  EXPECT_EQ(summary.FilesWithMade(), 0u);
  EXPECT_FALSE(summary.HasFailures());
  EXPECT_EQ(summary.AsJson(false),
            R"({"summary":true,"files":0,"made":0,"found":0,"not_needed":0,"failed":0,"bytes":0,"seconds":0.0,)"
            R"("interrupted":false,"by_library":[],"reasons":[]})"
            "\n");
}

TEST_F(Summaries, CountFilesAndThumbnails) {
  AddSome();
  EXPECT_EQ(summary.Files(), 8u);
  EXPECT_EQ(summary.FilesWithMade(), 3u);
  EXPECT_TRUE(summary.HasFailures());
}

TEST_F(Summaries, AreATableThatEndsWithTheReasonsOfMostFiles) {
  AddSome();
  time += std::chrono::milliseconds(61250);
  EXPECT_EQ(summary.AsText(false),
            "files                  8  in 61.2 seconds\n"
            "made                   4  thumbnails, 5.0 GB\n"
            "already there          3  thumbnails\n"
            "not needed             2  thumbnails: the source is served unchanged\n"
            "failed                 4  files\n"
            "                       3  c common\n"
            "                       1  a rare\n"
            "                       1  b rare\n");
}

TEST_F(Summaries, OfADryRunSayWhatWouldBeMade) {
  summary.Add(Made({"small"}, 0));
  EXPECT_EQ(summary.AsText(true),
            "files                  1  in 0.0 seconds\n"
            "would be made          1  thumbnails\n"
            "already there          0  thumbnails\n"
            "not needed             0  thumbnails: the source is served unchanged\n"
            "failed                 0  files\n");
}

TEST_F(Summaries, AreOneLineOfJson) {
  AddSome();
  time += std::chrono::microseconds(1234567);
  EXPECT_EQ(summary.AsJson(true),
            R"({"summary":true,"files":8,"made":4,"found":3,"not_needed":2,"failed":4,"bytes":5000000001,)"
            R"("seconds":1.235,"interrupted":true,"by_library":[{"reason":"animation","files":1}],)"
            R"("reasons":[{"reason":"c common","files":3},)"
            R"({"reason":"a rare","files":1},{"reason":"b rare","files":1}]})"
            "\n");
}

}  // namespace
}  // namespace tavithumb::apps::command
