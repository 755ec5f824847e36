// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/clean.h"

#include <fcntl.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <functional>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "system/paths.h"
#include "thumbs/ea_folder.h"
#include "thumbs/source.h"
#include "thumbs/store.h"
#include "thumbs/stored_entries.h"

namespace tavithumb::apps::command {
namespace {

constexpr char leftBehind[] = "it was left behind";

// Younger files may belong to a run that is still using them. A preview has the modification time of its photo, so the
// change time counts too.
bool IsOld(const struct stat& record) {
  constexpr std::time_t hour = 3600;
  return std::time(nullptr) - std::max(record.st_mtime, record.st_ctime) > hour;
}

bool IsOwnAndOld(const struct stat& record) {
  return record.st_uid == geteuid() && IsOld(record);
}

// Why an entry is removed; "" if it is kept.
std::string RemovalReason(const EntryName& entry, Freshness freshness, const struct stat& record) {
  if (entry.isTemporary) return IsOld(record) ? leftBehind : "";
  if (freshness == Freshness::kSourceIsGone) return "its source is gone";
  return freshness == Freshness::kStale ? "it is older than its source" : "";
}

// Finds the source of the entries in a directory of this name.
using FindSource = std::function<Source(const std::string& name)>;

FindSource In(const Folder& folder) {
  return [&folder](const std::string& name) { return Source(folder.Number(), name); };
}

FindSource Below(const std::string& folder) {
  return [folder](const std::string& name) { return Source(AT_FDCWD, folder + "/" + name); };
}

class Cleaner {
 public:
  explicit Cleaner(const RemovalStyle& style) : remover_(style), isDryRun_(style.isDryRun) {}

  void CleanPath(const std::string& path);
  void CleanStore();
  void TrimStore(const StoreSize& size);
  void CleanTemporaryFolder(const std::string& path);
  bool Finish() const { return remover_.Finish(); }

 private:
  bool CleanMirror(const std::string& path);
  void CleanFolder(const std::string& path);
  bool CleanFolder(const Folder& folder, const std::optional<std::string>& sources);
  bool CleanInner(const Folder& parent, const std::string& name, const std::optional<std::string>& sources);
  void CleanFile(const std::string& path, bool isMirrored);
  bool CleanEAFolder(const Folder& parent, const Folder& eaFolder, const FindSource& find,
                     const std::string* onlySource);
  bool CleanEADirectory(const Folder& eaFolder, const std::string& name, const FindSource& find);
  bool CleanEntry(const Source& source, const Folder& entries, const std::string& name);
  bool CleanTemporaryFile(const Folder& folder, const std::string& name);
  void CleanScratchFolder(const Folder& parent, const std::string& name);
  bool CleanUnfinishedDirectory(const Folder& parent, const std::string& name);

  std::optional<std::vector<std::string>> NamesOf(const Folder& folder);
  void ReportUnlessNotFolder(const std::string& path, int error);

