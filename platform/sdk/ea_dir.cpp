// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
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

namespace tavi {
namespace {

// The folder of a source, from which new EA directories get owner, group, ACL and mode.
struct Folder {
  Descriptor place;
  struct stat facts;
};

// Opened with O_PATH, which also works for a folder that can't be listed.
Descriptor OpenPlace(int parent, const char* path, int flags) {
  return Descriptor(openat(parent, path, O_PATH | O_DIRECTORY | O_CLOEXEC | flags));
}

bool IsTrustedIn(const Descriptor& parent, const Descriptor& place) {
  struct stat parentFacts, facts;
  if (!place.IsOpen() || fstat(parent.Get(), &parentFacts) != 0 || fstat(place.Get(), &facts) != 0) return false;
  if (IsTrusted(facts, parentFacts)) return true;
  errno = EPERM;
  return false;
}

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

  bool MakeLike(const Folder& folder) const {
    if (name_.empty()) return false;
    const Descriptor place = OpenPlace(parent_.Get(), name_.c_str(), O_NOFOLLOW);
    return place.IsOpen() && CopyAccessRights(folder.place.Get(), folder.facts, place.Get());
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
bool Make(const Descriptor& parent, const char* name, const Folder& folder) {
  StagedDirectory directory(parent, folder.facts.st_mode & 0777);
  return directory.MakeLike(folder) && (directory.RenameTo(name) || errno == EEXIST || errno == ENOTEMPTY);
}

// Links are not followed: everything is created in the source's folder.
Descriptor OpenOrMake(const Descriptor& parent, const char* name, const Folder& folder) {
  Descriptor place = OpenPlace(parent.Get(), name, O_NOFOLLOW);
  if (!place.IsOpen() && errno == ENOENT && Make(parent, name, folder)) {
    place = OpenPlace(parent.Get(), name, O_NOFOLLOW);
  }
  return IsTrustedIn(parent, place) ? std::move(place) : Descriptor();
}

std::optional<Folder> OpenFolder(const std::string& path) {
  Folder folder;
  folder.place = OpenPlace(AT_FDCWD, path.empty() ? "." : path.c_str(), 0);
  if (!folder.place.IsOpen() || fstat(folder.place.Get(), &folder.facts) != 0) return std::nullopt;
  return folder;
}

bool MakeEADirectoryIn(const Descriptor& parent, const std::string& name, const Folder& like) {
  const Descriptor root = OpenOrMake(parent, kEARoot, like);
  return root.IsOpen() && OpenOrMake(root, name.c_str(), like).IsOpen();
}

// An empty directory may be removed, or replaced, just before another is made in it.
template <typename Attempt>
bool Repeated(const Attempt& attempt) {
  for (int count = 0; count < 100; ++count) {
    if (attempt()) return true;
    if (errno != ENOENT) return false;
  }
  return false;
}

bool MakeBeside(const std::string& folderPath, const std::string& name) {
  const std::optional<Folder> folder = OpenFolder(folderPath);
  return folder && Repeated([&] { return MakeEADirectoryIn(folder->place, name, *folder); });
}

// Opens the folder at `path` in the store, and makes it and those above it where they are missing.
Descriptor OpenMirror(const Folder& store, const std::string& path) {
  Descriptor place = OpenPlace(store.place.Get(), ".", 0);
  std::istringstream names(path);
  for (std::string name; place.IsOpen() && std::getline(names, name, '/');) {
    if (!name.empty()) place = OpenOrMake(place, name.c_str(), store);
  }
  return place;
}

bool HasParent(const std::string& path) {
  return ("/" + path + "/").find("/../") != std::string::npos;
}

// In the store, everything belongs to its owner: no owner of photos could put links where other users store. Who may
// search and read their folder may do so there. Nobody else can list what is above.
bool MakeInStore(const Store& store, const std::string& folderPath, const std::string& name) {
  std::optional<Folder> own = OpenFolder(store.folder), folder = OpenFolder(folderPath);
  if (!own || !folder) return false;
  if (!IsTrustedStore(own->facts) || HasParent(folderPath)) {
    errno = EPERM;
    return false;
  }
  own->facts.st_mode = S_IFDIR | 0711;
  folder->facts.st_uid = own->facts.st_uid;
  folder->facts.st_mode = S_IFDIR | 0700 | (folder->facts.st_mode & 0055);
  return Repeated([&] {
    const Descriptor mirror = OpenMirror(*own, folderPath);
    return mirror.IsOpen() && MakeEADirectoryIn(mirror, name, *folder);
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
