// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/clean.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "command/as_owner.h"
#include "system/become.h"
#include "system/paths.h"
#include "thumbs/as_owner.h"
#include "thumbs/ea_folder.h"
#include "thumbs/privacy.h"
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

// The folder of the sources that a folder of a store mirrors; nothing for a folder that has its sources itself.
using Sources = std::optional<std::string>;

Source FindSource(const Folder& parent, const Sources& sources, const std::string& name) {
  return sources ? Source(AT_FDCWD, *sources + "/" + name) : Source(parent.Number(), name);
}

class Cleaner {
 public:
  explicit Cleaner(const RemovalStyle& style)
      : isRoots_(IsRoot()), isDryRun_(style.isDryRun), filter_(style.filter), remover_(style) {}

  void CleanPath(const std::string& path);
  void CleanAfter(const std::string& path);
  void CleanStore();
  void TrimStore(const StoreSize& size);
  void CleanTemporaryFolder(const std::string& path);
  bool Finish() const { return remover_.Finish(); }

 private:
  bool CleanMirror(const std::string& path);
  void CleanFolder(const std::string& path);
  bool CleanFolder(const Folder& folder, const Sources& sources);
  bool IsLeftOut(const Folder& parent, const std::string& name) const;
  bool CleanInner(const Folder& parent, const std::string& name, const Sources& sources);
  void CleanFile(const std::string& path, bool isMirrored);
  bool CleanEAFolder(const Folder& parent, const Sources& sources, const std::string* onlySource);
  bool CleanAsOwner(const Folder& parent, const Sources& sources, const std::string* onlySource);
  bool CleanEAFolderHere(const Folder& parent, const Sources& sources, const std::string* onlySource);
  bool CleanEADirectory(const Folder& eaFolder, const std::string& name, Source source);
  std::string PathHere(const Folder& entries, const std::string& name) const;
  bool CleanEntry(const Source& source, const Folder& entries, const std::string& name);
  bool CleanTemporaryFile(const Folder& folder, const std::string& name);
  void CleanScratchFolder(const Folder& parent, const std::string& name);
  bool CleanUnfinishedDirectory(const Folder& parent, const std::string& name);

  std::optional<std::vector<std::string>> NamesOf(const Folder& folder);
  void ReportUnlessNotFolder(const std::string& path, int error);

  const bool isRoots_;  // its processes are in the folder that they clean
  const bool isDryRun_;
  const Filter filter_;
  dev_t device_ = 0;  // of the folder that was named
  Remover remover_;
};

void Cleaner::CleanPath(const std::string& path) {
  struct stat record = {};
  if (stat(path.c_str(), &record) != 0 && errno != ENOENT) return remover_.Report(path, ProblemOfErrno(errno));
  const bool isMirrored = !StoreFolder().empty() && CleanMirror(path);
  return S_ISDIR(record.st_mode) ? CleanFolder(path) : CleanFile(path, isMirrored);
}

void Cleaner::CleanAfter(const std::string& path) {
  if (!StoreFolder().empty()) CleanMirror(path);
  CleanFile(path, true);
}

// Whether the store has something of the file or folder, which may be gone.
bool Cleaner::CleanMirror(const std::string& path) {
  const std::string folder = MirrorOf(file::Dirname(path)).substr(StoreFolder().size()), name = BaseName(path);
  const Folder parent = OpenInStore(folder), eaFolder(parent, EAFolderName());
  const bool hasFile = eaFolder.Stat(name).has_value();
  if (hasFile) CleanEAFolder(parent, folder, &name);
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
  struct stat record = {};
  if (stat(path.c_str(), &record) == 0) device_ = record.st_dev;
  if (IsInEAFolder(AbsolutePath(path))) return remover_.Report(path, FolderAmongThumbs());
  CleanFolder(folder, IsStore(folder) ? Sources("") : std::nullopt);
}

// True if nothing is left of a folder of a store.
bool Cleaner::CleanFolder(const Folder& folder, const Sources& sources) {
  const auto names = NamesOf(folder);
  if (!names) return false;
  const auto isKept = [&](const std::string& name) { return !CleanInner(folder, name, sources); };
  return std::count_if(names->begin(), names->end(), isKept) == 0 && sources.has_value();
}

// True if the folder was removed.
bool Cleaner::CleanInner(const Folder& parent, const std::string& name, const Sources& sources) {
  const Folder folder(parent, name);
  if (!folder.IsOpen()) {
    ReportUnlessNotFolder(parent.PathOf(name), errno);
    return false;
  }
  if (name == EAFolderName()) return CleanEAFolder(parent, sources, nullptr);
  if (IsUnfinishedEADirectory(name)) return CleanUnfinishedDirectory(parent, name);
  if (folder.Path().size() >= PATH_MAX) return false;  // a longer path has no thumbnails
  if (IsLeftOut(parent, name)) return false;
  Sources inner;
  if (sources) {
    inner = JoinPath(*sources + "/", name);
  } else if (IsStore(folder)) {
    inner = "";
  }
  return CleanFolder(folder, inner) && sources && remover_.RemoveFolder(parent, name);
}

