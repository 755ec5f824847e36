// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/failed_files.h"

#include <fcntl.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "system/paths.h"

namespace tavithumb::apps::command {
namespace {

// About four megabytes: then all are tried once more.
constexpr std::size_t mostVersions = 100000;
constexpr auto recordBytes = static_cast<ssize_t>(sizeof(FailedFiles::Version));

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): there is one thread
  return value == nullptr ? "" : value;
}

std::uint64_t Nanoseconds(const timespec& time) {
  return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 + static_cast<std::uint64_t>(time.tv_nsec);
}

// Root does not write into the homes of others.
bool IsOwn(const std::string& folder) {
  struct stat record = {};
  return stat(folder.c_str(), &record) == 0 && record.st_uid == geteuid();
}

// Only for their owner.
void MakeFolders(const std::string& folder) {
  if (folder.size() <= 1 || mkdir(folder.c_str(), 0700) == 0 || errno != ENOENT) return;
  MakeFolders(file::Dirname(folder));
  mkdir(folder.c_str(), 0700);
}

FileDescriptor OpenRecords(const std::string& path, bool forgets) {
  if (path.empty()) return FileDescriptor();
  MakeFolders(file::Dirname(path));
  const int flags = O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC | (forgets ? O_TRUNC : 0);
  return FileDescriptor(open(path.c_str(), flags, 0600));
}

}  // namespace

FailedFiles::FailedFiles(const std::string& path, bool forgets) : file_(OpenRecords(path, forgets)) {
  if (file_.IsOpen()) Read();
}

// What was cut off, as by a full disk, would make nonsense of what follows it.
void FailedFiles::Read() {
  Version version = {};
  ssize_t size;
  while (versions_.size() <= mostVersions &&
         (size = read(file_.Number(), version.data(), recordBytes)) == recordBytes) {
    versions_.insert(version);
  }
  if (versions_.size() <= mostVersions && size == 0) return;
  versions_.clear();
  if (ftruncate(file_.Number(), 0) != 0) file_ = FileDescriptor();
}

std::optional<FailedFiles::Version> FailedFiles::VersionOf(const std::string& path, bool byLibrary) {
  struct stat record = {};
  if (stat(path.c_str(), &record) != 0) return std::nullopt;
  return Version{record.st_dev, record.st_ino * 2 + (byLibrary ? 1 : 0), static_cast<std::uint64_t>(record.st_size),
                 Nanoseconds(record.st_mtim), Nanoseconds(record.st_ctim)};
}

// Several runs may add records at once.
void FailedFiles::Add(const Version& version) {
  if (!versions_.insert(version).second || !file_.IsOpen()) return;
  if (write(file_.Number(), version.data(), recordBytes) != recordBytes) file_ = FileDescriptor();
}

// One that another version has written is not read: it could do less.
std::string FailedFiles::UsualPath() {
  const std::string name = "failed-" TAVITHUMB_VERSION;
  const std::string service = Variable("STATE_DIRECTORY"), state = Variable("XDG_STATE_HOME"), home = Variable("HOME");
  if (!service.empty()) return JoinPath(service, name);
  if (!state.empty()) return JoinPath(JoinPath(state, "tavithumb"), name);
  return IsOwn(home) ? JoinPath(home, ".local/state/tavithumb/" + name) : "";
}

}  // namespace tavithumb::apps::command
