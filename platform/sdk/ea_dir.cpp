// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "common/access_rights.h"
#include "common/c_boundary.h"
#include "common/descriptor.h"
#include "common/temporary_names.h"
#include "exported.h"
#include "sdk/ea_layout.h"
#include "sdk/entry_rights.h"

namespace tavi {
namespace {

// The folder of a source, from which new EA roots get owner, group, ACL and mode.
struct Folder {
  Descriptor place;
  AccessRights rights;
};

// Opened with O_PATH, which also works for a folder that can't be listed.
Descriptor OpenPlace(int parent, const char* path, int flags) {
  return Descriptor(openat(parent, path, O_PATH | O_DIRECTORY | O_CLOEXEC | flags));
}

std::optional<AccessRights> RightsOf(const Descriptor& place) {
  AccessRights rights;
  if (!place.IsOpen() || fstat(place.Get(), &rights.facts) != 0) return std::nullopt;
  rights.acl = Acl::Of(place.Get());
  return rights;
}

bool IsTrustedIn(const Descriptor& parent, const Descriptor& place) {
  struct stat parentFacts, facts;
  if (!place.IsOpen() || fstat(parent.Get(), &parentFacts) != 0 || fstat(place.Get(), &facts) != 0) return false;
  if (IsTrusted(facts, parentFacts)) return true;
  errno = EPERM;
  return false;
}

// The rights that a directory gets while it has a temporary name, which is made with `mode`.
struct NewRights {
  mode_t mode;
  std::function<bool(int place)> give;
};

// An empty directory under a temporary name, removed by the destructor unless it was renamed.
class StagedDirectory {
 public:
  StagedDirectory(const Descriptor& parent, mode_t mode)
      : parent_(parent), name_(CreateTemporary(kDirectoryPrefix, [&](const char* candidate) {
          return mkdirat(parent.Get(), candidate, mode) == 0;
        })) {}
  ~StagedDirectory() {
    const int reason = errno;
    if (!name_.empty()) unlinkat(parent_.Get(), name_.c_str(), AT_REMOVEDIR);
    errno = reason;
  }
  StagedDirectory(const StagedDirectory&) = delete;
  StagedDirectory& operator=(const StagedDirectory&) = delete;

  bool Give(const NewRights& rights) const {
    if (name_.empty()) return false;
    const Descriptor place = OpenPlace(parent_.Get(), name_.c_str(), O_NOFOLLOW);
    return place.IsOpen() && rights.give(place.Get());
  }

  // Fails if the name exists; a volume that doesn't support this condition may replace an empty directory.
  bool RenameTo(const char* name) {
    const int parent = parent_.Get();
    const bool done = renameat2(parent, name_.c_str(), parent, name, RENAME_NOREPLACE) == 0 ||
                      (errno == EINVAL && renameat(parent, name_.c_str(), parent, name) == 0);
    if (done) name_.clear();
    return done;
  }

 private:
  const Descriptor& parent_;
  std::string name_;
};

// A directory gets its name once it is complete, so that no process sees one without its owner and mode. One that
// another process has made meanwhile is equally good.
bool Make(const Descriptor& parent, const char* name, const NewRights& rights) {
  StagedDirectory directory(parent, rights.mode);
  return directory.Give(rights) && (directory.RenameTo(name) || errno == EEXIST || errno == ENOTEMPTY);
}

// Links are not followed: everything is created in the source's folder.
Descriptor OpenOrMake(const Descriptor& parent, const char* name, const NewRights& rights) {
  Descriptor place = OpenPlace(parent.Get(), name, O_NOFOLLOW);
  if (!place.IsOpen() && errno == ENOENT && Make(parent, name, rights)) {
    place = OpenPlace(parent.Get(), name, O_NOFOLLOW);
  }
  return IsTrustedIn(parent, place) ? std::move(place) : Descriptor();
}

NewRights RightsLike(const Folder& folder) {
  return {folder.rights.facts.st_mode & 0777, [&](int place) { return GiveAccessRights(folder.rights, place); }};
}

NewRights RightsFor(const AccessRights& source, const Folder& folder) {
  return {ModeBeforeEntryRights(folder.rights, source),
          [&](int place) { return GiveEntryRights(folder.rights, source, place); }};
}

bool MakeForSource(const Descriptor& root, const std::string& name, const Folder& folder) {
  const Descriptor file(openat(folder.place.Get(), name.c_str(), O_PATH | O_CLOEXEC));
  const std::optional<AccessRights> source = RightsOf(file);
  if (!source) return OpenOrMake(root, name.c_str(), RightsLike(folder)).IsOpen();
  const Descriptor directory = OpenOrMake(root, name.c_str(), RightsFor(*source, folder));
  return directory.IsOpen() && UpdateEntryRights(folder.rights, *source, directory.Get());
}

bool MakeEADirectory(const std::string& folderPath, const std::string& name) {
  Folder folder{OpenPlace(AT_FDCWD, folderPath.empty() ? "." : folderPath.c_str(), 0), {}};
  const std::optional<AccessRights> rights = RightsOf(folder.place);
  if (!rights) return false;
  folder.rights = *rights;
  // An empty EA root may be removed, or replaced, just before a directory is made in it.
  for (int attempt = 0; attempt < 100; ++attempt) {
    const Descriptor root = OpenOrMake(folder.place, kEARoot, RightsLike(folder));
    if (root.IsOpen() && MakeForSource(root, name, folder)) return true;
    if (errno != ENOENT) return false;
  }
  return false;
}

int MakeEADirectory(const std::string& path) {
  const SplitPath directory = Split(path);
  const std::string rootPath = directory.folder.substr(0, directory.folder.find_last_not_of('/') + 1);
  const SplitPath root = Split(rootPath);
  if (!IsEntryName(directory.name) || root.name != kEARoot) {
    errno = EINVAL;
    return -1;
  }
  return MakeEADirectory(root.folder, directory.name) ? 0 : -1;
}

}  // namespace
}  // namespace tavi

int TAVIEAMKDir(int, const char* eaDir) {
  return tavi::AtCBoundary(-1, [=] { return tavi::MakeEADirectory(eaDir); });
}
