// SPDX-License-Identifier: GPL-3.0-or-later
// How `tavithumb make` handles files that kill or block its workers, and interruptions.
#include <linux/landlock.h>
#include <pictures.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include <algorithm>
#include <fstream>

#include "batch.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Strings = std::vector<std::string>;

constexpr char kSmallEntry[] = "TAVIFILE_THUMB_S.png";

class MakeWorkers : public Batch {
 protected:
  std::string Picture(const std::string& name) const {
    MakePng(folder / name, 200, 100);
    return folder / name;
  }

  static bool IsMade(const std::string& source) { return Exists(EntryOf(source, kSmallEntry)); }

  Strings Small(const std::string& jobs) const {
    return {"make", "--library", "--sizes", "small", "--jobs", jobs, folder.Path()};
  }

  // One small thumbnail of each of the sources, and this number of failures with their lines.
  static std::string Summary(const Strings& made, std::size_t files, const Strings& reasons) {
    std::uintmax_t bytes = 0;
    for (const std::string& source : made) bytes += fs::file_size(EntryOf(source, kSmallEntry));
    std::string table = Table({std::to_string(files), std::to_string(made.size()), std::to_string(bytes), "0", "0",
                               std::to_string(reasons.size())});
    for (const std::string& reason : reasons) table += "                       1  " + reason + "\n";
    return table;
  }

  // The started tools that do not stop on their own.
  Strings Hanging() const {
    Strings processes;
    std::ifstream lines(noted);
    for (std::string line; std::getline(lines, line);) {
      if (line.compare(0, 6, "hangs ") == 0) processes.push_back(line.substr(6));
    }
    return processes;
  }

  // Until it confirms the signal.
  void Interrupt(pid_t process, int signal) const {
    kill(process, signal);
    while (run.ErrorsSoFar().empty()) usleep(1000);
  }

  // The messages of an interrupted run.
  static std::string Stopped(std::size_t files, const std::string& last) {
    return "tavithumb: finishing the running files; press Ctrl-C again to stop them at once\ntavithumb: stopped "
           "after " +
           std::to_string(files) + " files, at " + last + "; run it again to continue from there\n";
  }
};

struct Death {
  std::string name;
  std::string reason;
  std::string remedy;
};

TEST_F(MakeWorkers, AThumbnailTruncatedByAFullDiskIsRemovedEvenIfItsToolSucceeds) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string disk = folder / "disk";
  fs::create_directory(disk);
  if (mount("none", disk.c_str(), "tmpfs", 0, "size=1m") != 0) GTEST_SKIP() << "needs a file system to be mounted";
  const Strings sources = {Picture("disk/cut.png"), Picture("disk/whole.png")};
  const Outcome outcome = Probed(Small("1"));
  const std::string summary = Summary({sources[1]}, 2, {"the disk is full"});
  const Strings left = Names(disk + "/.tavi_ea/cut.png");
  umount(disk.c_str());
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "tavithumb: " + sources[0] + ": the disk is full; free some space on it\n");
  EXPECT_EQ(WithoutTime(outcome.out), summary);
  EXPECT_EQ(left, Strings{});
}

TEST_F(MakeWorkers, AFileThatKillsItsWorkerFailsAloneAndLeavesNothing) {
  const std::vector<Death> rows = {
      {"crash.png", "the decoder crashed on this file (Segmentation fault)", "get a fresh copy of it"},
      {"kill.png", "the process working on it was killed", "try again when more memory is free"},
  };
  for (const Death& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string deadly = Picture(row.name);
    const Strings fine = {Picture("a" + row.name.substr(1)), Picture("b" + row.name.substr(1))};
    const Outcome outcome = Probed(Small("1"));
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "tavithumb: " + deadly + ": " + row.reason + "; " + row.remedy + "\n");
    EXPECT_EQ(WithoutTime(outcome.out), Summary(fine, 3, {row.reason}));
    EXPECT_EQ(Names(EntryOf(deadly, "")), Strings{});
    EXPECT_EQ(Leftovers(), Strings{});
    for (const std::string& name : Names(folder.Path())) fs::remove_all(folder / name);
  }
}

