// SPDX-License-Identifier: GPL-3.0-or-later
// Requests on volumes that are full, read-only, cannot store EA entries, or are unmounted during the request. With the
// command, it makes thumbnails itself on a full volume as well.
// full_disk quick|full [COMMAND]
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <tavithumb/error.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "jobs.h"
#include "pictures.h"
#include "private_tmp.h"
#include "process.h"
#include "program.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

constexpr std::uintmax_t kFree = 1048576;
constexpr std::uintmax_t kImageSize = 67108864;
constexpr int kCannotRunHere = 77;

// A file system in a file, mounted while this lives. `make` is the command that creates it, without the file's name.
class Volume {
 public:
  Volume(const std::string& folder, std::vector<std::string> make, std::uintmax_t size)
      : image_(folder + "/image"), path_(folder + "/volume") {
    fs::create_directory(path_);
    if (size != 0) {
      std::ofstream(image_).flush();
      fs::resize_file(image_, size);
    }
    make.push_back(image_);
    test::RunTool(make);
    Mount();
  }
  ~Volume() { umount2(path_.c_str(), MNT_DETACH); }
  Volume(const Volume&) = delete;
  Volume& operator=(const Volume&) = delete;

  const std::string& Path() const { return path_; }
  void Mount() const { test::RunTool({"/usr/bin/mount", "-o", "loop", image_, path_}); }
  // Detaches it; open files stay open.
  void Vanish() const { Require(umount2(path_.c_str(), MNT_DETACH) == 0, "umount2"); }
  void MakeReadOnly() const { test::RunTool({"/usr/bin/mount", "-o", "remount,ro", path_}); }

  // Leaves this much free.
  void Fill(std::uintmax_t free) const {
    const int filler = open((path_ + "/filler").c_str(), O_WRONLY | O_CREAT, 0600);
    const std::string block(4096, 'x');
    for (struct statvfs facts = {}; statvfs(path_.c_str(), &facts) == 0 && facts.f_bavail * facts.f_frsize > free;) {
      Require(write(filler, block.data(), block.size()) > 0, "write");
    }
    close(filler);
  }

 private:
  const std::string image_;
  const std::string path_;
};

const std::vector<std::string> kMakeExt4 = {"/usr/sbin/mkfs.ext4", "-q", "-F", "-m", "0", "-N", "4096"};

// ImageMagick 7 exits with 0 if the last bytes that it writes do not fit: a thumbnail broken by that is not the
// library's.
bool ConvertTellsOfFullDisk() {
  const test::TempDir folder;
  Require(mount("full", folder.Path().c_str(), "tmpfs", 0, "size=4k") == 0, "mount");
  bool tells = false;
  try {
    test::RunTool({"/usr/bin/convert", "-size", "120x60", "-seed", "1", "plasma:", folder / "a.jpg"});
  } catch (const std::runtime_error&) {
    tells = true;
  }
  umount(folder.Path().c_str());
  return tells;
}

// The answer's path, "" if there is none.
using Answering = std::function<std::string(const Kind& kind, const std::string& source)>;

std::string Answer(const Kind& kind, const std::string& source) {
  try {
    return kind.ask(source);
  } catch (const Error&) {
    return "";
  }
}

Answering AnswerOfCommand(const std::string& command) {
  return [command](const Kind&, const std::string& source) {
    const std::string line = RunProgram({command, "get", "--size", "small", source}).out;
    return line.substr(0, line.find('\n'));
  };
}

// The types that answer with a file, except those that need more than a source.
std::vector<const Kind*> FileKinds() {
  std::vector<const Kind*> kinds;
  for (const Kind& kind : Kinds()) {
    if (!kind.delivers && kind.prepare == nullptr) kinds.push_back(&kind);
  }
  return kinds;
}