bool Cleaner::IsLeftOut(const Folder& parent, const std::string& name) const {
  const std::optional<struct stat> record = parent.Stat(name);
  return (filter_.staysOnFileSystem && record && record->st_dev != device_) ||
         filter_.Excludes(remover_.Absolute(parent.PathOf(name)));
}

// A file, which may have been deleted.
void Cleaner::CleanFile(const std::string& path, bool isMirrored) {
  const std::string name = BaseName(path);
  const std::string before = path.substr(0, path.size() - name.size());
  const Folder folder(before.empty() ? "." : before);
  const Folder eaFolder(folder, EAFolderName());
  if (eaFolder.Stat(name)) {
    CleanEAFolder(folder, std::nullopt, &name);
  } else if (!isMirrored && !folder.Stat(name)) {
    remover_.Report(path, ProblemOfErrno(ENOENT));
  }
}

// True if the folder was removed. In a dry run, root changes nothing.
bool Cleaner::CleanEAFolder(const Folder& parent, const Sources& sources, const std::string* onlySource) {
  const bool isOwners = isRoots_ && !isDryRun_;
  return isOwners ? CleanAsOwner(parent, sources, onlySource) : CleanEAFolderHere(parent, sources, onlySource);
}

// In a process of the folder's owner, with that folder as its working directory.
bool Cleaner::CleanAsOwner(const Folder& parent, const Sources& sources, const std::string* onlySource) {
  const auto work = [&] {
    struct stat record = {};
    std::optional<Problem> problem;
    if (stat(".", &record) == 0) problem = WhyNotBecome(record.st_uid);
    if (problem) remover_.Report(parent.Path(), *problem);
    const bool isRemoved = !problem && CleanEAFolderHere(Folder::Here(parent), sources, onlySource);
    return (isRemoved ? "+" : "-") + remover_.Totals();
  };
  const std::optional<std::string> outcome = RunInProcess([&] { parent.Enter(); }, work);
  if (outcome) {
    remover_.SetTotals(outcome->substr(1));
    return outcome->front() == '+';
  }
  remover_.Report(parent.Path(), {Problem::Kind::kNoMemory, "the process cleaning it died", "run this again"});
  return false;
}

bool Cleaner::CleanEAFolderHere(const Folder& parent, const Sources& sources, const std::string* onlySource) {
  const Folder eaFolder(parent, EAFolderName());
  const auto names = NamesOf(eaFolder);
  if (!names) return false;
  const auto isKept = [&](const std::string& name) {
    if ((onlySource != nullptr && name != *onlySource) || filter_.Excludes(remover_.Absolute(parent.PathOf(name))))
      return true;
    return !CleanEADirectory(eaFolder, name, FindSource(parent, sources, name));
  };
  return std::count_if(names->begin(), names->end(), isKept) == 0 && remover_.RemoveFolder(parent, EAFolderName());
}

// True if the directory was removed. While its source exists, it is removed only after it has been empty for an hour: a
// tool may create its file there long after the folder was made.
bool Cleaner::CleanEADirectory(const Folder& eaFolder, const std::string& name, Source source) {
  const std::optional<struct stat> before = eaFolder.Stat(name);
  const Folder entries(eaFolder, name);
  if (!entries.IsOpen() || !before) {
    ReportUnlessNotFolder(eaFolder.PathOf(name), errno);
    return false;
  }
  if (!source.TryLock()) return false;
  if (!isDryRun_ && !source.IsGone()) UpdateRightsOf(PathHere(entries, name));
  const auto names = NamesOf(entries);
  if (!names) return false;
  const auto isKept = [&](const std::string& entry) { return !CleanEntry(source, entries, entry); };
  if (std::count_if(names->begin(), names->end(), isKept) != 0) return false;
  return (source.IsGone() || (names->empty() && IsOld(*before))) && remover_.RemoveFolder(eaFolder, name);
}

// Root's processes that clean next to the sources are in their folder.
std::string Cleaner::PathHere(const Folder& entries, const std::string& name) const {
  const bool isRelative = isRoots_ && !IsInStore(entries.Path());
  return isRelative ? JoinPath(JoinPath(".", EAFolderName()), name) : entries.Path();
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

void CleanAfter(const std::string& path, const RemovalStyle& style) {
  CheckLayout();
  Cleaner(style).CleanAfter(path);
}

}  // namespace tavithumb::apps::command
