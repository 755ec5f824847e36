// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/walk.h"

#include <fcntl.h>
#include <tavithumb/util.h>

#include <cerrno>
#include <string_view>

#include "system/paths.h"
#include "thumbs/ea_folder.h"

namespace tavithumb::apps::command {
namespace {

// So much may wait to be worked on: some hundred thousand names.
constexpr std::size_t mostBytes = 16777216;
constexpr int entriesAStep = 256;

std::size_t BytesOf(const std::string& name) {
  return name.size() + 64;  // about what a container takes besides
}

std::string Joined(const std::string& folder, const std::string& name) {
  return folder + (folder.back() == '/' ? "" : "/") + name;
}

// Lists name whatever lies in a folder. What is no photo, nor may be a folder of photos, is none that was meant.
bool IsPassedOver(const std::string& name) {
  struct stat record = {};
  if (IsAmongThumbs(AbsolutePath(name))) return true;
  return !IsSupportImage(BaseName(name)) && stat(name.c_str(), &record) == 0 && !S_ISDIR(record.st_mode);
}

unsigned char TypeOf(int folder, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type;
  struct stat record = {};
  if (fstatat(folder, entry.d_name, &record, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
  return static_cast<unsigned char>(IFTODT(record.st_mode));
}

}  // namespace

Walk::Walk(std::vector<std::string> names, std::optional<NameList> list, Tell tell)
    : names_(std::make_move_iterator(names.begin()), std::make_move_iterator(names.end())),
      list_(std::move(list)),
      tell_(std::move(tell)) {}

std::optional<std::string> Walk::Next() {
  if (files_.empty()) return std::nullopt;
  std::string name = std::move(files_.front());
  files_.pop_front();
  filesBytes_ -= BytesOf(name);
  return name;
}

bool Walk::HasRoom() const {
  return filesBytes_ < mostBytes;
}

bool Walk::CanStep() const {
  return HasRoom() && (folder_ || !folders_.empty() || !names_.empty());
}

int Walk::Descriptor() const {
  return HasRoom() && !CanStep() && list_ ? list_->Descriptor() : -1;
}

void Walk::Step() {
  if (folder_) {
    ReadFolder();
  } else if (!folders_.empty()) {
    const std::string folder = std::move(folders_.back());
    folders_.pop_back();
    Open(folder, O_NOFOLLOW);
  } else if (!names_.empty()) {
    const std::string name = std::move(names_.front());
    names_.pop_front();
    TakeName(name);
  } else if (list_) {
    ReadList();
  }
}

void Walk::ReadList() {
  std::deque<std::string> names;
  if (const std::optional<Problem> problem = list_->Read(&names)) tell_(list_->Name(), *problem);
  for (std::string& name : names) {
    if (!IsPassedOver(name)) names_.push_back(std::move(name));
  }
  if (list_->HasEnded()) list_.reset();
}

// A link that is named leads to the folder behind it.
void Walk::TakeName(const std::string& name) {
  struct stat record = {};
  if (stat(name.c_str(), &record) == 0 && S_ISDIR(record.st_mode)) {
    Open(name, 0);
  } else {
    TakeFile(name);
  }
}

// A file whose folder has been looked into has come with that.
void Walk::TakeFile(const std::string& name) {
  struct stat record = {};
  if (stat(file::Dirname(name).c_str(), &record) == 0) {
    const Identity folder = {record.st_dev, record.st_ino};
    if (seenFolders_.count(folder) != 0 && IsSupportImage(BaseName(name))) return;
    if (!namedFiles_[folder].insert(BaseName(name)).second) return;
  }
  Add(name);
}

void Walk::Open(const std::string& folder, int flags) {
  if (IsAmongThumbs(AbsolutePath(folder))) return tell_(folder, FolderAmongThumbs());
  FileDescriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | flags));
  struct stat record = {};
  if (!opened.IsOpen() || fstat(opened.Number(), &record) != 0) return tell_(folder, ProblemOfErrno(errno));
  folderIdentity_ = {record.st_dev, record.st_ino};
  if (!seenFolders_.insert(folderIdentity_).second) return;
  folder_.reset(fdopendir(opened.Release()));
  if (!folder_) return tell_(folder, ProblemOfErrno(ENOMEM));
  folderName_ = folder;
}

void Walk::ReadFolder() {
  for (int i = 0; i < entriesAStep; ++i) {
    errno = 0;
    const dirent* const entry = readdir(folder_.get());  // NOLINT(concurrency-mt-unsafe): a stream of our own
    if (entry != nullptr) {
      TakeEntry(*entry);
      continue;
    }
    if (errno != 0) tell_(folderName_, ProblemOfErrno(errno));
    folder_.reset();
    return;
  }
}

void Walk::TakeEntry(const dirent& entry) {
  const std::string_view name = entry.d_name;
  if (name == "." || name == ".." || name == EAFolderName()) return;
  if (TypeOf(dirfd(folder_.get()), entry) == DT_DIR) {
    folders_.push_back(Joined(folderName_, entry.d_name));
  } else if (IsPhoto(entry)) {
    Add(Joined(folderName_, entry.d_name));
  }
}

// A file, or a link to one or to nothing, that has not been named already.
bool Walk::IsPhoto(const dirent& entry) const {
  if (!IsSupportImage(entry.d_name)) return false;
  const int folder = dirfd(folder_.get());
  const unsigned char type = TypeOf(folder, entry);
  struct stat target = {};
  if (type != DT_REG && type != DT_LNK) return false;
  if (type == DT_LNK && fstatat(folder, entry.d_name, &target, 0) == 0 && !S_ISREG(target.st_mode)) return false;
  const auto named = namedFiles_.find(folderIdentity_);
  return named == namedFiles_.end() || named->second.count(entry.d_name) == 0;
}

void Walk::Add(const std::string& name) {
  files_.push_back(name);
  filesBytes_ += BytesOf(name);
  ++count_;
}

}  // namespace tavithumb::apps::command