  Remover remover_;
  bool isDryRun_;
};

void Cleaner::CleanPath(const std::string& path) {
  struct stat record = {};
  if (stat(path.c_str(), &record) != 0 && errno != ENOENT) return remover_.Report(path, ProblemOfErrno(errno));
  const bool isMirrored = !StoreFolder().empty() && CleanMirror(path);
  return S_ISDIR(record.st_mode) ? CleanFolder(path) : CleanFile(path, isMirrored);
}

// Whether the store has something of the file or folder, which may be gone.
bool Cleaner::CleanMirror(const std::string& path) {
  const std::string folder = MirrorOf(file::Dirname(path)).substr(StoreFolder().size()), name = BaseName(path);
  const Folder parent = OpenInStore(folder), eaFolder(parent, EAFolderName());
  const bool hasFile = eaFolder.Stat(name).has_value();
  if (hasFile) CleanEAFolder(parent, eaFolder, Below(folder), &name);
  const std::string sources = MirrorOf(path).substr(StoreFolder().size());
  const Folder mirror = OpenInStore(sources);
  if (!mirror.IsOpen()) return hasFile;
  CleanFolder(mirror, sources);
  return true;
}

void Cleaner::CleanStore() {
  CleanFolder(Folder(StoreFolder()), "");
}

void Cleaner::CleanFolder(const std::string& path) {
  const Folder folder(path);
  if (!folder.IsOpen()) {
    const Problem isLink = {Problem::Kind::kMissing, "it is a symbolic link to a folder", "append a '/' to its name"};
    return remover_.Report(path, errno == ENOTDIR ? isLink : ProblemOfErrno(errno));
  }
  if (IsInEAFolder(AbsolutePath(path))) return remover_.Report(path, FolderAmongThumbs());
  CleanFolder(folder, IsStore(folder) ? std::optional<std::string>("") : std::nullopt);
}

// In a store, `sources` is the folder that this one mirrors. True if nothing is left of such a folder.
bool Cleaner::CleanFolder(const Folder& folder, const std::optional<std::string>& sources) {
  const auto names = NamesOf(folder);
  if (!names) return false;
  const auto isKept = [&](const std::string& name) { return !CleanInner(folder, name, sources); };
  return std::count_if(names->begin(), names->end(), isKept) == 0 && sources.has_value();
}

// True if the folder was removed.
bool Cleaner::CleanInner(const Folder& parent, const std::string& name, const std::optional<std::string>& sources) {
  const Folder folder(parent, name);
  if (!folder.IsOpen()) {
    ReportUnlessNotFolder(parent.PathOf(name), errno);
    return false;
  }
  if (name == EAFolderName()) return CleanEAFolder(parent, folder, sources ? Below(*sources) : In(parent), nullptr);
  if (IsUnfinishedEADirectory(name)) return CleanUnfinishedDirectory(parent, name);
  if (folder.Path().size() >= PATH_MAX) return false;  // a longer path has no thumbnails
  std::optional<std::string> inner;
  if (sources) {
    inner = JoinPath(*sources + "/", name);
  } else if (IsStore(folder)) {
    inner = "";
  }
  return CleanFolder(folder, inner) && sources && remover_.RemoveFolder(parent, name);
}

// A file, which may have been deleted.
void Cleaner::CleanFile(const std::string& path, bool isMirrored) {
  const std::string name = BaseName(path);
  const std::string before = path.substr(0, path.size() - name.size());
  const Folder folder(before.empty() ? "." : before);
  const Folder eaFolder(folder, EAFolderName());
  if (eaFolder.Stat(name)) {
    CleanEAFolder(folder, eaFolder, In(folder), &name);
  } else if (!isMirrored && !folder.Stat(name)) {
    remover_.Report(path, ProblemOfErrno(ENOENT));
  }
}

// True if the folder was removed.
bool Cleaner::CleanEAFolder(const Folder& parent, const Folder& eaFolder, const FindSource& find,
                            const std::string* onlySource) {
  const auto sources = NamesOf(eaFolder);
  if (!sources) return false;
  const auto isKept = [&](const std::string& source) {
    return (onlySource != nullptr && source != *onlySource) || !CleanEADirectory(eaFolder, source, find);
  };
  return std::count_if(sources->begin(), sources->end(), isKept) == 0 && remover_.RemoveFolder(parent, EAFolderName());
}

// True if the directory was removed. While its source exists, it is removed only after it has been empty for an hour: a
// tool may create its file there long after the folder was made.
bool Cleaner::CleanEADirectory(const Folder& eaFolder, const std::string& name, const FindSource& find) {
  const std::optional<struct stat> before = eaFolder.Stat(name);
  const Folder entries(eaFolder, name);
  if (!entries.IsOpen() || !before) {
    ReportUnlessNotFolder(eaFolder.PathOf(name), errno);
    return false;
  }
  Source found = find(name);
  if (!found.TryLock()) return false;
  const auto names = NamesOf(entries);
  if (!names) return false;
  const auto isKept = [&](const std::string& entry) { return !CleanEntry(found, entries, entry); };
  if (std::count_if(names->begin(), names->end(), isKept) != 0) return false;
  return (found.IsGone() || (names->empty() && IsOld(*before))) && remover_.RemoveFolder(eaFolder, name);
}

bool Cleaner::CleanEntry(const Source& source, const Folder& entries, const std::string& name) {
  const std::optional<EntryName> entry = ParseEntryName(name);
  if (!entry) return false;
  const std::optional<struct stat> record = entries.Stat(name);
  if (!record || !S_ISREG(record->st_mode)) return false;
  const std::string reason = RemovalReason(*entry, source.FreshnessOf(*record), *record);
  return !reason.empty() && remover_.RemoveFile(entries, name, *record, reason);
}

void Cleaner::CleanTemporaryFolder(const std::string& path) {
  const Folder folder(path + "/");  // follows a link
  if (!folder.IsOpen()) return;
  const auto names = NamesOf(folder);
  if (!names) return;
  for (const std::string& name : *names) {
    if (file::IsTemporaryFile(folder.PathOf(name))) CleanTemporaryFile(folder, name);
    if (IsScratchFolder(folder.PathOf(name))) CleanScratchFolder(folder, name);
  }
}

bool Cleaner::CleanTemporaryFile(const Folder& folder, const std::string& name) {
  const std::optional<struct stat> record = folder.Stat(name);
  return record && S_ISREG(record->st_mode) && IsOwnAndOld(*record) &&
         remover_.RemoveFile(folder, name, *record, leftBehind);
}

void Cleaner::CleanScratchFolder(const Folder& parent, const std::string& name) {
  const std::optional<struct stat> record = parent.Stat(name);
  const Folder folder(parent, name);
  if (!record || !IsOwnAndOld(*record) || !folder.IsOpen()) return;
  const auto files = NamesOf(folder);
  if (!files) return;
  const auto isKept = [&](const std::string& file) { return !CleanTemporaryFile(folder, file); };
  if (std::count_if(files->begin(), files->end(), isKept) == 0) remover_.RemoveFolder(parent, name);
}

bool Cleaner::CleanUnfinishedDirectory(const Folder& parent, const std::string& name) {
  const std::optional<struct stat> record = parent.Stat(name);
  const auto names = NamesOf(Folder(parent, name));
  return record && IsOld(*record) && names && names->empty() && remover_.RemoveFolder(parent, name);
}

void Cleaner::TrimStore(const StoreSize& size) {
  const auto removeFile = [this](const Folder& folder, const std::string& name, const struct stat& record) {
    return remover_.RemoveFile(folder, name, record, "it was not used for longest");
  };
  const auto removeFolder = [this](const Folder& parent, const std::string& name) {
    return remover_.RemoveFolder(parent, name);
  };
  apps::TrimStore(BytesOf(size), {removeFile, removeFolder, isDryRun_});
}

// Reports a folder that can't be read, and returns nothing.
std::optional<std::vector<std::string>> Cleaner::NamesOf(const Folder& folder) {
  try {
    return folder.Names();
  } catch (const std::system_error& error) {
    remover_.Report(folder.Path(), ProblemOfErrno(error.code().value()));
    return std::nullopt;
  }
}

// Opening a file or a link as a folder fails, and so does one that was removed meanwhile: neither is reported.
void Cleaner::ReportUnlessNotFolder(const std::string& path, int error) {
  if (error != ENOTDIR && error != ENOENT) remover_.Report(path, ProblemOfErrno(error));
}

// With another layout, the source of every thumbnail would seem to be missing.
void CheckLayout() {
  const std::string layout = "/nonexistent/" + EAFolderName() + "/source/entry";
  if (file::GetEAPath("/nonexistent/source", "entry") == StoreFolder() + layout) return;
  throw std::runtime_error("this system stores thumbnails in an unknown layout; nothing was removed");
}

}  // namespace

bool Clean(const std::vector<std::string>& paths, const RemovalStyle& style) {
  CheckLayout();
  Cleaner cleaner(style);
  for (const std::string& path : paths) cleaner.CleanPath(path);
  if (paths.empty()) cleaner.CleanStore();
  for (const char* folder : file::TEMPORARY_FOLDERS) cleaner.CleanTemporaryFolder(folder);
  if (style.keep) cleaner.TrimStore(*style.keep);
  return cleaner.Finish();
}

}  // namespace tavithumb::apps::command
