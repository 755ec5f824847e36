// SPDX-License-Identifier: GPL-3.0-or-later
// Root makes, finds, adds, cleans and serves thumbnails in a user's folder, while that user puts links under every name
// that is written there, and on the way there, at random moments. Nothing is written, opened up or removed that the
// user could not have written. swapped_links PROGRAMS SWAPS
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "photos.h"
#include "pictures.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

using Arguments = std::vector<std::string>;

constexpr uid_t kUser = 41001;
constexpr char kSecret[] = "a secret";
constexpr std::time_t kLongAgo = 1000;

void Check(bool done, const std::string& what) {
  if (!done) throw std::runtime_error(what);
}

void MakePhoto(const std::string& path) {
  MakeBigJpeg(path);
  Check(chmod(path.c_str(), 0644) == 0, path);
}

// What root and others have outside the user's folder: each file with its content, mode, owner and time.
class Others {
 public:
  explicit Others(const std::string& folder) : folder_(folder) {
    // The folder of another photo's thumbnails, with one that `clean` would remove, a secret and a folder of root's.
    fs::create_directories(folder + "/entries/a.jpg");
    for (const std::string name : {"/secret", "/entries/secret", "/entries/a.jpg/TAVIFILE_THUMB_S.jpg"}) {
      test::WriteFile(folder + name, kSecret);
      Check(chmod((folder + name).c_str(), 0600) == 0, name);
      test::SetTimes(folder + name, kLongAgo, kLongAgo);
    }
    before_ = Record();
  }

  std::string Secret() const { return folder_ + "/secret"; }
  std::string Entries() const { return folder_ + "/entries"; }

  bool AreUntouched() const {
    if (Record() == before_) return true;
    std::fprintf(stderr, "before:\n%safter:\n%s", before_.c_str(), Record().c_str());
    return false;
  }

 private:
  std::string Record() const {
    std::vector<std::string> lines;
    for (const auto& entry : fs::recursive_directory_iterator(folder_)) {
      struct stat record = {};
      Check(lstat(entry.path().c_str(), &record) == 0, entry.path());
      const std::string content = S_ISREG(record.st_mode) ? test::ReadFile(entry.path()) : "";
      lines.push_back(entry.path().string() + " " + std::to_string(record.st_mode) + " " +
                      std::to_string(record.st_uid) + " " +
                      std::to_string(S_ISREG(record.st_mode) ? record.st_mtime : 0) + " " + content + "\n");
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines) text += line;
    return text;
  }

  const std::string folder_;
  std::string before_;
};

// The user's side: PLACE/photos is a folder of theirs that can be swapped for a link to one of root's.
class Attacker {
 public:
  Attacker(const std::string& place, const Others& others, unsigned swaps)
      : place_(place), others_(others), swaps_(swaps), random_(1) {}

  [[noreturn]] void Run() {
    if (setgroups(0, nullptr) != 0 || setgid(kUser) != 0 || setuid(kUser) != 0) _exit(2);
    for (unsigned i = 0; i < swaps_; ++i) {
      usleep(Random(15000));
      Swap();
      usleep(Random(40000));
      if (Random(3) != 0) Restore();
    }
    Restore();
    _exit(0);
  }

