// SPDX-License-Identifier: GPL-3.0-or-later
// Has the command render a photo over an older file that is killed for at random moments, on a full volume, under names
// of all kinds, and in folders that vanish: afterwards the file is the older one or the whole new one, and no other
// file has changed. rendering quick|full COMMAND
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "odd_names.h"
#include "pictures.h"
#include "private_tmp.h"
#include "process.h"
#include "program.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

using Micros = std::chrono::microseconds;
using Clock = std::chrono::steady_clock;

constexpr char kOlder[] = "the older file";

class Proof {
 public:
  Proof(bool isFull, std::string command) : isFull_(isFull), command_(std::move(command)) {
    test::MakeJpeg(photo_, 1600, 1200);
    const auto start = Clock::now();
    Require(Render(photo_, folder_ / "whole.png").code == 0, "render");
    time_ = std::chrono::duration_cast<Micros>(Clock::now() - start);
    whole_ = test::ReadFile(folder_ / "whole.png");
  }

  bool RunAll() {
    Kill();
    FillVolume();
    UseNames();
    RemoveFolders();
    return holds_;
  }

 private:
  Run Render(const std::string& file, const std::string& out) const {
    return RunProgram({command_, "render", "--size", "1000", "--format", "png", "--", file, out});
  }

  bool IsOneOrTheOther(const std::string& path) const {
    const std::string content = test::ReadFile(path);
    return content == kOlder || content == whole_;
  }

  static bool SaysWhy(const Run& run) {
    return run.code == 1 && run.out.empty() && run.err.rfind("tavithumb: ", 0) == 0 &&
           std::count(run.err.begin(), run.err.end(), '\n') == 1;
  }

  Micros AnyMoment() { return Micros(std::uniform_int_distribution<Micros::rep>(0, time_.count())(random_)); }

  void Report(const char* what, unsigned wrong, unsigned count, const char* unit) {
    std::printf("%s\t%u\t%u %s\n", what, wrong, count, unit);
    holds_ = holds_ && wrong == 0;
  }

  pid_t Start(const std::string& out) const {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child != 0) return child;
    execl(command_.c_str(), command_.c_str(), "render", "--size", "1000", "--format", "png", photo_.c_str(),
          out.c_str(), nullptr);
    _exit(127);
  }

  // Its processes are gone as well then.
  static int EndOf(pid_t child) {
    int end = 0, status = 0;
    for (pid_t ended = wait(&status); ended != -1; ended = wait(&status)) {
      if (ended == child) end = status;
    }
    return end;
  }

  void Kill() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const test::TempDir place;
    const std::string out = place / "out.png";
    unsigned kills = 0, wrong = 0, done = 0;
    std::size_t left = 0;
    while (kills < (isFull_ ? 1000U : 40U)) {
      test::WriteFile(out, kOlder);
      const pid_t child = Start(out);
      std::this_thread::sleep_for(AnyMoment());
      kill(child, SIGKILL);
      if (!WIFSIGNALED(EndOf(child))) continue;
      ++kills;
      if (!IsOneOrTheOther(out)) ++wrong;
      if (test::ReadFile(out) == whole_) ++done;
      for (const std::string& name : test::Names(place.Path())) {
        if (name == "out.png") continue;
        if (name.rfind(".tavithumb-", 0) != 0) ++wrong;
        ++left;
        fs::remove(place / name);
      }
    }
    std::printf("render killed: the new picture in place already\t%u\t%u kills\n", done, kills);
    std::printf("render killed: files left, all under temporary names\t%zu\t%u kills\n", left, kills);
    Report("render killed: output neither the older file nor the whole new one", wrong, kills, "kills");
  }

  void FillVolume() {
    const test::TempDir place;
    unsigned wrong = 0, runs = 0;
    for (const unsigned kib : {4U, 8U, 12U, 16U}) {
      const std::string size = "size=" + std::to_string(kib) + "k";
      Require(mount("full", place.Path().c_str(), "tmpfs", 0, size.c_str()) == 0, "mount");
      const std::string out = place / "out.png";
      test::WriteFile(out, kOlder);
      const Run full = Render(photo_, out);
      if (!SaysWhy(full) || test::ReadFile(out) != kOlder || test::Names(place.Path()).size() != 1) ++wrong;
      ++runs;
      umount2(place.Path().c_str(), MNT_DETACH);
    }
    Report("render on a full volume: the older file lost, more left, or no line that says why", wrong, runs, "volumes");
  }

  void UseNames() {
    unsigned wrong = 0;
    for (const std::string& name : OddNames()) {
      const test::TempDir place;
      fs::create_directory(place / "in");
      fs::create_directory(place / "out");
      fs::copy_file(photo_, place / "in/" + name);
      const Run run = Render(place / "in/" + name, place / "out/" + name);
      const std::vector<std::string> expected = {name};
      const bool isAsExpected = run.code == 0 && run.out.empty() && run.err.empty() &&
                                test::Names(place / "in") == expected && test::Names(place / "out") == expected &&
                                test::ReadFile(place / "out/" + name) == whole_;
      if (!isAsExpected) ++wrong;
    }
    Report("names of files: another picture, or other files", wrong, static_cast<unsigned>(OddNames().size()), "names");
  }

  // The folder of the source or of the output goes at a random moment.
  void RemoveFolders() {
    const unsigned runs = isFull_ ? 400 : 20;
    unsigned wrong = 0;
    for (unsigned i = 0; i < runs; ++i) {
      const test::TempDir place;
      for (const char* name : {"in", "out"}) fs::create_directory(place / name);
      fs::copy_file(photo_, place / "in/photo.jpg");
      Run run;
      std::thread request([&] { run = Render(place / "in/photo.jpg", place / "out/out.png"); });
      std::this_thread::sleep_for(AnyMoment());
      fs::rename(place / (i % 2 == 0 ? "in" : "out"), place / "gone");
      request.join();
      const std::vector<std::string> out = test::Names(place / (i % 2 == 0 ? "out" : "gone"));
      const bool isWhole = run.code == 0 && run.err.empty() && out == std::vector<std::string>{"out.png"};
      if (!isWhole && !(SaysWhy(run) && out.empty())) {
        ++wrong;
        std::fprintf(stderr, "%d: %s%zu files\n", run.code, run.err.c_str(), out.size());
      }
    }
    Report("folders that vanish: neither a picture nor one line that says why", wrong, runs, "runs");
  }

  const bool isFull_;
  const std::string command_;
  const test::TempDir folder_;
  const std::string photo_ = folder_ / "photo.jpg";
  std::string whole_;
  Micros time_{};
  bool holds_ = true;
  std::mt19937 random_{20260101};
};

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  tavithumb::proof::EnterPrivateTmp();
  try {
    return tavithumb::proof::Proof(std::strcmp(argv[1], "full") == 0, argv[2]).RunAll() ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "rendering: %s\n", error.what());
    return 1;
  }
}