// A preview that has to be rotated is written under the final name; the sizes made before it are kept.
TEST_F(MakeWorkers, APartialThumbnailIsRemovedAndEarlierOnesAreKept) {
  const std::string jpeg = folder / "crash.jpg";
  MakeJpeg(jpeg, 1600, 1200);
  MakeJpeg(folder / "preview", 480, 360);
  SetPreview(jpeg, folder / "preview");
  SetExif(jpeg, {{"Exif.Image.Orientation", "6"}});
  fs::remove(folder / "preview");
  WriteFile(EntryOf(jpeg, "TAVIFILE_THUMB_S_r1.jpg"), "stored before");
  const Outcome outcome = Probed({"make", "--library", "--sizes", "small,medium", "--json", jpeg});
  EXPECT_EQ(outcome.code, 1);
  const nlohmann::json object = ObjectsOf(outcome.out).at(0);
  EXPECT_EQ(object.at("found"), nlohmann::json{"small"});
  EXPECT_EQ(object.at("made"), nlohmann::json::array());
  EXPECT_EQ(object.at("error"), "the decoder crashed on this file (Segmentation fault)");
  EXPECT_EQ(Count("runs "), 1u);
  EXPECT_EQ(Names(EntryOf(jpeg, "")), Strings{"TAVIFILE_THUMB_S_r1.jpg"});
  EXPECT_EQ(Leftovers(), Strings{});
}

TEST_F(MakeWorkers, AFileThatTakesTooLongFailsAndItsToolsAreKilled) {
  Picture("a.png");
  ASSERT_EQ(run(Small("1")).code, 0);
  const std::string hanging = Picture("hang.png");
  Start start = ProbedStart();
  start.environment.emplace_back("PROBE_SPEED=20");  // a file may take 15 seconds
  const Outcome outcome = run(Small("1"), start);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err,
            "tavithumb: " + hanging + ": it took longer than 5 minutes; check that it opens in another program\n");
  EXPECT_EQ(WithoutTime(outcome.out),
            Table({"2", "0", "0", "1", "0", "1"}) + "                       1  it took longer than 5 minutes\n");
  ASSERT_EQ(Hanging().size(), 1u);
  EXPECT_EQ(kill(std::stoi(Hanging().front()), 0), -1);
  EXPECT_EQ(Names(EntryOf(hanging, "")), Strings{});
  EXPECT_EQ(Leftovers(), Strings{});
}

TEST_F(MakeWorkers, TheFirstSignalFinishesTheRunningFilesAndTheNextRunContinues) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(signal);
    fs::remove(noted);
    fs::remove(gate);
    const Strings all = {Picture("wait-1.png"), Picture("wait-2.png"), Picture("wait-3.png")};
    const pid_t process = run.Begin(Small("2"), ProbedStart());
    AwaitNoted("waits", 2);
    Interrupt(process, signal);
    WriteFile(gate, "");
    const Outcome outcome = run.Await(process);
    EXPECT_EQ(outcome.code, 130);
    Strings made;
    std::copy_if(all.begin(), all.end(), std::back_inserter(made), IsMade);
    ASSERT_EQ(made.size(), 2u);
    EXPECT_EQ(WithoutTime(outcome.out), Summary(made, 2, {}));
    EXPECT_TRUE(outcome.err == Stopped(2, made[0]) || outcome.err == Stopped(2, made[1])) << outcome.err;
    EXPECT_EQ(Leftovers(), Strings{});

    const Outcome next = Probed(Small("2"));
    EXPECT_EQ(next.code, 0);
    EXPECT_TRUE(std::all_of(all.begin(), all.end(), IsMade));
    EXPECT_EQ(Count("runs "), 3u);
    for (const std::string& name : Names(folder.Path())) fs::remove_all(folder / name);
  }
}

TEST_F(MakeWorkers, TheSecondSignalKillsTheRunningTools) {
  const std::string hanging = Picture("hang.png");
  const pid_t process = run.Begin(Small("1"), ProbedStart());
  AwaitNoted("hangs", 1);
  Interrupt(process, SIGINT);
  kill(process, SIGINT);
  const Outcome outcome = run.Await(process);
  EXPECT_EQ(outcome.code, 130);
  EXPECT_EQ(outcome.err, Stopped(0, hanging));
  EXPECT_EQ(WithoutTime(outcome.out), Summary({}, 0, {}));
  EXPECT_EQ(kill(std::stoi(Hanging().front()), 0), -1);
  EXPECT_EQ(Names(EntryOf(hanging, "")), Strings{});
  EXPECT_EQ(Leftovers(), Strings{});
}

