// SPDX-License-Identifier: GPL-3.0-or-later
// What `tavithumb watch` does about files and folders that come, change and go.
#include <pictures.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <fstream>
#include <functional>

#include "batch.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Strings = std::vector<std::string>;

constexpr char kWatchedEntry[] = "TAVIFILE_THUMB_S.png";
constexpr char kEnd[] = "tavithumb: finishing the running files; press Ctrl-C again to stop them at once\n";

class Watch : public Batch {
 protected:
  ~Watch() override {
    if (process_ > 0) kill(process_, SIGKILL);
  }

  std::string Picture(const std::string& name) const {
    MakePng(folder / name, 400, 300);
    return folder / name;
  }

  // A picture elsewhere, so that it can come at once.
  std::string PictureElsewhere() const {
    MakePng(temporary / "picture.png", 400, 300);
    return temporary / "picture.png";
  }

  static bool IsMade(const std::string& source) { return Exists(EntryOf(source, kWatchedEntry)); }

  // Waits for what will be true sooner or later; false after two minutes.
  static bool Becomes(const std::function<bool()>& isTrue) {
    for (int i = 0; i < 24000 && !isTrue(); ++i) usleep(5000);
    return isTrue();
  }
  static bool Comes(const std::string& source) {
    return Becomes([&source] { return IsMade(source); });
  }
  static bool Goes(const std::string& path) {
    return Becomes([&path] { return !Exists(path); });
  }
  bool IsSaid(const std::string& text) const {
    return Becomes([&] { return run.ErrorsSoFar().find(text) != std::string::npos; });
  }

  // Starts it, and waits until it watches the folders.
  void Begin(const Strings& more, Start start = {}, const std::string& count = "1 folder") {
    Strings arguments = {"watch", "--eager", "--sizes", "small"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    start.environment.push_back("TMPDIR=" + temporary.Path());
    process_ = run.Begin(arguments, start);
    if (count.empty()) return;
    ASSERT_TRUE(IsSaid("tavithumb: watching " + count + "\n")) << run.ErrorsSoFar();
  }

  Outcome Stop(int signal = SIGTERM) {
    kill(process_, signal);
    return Ended();
  }
  Outcome Ended() { return run.Await(std::exchange(process_, -1)); }

  // The lines of files that have had thumbnails made.
  static std::size_t CountMade(const Outcome& outcome) {
    std::size_t count = 0;
    for (std::size_t i = outcome.out.find(": made "); i != std::string::npos; i = outcome.out.find(": made ", i + 1)) {
      ++count;
    }
    return count;
  }

  pid_t process_ = -1;
};

TEST_F(Watch, MakesWhatIsMissingAndThenWhatComes) {
  const std::string first = Picture("first.png");
  Begin({folder.Path()});
  ASSERT_TRUE(Comes(first));
  const std::string second = Picture("second.png");
  WriteFile(folder / "notes.txt", "");
  ASSERT_TRUE(Comes(second));
  const Outcome outcome = Stop();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, std::string("tavithumb: watching 1 folder\n") + kEnd +
                             "tavithumb: stopped after 2 files, at " + second +
                             "; run it again to continue from there\n");
  const auto bytes = fs::file_size(EntryOf(first, kWatchedEntry)) + fs::file_size(EntryOf(second, kWatchedEntry));
  EXPECT_EQ(WithoutTime(outcome.out), Table({"2", "2", std::to_string(bytes), "0", "0", "0"}));
  EXPECT_EQ(Leftovers(), Strings{});
}

TEST_F(Watch, StopsAtEachSignalWithSuccessAndContinuesWhereItWasStopped) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(signal);
    Begin({"--quiet", folder.Path()}, {}, "");
    const std::string picture = Picture(std::to_string(signal) + ".png");
    ASSERT_TRUE(Comes(picture));
    const Outcome outcome = Stop(signal);
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, "");
  }
  const std::string meanwhile = Picture("meanwhile.png");
  Begin({"--verbose", folder.Path()});
  ASSERT_TRUE(Comes(meanwhile));
  EXPECT_EQ(CountMade(Stop()), 1u);
}

