// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "system/become.h"
#include "system/descriptors.h"
#include "system/file_descriptor.h"
#include "system/paths.h"
#include "thumbs/as_owner.h"
#include "thumbs/ea_folder.h"

namespace tavithumb::apps {
namespace {

constexpr char tagName[] = "CACHEDIR.TAG";

// By this file, backups leave the folder out, and `clean` knows that it mirrors the paths of sources.
constexpr std::string_view tag =
    "Signature: 8a477f597d28d172789f06886806bc55\n"
    "# Thumbnails stored by tavithumb, which makes them again when they are missing.\n";

struct Store {
  std::string folder;
  bool isForAll = false;
};

Store& TheStore() {
  static Store store;
  return store;
}

// setenv() and getenv() are safe here: there is only one thread so far.
std::string Environment(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
  return value == nullptr ? "" : value;
}

std::invalid_argument NoStore(const std::string& folder, const std::string& reason) {
  return std::invalid_argument("'" + folder + "' cannot be the store: " + reason);
}

uid_t OwnerOf(const std::string& store) {
  struct stat record = {};
  return stat(store.c_str(), &record) == 0 ? record.st_uid : OwnerFor(store);
}

// Links that this user has put anywhere then lead root no further than the user could go.
void BecomeOwner(const std::string& store, const std::string& name) {
  const uid_t owner = OwnerOf(store);
  if (!IsRoot() || owner == 0) return;
  try {
    Become(owner);
  } catch (const std::system_error& error) {
    throw NoStore(name, "this process cannot become its owner, " + UserName(owner) + " (" + error.code().message() +
                            "); run this as that user");
  }
  unsetenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe): root's may be closed to others
}

std::string FindFolder(const std::string& name, const StoreChoice& choice) {
  const std::string path = AbsolutePath(name);
  if (choice.isOwners) BecomeOwner(path, name);
  if (choice.isMade) mkdir(path.c_str(), 0711);
  std::error_code error;
  std::string real = std::filesystem::canonical(path, error);
  if (error) throw NoStore(name, "it cannot be accessed (" + error.message() + "); name a folder");
  if (!std::filesystem::is_directory(real, error)) throw NoStore(name, "it is not a folder; name one");
  if (real == "/") throw NoStore(name, "it is the root folder; name another");
  return real;
}

// Only an empty folder becomes a store: backups would leave out what else is in it. Where it can't be written, another
// user stores.
void CheckContent(const std::string& folder, const std::string& name) {
  const Folder opened(folder);
  try {
    if (IsStore(opened) || opened.Names().empty()) return;
  } catch (const std::system_error&) {
    return;
  }
  throw NoStore(name, "it contains other files; name a new or an empty folder");
}

void WriteTag(const std::string& folder) {
  const FileDescriptor file(
      open(JoinPath(folder, tagName).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (file.IsOpen()) WriteAll(file.Number(), tag.data(), tag.size());
}

// The platform reads its environment once, at the first path.
void TellPlatform(const Store& store) {
  setenv("TAVITHUMB_STORE", store.folder.c_str(), 1);         // NOLINT(concurrency-mt-unsafe)
  if (store.isForAll) setenv("TAVITHUMB_STORE_ALL", "1", 1);  // NOLINT(concurrency-mt-unsafe)
  if (!IsInStore(file::GetEAPath("/nonexistent/source", "entry"))) {
    throw std::runtime_error("this system's platform knows no stores; leave out the store");
  }
}

}  // namespace

void UseStore(const StoreChoice& choice) {
  const std::string name = choice.folder.empty() ? Environment("TAVITHUMB_STORE") : choice.folder;
  if (name.empty() && choice.isForAll) throw std::invalid_argument("--store-all needs --store");
  const bool isOptional = !choice.isMade && choice.folder.empty();
  if (name.empty() || (isOptional && access(name.c_str(), F_OK) != 0)) return;
  Store& store = TheStore();
  store.isForAll = choice.isForAll || Environment("TAVITHUMB_STORE_ALL") == "1";
  store.folder = FindFolder(name, choice);
  CheckContent(store.folder, name);
  if (choice.isMade) WriteTag(store.folder);
  TellPlatform(store);
}

const std::string& StoreFolder() {
  return TheStore().folder;
}

bool IsStoreForAll() {
  return TheStore().isForAll;
}

bool IsInStore(const std::string& path) {
  const std::string& store = StoreFolder();
  return !store.empty() && path.compare(0, store.size() + 1, store + "/") == 0;
}

bool IsStore(const Folder& folder) {
  const FileDescriptor file(openat(folder.Number(), tagName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  std::string text(tag.size(), '\0');
  return file.IsOpen() && pread(file.Number(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
         text == tag;
}

std::string MirrorOf(const std::string& folder) {
  std::error_code error;
  const std::string real = std::filesystem::weakly_canonical(AbsolutePath(folder), error);
  const std::string path = error ? AbsolutePath(folder) : real;
  return StoreFolder() + path.substr(0, path.find_last_not_of('/') + 1);
}

Folder OpenInStore(const std::string& path) {
  Folder folder(StoreFolder());
  for (const std::filesystem::path& name : std::filesystem::path(path).relative_path()) {
    if (folder.IsOpen() && !name.empty()) folder = Folder(folder, name);
  }
  return folder;
}

bool HasPlaceFor(const std::string& source) {
  const bool isInStore = !StoreFolder().empty() && IsInStore(NewEntryPath(source, "thumbnail"));
  return isInStore || file::IsDestSupportEAWrite(file::Dirname(source));
}

std::vector<std::string> EntryFoldersOf(const std::string& source) {
  const std::string place = NewEntryPath(source, "thumbnail"), folder = file::Dirname(source);
  if (place.empty()) return {};
  if (StoreFolder().empty()) return {file::Dirname(place)};
  const std::string entries = JoinPath(EAFolderName(), BaseName(source));
  return {JoinPath(folder, entries), JoinPath(MirrorOf(folder), entries)};
}

// No entry is called "thumbnail": the platform gives the place of new ones.
std::string NewEntryPath(const std::string& source, const std::string& entry) {
  const std::string place = file::GetEAPath(source, "thumbnail");
  return place.empty() ? "" : JoinPath(file::Dirname(place), entry);
}

}  // namespace tavithumb::apps
