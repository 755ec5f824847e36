// SPDX-License-Identifier: GPL-3.0-or-later
// Has the command watch folders to which many files are copied at once, while it is killed at random moments, while
// folders come and go, on a full volume, and with names of all kinds: in the end each photo that is there has its
// thumbnail, and nothing else is left. watching quick|full COMMAND
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
#include <ctime>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "jobs.h"
#include "odd_names.h"
#include "photos.h"
#include "pictures.h"
#include "private_tmp.h"
#include "process.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr char kEntry[] = "TAVIFILE_THUMB_S.jpg";
constexpr std::chrono::minutes kLongest(5);  // until what has to come has come

// A running `tavithumb watch`.
class Watcher {
 public:
  Watcher(const std::string& command, const std::string& folder, const std::string& place)
      : out_(place + "/out"), err_(place + "/err") {
    std::fflush(nullptr);
    process_ = fork();
    if (process_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Redirect({STDIN_FILENO}, "/dev/null");
    Redirect({STDOUT_FILENO}, out_);
    Redirect({STDERR_FILENO}, err_);
    unsetenv("HOME");
    unsetenv("XDG_STATE_HOME");
    execl(command.c_str(), command.c_str(), "watch", "--eager", "--verbose", "--sizes", "small", "--", folder.c_str(),
          nullptr);
    _exit(127);
  }
  ~Watcher() {
    if (process_ > 0) End(SIGKILL);
  }
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  int End(int signal) {
    int status = 0;
    kill(process_, signal);
    waitpid(process_, &status, 0);
    process_ = -1;
    return status;
  }
  pid_t Process() const { return process_; }
  std::string Out() const { return test::ReadFile(out_); }
  std::size_t Lines() const {
    const std::string out = Out();
    return static_cast<std::size_t>(std::count(out.begin(), out.end(), '\n'));
  }
  std::string Err() const { return test::ReadFile(err_); }

 private:
  std::string out_, err_;
  pid_t process_ = -1;
};

bool Becomes(const std::function<bool()>& isTrue) {
  const auto end = Clock::now() + kLongest;
  while (!isTrue()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(milliseconds(50));
  }
  return true;
}

unsigned ResidentMiB(pid_t process) {
  std::istringstream status(test::ReadFile("/proc/" + std::to_string(process) + "/status"));
  unsigned kib = 0;
  for (std::string word; status >> word;) {
    if (word == "VmHWM:") status >> kib;
  }
  return kib / 1024;
}

// Of the process and its children, the most that each has had.
unsigned ResidentMiBWithChildren(pid_t process) {
  const std::string name = "/proc/" + std::to_string(process);
  std::istringstream children(test::ReadFile(name + "/task/" + std::to_string(process) + "/children"));
  unsigned sum = ResidentMiB(process);
  for (pid_t child = 0; children >> child;) sum += ResidentMiB(child);
  return sum;
}

class Proof {
 public:
  Proof(bool isFull, std::string command) : isFull_(isFull), command_(std::move(command)) {
    test::MakeJpeg(photo_, 400, 300);
    test::MakeJpeg(small_, 64, 48);
  }

  bool RunAll() {
    CopyAtOnce();
    HoldManyFolders();
    Kill();
    MoveFolders();
    FillVolume();
    UseNames();
    return holds_;
  }

 private:
  void Report(const char* what, std::size_t figure, std::size_t count, const char* unit, std::size_t allowed = 0) {
    std::printf("%s\t%zu\t%zu %s\n", what, figure, count, unit);
    std::fflush(stdout);
    holds_ = holds_ && figure <= allowed;
  }

  void Copy(const std::string& path) const { fs::copy_file(photo_, path); }
  bool IsMade(const std::string& photo) { return pictures_.Holds(EAEntry(photo, kEntry)); }

  // How many photos below `folder` lack their thumbnail.
  std::size_t Lacking(const std::string& folder) {
    std::size_t lacking = 0;
    for (const std::string& photo : PhotosIn(folder)) lacking += IsMade(photo) ? 0 : 1;
    return lacking;
  }

  static std::vector<std::string> PhotosIn(const std::string& folder) {
    std::vector<std::string> photos;
    for (auto entry = fs::recursive_directory_iterator(folder); entry != fs::recursive_directory_iterator(); ++entry) {
      if (entry->path().filename() == ".tavi_ea") {
        entry.disable_recursion_pending();
      } else if (entry->path().extension() == ".jpg") {
        photos.push_back(entry->path());
      }
    }
    return photos;
  }

  // Files below EA folders other than the thumbnails of photos that are there; empty folders are left for an hour.
  static std::size_t Leftovers(const std::string& folder) {
    std::size_t left = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      const fs::path& path = entry.path();
      if (!entry.is_regular_file() || path.parent_path().parent_path().filename() != ".tavi_ea") continue;
      const fs::path photo = path.parent_path().parent_path().parent_path() / path.parent_path().filename();
      if (path.filename() != kEntry || !fs::exists(photo)) ++left;
    }
    return left;
  }

  void CopyAtOnce() {
    const std::size_t count = isFull_ ? 10000 : 200;
    const test::TempDir folder, place;
    Watcher watcher(command_, folder.Path(), place.Path());
    Require(Becomes([&] { return watcher.Err().find("watching") != std::string::npos; }), "it does not watch");
    for (std::size_t i = 0; i < count; ++i) Copy(folder / (std::to_string(i) + ".jpg"));
    Becomes([&] { return watcher.Lines() >= count; });
    watcher.End(SIGTERM);
    std::map<std::string, std::size_t> made;
    std::istringstream lines(watcher.Out());
    for (std::string line; std::getline(lines, line);) {
      if (line.find(": made small") != std::string::npos) ++made[line];
    }
    const auto isTwice = [](const auto& line) { return line.second > 1; };
    Report("files copied at once: without a thumbnail", Lacking(folder.Path()), count, "files");
    Report("files copied at once: thumbnails made twice",
           static_cast<std::size_t>(std::count_if(made.begin(), made.end(), isTwice)), count, "files");
  }