// As timeout(1) sends it. A signal that comes just when the command ends is not to end it in another way.
TEST_F(Watch, EndsWithSuccessWhenASignalComesTwice) {
  for (int i = 0; i < 30; ++i) {
    Begin({folder.Path()});
    kill(process_, SIGTERM);
    usleep(static_cast<useconds_t>(100 * i));
    ASSERT_EQ(Stop().code, 0) << i;
  }
}

TEST_F(Watch, WaitsUntilAFileHasBeenQuietForTwoSeconds) {
  const std::string source = PictureElsewhere();
  Begin({folder.Path()});
  const auto written = std::chrono::steady_clock::now();
  fs::copy_file(source, folder / "a.png");
  ASSERT_TRUE(Comes(folder / "a.png"));
  EXPECT_GE(std::chrono::steady_clock::now() - written, std::chrono::milliseconds(1980));  // the kernel's clock ticks
  Stop();
}

TEST_F(Watch, MakesTheThumbnailAgainWhenAFileIsWrittenAgain) {
  const std::string picture = Picture("a.png");
  Begin({"--verbose", folder.Path()});
  ASSERT_TRUE(Comes(picture));
  const auto before = fs::last_write_time(EntryOf(picture, kWatchedEntry));
  MakePng(picture, 300, 400);
  EXPECT_TRUE(Becomes([&] { return fs::last_write_time(EntryOf(picture, kWatchedEntry)) != before; }));
  EXPECT_EQ(CountMade(Stop()), 2u);
}

TEST_F(Watch, KeepsTheThumbnailOfAFileThatAnotherReplaces) {
  const std::string picture = Picture("a.png"), other = PictureElsewhere();
  Begin({"--verbose", folder.Path()});
  ASSERT_TRUE(Comes(picture));
  fs::copy_file(other, folder / "a.tmp");
  fs::rename(folder / "a.tmp", picture);
  ASSERT_TRUE(Comes(Picture("later.png")));
  const Outcome outcome = Stop();
  EXPECT_EQ(outcome.out.find("removed"), std::string::npos) << outcome.out;
  EXPECT_TRUE(IsMade(picture));
}

TEST_F(Watch, FollowsFoldersThatAreMadeAndMoved) {
  Begin({folder.Path()});
  fs::create_directories(folder / "a/b");
  const std::string inner = Picture("a/b/inner.png");
  EXPECT_TRUE(Comes(inner));
  fs::create_directory(temporary / "album");
  fs::copy_file(PictureElsewhere(), temporary / "album/in.png");
  fs::rename(temporary / "album", folder / "album");
  EXPECT_TRUE(Comes(folder / "album/in.png"));
  fs::rename(folder / "a", folder / "album/moved");
  const std::string later = Picture("album/moved/b/later.png");
  EXPECT_TRUE(Comes(later));
  EXPECT_TRUE(IsMade(folder / "album/moved/b/inner.png"));
  fs::rename(folder / "album", temporary / "album");
  const std::string last = Picture("last.png");
  fs::copy_file(last, temporary / "album/outside.png");
  EXPECT_TRUE(Comes(last));
  EXPECT_FALSE(IsMade(temporary / "album/outside.png"));
  EXPECT_EQ(Stop().code, 0);
}

TEST_F(Watch, RemovesTheThumbnailsOfWhatIsRemovedAndMovedAway) {
  const std::string removed = Picture("removed.png"), moved = Picture("moved.png"), kept = Picture("kept.png");
  Begin({"--verbose", folder.Path()});
  for (const std::string& picture : {removed, moved, kept}) ASSERT_TRUE(Comes(picture));
  fs::remove(removed);
  fs::rename(moved, folder / "new.png");
  EXPECT_TRUE(Goes(EntryOf(removed, "")));
  EXPECT_TRUE(Goes(EntryOf(moved, "")));
  EXPECT_TRUE(Comes(folder / "new.png"));
  EXPECT_TRUE(IsMade(kept));
  const Outcome outcome = Stop();
  for (const std::string& gone : {removed, moved}) {
    const std::string entry = EntryOf(gone, "");
    EXPECT_NE(outcome.out.find("removed " + entry + kWatchedEntry + ": its source is gone\nremoved " +
                               entry.substr(0, entry.size() - 1) + ": nothing is left in it\n"),
              std::string::npos)
        << outcome.out;
  }
}

