// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/descriptor.h"
#include "common/transfer.h"
#include "exported.h"

namespace tavi {
namespace {

// With a slash at its end.
std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

bool CopyData(int from, int to) {
  std::array<char, kTransferSize> data;
  ssize_t got;
  while ((got = ReadSome(from, data.data(), data.size())) > 0) {
    if (!WriteAll(to, data.data(), static_cast<std::size_t>(got))) return false;
  }
  return got == 0;
}

// Owner, mode and times. Only the superuser can give files away; the copy of another is its maker's own, and then
// runs with nobody else's rights either.
bool CopyAttributes(const struct stat& facts, int to) {
  mode_t mode = facts.st_mode & 07777;
  if (fchown(to, facts.st_uid, facts.st_gid) != 0) {
    if (errno != EPERM || geteuid() == 0) return false;
    mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID);
  }
  const timespec times[] = {facts.st_atim, facts.st_mtim};
  return fchmod(to, mode) == 0 && futimens(to, times) == 0;
}

// A copy under a temporary name beside its destination; what bears that name in the end is removed.
class StagedCopy {
 public:
  explicit StagedCopy(const char* destination)
      : destination_(destination), path_(FolderOf(destination) + ".tavi_copy.XXXXXX") {
    file_ = Descriptor(mkostemp(path_.data(), O_CLOEXEC));
  }
  ~StagedCopy() {
    const int reason = errno;
    if (file_.IsOpen()) unlink(path_.c_str());
    errno = reason;
  }
  StagedCopy(const StagedCopy&) = delete;
  StagedCopy& operator=(const StagedCopy&) = delete;

  bool Fill(const char* source) {
    const Descriptor from(open(source, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    struct stat facts;
    return file_.IsOpen() && from.IsOpen() && fstat(from.Get(), &facts) == 0 && CopyData(from.Get(), file_.Get()) &&
           CopyAttributes(facts, file_.Get()) && fsync(file_.Get()) == 0;
  }

  bool Publish() { return rename(path_.c_str(), destination_.c_str()) == 0; }

  // Publishes it so that Withdraw() can bring back what was there before.
  bool PublishRevocably() {
    struct stat old;
    existed_ = lstat(destination_.c_str(), &old) == 0;
    exchanged_ = existed_ && !S_ISDIR(old.st_mode) &&
                 renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, destination_.c_str(), RENAME_EXCHANGE) == 0;
    return exchanged_ || Publish();
  }

  // A file system that can't exchange names keeps the new content, rather than none.
  void Withdraw() {
    const int reason = errno;
    if (exchanged_) {
      Publish();
    } else if (!existed_) {
      unlink(destination_.c_str());
    }
    errno = reason;
  }

 private:
  std::string destination_;
  std::string path_;
  Descriptor file_;
  bool existed_ = false;
  bool exchanged_ = false;
};

// So that a power cut right after a move doesn't find the source gone and the destination not there yet.
void SyncFolderOf(const char* path) {
  const Descriptor folder(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.IsOpen()) fsync(folder.Get());
}

bool Copy(const char* source, const char* destination) {
  StagedCopy copy(destination);
  return copy.Fill(source) && copy.Publish();
}

bool MoveAcrossVolumes(const char* source, const char* destination) {
  StagedCopy copy(destination);
  if (!copy.Fill(source) || !copy.PublishRevocably()) return false;
  SyncFolderOf(destination);
  if (unlink(source) == 0) return true;
  copy.Withdraw();
  return false;
}

bool Move(const char* source, const char* destination) {
  return rename(source, destination) == 0 || (errno == EXDEV && MoveAcrossVolumes(source, destination));
}

bool IsMove(const void* options) {
  std::uint32_t words[15] = {};
  if (options != nullptr) std::memcpy(words, options, sizeof words);
  return words[1] == 1;
}

}  // namespace
}  // namespace tavi

int TAVIFileCopy(const char* source, const char* destination, const void* options) {
  struct stat facts;
  if (lstat(source, &facts) != 0) return -1;
  if (!S_ISREG(facts.st_mode)) {
    errno = EINVAL;
    return -1;
  }
  const bool done = tavi::IsMove(options) ? tavi::Move(source, destination) : tavi::Copy(source, destination);
  return done ? 0 : -1;
}
