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

class Cleaner {
 public:
  explicit Cleaner(const RemovalStyle& style) : isRoots_(IsRoot()), isDryRun_(style.isDryRun), remover_(style) {}

  void CleanPath(const std::string& path);
  void CleanTemporaryFolder(const std::string& path);
  bool Finish() const { return remover_.Finish(); }

 private:
  void CleanFolder(const std::string& path);
  void CleanFolder(const Folder& folder);
  void CleanFile(const std::string& path);
  void CleanEAFolder(const Folder& folder, const std::string* onlySource);
  void CleanAsOwner(const Folder& folder, const std::string* onlySource);
  void CleanEAFolderHere(const Folder& folder, const std::string* onlySource);
  bool CleanEADirectory(const Folder& folder, const Folder& eaFolder, const std::string& source);
  bool CleanEntry(const Source& source, const Folder& entries, const std::string& name);
  bool CleanTemporaryFile(const Folder& folder, const std::string& name);
  void CleanScratchFolder(const Folder& parent, const std::string& name);
  void CleanUnfinishedDirectory(const Folder& parent, const std::string& name);

  std::optional<std::vector<std::string>> NamesOf(const Folder& folder);
  void ReportUnlessNotFolder(const std::string& path, int error);

  const bool isRoots_;  // its processes are in the folder that they clean
  const bool isDryRun_;
  Remover remover_;
};

void Cleaner::CleanPath(const std::string& path) {
  struct stat record = {};
  if (stat(path.c_str(), &record) != 0 && errno != ENOENT) return remover_.Report(path, ProblemOfErrno(errno));
  return S_ISDIR(record.st_mode) ? CleanFolder(path) : CleanFile(path);
}

void Cleaner::CleanFolder(const std::string& path) {
  const Folder folder(path);
  if (!folder.IsOpen()) {
    const Problem isLink = {Problem::Kind::kMissing, "it is a symbolic link to a folder", "append a '/' to its name"};
    return remover_.Report(path, errno == ENOTDIR ? isLink : ProblemOfErrno(errno));
  }
  if (IsInEAFolder(AbsolutePath(path))) return remover_.Report(path, FolderAmongThumbs());
  CleanFolder(folder);
}

void Cleaner::CleanFolder(const Folder& folder) {
  const auto names = NamesOf(folder);
  if (!names) return;
  for (const std::string& name : *names) {
    const Folder inner(folder, name);
    if (!inner.IsOpen()) {
      ReportUnlessNotFolder(folder.PathOf(name), errno);
    } else if (name == EAFolderName()) {
      CleanEAFolder(folder, nullptr);
    } else if (IsUnfinishedEADirectory(name)) {
      CleanUnfinishedDirectory(folder, name);
    } else if (inner.Path().size() < PATH_MAX) {  // a longer path has no thumbnails
      CleanFolder(inner);
    }
  }
}

// A file, which may have been deleted.
void Cleaner::CleanFile(const std::string& path) {
  const std::string name = BaseName(path);
  const std::string before = path.substr(0, path.size() - name.size());
  const Folder folder(before.empty() ? "." : before);
  const Folder eaFolder(folder, EAFolderName());
  if (eaFolder.Stat(name)) {
    CleanEAFolder(folder, &name);
  } else if (!folder.Stat(name)) {
    remover_.Report(path, ProblemOfErrno(ENOENT));
  }
}

// In a dry run, root changes nothing.
void Cleaner::CleanEAFolder(const Folder& folder, const std::string* onlySource) {
  return isRoots_ && !isDryRun_ ? CleanAsOwner(folder, onlySource) : CleanEAFolderHere(folder, onlySource);
}

// In a process of the folder's owner, with that folder as its working directory.
void Cleaner::CleanAsOwner(const Folder& folder, const std::string* onlySource) {
  const auto work = [&] {
    struct stat record = {};
    std::optional<Problem> problem;
    if (stat(".", &record) == 0) problem = WhyNotBecome(record.st_uid);
    if (problem) remover_.Report(folder.Path(), *problem);
    if (!problem) CleanEAFolderHere(Folder::Here(folder), onlySource);
    return remover_.Totals();
  };
  const std::optional<std::string> totals = RunInProcess([&] { folder.Enter(); }, work);
  if (totals) return remover_.SetTotals(*totals);
  remover_.Report(folder.Path(), {Problem::Kind::kNoMemory, "the process cleaning it died", "run this again"});
}

void Cleaner::CleanEAFolderHere(const Folder& folder, const std::string* onlySource) {
  const Folder eaFolder(folder, EAFolderName());
  const auto sources = NamesOf(eaFolder);
  if (!sources) return;
  const auto isKept = [&](const std::string& source) {
    return (onlySource != nullptr && source != *onlySource) || !CleanEADirectory(folder, eaFolder, source);
  };
  if (std::count_if(sources->begin(), sources->end(), isKept) == 0) remover_.RemoveFolder(folder, EAFolderName());
}

// True if the directory was removed. While its source exists, it is removed only after it has been empty for an hour: a
// tool may create its file there long after the folder was made.
bool Cleaner::CleanEADirectory(const Folder& folder, const Folder& eaFolder, const std::string& source) {
  const std::optional<struct stat> before = eaFolder.Stat(source);
  const Folder entries(eaFolder, source);
  if (!entries.IsOpen() || !before) {
    ReportUnlessNotFolder(eaFolder.PathOf(source), errno);
    return false;
  }
  Source found(folder.Number(), source);
  if (!found.TryLock()) return false;
  if (!isDryRun_ && !found.IsGone()) RestrictFolderToReadersOf(isRoots_ ? "./" + source : folder.PathOf(source));
  const auto names = NamesOf(entries);
  if (!names) return false;
  const auto isKept = [&](const std::string& name) { return !CleanEntry(found, entries, name); };
  if (std::count_if(names->begin(), names->end(), isKept) != 0) return false;
  return (found.IsGone() || (names->empty() && IsOld(*before))) && remover_.RemoveFolder(eaFolder, source);
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

void Cleaner::CleanUnfinishedDirectory(const Folder& parent, const std::string& name) {
  const std::optional<struct stat> record = parent.Stat(name);
  const auto names = NamesOf(Folder(parent, name));
  if (record && IsOld(*record) && names && names->empty()) remover_.RemoveFolder(parent, name);
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
  if (file::GetEAPath("/folder/source", "entry") == "/folder/" + EAFolderName() + "/source/entry") return;
  throw std::runtime_error("this system stores thumbnails in an unknown layout; nothing was removed");
}

}  // namespace

bool Clean(const std::vector<std::string>& paths, const RemovalStyle& style) {
  CheckLayout();
  Cleaner cleaner(style);
  for (const std::string& path : paths) cleaner.CleanPath(path);
  for (const char* folder : file::TEMPORARY_FOLDERS) cleaner.CleanTemporaryFolder(folder);
  return cleaner.Finish();
}

}  // namespace tavithumb::apps::command
