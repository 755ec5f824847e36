// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <linux/posix_acl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "common/access_rights.h"
#include "common/c_boundary.h"
#include "common/descriptor.h"
#include "common/temporary_names.h"
#include "exported.h"
#include "sdk/ea_layout.h"
#include "sdk/ea_store.h"
#include "sdk/entry_rights.h"

namespace tavi {
namespace {

// A folder, and the rights that what is made for its sources gets: at first, its own.
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

NewRights RightsLike(const AccessRights& rights) {
  return {rights.facts.st_mode & 0777, [&](int place) { return GiveAccessRights(rights, place); }};
}

NewRights RightsFor(const AccessRights& source, const AccessRights& folder) {
  return {ModeBeforeEntryRights(folder, source), [&](int place) { return GiveEntryRights(folder, source, place); }};
}

// What a source's directory is made with, until it has the rights that the source gives.
using FirstRights = NewRights(const AccessRights& source, const AccessRights& folder);

// In `root`, for the source of this name in `sources`.
bool MakeForSource(const Descriptor& root, const std::string& name, const Folder& sources, FirstRights* first) {
  const Descriptor file(openat(sources.place.Get(), name.c_str(), O_PATH | O_CLOEXEC));
  const std::optional<AccessRights> source = RightsOf(file);
  if (!source) return OpenOrMake(root, name.c_str(), RightsLike(sources.rights)).IsOpen();
  const Descriptor directory = OpenOrMake(root, name.c_str(), first(*source, sources.rights));
  return directory.IsOpen() && UpdateEntryRights(sources.rights, *source, directory.Get());
}

std::optional<Folder> OpenFolder(int parent, const std::string& path) {
  Folder folder{OpenPlace(parent, path.empty() ? "." : path.c_str(), 0), {}};
  const std::optional<AccessRights> rights = RightsOf(folder.place);
  if (!rights) return std::nullopt;
  folder.rights = *rights;
  return folder;
}

// An empty directory may be removed, or replaced, just before another is made in it.
bool Repeated(const std::function<bool()>& attempt) {
  for (int count = 0; count < 100; ++count) {
    if (attempt()) return true;
    if (errno != ENOENT) return false;
  }
  return false;
}

bool MakeBeside(const std::string& folderPath, const std::string& name) {
  const std::optional<Folder> folder = OpenFolder(AT_FDCWD, folderPath);
  return folder && Repeated([&] {
           const Descriptor root = OpenOrMake(folder->place, kEARoot, RightsLike(folder->rights));
           return root.IsOpen() && MakeForSource(root, name, *folder, RightsFor);
         });
}

// The store's owner may open it first, and nobody else: the rights of the source would give it another owner.
NewRights ClosedRights(const AccessRights& /*source*/, const AccessRights& folder) {
  return {S_IRWXU, [&](int place) {
            return GiveOwnerOrGroup(place, folder.facts.st_uid, folder.facts.st_gid) && GiveMode(place, S_IRWXU);
          }};
}

Descriptor OpenOrUpdate(const Descriptor& parent, const char* name, const AccessRights& rights) {
  Descriptor place = OpenOrMake(parent, name, RightsLike(rights));
  return place.IsOpen() && UpdateRights(rights, place.Get()) ? std::move(place) : Descriptor();
}

// Opens the mirror of the folder at `path`, and makes it and those above it where they are missing. Who may search the
// folders may search their mirrors; nobody else can list them.
Descriptor OpenMirror(const Folder& store, const std::string& path) {
  Descriptor place = OpenPlace(store.place.Get(), ".", 0);
  std::optional<Folder> folder = OpenFolder(AT_FDCWD, "/");
  std::istringstream names(path);
  for (std::string name; folder && place.IsOpen() && std::getline(names, name, '/');) {
    if (name.empty()) continue;
    folder = OpenFolder(folder->place.Get(), name);
    if (folder) place = OpenOrUpdate(place, name.c_str(), MirroredRights(store.rights, folder->rights, ACL_EXECUTE));
  }
  return folder ? std::move(place) : Descriptor();
}

bool HasParent(const std::string& path) {
  return ("/" + path + "/").find("/../") != std::string::npos;
}

// In the store, everything belongs to its owner: no owner of photos could put links where other users store.
bool MakeInStore(const Store& store, const std::string& folderPath, const std::string& name) {
  const std::optional<Folder> own = OpenFolder(AT_FDCWD, store.folder);
  std::optional<Folder> folder = OpenFolder(AT_FDCWD, folderPath);
  if (!own || !folder) return false;
  if (!IsTrustedStore(own->rights.facts) || HasParent(folderPath)) {
    errno = EPERM;
    return false;
  }
  folder->rights = MirroredRights(own->rights, folder->rights, ACL_READ | ACL_EXECUTE);
  return Repeated([&] {
    const Descriptor mirror = OpenMirror(*own, folderPath);
    if (!mirror.IsOpen()) return false;
    const Descriptor root = OpenOrUpdate(mirror, kEARoot, folder->rights);
    return root.IsOpen() && MakeForSource(root, name, *folder, ClosedRights);
  });
}

bool MakeEADirectory(const std::string& folderPath, const std::string& name) {
  const Store* const store = ConfiguredStore();
  if (store == nullptr || !store->Holds(folderPath)) return MakeBeside(folderPath, name);
  return MakeInStore(*store, folderPath.substr(store->folder.size()), name);
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
