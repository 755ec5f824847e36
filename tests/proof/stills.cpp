// SPDX-License-Identifier: GPL-3.0-or-later
// Has the command make thumbnails of films that is killed at random moments, on a full volume, of films that are cut,
// damaged or far too large, under names of all kinds, and in folders that vanish: afterwards each film is unchanged,
// and has whole thumbnails or one line that says why not. stills quick|full COMMAND LATER   LATER is loaded into the
// command and sets its clock hours ahead, because leftovers are removed only when they are an hour old.
#include <films.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <tavithumb/util.h>
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

#include "jobs.h"
#include "odd_names.h"
#include "pictures.h"
#include "preload.h"
#include "private_tmp.h"
#include "process.h"
#include "program.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

using Micros = std::chrono::microseconds;
using Clock = std::chrono::steady_clock;

constexpr double kMostSeconds = 60;
constexpr unsigned kMostMiB = 2048;

class Proof {
 public:
  Proof(bool isFull, std::string command, std::string later)
      : isFull_(isFull), command_(std::move(command)), later_(std::move(later)) {
    test::MakeJpeg(scene_, 640, 480);
    test::MakeFilm(film_, scene_, 10);
    content_ = test::ReadFile(film_);
    const auto start = Clock::now();
    Require(Make(film_).code == 0 && HasThumbnail(film_), "no thumbnail is made");
    time_ = std::chrono::duration_cast<Micros>(Clock::now() - start);
  }

  bool RunAll() {
    Kill();
    FillVolume();
    Damage();
    Enlarge();
    UseNames();
    RemoveFolders();
    return holds_;
  }

 private:
  std::vector<std::string> Arguments(const std::string& file) const {
    return {command_, "make", "--eager", "--sizes", "big", "--", file};
  }
  Run Make(const std::string& file) const { return RunProgram(Arguments(file)); }

  static std::string Entry(const std::string& film) { return EAEntry(film, "TAVIFILE_THUMB_B.jpg"); }
  bool HasThumbnail(const std::string& film) { return pictures_.Holds(Entry(film)); }

  static std::vector<std::string> EntriesOf(const std::string& film) {
    const std::string directory = EADirectory(film);
    return fs::is_directory(directory) ? test::Names(directory) : std::vector<std::string>{};
  }

  static bool SaysWhy(const Run& run, const std::string& film) {
    return run.code == 1 && run.err.rfind("tavithumb: " + film + ": ", 0) == 0 &&
           std::count(run.err.begin(), run.err.end(), '\n') == 1;
  }

  // Either its thumbnail alone, or the line alone; the film as it was.
  bool IsRight(const Run& run, const std::string& film, const std::string& content) {
    const bool isMade = run.code == 0 && run.err.empty() && HasThumbnail(film) && EntriesOf(film).size() == 1;
    const bool isRefused = SaysWhy(run, film) && EntriesOf(film).empty();
    const bool isRight = (isMade || isRefused) && run.seconds < kMostSeconds && test::ReadFile(film) == content;
    if (!isRight) std::fprintf(stderr, "%s: %d, %.1f s: %s\n", film.c_str(), run.code, run.seconds, run.err.c_str());
    return isRight;
  }

  std::size_t Upto(std::size_t most) { return std::uniform_int_distribution<std::size_t>(0, most)(random_); }
  Micros AnyMoment() { return Micros(Upto(static_cast<std::size_t>(time_.count()))); }

  void Report(const char* what, unsigned wrong, unsigned count, const char* unit, unsigned allowed = 0) {
    std::printf("%s\t%u\t%u %s\n", what, wrong, count, unit);
    std::fflush(stdout);
    holds_ = holds_ && wrong <= allowed;
  }

