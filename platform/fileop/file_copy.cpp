// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/c_boundary.h"
#include "common/descriptor.h"
#include "exported.h"
#include "fileop/staged_copy.h"

namespace tavi {
namespace {

// Prevents a power cut right after a move from losing both the source and the destination.
void SyncFolder(const Location& location) {
  const Descriptor folder(open(location.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.IsOpen()) fsync(folder.Get());
}

bool Copy(const char* source, const char* destination) {
  StagedCopy copy{Location(destination)};
  return copy.Fill(source) && copy.Publish();
}

bool MoveAcrossVolumes(const char* source, const char* destination) {
  const Location location(destination);
  StagedCopy copy(location);
  if (!copy.Fill(source) || !copy.PublishRevocably()) return false;
  SyncFolder(location);
  if (unlink(source) == 0) return true;
  copy.Withdraw();
  return false;
}

bool AreSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Whether two paths of one file are the same directory entry, reached by whatever path; the folder may ignore case.
bool AreOneName(const char* source, const char* destination) {
  const Location from(source), to(destination);
  struct stat fromFolder, toFolder;
  return strcasecmp(from.name.c_str(), to.name.c_str()) == 0 && stat(from.folder.c_str(), &fromFolder) == 0 &&
         stat(to.folder.c_str(), &toFolder) == 0 && AreSame(fromFolder, toFolder);
}

// rename() does nothing when both paths are names of one file, and across mounts of one volume the source would be
// copied over itself and then removed.
bool MoveOntoItself(const char* source, const char* destination, const struct stat& facts) {
  if (facts.st_nlink > 1 && !AreOneName(source, destination)) return unlink(source) == 0;
  return rename(source, destination) == 0 || (errno == EXDEV && AreOneName(source, destination));
}

bool Move(const char* source, const char* destination, const struct stat& facts) {
  struct stat old;
  if (lstat(destination, &old) == 0 && AreSame(facts, old)) return MoveOntoItself(source, destination, facts);
  return rename(source, destination) == 0 || (errno == EXDEV && MoveAcrossVolumes(source, destination));
}

bool IsMove(const void* options) {
  std::uint32_t words[15] = {};
  if (options != nullptr) std::memcpy(words, options, sizeof words);
  return words[1] == 1;
}

bool CopyOrMove(const char* source, const char* destination, const void* options) {
  struct stat facts;
  if (lstat(source, &facts) != 0) return false;
  if (!S_ISREG(facts.st_mode)) {
    errno = EINVAL;
    return false;
  }
  return IsMove(options) ? Move(source, destination, facts) : Copy(source, destination);
}

}  // namespace
}  // namespace tavi

int TAVIFileCopy(const char* source, const char* destination, const void* options) {
  return tavi::AtCBoundary(-1, [=] { return tavi::CopyOrMove(source, destination, options) ? 0 : -1; });
}
