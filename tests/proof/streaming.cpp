// SPDX-License-Identifier: GPL-3.0-or-later
// Writes lists of names to a running `tavithumb get --files-from -`: a million of them, names of all kinds, endless
// ones, noise, while it is killed, while folders vanish, on a full volume, and to a reader that goes away. Each name
// has its answer, or one line that says why there is none. streaming quick|full COMMAND
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>
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

using nlohmann::json;
using std::chrono::milliseconds;

// A running `tavithumb get --files-from -`, which is written to and read from by one program.
class Stream {
 public:
  Stream(const std::string& command, std::vector<std::string> options, const std::string& errors) : errors_(errors) {
    int names[2], answers[2];
    fs::remove(errors_);
    Require(pipe2(names, O_CLOEXEC) == 0 && pipe2(answers, O_CLOEXEC) == 0, "pipe2");
    std::fflush(nullptr);
    process_ = fork();
    if (process_ == 0) {
      dup2(names[0], STDIN_FILENO);
      dup2(answers[1], STDOUT_FILENO);
      Redirect({STDERR_FILENO}, errors_);
      signal(SIGPIPE, SIG_DFL);
      options.insert(options.begin(), {command, "get", "--size", "small", "--files-from", "-"});
      std::vector<char*> arguments;
      for (std::string& option : options) arguments.push_back(option.data());
      arguments.push_back(nullptr);
      execv(command.c_str(), arguments.data());
      _exit(127);
    }
    close(names[0]);
    close(answers[1]);
    names_ = names[1];
    answers_ = fdopen(answers[0], "r");
  }
  ~Stream() {
    if (process_ > 0) End(SIGKILL);
    CloseNames();
    CloseAnswers();
    std::free(line_);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  // False if the command does not read any more.
  bool Write(const std::string& text) const {
    for (std::size_t done = 0; done < text.size();) {
      const ssize_t written = write(names_, text.data() + done, text.size() - done);
      if (written == -1) return false;
      done += static_cast<std::size_t>(written);
    }
    return true;
  }
  // False at the end.
  bool Read(std::string* answer, char end = '\n') {
    const ssize_t size = getdelim(&line_, &room_, end, answers_);
    if (size < 1 || line_[size - 1] != end) return false;
    answer->assign(line_, static_cast<std::size_t>(size - 1));
    return true;
  }
  void CloseNames() {
    if (names_ != -1) close(names_);
    names_ = -1;
  }
  void CloseAnswers() {
    if (answers_ != nullptr) std::fclose(answers_);
    answers_ = nullptr;
  }

  // Waits for it and for all that it has started; returns its status.
  int End(int signal = 0) {
    if (signal != 0) kill(process_, signal);
    int end = 0, status = 0;
    rusage usage = {};
    for (pid_t ended = wait4(-1, &status, 0, &usage); ended != -1; ended = wait4(-1, &status, 0, &usage)) {
      if (ended == process_) end = status;
      peakMiB_ = std::max(peakMiB_, static_cast<unsigned>(usage.ru_maxrss / 1024));
    }
    process_ = -1;
    return end;
  }
  unsigned PeakMiB() const { return peakMiB_; }
  std::string Errors() const { return test::ReadFile(errors_); }
  std::size_t CountErrors() const {
    const std::string errors = Errors();
    return static_cast<std::size_t>(std::count(errors.begin(), errors.end(), '\n'));
  }

 private:
  const std::string errors_;
  pid_t process_ = -1;
  int names_ = -1;
  std::FILE* answers_ = nullptr;
  char* line_ = nullptr;
  std::size_t room_ = 0;
  unsigned peakMiB_ = 0;
};

bool Exits(int status, int code) {
  return WIFEXITED(status) && WEXITSTATUS(status) == code;
}

class Proof {
 public:
  Proof(bool isFull, std::string command) : isFull_(isFull), command_(std::move(command)) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    signal(SIGPIPE, SIG_IGN);
    MakeBigJpeg(photo_);
  }

  bool RunAll() {
    ReadAMillion();
    UseNames();
    ReadNoise();
    Kill();
    LeaveIt();
    MoveFolders();
    FillVolume();
    return holds_;
  }

 private:
  void Report(const char* what, std::size_t figure, std::size_t count, const char* unit, std::size_t allowed = 0) {
    std::printf("%s\t%zu\t%zu %s\n", what, figure, count, unit);
    std::fflush(stdout);
    holds_ = holds_ && figure <= allowed;
  }

  std::size_t Upto(std::size_t most) { return std::uniform_int_distribution<std::size_t>(0, most)(random_); }
  void Copy(const std::string& path) const { fs::copy_file(photo_, path); }
  static std::string Entry(const std::string& photo) { return EAEntry(photo, "TAVIFILE_THUMB_S.jpg"); }
  bool IsThumbnailOf(const std::string& photo, const std::string& answer) {
    return answer == Entry(photo) && pictures_.Holds(answer);
  }
  Stream Open(const test::TempDir& place, const std::vector<std::string>& options = {}) const {
    return {command_, options, place / "errors"};
  }