TEST_F(Watch, RemovesInAStoreWhatBelongedToAFolder) {
  fs::create_directory(folder / "album");
  const std::string picture = Picture("album/a.png"), store = temporary / "store";
  const std::string mirror = store + folder.Path() + "/album";
  Begin({"--store", store, "--store-all", folder.Path()}, {}, "2 folders");
  ASSERT_TRUE(Becomes([&] { return Exists(mirror + "/.tavi_ea/a.png/" + kWatchedEntry); }));
  fs::remove_all(folder / "album");
  EXPECT_TRUE(Goes(mirror + "/.tavi_ea"));
  EXPECT_EQ(Stop().code, 0);
}

TEST_F(Watch, RemovesAtItsStartWhatBelongedToFilesThatWentBefore) {
  const std::string gone = Picture("gone.png"), kept = Picture("kept.png");
  ASSERT_EQ(run({"make", "--eager", "--sizes", "small", folder.Path()}).code, 0);
  fs::remove(gone);
  Begin({folder.Path()});
  EXPECT_TRUE(Goes(EntryOf(gone, "")));
  EXPECT_EQ(Stop().code, 0);
  EXPECT_TRUE(IsMade(kept));
}

TEST_F(Watch, LeavesOutWhatTheFilterLeavesOut) {
  Begin({"--exclude", "*.tmp.png", "--exclude", "trash", folder.Path()});
  fs::create_directory(folder / "trash");
  const std::string excluded = Picture("a.tmp.png"), inTrash = Picture("trash/a.png"), taken = Picture("taken.png");
  ASSERT_TRUE(Comes(taken));
  Stop();
  EXPECT_FALSE(IsMade(excluded));
  EXPECT_FALSE(IsMade(inTrash));
}

TEST_F(Watch, ReportsAFileThatFailsAndGoesOn) {
  Begin({folder.Path()});
  WriteFile(folder / "broken.png", "no picture");
  const std::string problem = "tavithumb: " + (folder / "broken.png") + ": it is damaged; get a fresh copy of it\n";
  EXPECT_TRUE(IsSaid(problem)) << run.ErrorsSoFar();
  const std::string good = Picture("good.png");
  EXPECT_TRUE(Comes(good));
  const Outcome outcome = Stop();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "tavithumb: watching 1 folder\n" + problem + kEnd + "tavithumb: stopped after 2 files, at " +
                             good + "; run it again to continue from there\n");
}

TEST_F(Watch, TakesNamesOfAnyBytes) {
  Begin({"--", folder.Path()});
  const Strings names = {"-x.png", "a\nb.png", "\xff\xfe.png", "%d [0].png", std::string(251, 'n') + ".png"};
  for (const std::string& name : names) fs::copy_file(PictureElsewhere(), folder / name);
  for (const std::string& name : names) EXPECT_TRUE(Comes(folder / name)) << name;
  EXPECT_EQ(Stop().code, 0);
}

TEST_F(Watch, LooksThroughAllFoldersOnceMoreWhenEventsAreLost) {
  const std::string source = PictureElsewhere();
  fs::create_directory(folder / "inner");
  Begin({folder.Path()}, {}, "2 folders");
  kill(process_, SIGSTOP);
  const int most = std::stoi(ReadFile("/proc/sys/fs/inotify/max_queued_events"));
  if (most > 100000) GTEST_SKIP() << "this system keeps very many events";
  for (int i = 0; i <= most; ++i) WriteFile(folder / std::to_string(i % 2), "");
  fs::copy_file(source, folder / "inner/late.png");
  kill(process_, SIGCONT);
  EXPECT_TRUE(Comes(folder / "inner/late.png"));
  const std::string message =
      "tavithumb: more has changed at once than the system keeps; all folders are looked through once more\n";
  const Outcome outcome = Stop();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_NE(outcome.err.find(message), std::string::npos) << outcome.err;
}

TEST_F(Watch, LooksThroughTheFoldersEveryTenMinutesWhenTheSystemAllowsTooFewWatches) {
  for (const char* name : {"a", "b", "c"}) fs::create_directory(folder / name);
  Start start = ProbedStart();
  start.environment.insert(start.environment.end(), {"PROBE_WATCHES=2", "PROBE_SPEED=60"});
  Begin({folder.Path()}, start, "2 folders");
  const Strings pictures = {Picture("a/1.png"), Picture("b/1.png"), Picture("c/1.png")};
  for (const std::string& picture : pictures) EXPECT_TRUE(Comes(picture)) << picture;
  const Outcome outcome = Stop();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(Replaced(outcome.err, kEnd + std::string("(.|\n)*"), ""),
            "tavithumb: only 2 folders can be watched, the rest are looked through every 10 minutes; raise the limit: "
            "sysctl fs.inotify.max_user_watches\ntavithumb: watching 2 folders\n");
}