// Those that the command makes as well.
std::vector<const Kind*> PlainKinds() {
  std::vector<const Kind*> kinds;
  for (const Kind* kind : FileKinds()) {
    if (IsPlain(*kind)) kinds.push_back(kind);
  }
  return kinds;
}

// One of each type, then the same again under other names; with the older thumbnails.
std::vector<Source> MakeSources(const std::vector<const Kind*>& kinds, const std::string& folder, std::size_t count) {
  std::vector<Source> sources;
  for (std::size_t i = 0; i < count; ++i) {
    const std::string place = folder + "/" + std::to_string(i);
    i < kinds.size() ? sources.emplace_back(place, *kinds[i]) : sources.emplace_back(place, sources[i - kinds.size()]);
    sources.back().Reset();
  }
  return sources;
}

struct Tally {
  unsigned requests = 0;
  unsigned answers = 0;
  unsigned broken = 0;
  std::size_t left = 0;
};

class Proof {
 public:
  explicit Proof(bool isFull) : isFull_(isFull) {}

  // Without the command if that is "".
  bool RunAll(const std::string& command) {
    FillVolume("a volume", FileKinds(), Answer, isFull_ ? kFree : kFree / 4);
    if (!command.empty()) FillVolume("the command on a volume", PlainKinds(), AnswerOfCommand(command), 4096);
    UseReadOnlyVolume();
    UseVolumeWithoutEntries();
    LoseVolume();
    return holds_;
  }

 private:
  // Requests it, and checks what is stored afterwards.
  void Ask(const Source& source, const Kind& kind, Tally* tally, const Answering& answering = Answer) {
    const std::string answer = answering(kind, source.Path());
    ++tally->requests;
    if (!answer.empty()) ++tally->answers;
    Look(source, kind, tally);
    if (!answer.empty() && !pictures_.Holds(answer)) Complain(kind, "the answer is broken", tally);
    tally->left += CountTemporaryEntries(source);
  }

  void Look(const Source& source, const Kind& kind, Tally* tally) {
    const std::string flaw = FlawInEADirectory(source, kind, pictures_);
    if (!flaw.empty()) Complain(kind, flaw, tally);
  }

  void Complain(const Kind& kind, const std::string& flaw, Tally* tally) {
    ++tally->broken;
    std::fprintf(stderr, "%s: %s\n", kind.name, flaw.c_str());
  }

  void FillVolume(const char* what, const std::vector<const Kind*>& kinds, const Answering& answering,
                  std::uintmax_t free) {
    const test::TempDir folder;
    const Volume volume(folder.Path(), kMakeExt4, kImageSize);
    const unsigned saves = isFull_ ? 200 : 60;
    const std::vector<Source> sources = MakeSources(kinds, volume.Path(), saves);
    volume.Fill(free);
    Tally full, freed;
    for (unsigned i = 0; i < saves; ++i) Ask(sources[i], *kinds[i % kinds.size()], &full, answering);
    fs::remove(volume.Path() + "/filler");
    for (unsigned i = 0; i < saves; ++i) Ask(sources[i], *kinds[i % kinds.size()], &freed, answering);
    std::printf(
        "%s with %ju KiB free: broken files under final names\t%u (%u answers, %zu files left under temporary "
        "names)\t%u saves\n",
        what, free / 1024, full.broken, full.answers, full.left, full.requests);
    std::printf("the same volume with room again: requests without a whole answer\t%u\t%u requests\n",
                freed.requests - freed.answers + freed.broken, freed.requests);
    holds_ = holds_ && freed.answers == freed.requests && full.answers < full.requests;
    if (full.broken + freed.broken == 0) return;
    holds_ = holds_ && !ConvertTellsOfFullDisk();
    std::printf("of these by convert, which says nothing of it, and is believed\tall\t%u saves\n", full.requests);
  }