  // Stored ones and missing ones in turn, as fast as they are read.
  void ReadAMillion() {
    const std::size_t count = isFull_ ? 1000000 : 4000;
    const test::TempDir folder, place;
    std::vector<std::string> photos;
    for (int i = 0; i < 100; ++i) {
      photos.push_back(folder / ("photo " + std::to_string(i) + ".jpg"));
      Copy(photos.back());
    }
    Stream stream = Open(place);
    const auto nameOf = [&](std::size_t i) {
      return i % 2 == 0 ? photos[i / 2 % photos.size()] : folder / (std::to_string(i) + " is missing.jpg");
    };
    std::thread writer([&] {
      for (std::size_t i = 0; i < count && stream.Write(nameOf(i) + "\n"); ++i) continue;
      stream.CloseNames();
    });
    std::size_t wrong = 0, answers = 0;
    for (std::string answer; stream.Read(&answer); ++answers) {
      if (answer != (answers % 2 == 0 ? Entry(nameOf(answers)) : "")) ++wrong;
    }
    writer.join();
    if (!Exits(stream.End(), 1)) ++wrong;
    wrong += answers > count ? answers - count : count - answers;
    const std::size_t lines = stream.CountErrors();
    wrong += lines > count / 2 ? lines - count / 2 : count / 2 - lines;
    Report("a stream of names, every other one missing: no answer or no line of its own", wrong, count, "names");
    Report("the same: most resident memory of a process, MiB (64)", stream.PeakMiB(), count, "names", 64);
  }

  static bool IsValid(const std::string& name) {
    try {
      return !json(name).dump().empty();
    } catch (const json::exception&) {
      return false;
    }
  }

  // As text that ends with NUL bytes, and as JSON.
  void UseNames() {
    const test::TempDir folder, place;
    Stream texts = Open(place, {"-0"});
    std::size_t wrong = 0, names = 0;
    for (const std::string& name : OddNames()) {
      const std::string photo = folder / (name + ".jpg");
      Copy(photo);
      std::string answer;
      if (!texts.Write(photo + '\0') || !texts.Read(&answer, '\0') || !IsThumbnailOf(photo, answer)) ++wrong;
      ++names;
    }
    texts.CloseNames();
    if (!Exits(texts.End(), 0) || !texts.Errors().empty()) ++wrong;
    Stream objects = Open(place, {"--json"});
    for (const std::string& name : OddNames()) {
      if (!IsValid(name)) continue;
      const std::string photo = folder / (name + ".jpg");
      std::string answer;
      const bool isAnswered = objects.Write(json{{"file", photo}}.dump() + "\n") && objects.Read(&answer);
      if (!isAnswered || json::parse(answer).at("answer") != Entry(photo)) ++wrong;
      ++names;
    }
    objects.CloseNames();
    if (!Exits(objects.End(), 0) || !objects.Errors().empty()) ++wrong;
    Report("names in a stream: another answer than the thumbnail", wrong, names, "names");
  }

