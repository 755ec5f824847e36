// SPDX-License-Identifier: GPL-3.0-or-later
// Another user knows the names that the library writes to, and has created links there before. With the kernel's
// protection of links, nothing that they point to is written. Links of the process's own user show that the names were
// right, and what another user's links would do without that protection.
// planted_links quick|full
#include <sys/stat.h>
#include <sys/wait.h>
#include <tavithumb/libtavithumb.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "photos.h"
#include "pictures.h"
#include "private_tmp.h"
#include "temp_dir.h"
#include "volume_kind.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

constexpr uid_t kStranger = 65534;
constexpr std::time_t kSecondsAhead = 30;
constexpr char kSecret[] = "a secret";

// What another user can predict about a request.
struct Moment {
  std::string source;
  std::string process;
  std::string second;
};

std::string FirstRandomNumber() {
  std::srand(1);
  const std::string number = std::to_string(std::rand());
  std::srand(1);  // as in a process that has just started
  return number;
}

std::string EAEntry(const Moment& moment, const std::string& name) {
  const fs::path source(moment.source);
  return source.parent_path() / ".tavi_ea" / source.filename() / name;
}

void MakeAnimation(const std::string& path) {
  test::MakeGif(path, 200, 150, 3);
}

// The target of a link that may be followed: convert of ImageMagick 6, unlike that of 7, does not write to a file that
// does not exist yet, and a move replaces links.
enum class Leads { kAnywhere, kByConvert, kNowhere };

// One name that the library or a tool writes to.
struct Name {
  const char* what;
  const char* extension;
  void (*makeSource)(const std::string& path);
  std::string (*place)(const Moment& moment);
  Leads leads = Leads::kAnywhere;
  bool onVolumeWithoutEntries = false;
};

const std::vector<Name>& NamesToTake() {
  static const std::vector<Name> names = {
      {"/tmp/thumb.*", "jpg", MakeJpegWithPreview,
       [](const Moment& m) { return "/tmp/thumb." + m.process + "." + m.second + "." + FirstRandomNumber() + ".jpg"; }},
      {"/var/tmp/tavithumb_*", "jpg", MakeBigJpeg,
       [](const Moment& m) { return "/var/tmp/tavithumb_TAVIFILETMP_THUMB.jpg_" + m.process + "_" + m.second; },
       Leads::kAnywhere, true},
      {"/var/tmp/tavithumb_*_*", "jpg", MakeTurnedJpeg,
       [](const Moment& m) {
         return "/var/tmp/tavithumb_TAVIFILETMP_THUMB_r1.jpg_" + m.process + "_" + m.second + "_" + m.second;
       },
       Leads::kAnywhere, true},
      {"/var/tmp/convert_thumbnail__*", "gif", MakeAnimation,
       [](const Moment& m) {
         return "/var/tmp/convert_thumbnail__" + m.second + fs::path(m.source).filename().string();
       },
       Leads::kByConvert},
      {"EA: TAVIFILETMP_THUMB.jpg", "jpg", MakeBigJpeg,
       [](const Moment& m) { return EAEntry(m, "TAVIFILETMP_THUMB.jpg"); }},
      {"EA: TAVIFILETMP_THUMB_r1.jpg_*", "jpg", MakeTurnedJpeg,
       [](const Moment& m) { return EAEntry(m, "TAVIFILETMP_THUMB_r1.jpg_" + m.second); }},
      {"EA: TAVIFILETMP_THUMB.jpg_*_*", "raf", MakeRawPhoto,
       [](const Moment& m) { return EAEntry(m, "TAVIFILETMP_THUMB.jpg_" + m.process + "_" + m.second); }},
      {"EA: TAVIFILE_THUMB_S_r1.jpg, written directly", "jpg", MakeTurnedJpegWithPreview,
       [](const Moment& m) { return EAEntry(m, "TAVIFILE_THUMB_S_r1.jpg"); }, Leads::kByConvert},
      {"EA: TAVIFILE_THUMB_S.jpg, moved to", "jpg", MakeBigJpeg,
       [](const Moment& m) { return EAEntry(m, "TAVIFILE_THUMB_S.jpg"); }, Leads::kNowhere},
  };
  return names;
}

// A folder for everybody, like /tmp, with one photo in it; and a folder that belongs to another user.
class Scene {
 public:
  explicit Scene(const Name& name) : name_(name), source_(shared_ / (std::string("a.") + name.extension)) {
    name.makeSource(source_);
    if (chmod(shared_.Path().c_str(), 01777) != 0) throw std::runtime_error("chmod");
  }

  // A request, with links of `owner` in its way to an existing file, or to one that does not exist yet. True if it
  // followed them.
  bool IsLedAstray(uid_t owner, bool toExisting) {
    Prepare();
    int start[2];
    if (pipe(start) != 0) throw std::runtime_error("pipe");
    const pid_t child = fork();
    if (child == 0) Request(start);
    Plant(child, owner, toExisting ? secret_ : missing_);
    close(start[0]);
    close(start[1]);
    waitpid(child, nullptr, 0);
    for (const std::string& link : links_) unlink(link.c_str());
    links_.clear();
    return test::ReadFile(secret_) != kSecret || test::Exists(missing_);
  }

