// SPDX-License-Identifier: GPL-3.0-or-later
#include "fileop/staged_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "common/access_rights.h"
#include "common/temporary_names.h"
#include "fileop/copy_data.h"

namespace tavi {

Location::Location(const std::string& path) {
  const std::size_t slash = path.rfind('/', path.find_last_not_of('/'));
  folder = slash == std::string::npos ? "./" : path.substr(0, slash + 1);
  name = slash == std::string::npos ? path : path.substr(slash + 1);
}

// Names are relative to the folder, so that a temporary one is not too long if the destination's path is not.
StagedCopy::StagedCopy(const Location& destination)
    : folder_(open(destination.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)), name_(destination.name) {}

StagedCopy::~StagedCopy() {
  Remove(staged_);
  Remove(replaced_);
}

bool StagedCopy::Fill(const char* source) {
  const Descriptor from(open(source, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  struct stat facts;
  if (!from.IsOpen() || fstat(from.Get(), &facts) != 0) return false;
  if (!Create() || !CopyData(from.Get(), file_.Get(), facts.st_size)) return false;
  CopyUserAttributes(from.Get(), file_.Get());
  const timespec times[] = {facts.st_atim, facts.st_mtim};
  return CopyAccessRights(from.Get(), facts, file_.Get()) && futimens(file_.Get(), times) == 0 &&
         fsync(file_.Get()) == 0;
}

bool StagedCopy::Create() {
  if (!folder_.IsOpen()) return false;
  staged_ = CreateTemporary(kCopyPrefix, [this](const char* name) {
    file_ = Descriptor(openat(folder_.Get(), name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    return file_.IsOpen();
  });
  return file_.IsOpen() && fchmod(file_.Get(), S_IRUSR | S_IWUSR) == 0;  // whatever the umask
}

bool StagedCopy::RenameTo(const std::string& from, const std::string& to) const {
  return renameat(folder_.Get(), from.c_str(), folder_.Get(), to.c_str()) == 0;
}

void StagedCopy::Remove(const std::string& name) const {
  const int reason = errno;
  if (!name.empty()) unlinkat(folder_.Get(), name.c_str(), 0);
  errno = reason;
}

bool StagedCopy::Publish() {
  if (!RenameTo(staged_, name_)) return false;
  staged_.clear();
  return true;
}

bool StagedCopy::PublishRevocably() {
  struct stat old;
  const bool replaces = fstatat(folder_.Get(), name_.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISDIR(old.st_mode);
  if (!replaces) return Publish();
  if (Exchange()) return true;
  if (!SetAside()) return false;
  if (Publish()) return true;
  Withdraw();
  return false;
}

bool StagedCopy::Exchange() {
  if (renameat2(folder_.Get(), staged_.c_str(), folder_.Get(), name_.c_str(), RENAME_EXCHANGE) != 0) return false;
  replaced_.swap(staged_);
  return true;
}

// Links the previous destination to a second name, or renames it on volumes without hard links.
bool StagedCopy::SetAside() {
  replaced_ = CreateTemporary(kCopyPrefix, [this](const char* name) {
    return linkat(folder_.Get(), name_.c_str(), folder_.Get(), name, 0) == 0 || RenameTo(name_, name);
  });
  return !replaced_.empty();
}

void StagedCopy::Withdraw() {
  const int reason = errno;
  if (replaced_.empty()) {
    Remove(name_);
  } else if (RenameTo(replaced_, name_)) {
    Remove(replaced_);  // it still exists if both names belong to one file
  }
  replaced_.clear();
  errno = reason;
}

}  // namespace tavi