TEST_F(Watch, GoesOnWithoutAFolderThatIsNoLongerThereAndEndsWithoutAny) {
  for (const char* name : {"a", "b"}) fs::create_directory(folder / name);
  Begin({folder / "a", folder / "b"}, {}, "2 folders");
  fs::remove_all(folder / "a");
  const std::string reason = ": this folder is no longer there; start again when it is back\n";
  EXPECT_TRUE(IsSaid("tavithumb: " + (folder / "a") + reason)) << run.ErrorsSoFar();
  const std::string picture = Picture("b/1.png");
  EXPECT_TRUE(Comes(picture));
  fs::rename(folder / "b", folder / "c");
  const Outcome outcome = Ended();
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "tavithumb: watching 2 folders\ntavithumb: " + (folder / "a") + reason +
                             "tavithumb: " + (folder / "b") + reason);
}

TEST_F(Watch, RefusesWhatIsNoFolder) {
  const std::string picture = Picture("a.png");
  const Outcome outcome = run({"watch", picture, folder / "missing"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "tavithumb: " + picture + ": it is not a folder; name the folder that it is in\ntavithumb: " +
                             (folder / "missing") + ": it does not exist; check its name\n");
  EXPECT_FALSE(IsMade(picture));
}

// Where a service manager listens.
class Manager {
 public:
  explicit Manager(const std::string& path) : channel_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    bind(channel_, reinterpret_cast<sockaddr*>(&address), sizeof(address));
  }
  ~Manager() { close(channel_); }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  // Waits for the next message.
  std::string Receive() const {
    std::array<char, 100> text;
    const ssize_t size = recv(channel_, text.data(), text.size(), 0);
    return size < 0 ? "" : std::string(text.data(), static_cast<std::size_t>(size));
  }

 private:
  int channel_;
};

TEST_F(Watch, TellsTheServiceManagerThatItIsReadyAliveAndStopping) {
  const Manager manager(notes / "socket");
  Start start;
  start.environment = {"NOTIFY_SOCKET=" + (notes / "socket"), "WATCHDOG_USEC=200000"};
  Begin({folder.Path()}, start);
  EXPECT_EQ(manager.Receive(), "READY=1");
  for (int i = 0; i < 5; ++i) EXPECT_EQ(manager.Receive(), "WATCHDOG=1");
  kill(process_, SIGTERM);
  std::string last = manager.Receive();
  while (last == "WATCHDOG=1") last = manager.Receive();
  EXPECT_EQ(last, "STOPPING=1");
  EXPECT_EQ(Ended().code, 0);
}

TEST_F(Watch, WorksOnOneFileAtATimeWhileOtherProgramsUseTheProcessor) {
  if (getpriority(PRIO_PROCESS, 0) > 0) GTEST_SKIP() << "the tests leave the processor to others themselves";
  const pid_t busy = fork();
  if (busy == 0) {
    while (true) continue;
  }
  MakePng(folder / "wait-1.png", 400, 300);
  MakePng(folder / "wait-2.png", 400, 300);
  process_ = run.Begin({"watch", "--library", "--jobs", "2", "--sizes", "small", folder.Path()}, ProbedStart());
  AwaitNoted("waits", 1);
  sleep(3);
  EXPECT_EQ(Count("waits"), 1u);
  kill(busy, SIGKILL);
  waitpid(busy, nullptr, 0);
  WriteFile(gate, "");
  EXPECT_TRUE(Comes(folder / "wait-1.png"));
  EXPECT_TRUE(Comes(folder / "wait-2.png"));
  Stop();
  fs::remove(gate);
  fs::remove(noted);
  fs::remove_all(folder / ".tavi_ea");
  process_ =
      run.Begin({"watch", "--eager", "--library", "--jobs", "2", "--sizes", "small", folder.Path()}, ProbedStart());
  AwaitNoted("waits", 2);
  WriteFile(gate, "");
  Stop();
}

}  // namespace
}  // namespace tavithumb::test