  // The same, but another user has created the whole EA directory, with the links in it; `linked` if it is a link
  // itself.
  bool IsLedAstrayByDirectory(bool linked) {
    Prepare();
    fs::remove_all(shared_ / ".tavi_ea");
    const std::string root = linked ? elsewhere_ / "strangers" : shared_ / ".tavi_ea";
    const std::string directory = root + "/" + fs::path(source_).filename().string();
    fs::create_directories(directory);
    fs::create_symlink(secret_, directory + "/TAVIFILETMP_THUMB.jpg");
    if (linked) fs::create_directory_symlink(root, shared_ / ".tavi_ea");
    for (const std::string& path : {root, directory, directory + "/TAVIFILETMP_THUMB.jpg", shared_ / ".tavi_ea"}) {
      if (lchown(path.c_str(), kStranger, kStranger) != 0) throw std::runtime_error("lchown");
    }
    const pid_t child = fork();
    if (child == 0) Ask();
    waitpid(child, nullptr, 0);
    return test::ReadFile(secret_) != kSecret || test::Names(directory).size() != 1;
  }

 private:
  void Prepare() {
    fs::remove_all(shared_ / ".tavi_ea");
    if (!file::MakeEADir(source_)) throw std::runtime_error("no EA directory");
    fs::remove(missing_);
    test::WriteFile(secret_, kSecret);
    test::SetTimes(secret_, 0, 0);  // too old to be taken for an existing thumbnail
  }

  [[noreturn]] void Request(int (&start)[2]) const {
    close(start[1]);
    char byte;
    if (read(start[0], &byte, 1) != 0) _exit(1);
    if (!name_.onVolumeWithoutEntries) Ask();
    const VolumeWithoutEntries volume;
    Ask();
  }

  [[noreturn]] void Ask() const {
    Thumb job(source_, Thumb::OPT_BROVIX_EA | Thumb::OPT_ENABLE_GIF, false);
    _exit(job.CalcOutputFile("small").empty() ? 1 : 0);
  }

  void Plant(pid_t process, uid_t owner, const std::string& target) {
    const std::time_t now = std::time(nullptr);
    for (std::time_t second = now; second < now + kSecondsAhead; ++second) {
      const std::string link = name_.place({source_, std::to_string(process), std::to_string(second)});
      if (symlink(target.c_str(), link.c_str()) != 0) break;  // a name without seconds in it
      if (lchown(link.c_str(), owner, owner) != 0) throw std::runtime_error("lchown " + link);
      links_.push_back(link);
    }
  }

  const Name& name_;
  const test::TempDir shared_;
  const test::TempDir elsewhere_;
  const std::string source_;
  const std::string secret_ = elsewhere_ / "secret";
  const std::string missing_ = elsewhere_ / "missing";
  std::vector<std::string> links_;
};

struct Tally {
  unsigned byStranger = 0;
  unsigned byOwn = 0;
  unsigned requests = 0;
  bool isAsExpected = true;
};

bool IsExpectedOfOwn(const Name& name, bool toExisting, bool isLed) {
  if (name.leads == Leads::kByConvert && !toExisting) return true;
  return isLed == (name.leads != Leads::kNowhere);
}

// Names with two times in them are missed if a second passes between the two: more attempts find them.
bool FindsOwn(Scene* scene, bool toExisting) {
  for (int i = 0; i < 5; ++i) {
    if (scene->IsLedAstray(geteuid(), toExisting)) return true;
  }
  return false;
}

void Try(const Name& name, Tally* tally) {
  Scene scene(name);
  for (const bool toExisting : {true, false}) {
    const bool byStranger = scene.IsLedAstray(kStranger, toExisting);
    const bool byOwn = FindsOwn(&scene, toExisting);
    tally->byStranger += byStranger ? 1 : 0;
    tally->byOwn += byOwn ? 1 : 0;
    ++tally->requests;
    if (!byStranger && IsExpectedOfOwn(name, toExisting, byOwn)) continue;
    tally->isAsExpected = false;
    std::fprintf(stderr, "%s to %s file: led astray by a stranger's link: %d, by an own one: %d\n", name.what,
                 toExisting ? "an existing" : "a missing", byStranger, byOwn);
  }
}

bool Prove() {
  Tally tally;
  for (const Name& name : NamesToTake()) Try(name, &tally);
  unsigned byDirectory = 0;
  Scene scene(NamesToTake()[4]);
  for (const bool linked : {false, true}) byDirectory += scene.IsLedAstrayByDirectory(linked) ? 1 : 0;
  std::printf(
      "another user's links under names about to be written, fs.protected_symlinks on: files outside written\t%u\t"
      "%u requests\n",
      tally.byStranger, tally.requests);
  std::printf(
      "links of the process's own user there, as another user's would do without that setting\t%u\t%u requests\n",
      tally.byOwn, tally.requests);
  std::printf(
      "EA directories made by another user in a sticky folder for everybody: files outside written\t%u\t"
      "2 requests\n",
      byDirectory);
  return tally.isAsExpected && byDirectory == 0;
}

}  // namespace
}  // namespace tavithumb::proof

int main() {
  tavithumb::proof::EnterPrivateTmp();
  return tavithumb::proof::Prove() ? 0 : 1;
}
