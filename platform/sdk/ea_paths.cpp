// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "common/c_boundary.h"
#include "common/fs_kind_codes.h"
#include "exported.h"
#include "sdk/ea_layout.h"
#include "sdk/ea_store.h"

namespace tavi {
namespace {

bool PassesEARoot(const std::string& path) {
  return ("/" + path + "/").find("/" + std::string(kEARoot) + "/") != std::string::npos;
}

// Prefixes a relative path with the working directory.
std::string Absolute(const std::string& path) {
  char workingDirectory[PATH_MAX];
  if (path.front() == '/' || getcwd(workingDirectory, sizeof workingDirectory) == nullptr) return path;
  return workingDirectory + ("/" + path);
}

// The path with all links resolved, or "" if it doesn't exist. Preserves errno: that is not a failure.
std::string Resolved(const std::string& path) {
  const int before = errno;
  char resolved[PATH_MAX];
  const bool exists = realpath(path.c_str(), resolved) != nullptr;
  errno = before;
  return exists ? resolved : "";
}

bool IsLink(const std::string& path) {
  struct stat facts;
  return lstat(path.c_str(), &facts) == 0 && S_ISLNK(facts.st_mode);
}

bool IsReachedInEADirectory(const std::string& source, const std::string& folder) {
  std::string resolved = Resolved(source);
  if (resolved.empty()) resolved = Resolved(folder);
  return PassesEARoot(resolved.empty() ? Absolute(folder) : resolved);
}

bool IsSameVersion(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_ctim.tv_sec == other.st_ctim.tv_sec &&
         one.st_ctim.tv_nsec == other.st_ctim.tv_nsec;
}

// Callers ask for several entries of a source, one after the other: the last source that is no link is resolved once,
// as long as its path leads to the same unchanged folder.
bool IsLastReachedInEADirectory(const std::string& source, const std::string& folder) {
  struct Last {
    std::string source;
    struct stat folder;
    bool isInside;
  };
  static thread_local Last last;
  struct stat facts;
  const bool exists = stat(folder.c_str(), &facts) == 0;
  if (exists && last.source == source && IsSameVersion(last.folder, facts)) return last.isInside;
  const bool isInside = IsReachedInEADirectory(source, folder);
  if (exists && !IsLink(source)) last = {source, facts, isInside};
  return isInside;
}

// There are no thumbnails of thumbnails: a file in an EA directory has no EA path, whichever path, link or working
// directory leads to it.
bool IsInEADirectory(const std::string& source) {
  if (PassesEARoot(source)) return true;
  const int before = errno;
  const std::string folder = Split(source).folder;
  const bool isInside = IsLastReachedInEADirectory(source, folder.empty() ? "." : folder);
  errno = before;
  return isInside;
}

// Another user who owns one of the two directories could redirect writes to any place. A directory that doesn't exist
// yet can be trusted.
bool IsAnotherUsers(const std::string& source, const std::string& eaDirectory) {
  const std::string folderPath = Split(source).folder;
  struct stat folder, root, directory;
  if (stat(folderPath.empty() ? "." : folderPath.c_str(), &folder) != 0) return false;
  if (lstat((folderPath + kEARoot).c_str(), &root) != 0) return false;
  if (!IsTrusted(root, folder)) return true;
  return lstat(eaDirectory.c_str(), &directory) == 0 && !IsTrusted(directory, root);
}

// Whether entries can be stored in the EA directory next to a source, which need not exist yet.
bool CanStoreBeside(const std::string& source, const std::string& eaDirectory) {
  const std::string folder = Split(source).folder;
  const std::string here = folder.empty() ? "." : folder;
  if (TAVIGetFSType(here.c_str(), 0) != kLocalFS || IsAnotherUsers(source, eaDirectory)) return false;
  for (const std::string& path : {eaDirectory, folder + kEARoot, here}) {
    if (faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) == 0) return true;
    if (errno != ENOENT) return false;
  }
  return false;
}

// The EA directories that a source may have.
struct Places {
  std::string beside;
  std::string inStore;  // "" without a store
};

// Nothing if the source can't have any.
std::optional<Places> PlacesOf(const std::string& source) {
  const SplitPath parts = Split(source);
  if (!IsEntryName(parts.name) || IsInEADirectory(source)) return std::nullopt;
  Places places = {parts.folder + kEARoot + "/" + parts.name, ""};
  const Store* const store = ConfiguredStore();
  const std::optional<std::string> mirror = store == nullptr ? std::nullopt : store->MirrorOf(parts.folder);
  if (!mirror) return places;
  if (store->Holds(mirror->substr(store->folder.size()))) return std::nullopt;  // there is no store of the store
  places.inStore = *mirror + "/" + kEARoot + "/" + parts.name;
  return places;
}

// Whether new entries go there.
bool IsStoredBeside(const Places& places, const std::string& source) {
  return places.inStore.empty() || (!ConfiguredStore()->isForAll && CanStoreBeside(source, places.beside));
}

// When an entry that is not older than its source was last changed; nothing if there is none.
std::optional<struct timespec> ChangeOfUsable(const std::string& entry, const std::string& source) {
  struct stat facts, photo;
  if (stat(entry.c_str(), &facts) != 0) return std::nullopt;
  if (stat(source.c_str(), &photo) == 0 && facts.st_mtim.tv_sec < photo.st_mtim.tv_sec) return std::nullopt;
  return facts.st_ctim;
}

// An entry that is not older than its source is found in either place. If both have one, the later one replaces the
// other, which could perhaps not be written.
bool IsBeside(const Places& places, const std::string& source, const std::string& eaName) {
  if (places.inStore.empty()) return true;
  const auto beside = ChangeOfUsable(places.beside + "/" + eaName, source);
  const auto inStore = ChangeOfUsable(places.inStore + "/" + eaName, source);
  if (!beside && !inStore) return IsStoredBeside(places, source);
  if (!beside || !inStore) return beside.has_value();
  return std::pair(beside->tv_sec, beside->tv_nsec) > std::pair(inStore->tv_sec, inStore->tv_nsec);
}

int Fail(int reason) {
  errno = reason;
  return -1;
}

int Return(const std::string& path, char* buffer, size_t size) {
  if (path.size() >= size) return Fail(ENAMETOOLONG);
  std::memcpy(buffer, path.c_str(), path.size() + 1);
  return 0;
}

// Leaves errno alone: looking at the places is not a failure.
int EAPath(const char* source, const char* eaName, char* buffer, size_t size) {
  const int before = errno;
  const std::optional<Places> places = PlacesOf(source);
  if (!places || !IsEntryName(eaName)) return Fail(EINVAL);
  const std::string& directory = IsBeside(*places, source, eaName) ? places->beside : places->inStore;
  errno = before;
  return Return(directory + "/" + eaName, buffer, size);
}

bool IsStoreTrusted() {
  struct stat store;
  return stat(ConfiguredStore()->folder.c_str(), &store) == 0 && IsTrustedStore(store);
}

int EADirPath(const char* source, char* buffer, size_t size) {
  const int before = errno;
  const std::optional<Places> places = PlacesOf(source);
  if (!places) return Fail(EINVAL);
  const bool isBeside = IsStoredBeside(*places, source);
  if (isBeside ? IsAnotherUsers(source, places->beside) : !IsStoreTrusted()) return Fail(EPERM);
  errno = before;
  return Return(isBeside ? places->beside : places->inStore, buffer, size);
}

}  // namespace
}  // namespace tavi

int TAVIEAPath(int, const char* source, const char* eaName, char* buffer, size_t size, int) {
  return tavi::AtCBoundary(-1, [=] { return tavi::EAPath(source, eaName, buffer, size); });
}

int TAVIEADirPath(int, const char* source, char* buffer, size_t size) {
  return tavi::AtCBoundary(-1, [=] { return tavi::EADirPath(source, buffer, size); });
}
