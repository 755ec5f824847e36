// SPDX-License-Identifier: GPL-3.0-or-later
// Which files `tavithumb make` tries again after they have failed.
#include <pictures.h>

#include "batch.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Strings = std::vector<std::string>;

class FilesThatFailed : public Batch {
 protected:
  Outcome Make(const Strings& options = {}, const Start& start = {}) const {
    Strings arguments = {"make", "--eager", "--sizes", "small", folder.Path()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    Outcome outcome = run(arguments, start);
    outcome.out = WithoutTime(outcome.out);
    return outcome;
  }

  std::string Broken() const {
    WriteFile(folder / "broken.png", "no picture");
    return folder / "broken.png";
  }

  static std::string Damaged(const std::string& path) {
    return "tavithumb: " + path + ": it is damaged; get a fresh copy of it\n";
  }

  static std::string FailedBefore(std::size_t count) {
    return "failed before          " + std::to_string(count) + "  files, unchanged since: --retry tries them again\n";
  }

  // As a service that has a folder for its state.
  Start WithState() const {
    Start start;
    start.environment = {"STATE_DIRECTORY=" + (notes / "state")};
    return start;
  }
};

TEST_F(FilesThatFailed, AreNotTriedAgainUntilTheyChange) {
  const std::string broken = Broken();
  const Outcome first = Make();
  EXPECT_EQ(first.code, 1);
  EXPECT_EQ(first.err, Damaged(broken));
  const Outcome second = Make();
  EXPECT_EQ(second.code, 0);
  EXPECT_EQ(second.err, "");
  EXPECT_EQ(second.out, Table({"0", "0", "0", "0", "0", "0"}) + FailedBefore(1));
  WriteFile(broken, "no picture either");
  EXPECT_EQ(Make().err, Damaged(broken));
  fs::remove(broken);
  MakePng(broken, 400, 300);
  EXPECT_EQ(Make().code, 0);
  EXPECT_TRUE(Exists(EntryOf(broken, "TAVIFILE_THUMB_S.png")));
}

TEST_F(FilesThatFailed, AreTriedAgainWithRetry) {
  const std::string broken = Broken();
  for (const char* time : {"first", "second"}) {
    SCOPED_TRACE(time);
    const Outcome outcome = Make({"--retry"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, Damaged(broken));
  }
  EXPECT_EQ(Make({"--retry", "--dry-run"}).err, Damaged(broken));
  EXPECT_EQ(Make().code, 0);
}

TEST_F(FilesThatFailed, AreTriedAgainByTheLibrary) {
  Broken();
  EXPECT_EQ(Make().code, 1);
  EXPECT_EQ(Make({"--library"}).code, 1);
  EXPECT_EQ(Make({"--library"}).code, 0);
}

TEST_F(FilesThatFailed, BecauseTheyCrashADecoderAreNotTriedAgain) {
  MakePng(folder / "crash.png", 200, 100);
  EXPECT_EQ(Make({"--library"}, ProbedStart()).code, 1);
  EXPECT_EQ(Make({"--library"}, ProbedStart()).code, 0);
}

TEST_F(FilesThatFailed, ForOtherReasonsThanTheirContentAreTriedAgain) {
  MakePng(folder / "kill.png", 200, 100);
  EXPECT_EQ(Make({"--library"}, ProbedStart()).code, 1);  // its process was killed
  EXPECT_EQ(Make({"--library"}).code, 0);
  EXPECT_TRUE(Exists(EntryOf(folder / "kill.png", "TAVIFILE_THUMB_S.png")));
  EXPECT_EQ(run({"make", folder / "missing.png"}).code, 1);
  EXPECT_EQ(run({"make", folder / "missing.png"}).code, 1);
}

TEST_F(FilesThatFailed, AreCountedInJson) {
  Broken();
  Make();
  const auto objects = ObjectsOf(run({"make", "--json", "--quiet", folder.Path()}).out);
  ASSERT_EQ(objects.size(), 1u);
  EXPECT_EQ(objects[0].at("failed_before"), 1);
  EXPECT_EQ(objects[0].at("failed"), 0);
}

TEST_F(FilesThatFailed, AreRecordedInTheStateOfAServiceForItAlone) {
  Broken();
  EXPECT_EQ(Make({}, WithState()).code, 1);
  EXPECT_EQ(Make({}, WithState()).code, 0);
  EXPECT_EQ(Make().code, 1);
  const Strings files = Names(notes / "state");
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(fs::status(notes / ("state/" + files[0])).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(fs::status(notes / "state").permissions(), fs::perms::owner_all);
}

TEST_F(FilesThatFailed, AreTriedAgainWhereNothingCanBeRecorded) {
  const std::string broken = Broken();
  Start start;
  start.environment = {"STATE_DIRECTORY=/dev/null/state"};
  for (const char* time : {"first", "second"}) {
    SCOPED_TRACE(time);
    const Outcome outcome = Make({}, start);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, Damaged(broken));
  }
}

}  // namespace
}  // namespace tavithumb::test
