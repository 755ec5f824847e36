// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/walk.h"

#include <fcntl.h>
#include <tavithumb/util.h>

#include <cerrno>
#include <string_view>

#include "command/batch/estimate.h"
#include "system/paths.h"
#include "thumbs/ea_folder.h"
#include "thumbs/kinds.h"
#include "thumbs/stored_entries.h"

namespace tavithumb::apps::command {
namespace {

// The limit of the queue: some hundred thousand names.
constexpr std::size_t maxQueueBytes = 16777216;
constexpr int entriesPerStep = 256;

std::size_t BytesOf(const std::string& name) {
  return name.size() + 64;  // about the overhead of a container
}

// "" for none; that of a hidden file is none.
std::string ExtensionOf(const std::string& path) {
  const std::string name = BaseName(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? "" : file::GetFileExt(name);
}

unsigned char TypeOf(int folder, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type;
  struct stat record = {};
  if (fstatat(folder, entry.d_name, &record, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
  return static_cast<unsigned char>(IFTODT(record.st_mode));
}

}  // namespace

Walk::Walk(std::vector<std::string> names, std::optional<NameList> list, Filter filter, OnProblem onProblem,
           OnFolder onFolder)
    : names_(std::make_move_iterator(names.begin()), std::make_move_iterator(names.end())),
      list_(std::move(list)),
      filter_(std::move(filter)),
      onProblem_(std::move(onProblem)),
      onFolder_(std::move(onFolder)) {}

std::optional<std::string> Walk::Next() {
  if (files_.empty()) return std::nullopt;
  std::string name = std::move(files_.front());
  files_.pop_front();
  filesBytes_ -= BytesOf(name);
  return name;
}

bool Walk::HasRoom() const {
  return filesBytes_ < maxQueueBytes;
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
    StartAt(name);
  } else if (list_) {
    ReadList();
  }
}

// By its name.
bool Walk::IsTaken(const std::string& name) {
  const bool isTaken = filter_.Takes(name);
  hasSkippedVideos_ = hasSkippedVideos_ || (!isTaken && IsFilm(name));
  return isTaken;
}

// Lists often contain everything below a folder: neither taken nor a folder. A name that doesn't exist is kept, so that
// it is reported.
bool Walk::IsOther(const std::string& name) {
  struct stat record = {};
  return !IsTaken(BaseName(name)) && stat(name.c_str(), &record) == 0 && !S_ISDIR(record.st_mode);
}

void Walk::ReadList() {
  std::deque<std::string> names;
  if (const std::optional<Problem> problem = list_->Read(&names)) onProblem_(list_->Name(), *problem);
  for (std::string& name : names) {
    if (name.empty() || IsInEAFolder(AbsolutePath(name))) continue;
    if (IsOther(name)) {
      PassOver(ExtensionOf(name));
    } else {
      names_.push_back(std::move(name));
    }
  }
  if (list_->HasEnded()) list_.reset();
}

// A link given as a name is followed to its folder.
void Walk::StartAt(const std::string& name) {
  struct stat record = {};
  if (stat(name.c_str(), &record) == 0 && S_ISDIR(record.st_mode)) {
    device_ = record.st_dev;
    Open(name, 0);
  } else if (!IsLeftOut(name, AT_FDCWD, name.c_str())) {
    VisitNamedFile(name);
  }
}

// Skips a file that was already found, in its folder or by the same name.
void Walk::VisitNamedFile(const std::string& name) {
  struct stat record = {};
  if (stat(file::Dirname(name).c_str(), &record) == 0) {
    const Identity folder = {record.st_dev, record.st_ino};
    if (seenFolders_.count(folder) != 0 && IsTaken(BaseName(name))) return;
    if (!namedFiles_[folder].insert(BaseName(name)).second) return;
  }
  Enqueue(name);
}

void Walk::Open(const std::string& folder, int flags) {
  if (IsInEAFolder(AbsolutePath(folder))) return onProblem_(folder, FolderAmongThumbs());
  FileDescriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | flags));
  struct stat record = {};
  if (!opened.IsOpen() || fstat(opened.Number(), &record) != 0) return onProblem_(folder, ProblemOfErrno(errno));
  folderIdentity_ = {record.st_dev, record.st_ino};
  if (filter_.staysOnFileSystem && record.st_dev != device_) return;
  if (!seenFolders_.insert(folderIdentity_).second) return;
  folder_.reset(fdopendir(opened.Release()));
  if (!folder_) return onProblem_(folder, ProblemOfErrno(ENOMEM));
  folderName_ = folder;
  onFolder_(folder);
}

void Walk::ReadFolder() {
  for (int i = 0; i < entriesPerStep; ++i) {
    errno = 0;
    const dirent* const entry =
        readdir(folder_.get());  // NOLINT(concurrency-mt-unsafe): no other thread uses this stream
    if (entry != nullptr) {
      VisitEntry(*entry);
      continue;
    }
    if (errno != 0) onProblem_(folderName_, ProblemOfErrno(errno));
    folder_.reset();
    return;
  }
}

void Walk::VisitEntry(const dirent& entry) {
  const std::string_view name = entry.d_name;
  if (name == "." || name == ".." || name == EAFolderName()) return;
  if (IsUnfinishedEADirectory(entry.d_name)) return;  // another run's, which is gone in a moment
  const std::string path = JoinPath(folderName_, entry.d_name);
  const int folder = dirfd(folder_.get());
  const unsigned char type = TypeOf(folder, entry);
  if (type == DT_DIR) {
    if (!filter_.Excludes(path)) folders_.push_back(path);
  } else if (IsTaken(entry.d_name)) {
    if (IsNewFile(entry, type) && !IsLeftOut(path, folder, entry.d_name)) Enqueue(path);
  } else if (type == DT_REG) {
    PassOver(ExtensionOf(path));
  }
}

// One that is missing is not, so that it is reported.
bool Walk::IsLeftOut(const std::string& name, int folder, const char* file) {
  struct stat record = {};
  const bool isOld = filter_.since && fstatat(folder, file, &record, 0) == 0 && filter_.IsTooOld(record);
  if (!isOld && !filter_.Excludes(name)) return false;
  PassOver("excluded");
  return true;
}

// Any number of kinds must fit into memory.
void Walk::PassOver(const std::string& kind) {
  constexpr std::size_t mostKinds = 1000;
  ++passedOver_[passedOver_.size() < mostKinds || passedOver_.count(kind) != 0 ? kind : "other"];
}

// A regular file, a link to one, or a dangling link, that has not already been found by its own name.
bool Walk::IsNewFile(const dirent& entry, unsigned char type) const {
  const int folder = dirfd(folder_.get());
  struct stat target = {};
  if (type != DT_REG && type != DT_LNK) return false;
  if (type == DT_LNK && fstatat(folder, entry.d_name, &target, 0) == 0 && !S_ISREG(target.st_mode)) return false;
  const auto named = namedFiles_.find(folderIdentity_);
  return named == namedFiles_.end() || named->second.count(entry.d_name) == 0;
}

void Walk::Enqueue(const std::string& name) {
  files_.push_back(name);
  filesBytes_ += BytesOf(name);
  ++count_;
  expectedWork_ += ExpectedMilliseconds(name);
}

}  // namespace tavithumb::apps::command