TEST_F(MakeWorkers, FinishTheirFileAndCleanUpWhenTheParentIsKilled) {
  const std::string source = Picture("wait-1.png");
  const pid_t process = run.Begin(Small("1"), ProbedStart());
  AwaitNoted("waits", 1);
  EXPECT_EQ(Leftovers().size(), 1u);
  kill(process, SIGKILL);
  run.Await(process);
  WriteFile(gate, "");
  while (!Leftovers().empty()) usleep(1000);
  EXPECT_TRUE(IsMade(source));
  EXPECT_EQ(Names(EntryOf(source, "")), Strings{kSmallEntry});
}

// A terminal sends its signals to the foreground process group.
TEST_F(MakeWorkers, WorkersAndToolsAreInGroupsOfTheirOwn) {
  Picture("hang.png");
  const pid_t process = run.Begin(Small("1"), ProbedStart());
  AwaitNoted("hangs", 1);
  const pid_t group = getpgid(std::stoi(Hanging().front()));
  EXPECT_NE(group, getpgid(process));
  EXPECT_EQ(getpgid(group), group);
  Interrupt(process, SIGINT);
  kill(process, SIGINT);
  run.Await(process);
}

// A second source has as much as the first.
TEST_F(MakeWorkers, DecodeWithLimitsOfProcessorTimeAndFiles) {
  Picture("a.png");
  Picture("b.png");
  Start start = ProbedStart();
  start.environment.emplace_back("PROBE_LIMITS=1");
  const Outcome outcome = run({"make", "--sizes", "small", "--jobs", "1", folder.Path()}, start);
  EXPECT_EQ(outcome.code, 0) << outcome;
  EXPECT_EQ(ReadFile(noted), "limits 120 67108864\nlimits 120 67108864\n") << outcome;
}

TEST_F(MakeWorkers, UseWhatOtherProgramsLeaveUnlessTheyAreEager) {
  Picture("priority.png");
  EXPECT_EQ(Probed({"make", "--library", "--sizes", "small", folder.Path()}).code, 0);
  EXPECT_EQ(Count("runs when idle, yields"), 1U);
  Picture("priority-2.png");
  EXPECT_EQ(Probed({"make", "--library", "--sizes", "small", "--eager", folder.Path()}).code, 0);
  EXPECT_EQ(Count("runs when idle, yields"), 1U);
  EXPECT_EQ(Count("competes"), 1U);
}

TEST_F(MakeWorkers, WriteOnlyWhereThumbnailsAreStored) {
  if (syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) < 1) {
    GTEST_SKIP() << "needs a kernel with Landlock";
  }
  const std::string photo = Picture("stray.png");
  const fs::path elsewhere = "/dev/shm/tavithumb-stray-" + std::to_string(getpid());
  WriteFile(notes / "list", photo + "\n");
  struct {
    Strings arguments;
    bool isEverywhere;
  } const rows[] = {{{photo}, false}, {{folder.Path()}, false}, {{"--files-from", notes / "list"}, true}};
  for (const auto& row : rows) {
    Start start = ProbedStart();
    start.environment.push_back("PROBE_STRAY=" + elsewhere.string());
    Strings words = {"make", "--library", "--sizes", "small"};
    words.insert(words.end(), row.arguments.begin(), row.arguments.end());
    const Outcome outcome = run(words, start);
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_TRUE(IsMade(photo)) << outcome;
    EXPECT_EQ(Count("cannot write elsewhere"), row.isEverywhere ? 0u : 1u) << outcome;
    EXPECT_EQ(fs::remove(elsewhere), row.isEverywhere) << outcome;
    fs::remove_all(folder / ".tavi_ea");
    fs::remove(noted);
  }
}

}  // namespace
}  // namespace tavithumb::test
