// SPDX-License-Identifier: GPL-3.0-or-later
#include "jobs.h"

#include <sys/stat.h>
#include <tavithumb/libtavithumb.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "photos.h"
#include "pictures.h"
#include "temp_dir.h"
#include "volume_kind.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

constexpr int kBrovix = Thumb::OPT_BROVIX_EA;
constexpr std::time_t kSourceTime = 1600000000;

std::string Ask(const std::string& source, int options, int turns = 0, const std::string& size = "small") {
  Thumb job(source, options, false);
  job.Rotate(turns);
  return job.CalcOutputFile(size);
}

std::string Deliver(const std::string& source, int options, int turns) {
  Thumb job(source, options, false);
  job.Rotate(turns);
  return job.Output("small") ? job.GetOutputFile() : "";
}

void MakeSmallPng(const std::string& source) {
  test::MakePng(source, 300, 200);
}

std::string Ready(const std::string& source) {
  return source + ".ready.jpg";
}

void PutReadyThumbnail(const std::string& source) {
  test::MakeJpeg(Ready(source), 120, 80);
}

void StoreForAlbumex(const std::string& source) {
  test::MakeJpeg(source + ".albumex.jpg", 120, 80);
  fs::create_directories(EADirectory(source));
  fs::rename(source + ".albumex.jpg", EAEntry(source, "TAVIPHOTO_THUMB_S.jpg"));
}

std::string StoreReadyThumbnail(const std::string& source) {
  Thumb job(source, kBrovix, false);
  return job.SaveExistingThumbsToEA({{"small", Ready(source)}}, 0, true) ? job.GetOnlineOutputDest() : "";
}

std::string AskWithoutEAWrites(const std::string& source) {
  const VolumeWithoutEntries volume;
  return Ask(source, kBrovix);
}

std::string BatchAll(const std::string& source) {
  Thumb job(source, kBrovix, false);
  job.CalcOutputFile("original");  // reads the facts
  return job.ConvertAll() ? job.GetOutputFile() : "";
}

