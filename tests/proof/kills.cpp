// SPDX-License-Identifier: GPL-3.0-or-later
// Kills requests of each type, to the library and to the command, at random moments, the caller together with its
// tools. A file under a final name is complete afterwards; what is left behind has a temporary name and is removed by
// the command's "clean". kills quick|full COMMAND LATER   LATER is loaded into the command and sets its clock hours
// ahead, because leftovers are removed only when they are an hour old.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "jobs.h"
#include "pictures.h"
#include "preload.h"
#include "private_tmp.h"
#include "process.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

using Clock = std::chrono::steady_clock;
using Micros = std::chrono::microseconds;

// Runs one request in a separate process. Returns false if it has no answer.
using Ask = std::function<bool(const Kind& kind, const std::string& source)>;

bool AskLibrary(const Kind& kind, const std::string& source) {
  return !kind.ask(source).empty();
}

// The command makes thumbnails itself.
Ask AskCommand(const std::string& command) {
  return [command](const Kind&, const std::string& source) {
    execl(command.c_str(), command.c_str(), "get", "--size", "small", source.c_str(), nullptr);
    return false;
  };
}

// The process, in a group of its own.
pid_t StartRequest(const Ask& ask, const Kind& kind, const std::string& source) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    setpgid(0, 0);
    BeSilent();
    _exit(ask(kind, source) ? 0 : 1);
  }
  setpgid(child, child);
  return child;
}

// Reaps all children, including those of a killed caller; returns the status of `child`.
int EndOf(pid_t child) {
  int end = 0;
  for (;;) {
    int status = 0;
    const pid_t ended = wait(&status);
    if (ended == child) end = status;
    if (ended == -1 && errno == ECHILD) return end;
  }
}

Micros TimeOf(const Ask& ask, const Kind& kind, const Source& source) {
  source.Reset();
  const auto start = Clock::now();
  const int end = EndOf(StartRequest(ask, kind, source.Path()));
  if (end != 0) throw std::runtime_error(std::string("no answer for ") + kind.name);
  return std::chrono::duration_cast<Micros>(Clock::now() - start);
}

// Watches what is written in a folder.
class Watch {
 public:
  explicit Watch(const std::string& folder) : events_(inotify_init1(IN_CLOEXEC)) {
    inotify_add_watch(events_, folder.c_str(), IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO);
  }
  ~Watch() { close(events_); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  // Waits for this many writes, or for this long.
  void Await(int times, Micros patience) const {
    const auto end = Clock::now() + patience;
    pollfd entry{events_, POLLIN, 0};
    char data[4096];
    for (; times > 0 && Clock::now() < end; --times) {
      if (poll(&entry, 1, 100) == 1 && read(events_, data, sizeof data) == -1) return;
    }
  }

 private:
  const int events_;
};

struct Tally {
  unsigned kills = 0;
  unsigned wrong = 0;
  unsigned replaced = 0;  // the new thumbnail was already in place
  std::size_t left = 0;
  unsigned notCleaned = 0;
};

class Proof {
 public:
  Proof(std::string command, std::string later) : command_(std::move(command)), later_(std::move(later)) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
  }

  // `kills` requests of these types, in turn, are killed before they finish.
  Tally KillAll(const std::vector<const Kind*>& kinds, const test::TempDir& folder, unsigned kills,
                const Ask& ask = AskLibrary) {
    Tally tally;
    std::vector<Source> sources;
    std::vector<Micros> times;
    for (const Kind* kind : kinds) {
      sources.emplace_back(folder / kind->name, *kind);
      times.push_back(TimeOf(ask, *kind, sources.back()));
      for (const std::string& path : test::TemporaryFiles()) fs::remove(path);
    }
    for (std::size_t turn = 0; tally.kills < kills; turn = (turn + 1) % kinds.size()) {
      Kill(ask, *kinds[turn], sources[turn], times[turn], &tally);
    }
    return tally;
  }

 private:
  // At any moment; every other time at one when something changes where the thumbnail will be stored.
  void Kill(const Ask& ask, const Kind& kind, const Source& source, Micros time, Tally* tally) {
    source.Reset();
    const bool atAChange = kind.hasOlder && ++turn_ % 2 == 0;
    const Watch watch(EADirectory(source.Path()));
    const pid_t child = StartRequest(ask, kind, source.Path());
    if (atAChange) watch.Await(static_cast<int>(Upto(8)), time);
    std::this_thread::sleep_for(Micros(Upto(atAChange ? 500 : time.count())));
    kill(-child, SIGKILL);
    if (!WIFSIGNALED(EndOf(child))) return;  // it had finished before
    ++tally->kills;
    Judge(kind, source, tally);
  }