 private:
  unsigned Random(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  void Swap() {
    const std::string root = place_ + "/photos/.tavi_ea", entries = root + "/a.jpg";
    const std::vector<std::pair<std::string, std::string>> links = {
        {others_.Entries(), root},
        {others_.Entries() + "/a.jpg", entries},
        {others_.Secret(), entries + "/TAVIFILETMP_THUMB.jpg"},
        {others_.Entries() + "/new", entries + "/TAVIFILETMP_THUMB.jpg"},
        {others_.Secret(), entries + "/TAVIFILE_THUMB_S.jpg"},
        {others_.Entries() + "/new", entries + "/TAVIFILE_THUMB_S.jpg"},
        {"roots", place_ + "/photos"}};
    const auto& [target, link] = links[Random(static_cast<unsigned>(links.size()))];
    Put(target, link);
  }

  // In one step, where something is already.
  void Put(const std::string& target, const std::string& link) const {
    const std::string staged = place_ + "/staged";
    unlink(staged.c_str());
    if (symlink(target.c_str(), staged.c_str()) != 0) return;
    if (renameat2(AT_FDCWD, staged.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) != 0) {
      rename(staged.c_str(), link.c_str());
    }
  }

  // The folder, where it has been swapped; a new place for thumbnails, with everything that is the user's.
  void Restore() const {
    std::error_code ignored;
    const std::string staged = place_ + "/staged";
    if (fs::is_symlink(place_ + "/photos")) {
      renameat2(AT_FDCWD, staged.c_str(), AT_FDCWD, (place_ + "/photos").c_str(), RENAME_EXCHANGE);
    }
    fs::remove_all(place_ + "/photos/.tavi_ea", ignored);
    if (!fs::is_regular_file(staged + "/a.jpg", ignored) || fs::is_symlink(staged)) fs::remove_all(staged, ignored);
    fs::create_directories(place_ + "/photos/.tavi_ea/a.jpg", ignored);
    fs::copy_file(place_ + "/template.jpg", place_ + "/photos/ready.jpg", fs::copy_options::skip_existing, ignored);
  }

  const std::string place_;
  const Others& others_;
  const unsigned swaps_;
  std::minstd_rand random_;
};

// Runs a command to its end, whatever that is: what it says depends on the moment.
void Run(const Arguments& words) {
  const pid_t child = fork();
  if (child == 0) {
    const int nothing = open("/dev/null", O_RDWR);
    for (const int descriptor : {0, 1, 2}) dup2(nothing, descriptor);
    std::vector<char*> pointers;
    for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    execv(pointers[0], pointers.data());
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  Check(WIFEXITED(status) && WEXITSTATUS(status) != 127, "a command died");
}

// The user's folder, next to one of root's in which there is a photo of the same name: root may make its thumbnails.
void MakeFolders(const std::string& place) {
  fs::create_directories(place + "/photos");
  fs::create_directories(place + "/roots");
  MakePhoto(place + "/photos/a.jpg");
  MakePhoto(place + "/roots/a.jpg");
  test::MakeJpeg(place + "/template.jpg", 60, 40);
  for (const char* name : {"", "/photos", "/photos/a.jpg"})
    Check(chown((place + name).c_str(), kUser, kUser) == 0, name);
}

// The web program answering one request for the photo in `place`.
Arguments Served(const std::string& programs, const std::string& place, const std::string& option) {
  return {"/usr/bin/env",
          "GATEWAY_INTERFACE=CGI/1.1",
          "REQUEST_METHOD=GET",
          "REQUEST_URI=/thumb/photos/a.jpg?size=small",
          programs + "/tavithumb-web",
          "--root",
          place,
          option};
}

bool Prove(const std::string& programs, unsigned swaps) {
  const test::TempDir folder;
  Check(chmod(folder.Path().c_str(), 0755) == 0, folder.Path());
  const std::string place = folder / "place", photo = place + "/photos/a.jpg";
  fs::create_directory(folder / "others");
  MakeFolders(place);
  const std::string command = programs + "/tavithumb";
  const Others others(folder / "others");
  const pid_t attacker = fork();
  if (attacker == 0) Attacker(place, others, swaps).Run();
  unsigned runs = 0;
  for (; waitpid(attacker, nullptr, WNOHANG) == 0; ++runs) {
    const Arguments commands[] = {{command, "get", "--library", "--size", "small", photo},
                                  {command, "make", "--library", "--sizes", "small", place + "/photos"},
                                  {command, "get", "--library", "--size", "small", photo},
                                  {command, "get", "--size", "small", photo},
                                  {command, "get", "--library", "--size", "small", photo},
                                  {command, "make", "--sizes", "small", photo},
                                  {command, "get", "--library", "--size", "small", photo},
                                  {command, "add", "--size", "small", photo, place + "/photos/ready.jpg"},
                                  Served(programs, place, "--quality=75"),
                                  Served(programs, place, "--library"),
                                  {command, "clean", place + "/photos"}};
    Run(commands[runs % std::size(commands)]);
  }
  const bool isUntouched = others.AreUntouched();
  std::printf(
      "links swapped in at random moments while root works in a user's folder: files outside touched\t%d\t"
      "%u swaps, %u runs\n",
      isUntouched ? 0 : 1, swaps, runs);
  return isUntouched;
}

}  // namespace
}  // namespace tavithumb::proof

int main(int, char** arguments) {
  if (geteuid() != 0) {
    std::fprintf(stderr, "needs root\n");
    return 77;
  }
  return tavithumb::proof::Prove(arguments[1], static_cast<unsigned>(std::atoi(arguments[2]))) ? 0 : 1;
}