bool Decodes(const std::string& path) {
  try {
    test::RunTool({"/usr/bin/convert", "-regard-warnings", path, "null:"});
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

dev_t VolumeOf(const std::string& path) {
  struct stat record = {};
  return stat(path.c_str(), &record) == 0 ? record.st_dev : 0;
}

bool IsOnOtherVolume(const std::string& path, const std::string& other) {
  return VolumeOf(path) != VolumeOf(other);
}

const char kSmallJpeg[] = "TAVIFILE_THUMB_S.jpg";

}  // namespace

const std::vector<Kind>& Kinds() {
  static const std::vector<Kind> kinds = {
      {"JPEG", "jpg", MakeBigJpeg, [](const std::string& source) { return Ask(source, kBrovix); }, kSmallJpeg},
      {"turned JPEG", "jpg", MakeTurnedJpeg, [](const std::string& source) { return Ask(source, kBrovix); },
       "TAVIFILE_THUMB_S_r1.jpg"},
      {"PNG", "png", MakeSmallPng, [](const std::string& source) { return Ask(source, kBrovix); },
       "TAVIFILE_THUMB_S.png", false},
      {"avatar", "png", MakeSmallPng, [](const std::string& source) { return Ask(source, Thumb::OPT_AVATAR); },
       "TAVIAVATAR_120x120.png"},
      {"GIF", "gif", [](const std::string& source) { test::MakeGif(source, 300, 200, 3); },
       [](const std::string& source) { return Ask(source, kBrovix | Thumb::OPT_ENABLE_GIF); }, "TAVIFILE_THUMB_S.gif"},
      {"raw", "raf", MakeRawPhoto, [](const std::string& source) { return Ask(source, kBrovix); }, kSmallJpeg},
      {"HEIC", "heic", [](const std::string& source) { test::MakeHeic(source, 256, 128, true); },
       [](const std::string& source) { return Ask(source, kBrovix); }, kSmallJpeg},
      {"preview", "jpg", MakeJpegWithPreview, [](const std::string& source) { return Ask(source, kBrovix); },
       kSmallJpeg, true, nullptr, false, false, false, true},
      {"turned preview", "jpg", MakeTurnedJpegWithPreview,
       [](const std::string& source) { return Ask(source, kBrovix); }, "TAVIFILE_THUMB_S_r1.jpg", true, nullptr, true},
      {"batch", "jpg", MakeBigJpeg, BatchAll, kSmallJpeg, false},
      {"ready thumbnail", "jpg", MakeBigJpeg, StoreReadyThumbnail, kSmallJpeg, true, PutReadyThumbnail},
      {"volume without entries", "jpg", MakeBigJpeg, AskWithoutEAWrites, "", false},
      {"delivery", "png", MakeSmallPng, [](const std::string& source) { return Deliver(source, kBrovix, 0); },
       "TAVIFILE_THUMB_S.png", true, nullptr, false, true},
      {"turned delivery", "jpg", MakeBigJpeg,
       [](const std::string& source) { return Deliver(source, Thumb::OPT_ALBUMEX_EA, 1); }, "", false, StoreForAlbumex,
       false, true, true},
  };
  return kinds;
}

bool IsPlain(const Kind& kind) {
  const std::vector<std::string> plain = {"JPEG", "turned JPEG", "PNG", "raw", "HEIC", "preview", "turned preview"};
  return std::find(plain.begin(), plain.end(), kind.name) != plain.end();
}

std::string EADirectory(const std::string& source) {
  const fs::path path(source);
  return path.parent_path() / ".tavi_ea" / path.filename();
}

std::string EAEntry(const std::string& source, const std::string& name) {
  return EADirectory(source) + "/" + name;
}

Source::Source(const std::string& folder, const Kind& kind)
    : kind_(&kind), folder_(folder), path_(folder + "/p" + std::to_string(getpid()) + "-a." + kind.extension) {
  fs::create_directories(folder_);
  kind.makeSource(path_);
  test::SetTimes(path_, kSourceTime, kSourceTime);
  content_ = std::make_shared<const std::string>(test::ReadFile(path_));
  test::MakeJpeg(folder_ + "/older", 60, 40);
  test::SetTimes(folder_ + "/older", kSourceTime - 1, kSourceTime - 1);
}

Source::Source(const std::string& folder, const Source& model)
    : kind_(model.kind_),
      folder_(folder),
      path_(folder + "/" + fs::path(model.path_).filename().string()),
      content_(model.content_) {
  fs::create_directories(folder_);
  fs::create_hard_link(model.path_, path_);
  fs::create_hard_link(model.folder_ + "/older", folder_ + "/older");
}

void Source::Reset() const {
  fs::remove_all(folder_ + "/.tavi_ea");
  if (kind_->hasOlder) {
    fs::create_directories(EADirectory(path_));
    const std::string older = EAEntry(path_, kind_->entry);
    fs::copy_file(folder_ + "/older", older);
    test::SetTimes(older, kSourceTime - 1, kSourceTime - 1);
  }
  if (kind_->prepare != nullptr) kind_->prepare(path_);
}

void Source::GiveTo(uid_t user, gid_t group) const {
  std::vector<std::string> all = {folder_};
  for (const auto& entry : fs::recursive_directory_iterator(folder_)) all.push_back(entry.path());
  for (const std::string& path : all) {
    if (chown(path.c_str(), user, group) != 0) throw std::runtime_error("chown " + path);
  }
}

bool Source::IsUntouched() const {
  return test::ModificationTime(path_) == kSourceTime && test::ReadFile(path_) == *content_;
}

bool WholePictures::Holds(const std::string& path) {
  const std::string content = test::ReadFile(path);
  const auto [entry, isNew] = known_.try_emplace(content, false);
  if (isNew) entry->second = !content.empty() && Decodes(path);
  return entry->second;
}

std::string FlawInEADirectory(const Source& source, const Kind& kind, WholePictures& pictures) {
  for (const std::string& name : test::Names(EADirectory(source.Path()))) {
    if (file::ParseTemporaryEntry(name)) continue;
    if (name.rfind("TAVI", 0) != 0) return "there is an entry " + name;
    if (!pictures.Holds(EAEntry(source.Path(), name))) return name + " is no whole picture";
  }
  const bool mayBeLost = kind.writesFinalName || (kind.comesFromTmp && IsOnOtherVolume(source.Path(), "/tmp"));
  const bool kept = !kind.hasOlder || mayBeLost || test::Exists(EAEntry(source.Path(), kind.entry));
  return kept ? "" : "the older thumbnail is gone";
}

std::size_t CountTemporaryEntries(const Source& source) {
  const std::vector<std::string> names = test::Names(EADirectory(source.Path()));
  return static_cast<std::size_t>(std::count_if(
      names.begin(), names.end(), [](const std::string& name) { return file::ParseTemporaryEntry(name).has_value(); }));
}

std::vector<std::string> StrangeTemporaryFiles() {
  std::vector<std::string> strangers;
  const std::vector<std::string> own = test::TemporaryFiles();
  for (const std::string folder : {"/tmp", "/var/tmp"}) {
    for (const std::string& name : test::Names(folder)) {
      const std::string path = folder + "/" + name;
      const bool isOwn = std::find(own.begin(), own.end(), path) != own.end();
      if (!isOwn && name.rfind("tavithumb-test-", 0) != 0) strangers.push_back(path);
    }
  }
  return strangers;
}

}  // namespace tavithumb::proof