  Micros::rep Upto(Micros::rep most) { return std::uniform_int_distribution<Micros::rep>(0, most)(random_); }

  void Judge(const Kind& kind, const Source& source, Tally* tally) {
    std::string flaw = source.IsUntouched() ? FlawInEADirectory(source, kind, pictures_) : "the source was changed";
    for (const std::string& path : StrangeTemporaryFiles()) {
      if (path.rfind("/tmp/magick-", 0) != 0) flaw = "left: " + path;
      fs::remove(path);
    }
    if (!flaw.empty()) {
      ++tally->wrong;
      std::fprintf(stderr, "%s: %s\n", kind.name, flaw.c_str());
    }
    const std::string entry = EAEntry(source.Path(), kind.entry);
    if (test::Exists(entry) && test::ModificationTime(entry) >= test::ModificationTime(source.Path()))
      ++tally->replaced;
    const std::size_t left = CountTemporaryEntries(source) + test::TemporaryFiles().size();
    tally->left += left;
    if (left == 0) return;
    Clean(source);
    if (CountTemporaryEntries(source) + test::TemporaryFiles().size() != 0) ++tally->notCleaned;
  }

  void Clean(const Source& source) const {
    std::vector<std::string> argv = test::Preloading(later_);
    argv.insert(argv.begin(), "/usr/bin/env");
    argv.insert(argv.end(), {command_, "clean", fs::path(source.Path()).parent_path()});
    test::RunTool(argv);
  }

  const std::string command_;
  const std::string later_;
  WholePictures pictures_;
  std::mt19937 random_{20260101};
  unsigned turn_ = 0;
};

template <typename Condition>
std::vector<const Kind*> KindsThat(Condition condition) {
  std::vector<const Kind*> chosen;
  for (const Kind& kind : Kinds()) {
    if (!kind.delivers && condition(kind)) chosen.push_back(&kind);
  }
  return chosen;
}

void PrintDirect(const char* what, const Tally& tally) {
  std::printf("killed while %s: broken thumbnails under the final name\t%u\t%u kills\n", what, tally.wrong,
              tally.kills);
}

bool Prove(bool isFull, const std::string& command, const std::string& later) {
  Proof proof(command, later);
  const test::TempDir besideTmp;
  setenv("TMPDIR", "/var/tmp", 1);
  const test::TempDir elsewhere;  // on another volume than /tmp
  const unsigned directKills = isFull ? 200 : 5;
  const Tally saved =
      proof.KillAll(KindsThat([](const Kind& kind) { return !kind.writesFinalName; }), besideTmp, isFull ? 1000 : 20);
  const Tally converted =
      proof.KillAll(KindsThat([](const Kind& kind) { return kind.writesFinalName; }), besideTmp, directKills);
  const Tally copied =
      proof.KillAll(KindsThat([](const Kind& kind) { return kind.comesFromTmp; }), elsewhere, directKills);
  const test::TempDir ofCommand;
  const Tally own = proof.KillAll(KindsThat(IsPlain), ofCommand, isFull ? 1000 : 40, AskCommand(command));
  const std::size_t left = saved.left + converted.left + copied.left + own.left;
  const unsigned notCleaned = saved.notCleaned + converted.notCleaned + copied.notCleaned + own.notCleaned;
  std::printf("killed while making: broken or lost thumbnails under names that a save renames to\t%u\t%u kills\n",
              saved.wrong, saved.kills);
  std::printf("killed while making: new thumbnails in place already\t%u\t%u kills\n", saved.replaced, saved.kills);
  std::printf("killed while making: files left, all under temporary names\t%zu\t%u kills\n", saved.left, saved.kills);
  std::printf("files left that \"tavithumb clean\" does not remove an hour later\t%u\t%zu files\n", notCleaned, left);
  std::printf("the command killed while it makes thumbnails itself: broken or lost ones\t%u\t%u kills\n", own.wrong,
              own.kills);
  std::printf("the same: new thumbnails in place already\t%u\t%u kills\n", own.replaced, own.kills);
  std::printf("the same: files left, all under temporary names\t%zu\t%u kills\n", own.left, own.kills);
  PrintDirect("convert writes a turned preview", converted);
  PrintDirect("mv brings a preview from /tmp to another volume", copied);
  return saved.wrong + own.wrong == 0 && notCleaned == 0;
}

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  tavithumb::proof::EnterPrivateTmp();
  try {
    return tavithumb::proof::Prove(std::strcmp(argv[1], "full") == 0, argv[2], argv[3]) ? 0 : 1;
  } catch (const std::runtime_error& error) {
    std::fprintf(stderr, "kills: %s\n", error.what());
    return 1;
  }
}