  // In each list, the name of a photo comes after what means nothing.
  void ReadNoise() {
    const std::size_t lists = isFull_ ? 1000 : 20;
    const test::TempDir folder, place;
    const std::string photo = folder / "photo.jpg", object = json{{"file", photo}}.dump();
    Copy(photo);
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < lists; ++i) {
      std::string noise(Upto(2000), '\0');
      for (char& byte : noise) byte = static_cast<char>(i % 2 == 0 ? Upto(255) : object[Upto(object.size() - 1)]);
      const auto lines = static_cast<std::size_t>(std::count(noise.begin(), noise.end(), '\n')) + 1;
      Stream stream = Open(place, {"--json"});
      stream.Write(noise + "\n" + object + "\n");
      stream.CloseNames();
      std::string answer, last;
      std::size_t answers = 0;
      for (; stream.Read(&answer); ++answers) last = answer;
      const bool isAnswered = answers == lines + 1 && json::parse(last).at("answer") == Entry(photo);
      if (!Exits(stream.End(), 1) || !isAnswered || stream.CountErrors() != lines) ++wrong;
    }
    Report("noise in a stream: a line without its answer, or the photo after it", wrong, lists, "lists");
    Stream endless = Open(place);
    const std::string block(1048576, 'x');
    for (int i = 0; i < 64 && endless.Write(block); ++i) continue;
    endless.CloseNames();
    const bool isRefused = Exits(endless.End(), 1) && endless.CountErrors() == 1;
    Report("a name of 64 MiB: not refused with one line, or more than 32 MiB",
           isRefused && endless.PeakMiB() <= 32 ? 0 : 1, 1, "names");
  }

  // It makes the thumbnails then.
  void Kill() {
    const std::size_t kills = isFull_ ? 500 : 20;
    const test::TempDir place;
    std::size_t wrong = 0, left = 0;
    for (std::size_t i = 0; i < kills; ++i) {
      const test::TempDir folder;
      std::vector<std::string> photos;
      std::string names;
      for (int j = 0; j < 8; ++j) {
        photos.push_back(folder / (std::to_string(j) + ".jpg"));
        Copy(photos.back());
        names += photos.back() + "\n";
      }
      Stream stream = Open(place);
      stream.Write(names);
      for (std::size_t j = Upto(7); j > 0; --j) {
        std::string answer;
        if (!stream.Read(&answer)) ++wrong;
      }
      std::this_thread::sleep_for(milliseconds(Upto(40)));
      stream.End(SIGKILL);
      for (const std::string& photo : photos) {
        if (test::Exists(EADirectory(photo))) left += CountLeft(photo, &wrong);
        if (!test::Exists(photo)) ++wrong;
      }
      for (const std::string& path : test::TemporaryFiles()) left += fs::remove(path) ? 1 : 0;
      if (!StrangeTemporaryFiles().empty()) ++wrong;
    }
    std::printf("a stream killed: files left, all under temporary names\t%zu\t%zu kills\n", left, kills);
    Report("a stream killed: broken thumbnails, or other files", wrong, kills, "kills");
  }

  // How many files are left under temporary names; all others must be whole thumbnails.
  std::size_t CountLeft(const std::string& photo, std::size_t* wrong) {
    std::size_t left = 0;
    for (const std::string& name : test::Names(EADirectory(photo))) {
      if (file::ParseTemporaryEntry(name)) {
        ++left;
      } else if (!pictures_.Holds(EAEntry(photo, name))) {
        ++*wrong;
      }
    }
    return left;
  }

  // It ends as quietly as other programs in a pipe.
  void LeaveIt() {
    const std::size_t readers = isFull_ ? 200 : 10;
    const test::TempDir folder, place;
    const std::string photo = folder / "photo.jpg";
    Copy(photo);
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < readers; ++i) {
      Stream stream = Open(place);
      std::string answer;
      for (std::size_t j = Upto(5); j > 0; --j) {
        if (!stream.Write(photo + "\n") || !stream.Read(&answer) || !IsThumbnailOf(photo, answer)) ++wrong;
      }
      stream.CloseAnswers();
      while (stream.Write(photo + "\n")) continue;
      stream.End();
      if (!stream.Errors().empty()) ++wrong;
    }
    Report("readers that go away: a line, or no end", wrong, readers, "readers");
  }

  // Between two names and in the middle of making a thumbnail.
  void MoveFolders() {
    const std::size_t moves = isFull_ ? 400 : 20;
    const test::TempDir folder, place;
    Stream stream = Open(place);
    std::size_t wrong = 0, refused = 0;
    for (std::size_t i = 0; i < moves; ++i) {
      const std::string album = folder / std::to_string(i), gone = album + " gone";
      fs::create_directory(album);
      Copy(album + "/photo.jpg");
      stream.Write(album + "/photo.jpg\n");
      std::this_thread::sleep_for(std::chrono::microseconds(Upto(8000)));
      fs::rename(album, gone);
      std::string answer;
      if (!stream.Read(&answer)) ++wrong;
      if (answer.empty()) ++refused;
      const std::string photo = gone + "/photo.jpg";
      if (test::Exists(EADirectory(photo)) && CountLeft(photo, &wrong) != 0) ++wrong;
      if (test::Exists(album) || !test::Exists(photo)) ++wrong;
    }
    stream.CloseNames();
    if (!Exits(stream.End(), refused == 0 ? 0 : 1) || stream.CountErrors() != refused) ++wrong;
    std::printf("folders that vanish: photos that have no answer\t%zu\t%zu folders\n", refused, moves);
    Report("folders that vanish: no answer and no line that says why, or broken thumbnails", wrong, moves, "folders");
  }

  // There is no place for the thumbnails.
  void FillVolume() {
    const test::TempDir folder, place;
    Require(mount("full", folder.Path().c_str(), "tmpfs", 0, "size=1m") == 0, "mount");
    const std::string photo = folder / "photo.jpg";
    Copy(photo);
    test::WriteFile(folder / "filler", std::string(1048576, 'x'));
    Stream stream = Open(place);
    std::size_t wrong = 0;
    for (std::size_t i = 1; i <= 10; ++i) {
      std::string answer;
      const bool isAnswered = stream.Write(photo + "\n") && stream.Read(&answer);
      if (!isAnswered || !answer.empty() || stream.CountErrors() != i) ++wrong;
    }
    fs::remove(folder / "filler");
    std::string answer;
    if (!stream.Write(photo + "\n") || !stream.Read(&answer) || !IsThumbnailOf(photo, answer)) ++wrong;
    stream.CloseNames();
    if (!Exits(stream.End(), 1) || test::Names(EADirectory(photo)).size() != 1) ++wrong;
    Report("photos on a full volume: no line that says why, or none made when there is space again", wrong, 11,
           "requests");
    umount2(folder.Path().c_str(), MNT_DETACH);
  }

  const bool isFull_;
  const std::string command_;
  const test::TempDir model_;
  const std::string photo_ = model_ / "photo.jpg";
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
    std::fprintf(stderr, "streaming: %s\n", error.what());
    return 1;
  }
}