  pid_t Start(const std::string& film) const {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child != 0) return child;
    BeSilent();
    unsetenv("HOME");
    unsetenv("XDG_STATE_HOME");
    execl(command_.c_str(), command_.c_str(), "make", "--eager", "--sizes", "big", "--", film.c_str(), nullptr);
    _exit(127);
  }

  // Its processes are gone as well then, the tools too.
  static int EndOf(pid_t child) {
    int end = 0, status = 0;
    for (pid_t ended = wait(&status); ended != -1; ended = wait(&status)) {
      if (ended == child) end = status;
    }
    return end;
  }

  // How many files are left under temporary names; all others must be whole thumbnails.
  std::size_t CountLeft(const std::string& film, unsigned* wrong) {
    std::size_t left = 0;
    for (const std::string& name : EntriesOf(film)) {
      if (file::ParseTemporaryEntry(name)) {
        ++left;
      } else if (!pictures_.Holds(EAEntry(film, name))) {
        ++*wrong;
        std::fprintf(stderr, "left: %s\n", EAEntry(film, name).c_str());
      }
    }
    return left;
  }

  void Clean(const std::string& folder) const {
    std::vector<std::string> argv = test::Preloading(later_);
    argv.insert(argv.begin(), "/usr/bin/env");
    argv.insert(argv.end(), {command_, "clean", folder});
    test::RunTool(argv);
  }

  void Kill() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const test::TempDir place;
    const std::string film = place / "film.mp4";
    fs::copy_file(film_, film);
    unsigned kills = 0, wrong = 0;
    std::size_t left = 0;
    while (kills < (isFull_ ? 500U : 20U)) {
      fs::remove_all(place / ".tavi_ea");
      const pid_t child = Start(film);
      std::this_thread::sleep_for(AnyMoment());
      kill(child, SIGKILL);
      if (!WIFSIGNALED(EndOf(child))) continue;
      ++kills;
      left += CountLeft(film, &wrong);
      if (test::ReadFile(film) != content_) ++wrong;
    }
    for (const std::string& path : StrangeTemporaryFiles()) {
      if (path.rfind("/tmp/tavithumb-make.", 0) == 0) {
        ++left;
      } else {
        ++wrong;
      }
    }
    if (Make(film).code != 0 || !HasThumbnail(film)) ++wrong;
    std::printf("make of a film killed: files left, all under temporary names\t%zu\t%u kills\n", left, kills);
    Report("make of a film killed: broken thumbnails, other files, or none made afterwards", wrong, kills, "kills");
    Clean(place.Path());
    Report("the same: files left that \"tavithumb clean\" does not remove an hour later",
           static_cast<unsigned>(CountLeft(film, &wrong) + StrangeTemporaryFiles().size()), kills, "kills");
  }

  void FillVolume() {
    const test::TempDir place;
    const std::string film = place / "film.mp4";
    unsigned wrong = 0, runs = 0;
    for (const std::size_t pages : {0U, 1U, 2U}) {
      const std::size_t size = ((content_.size() + 4095) / 4096 + pages) * 4096;
      const std::string option = "size=" + std::to_string(size);
      Require(mount("full", place.Path().c_str(), "tmpfs", 0, option.c_str()) == 0, "mount");
      fs::copy_file(film_, film);
      const Run run = Make(film);
      if (!SaysWhy(run, film) || !EntriesOf(film).empty() || test::ReadFile(film) != content_) {
        ++wrong;
        std::fprintf(stderr, "%zu pages: %d: %s\n", pages, run.code, run.err.c_str());
      }
      ++runs;
      umount2(place.Path().c_str(), MNT_DETACH);
    }
    Report("films on a full volume: no line that says so, or more files", wrong, runs, "volumes");
  }

  std::string AnyBytes(std::size_t count) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) byte = static_cast<char>(Upto(255));
    return bytes;
  }

  // Cut, overwritten in the headers or anywhere, or nothing but noise.
  std::string Damaged(unsigned turn) {
    std::string film = content_;
    if (turn % 4 == 0) return film.substr(0, Upto(film.size()));
    if (turn % 4 == 1) return AnyBytes(Upto(65536));
    const std::size_t last = turn % 4 == 2 ? film.size() - 1 : 1023;
    for (int i = 0; i < 16; ++i) film[Upto(last)] = static_cast<char>(Upto(255));
    return film;
  }

  void Damage() {
    const unsigned films = isFull_ ? 1000 : 20;
    const std::vector<std::string> types = {"mp4", "mkv", "avi", "mpg", "ts", "wmv", "flv"};
    unsigned wrong = 0;
    for (unsigned i = 0; i < films; ++i) {
      const test::TempDir place;
      const std::string film = place / ("film." + types[i % types.size()]), content = Damaged(i);
      test::WriteFile(film, content);
      if (!IsRight(Make(film), film, content)) ++wrong;
    }
    Report("films cut or damaged: neither a thumbnail nor one line that says why, or a minute", wrong, films, "films");
  }

  // Small files with frames of a quarter of a gigapixel.
  void Enlarge() {
    const std::vector<std::string> types =
        isFull_ ? std::vector<std::string>{"mkv", "avi", "mp4"} : std::vector<std::string>{"mkv"};
    unsigned wrong = 0, peak = 0, films = 0;
    for (const std::string& type : types) {
      const test::TempDir place;
      const std::string film = place / ("large." + type);
      test::MakeFilm(film, scene_, 1,
                     {"-vf", "scale=16000:16000", "-c:v", "mjpeg", "-q:v", "31", "-pix_fmt", "yuvj420p"});
      const Run run = Make(film);
      if (!IsRight(run, film, test::ReadFile(film))) ++wrong;
      peak = std::max(peak, run.peakMiB);
      ++films;
    }
    Report("films with frames of 256 megapixels: neither a thumbnail nor one line that says why", wrong, films,
           "films");
    Report("the same: most resident memory of a process, MiB (2048)", peak, films, "films", kMostMiB);
  }

  void UseNames() {
    const test::TempDir place;
    unsigned wrong = 0;
    for (const std::string& name : OddNames()) fs::copy_file(film_, place / (name + ".mp4"));
    const Run run = Make(place.Path());
    if (run.code != 0 || !run.err.empty()) ++wrong;
    for (const std::string& name : OddNames()) {
      const std::string film = place / (name + ".mp4");
      if (!HasThumbnail(film) || EntriesOf(film).size() != 1 || test::ReadFile(film) != content_) ++wrong;
    }
    if (test::Names(place.Path()).size() != OddNames().size() + 1) ++wrong;  // and the EA directory
    Report("names of films: no thumbnail, or other files", wrong, static_cast<unsigned>(OddNames().size()), "names");
  }

  // The folder of the film goes at a random moment.
  void RemoveFolders() {
    const unsigned runs = isFull_ ? 400 : 20;
    unsigned wrong = 0;
    for (unsigned i = 0; i < runs; ++i) {
      const test::TempDir place;
      fs::create_directory(place / "films");
      const std::string film = place / "films/film.mp4", gone = place / "gone/film.mp4";
      fs::copy_file(film_, film);
      Run run;
      std::thread request([&] { run = Make(film); });
      std::this_thread::sleep_for(AnyMoment());
      fs::rename(place / "films", place / "gone");
      request.join();
      unsigned broken = 0;
      const std::size_t left = CountLeft(gone, &broken);
      const bool isMade = run.code == 0 && run.err.empty() && HasThumbnail(gone);
      if (left + broken == 0 && (isMade || SaysWhy(run, film)) && test::Names(place.Path()).size() == 1) continue;
      ++wrong;
      std::fprintf(stderr, "%d: %s\n", run.code, run.err.c_str());
    }
    Report("folders of films that vanish: neither a thumbnail nor one line that says why", wrong, runs, "runs");
  }

  const bool isFull_;
  const std::string command_;
  const std::string later_;
  const test::TempDir folder_;
  const std::string scene_ = folder_ / "scene.jpg";
  const std::string film_ = folder_ / "film.mp4";
  std::string content_;
  Micros time_{};
  WholePictures pictures_;
  bool holds_ = true;
  std::mt19937 random_{20260101};
};

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  if (!tavithumb::test::HasFilmTools()) {
    std::fprintf(stderr, "stills: needs ffmpeg and ffmpegthumbnailer\n");
    return 77;
  }
  tavithumb::proof::EnterPrivateTmp();
  try {
    return tavithumb::proof::Proof(std::strcmp(argv[1], "full") == 0, argv[2], argv[3]).RunAll() ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "stills: %s\n", error.what());
    return 1;
  }
}
