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
  void Add(const Result& result, const std::string& name = "a.jpg", double milliseconds = 1) {
    summary.Add(name, result, milliseconds);
  }

  // Four files with made or found thumbnails, or none, four that failed.
  void AddSome() {
    Add(Made({"small", "big"}, 3000000000), "/b.jpg", 1234);
    Add(Made({"small"}, 2000000000), "/a\n.jpg", 12345);
    Result animation = Made({}, 0);
    animation.byLibrary = "animation";
    Add(animation);
    Result found;
    found.found = {"small", "medium", "big"};
    found.notNeeded = {"large", "xlarge"};
    Add(found);
    Add(Failed({"b rare"}), "f1.jpg");
    Add(Failed({"c common", "c common"}), "f2.jpg");
    Add(Failed({"c common", "a rare"}), "f\n3.jpg");
    Result partly = Made({"small"}, 1);
    partly.Fail("big", {Problem::Kind::kNoPlace, "c common", "remedy"});
    Add(partly, "/f4.jpg", 500);
  }

  Clock::time_point time;
  Summary summary{[this] { return time; }};
};

TEST_F(Summaries, StartEmpty) {
  EXPECT_EQ(summary.Files(), 0u);
  EXPECT_EQ(summary.FilesWithMade(), 0u);
  EXPECT_FALSE(summary.HasFailures());
  EXPECT_EQ(
      summary.AsJson({}),
      R"({"summary":true,"files":0,"made":0,"found":0,"not_needed":0,"failed":0,"failed_before":0,"bytes":0,"seconds":0.0,)"
      R"("expected_seconds":null,"interrupted":false,"by_library":[],"reasons":[],"passed_over":[],"slowest":[]})"
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
  RunFacts run;
  run.passedOver = {{"txt", 3}, {"", 1}, {"pdf", 12}, {"a", 2}, {"b", 2}, {"c", 1}, {"excluded", 4}};
  EXPECT_EQ(summary.AsText(run),
            "files                  8  in 61.2 seconds\n"
            "made                   4  thumbnails, 5.0 GB\n"
            "already there          3  thumbnails\n"
            "not needed             2  thumbnails: the source is served unchanged\n"
            "passed over           25  files: 12 pdf, 4 excluded, 3 txt, 2 a, 2 b, 2 others\n"
            "failed                 4  files\n"
            "                       3  c common: f2.jpg, f\\n3.jpg, /f4.jpg\n"
            "                       1  a rare: f\\n3.jpg\n"
            "                       1  b rare: f1.jpg\n"
            "slowest           12.3 s  /a\\n.jpg\n"
            "                   1.2 s  /b.jpg\n"
            "                   0.5 s  /f4.jpg\n");
}

TEST_F(Summaries, NameTheFirstFilesThatFailedAndTheThreeSlowest) {
  for (int i = 1; i <= 100; ++i) {
    Add(Failed({"it is damaged"}), std::to_string(i) + ".jpg");
    Add(Made({"small"}, 1), std::to_string(i) + ".png", i % 50);
  }
  const std::string text = summary.AsText({});
  EXPECT_NE(text.find("     100  it is damaged: 1.jpg, 2.jpg, 3.jpg and 97 more\n"), std::string::npos) << text;
  EXPECT_EQ(text.substr(text.find("slowest")),
            "slowest            0.0 s  49.png\n"
            "                   0.0 s  99.png\n"
            "                   0.0 s  48.png\n");
}

// A file of no bytes is expected to take 4 milliseconds; the only sample has shown that this machine takes 1500.
TEST_F(Summaries, OfADryRunEstimateTheTimeOfThisMachineAndTheDisk) {
  Result sampled = Made({"small"}, 1400000);
  sampled.sampleMilliseconds = 1500;
  Add(sampled);
  Add(Made({"small", "big"}, 600000));
  RunFacts run = {1, true, false, {}};
  EXPECT_EQ(summary.AsText(run),
            "files                  2  in 0.0 seconds\n"
            "would be made          3  thumbnails, about 2.0 MB, in about 3 s\n"
            "already there          0  thumbnails\n"
            "not needed             0  thumbnails: the source is served unchanged\n"
            "failed                 0  files\n");
  run.jobs = 2;
  EXPECT_NE(summary.AsJson(run).find(R"("bytes":2000000,"seconds":0.0,"expected_seconds":1.5,)"), std::string::npos);
}

TEST_F(Summaries, AreOneLineOfJson) {
  AddSome();
  time += std::chrono::microseconds(1234567);
  EXPECT_EQ(
      summary.AsJson({1, false, true, {{"txt", 3}, {"pdf", 12}}}),
      R"({"summary":true,"files":8,"made":4,"found":3,"not_needed":2,"failed":4,"failed_before":0,"bytes":5000000001,)"
      R"("seconds":1.235,"expected_seconds":null,"interrupted":true,"by_library":[{"reason":"animation","files":1}],)"
      R"("reasons":[{"reason":"c common","files":3},)"
      R"({"reason":"a rare","files":1},{"reason":"b rare","files":1}],)"
      R"("passed_over":[{"kind":"pdf","files":12},{"kind":"txt","files":3}],)"
      R"("slowest":[{"source":"/a\n.jpg","milliseconds":12345.0},{"source":"/b.jpg","milliseconds":1234.0},)"
      R"({"source":"/f4.jpg","milliseconds":500.0}]})"
      "\n");
}

}  // namespace
}  // namespace tavithumb::apps::command