  void UseReadOnlyVolume() {
    const test::TempDir folder;
    const Volume volume(folder.Path(), kMakeExt4, kImageSize);
    const std::vector<const Kind*> kinds = FileKinds();
    const std::vector<Source> sources = MakeSources(kinds, volume.Path(), kinds.size());
    volume.MakeReadOnly();
    Tally tally;
    for (std::size_t i = 0; i < kinds.size(); ++i) Ask(sources[i], *kinds[i], &tally);
    std::printf("a read-only volume: broken answers\t%u (%u answers that need no writing there)\t%u requests\n",
                tally.broken, tally.answers, tally.requests);
    holds_ = holds_ && tally.left == 0 && tally.broken == 0;
  }

  // The output of dcraw needs space on the volume itself: a raw file gets no thumbnail there.
  void UseVolumeWithoutEntries() {
    const test::TempDir folder;
    const std::vector<const Kind*> kinds = FileKinds();
    std::vector<Source> sources;
    for (const Kind* kind : kinds) sources.emplace_back(folder / "packed/" + kind->name, *kind);
    const Volume volume(folder.Path(), {"/usr/bin/mksquashfs", folder / "packed"}, 0);
    Tally tally;
    for (std::size_t i = 0; i < kinds.size(); ++i) {
      const std::string packed = sources[i].Path();
      const std::string answer = Answer(*kinds[i], volume.Path() + packed.substr((folder / "packed").size()));
      ++tally.requests;
      if (!answer.empty() && pictures_.Holds(answer)) ++tally.answers;
      for (const std::string& path : test::TemporaryFiles()) fs::remove(path);
    }
    std::printf(
        "a volume without EA writes (SquashFS): requests without a whole answer, that for a raw file\t%u\t%u "
        "requests\n",
        tally.requests - tally.answers, tally.requests);
    holds_ = holds_ && tally.answers + 1 == tally.requests;
  }

  // The volume is unmounted at a random moment of a request, and mounted again.
  void LoseVolume() {
    const test::TempDir folder;
    const Volume volume(folder.Path(), kMakeExt4, kImageSize);
    const std::vector<const Kind*> kinds = FileKinds();
    const std::vector<Source> sources = MakeSources(kinds, volume.Path(), kinds.size());
    Tally tally;
    const unsigned losses = isFull_ ? 200 : 10;
    for (unsigned i = 0; i < losses; ++i) {
      const Kind& kind = *kinds[i % kinds.size()];
      const Source& source = sources[i % kinds.size()];
      source.Reset();
      LoseVolumeDuring(volume, kind, source, &tally);
    }
    std::printf(
        "a volume lazily unmounted during a request: broken files under final names\t%u (%u answers)\t%u requests\n",
        tally.broken, tally.answers, tally.requests);
    holds_ = holds_ && tally.broken == 0;
  }

  void LoseVolumeDuring(const Volume& volume, const Kind& kind, const Source& source, Tally* tally) {
    std::string answer;
    std::thread request([&] { answer = Answer(kind, source.Path()); });
    const auto moment = std::chrono::microseconds(std::uniform_int_distribution<int>(0, 80000)(random_));
    std::this_thread::sleep_for(moment);
    volume.Vanish();
    request.join();
    volume.Mount();
    ++tally->requests;
    if (!answer.empty()) ++tally->answers;
    Look(source, kind, tally);
  }

  const bool isFull_;
  bool holds_ = true;
  WholePictures pictures_;
  std::mt19937 random_{20260101};
};

bool CanMount() {
  try {
    const test::TempDir folder;
    const Volume volume(folder.Path(), kMakeExt4, kImageSize);
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  using namespace tavithumb::proof;
  EnterPrivateTmp();
  if (!CanMount()) {
    std::fprintf(stderr, "this proof needs loop devices\n");
    return kCannotRunHere;
  }
  try {
    const std::string command = argc > 2 ? argv[2] : "";
    return Proof(argc > 1 && std::strcmp(argv[1], "full") == 0).RunAll(command) ? 0 : 1;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "full-disk: %s\n", exception.what());
    return 1;
  }
}