  // Small photos, which need no thumbnails: what counts is that they are there.
  void HoldManyFolders() {
    const std::size_t folders = isFull_ ? 10000 : 100;
    const test::TempDir folder, place;
    for (std::size_t i = 0; i < folders; ++i) {
      const std::string album = folder / (std::to_string(i / 100) + "/an album with a long name " + std::to_string(i));
      fs::create_directories(album);
      for (int j = 0; j < 10; ++j) fs::create_hard_link(small_, album + "/photo " + std::to_string(j) + ".jpg");
    }
    Watcher watcher(command_, folder.Path(), place.Path());
    Require(Becomes([&] { return watcher.Lines() >= 10 * folders; }), "not all files were looked at");
    Report("resident memory with its workers, MiB (64)", ResidentMiBWithChildren(watcher.Process()), 10 * folders,
           "files in a tenth as many folders", 64);
    Require(WIFEXITED(watcher.End(SIGTERM)), "it was killed");
  }

  // What is cut off is found by the next start.
  void Kill() {
    const unsigned kills = isFull_ ? 100 : 4;
    const test::TempDir folder, place;
    unsigned photos = 0;
    for (unsigned i = 0; i < kills; ++i) {
      Watcher watcher(command_, folder.Path(), place.Path());
      for (int j = 0; j < 20; ++j) Copy(folder / (std::to_string(photos++) + ".jpg"));
      std::this_thread::sleep_for(milliseconds(std::uniform_int_distribution<int>(0, 3000)(random_)));
      watcher.End(SIGKILL);
    }
    Watcher watcher(command_, folder.Path(), place.Path());
    Becomes([&] { return Lacking(folder.Path()) == 0; });
    watcher.End(SIGTERM);
    std::printf("killed at random moments: files left\t%zu\t%u kills\n", Leftovers(folder.Path()), kills);
    Report("killed at random moments: photos without their thumbnail in the end", Lacking(folder.Path()), photos,
           "photos");
  }

  void MoveFolders() {
    const unsigned moves = isFull_ ? 400 : 20;
    const test::TempDir folder, place, elsewhere;
    Watcher watcher(command_, folder.Path(), place.Path());
    for (unsigned i = 0; i < moves; ++i) {
      const std::string album = folder / std::to_string(i);
      fs::create_directories(album + "/inner");
      for (const char* name : {"/a.jpg", "/inner/b.jpg"}) Copy(album + name);
      std::this_thread::sleep_for(milliseconds(std::uniform_int_distribution<int>(0, 300)(random_)));
      const std::string older = folder / std::to_string(i - std::min(i, random_() % 20 == 0 ? 0U : 10U));
      std::error_code gone;
      if (i % 4 == 0) fs::remove_all(older, gone);
      if (i % 4 == 1) fs::rename(older, folder / ("moved-" + std::to_string(i)), gone);
      if (i % 4 == 2) fs::rename(older, elsewhere / std::to_string(i), gone);
    }
    Becomes([&] { return Lacking(folder.Path()) == 0; });
    Require(kill(watcher.Process(), 0) == 0 && WIFEXITED(watcher.End(SIGTERM)), "it has ended");
    Report("folders that come and go: photos without their thumbnail in the end", Lacking(folder.Path()), moves,
           "folders");
    Report("folders that come and go: thumbnails without their photo", Leftovers(folder.Path()), moves, "folders");
  }

  static void Fill(const std::string& filler) {
    const int file = open(filler.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const std::string page(4096, 'x');
    while (write(file, page.data(), page.size()) > 0) continue;
    close(file);
  }

  // The photo is written once more while there is no space, and then while there is.
  void FillVolume() {
    const test::TempDir folder, place;
    Require(mount("full", folder.Path().c_str(), "tmpfs", 0, "size=4m") == 0, "mount");
    const std::string photo = folder / "photo.jpg", line = "tavithumb: " + photo + ": ";
    MakeBigJpeg(photo);
    Watcher watcher(command_, folder.Path(), place.Path());
    Require(Becomes([&] { return IsMade(photo); }), "no thumbnail is made");
    Fill(folder / "filler");
    test::SetTimes(photo, std::time(nullptr), std::time(nullptr));
    const bool isSaid = Becomes([&] { return watcher.Err().find(line) != std::string::npos; });
    fs::remove(folder / "filler");
    test::SetTimes(photo, std::time(nullptr), std::time(nullptr));
    const bool isMade = Becomes([&] { return watcher.Lines() >= 3 && IsMade(photo); });
    watcher.End(SIGTERM);
    Report("a full volume: no line that says so, or no thumbnail when there is space again", isSaid && isMade ? 0 : 1,
           1, "volumes");
    umount2(folder.Path().c_str(), MNT_DETACH);
  }

  void UseNames() {
    const test::TempDir folder, place;
    Watcher watcher(command_, folder.Path(), place.Path());
    for (const std::string& name : OddNames()) Copy(folder / (name + ".jpg"));
    Becomes([&] { return Lacking(folder.Path()) == 0; });
    watcher.End(SIGTERM);
    Report("names of files: photos without their thumbnail", Lacking(folder.Path()), OddNames().size(), "names");
  }

  const bool isFull_;
  const std::string command_;
  const test::TempDir model_;
  const std::string photo_ = model_ / "photo.jpg";
  const std::string small_ = model_ / "small.jpg";
  WholePictures pictures_;
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
    std::fprintf(stderr, "watching: %s\n", error.what());
    return 1;
  }
}
