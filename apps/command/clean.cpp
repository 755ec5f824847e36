// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/clean.h"

#include <fcntl.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "system/paths.h"
#include "thumbs/ea_folder.h"
#include "thumbs/source_state.h"
#include "thumbs/stored_entries.h"

namespace tavithumb::apps::command {
namespace {

constexpr char leftBehind[] = "it was left behind";

// What is younger may belong to a run that still works on it. A preview has the times of its photo, so the time of
// its last change counts too.
bool IsOld(const struct stat& record) {
  constexpr std::time_t hour = 3600;
  return std::time(nullptr) - std::max(record.st_mtime, record.st_ctime) > hour;
}

bool IsOwnAndOld(const struct stat& record) {
  return record.st_uid == geteuid() && IsOld(record);
}

// Why an entry is to go; "" when it stays.
std::string WhyGo(const EntryName& entry, State state, const struct stat& record) {
  if (entry.isTemporary) return IsOld(record) ? leftBehind : "";
  if (state == State::kSourceIsGone) return "its source is gone";
  return state == State::kStale ? "it is older than its source" : "";
}

class Cleaner {
 public:
  explicit Cleaner(const RemovalStyle& style) : remover_(style) {}

  void CleanPath(const std::string& path);
  void CleanTemporaryFolder(const std::string& path);
  bool Finish() const { return remover_.Finish(); }

 private:
  void CleanFolder(const std::string& path);
  void CleanFolder(const Folder& folder);
  void CleanFile(const std::string& path);
  void CleanEAFolder(const Folder& folder, const Folder& eaFolder, const std::string* onlySource);
  bool CleanEADirectory(const Folder& folder, const Folder& eaFolder, const std::string& source);
  bool CleanEntry(const Source& source, const Folder& entries, const std::string& name);
  bool CleanTemporaryFile(const Folder& folder, const std::string& name);
  void CleanScratchFolder(const Folder& parent, const std::string& name);

  std::optional<std::vector<std::string>> NamesOf(const Folder& folder);
  void ReportUnlessNoFolder(const std::string& path, int error);

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
  if (IsAmongThumbs(AbsolutePath(path))) return remover_.Report(path, FolderAmongThumbs());
  CleanFolder(folder);
}

void Cleaner::CleanFolder(const Folder& folder) {
  const auto names = NamesOf(folder);
  if (!names) return;
  for (const std::string& name : *names) {
    const Folder inner(folder, name);
    if (!inner.IsOpen()) {
      ReportUnlessNoFolder(folder.PathOf(name), errno);
    } else if (name == EAFolderName()) {
      CleanEAFolder(folder, inner, nullptr);
    } else if (inner.Path().size() < PATH_MAX) {  // nothing is stored further down
      CleanFolder(inner);
    }
  }
}

// A file, or one that is gone.
void Cleaner::CleanFile(const std::string& path) {
  const std::string name = BaseName(path);
  const std::string before = path.substr(0, path.size() - name.size());
  const Folder folder(before.empty() ? "." : before);
  const Folder eaFolder(folder, EAFolderName());
  if (eaFolder.Look(name)) {
    CleanEAFolder(folder, eaFolder, &name);
  } else if (!folder.Look(name)) {
    remover_.Report(path, ProblemOfErrno(ENOENT));
  }
}

void Cleaner::CleanEAFolder(const Folder& folder, const Folder& eaFolder, const std::string* onlySource) {
  const auto sources = NamesOf(eaFolder);
  if (!sources) return;
  const auto stays = [&](const std::string& source) {
    return (onlySource != nullptr && source != *onlySource) || !CleanEADirectory(folder, eaFolder, source);
  };
  if (std::count_if(sources->begin(), sources->end(), stays) == 0) remover_.RemoveFolder(folder, EAFolderName());
}

// True when nothing is left of it. The empty one of a file that is there goes when it has been so for an hour: a tool
// that makes a thumbnail opens it late.
bool Cleaner::CleanEADirectory(const Folder& folder, const Folder& eaFolder, const std::string& source) {
  const std::optional<struct stat> before = eaFolder.Look(source);
  const Folder entries(eaFolder, source);
  if (!entries.IsOpen() || !before) {
    ReportUnlessNoFolder(eaFolder.PathOf(source), errno);
    return false;
  }
  Source found(folder.Number(), source);
  if (!found.LockOut()) return false;
  const auto names = NamesOf(entries);
  if (!names) return false;
  const auto stays = [&](const std::string& name) { return !CleanEntry(found, entries, name); };
  if (std::count_if(names->begin(), names->end(), stays) != 0) return false;
  return (found.IsGone() || (names->empty() && IsOld(*before))) && remover_.RemoveFolder(eaFolder, source);
}

bool Cleaner::CleanEntry(const Source& source, const Folder& entries, const std::string& name) {
  const std::optional<EntryName> entry = ParseEntryName(name);
  if (!entry) return false;
  const std::optional<struct stat> record = entries.Look(name);
  if (!record || !S_ISREG(record->st_mode)) return false;
  const std::string reason = WhyGo(*entry, source.StateOf(*record), *record);
  return !reason.empty() && remover_.RemoveFile(entries, name, *record, reason);
}

void Cleaner::CleanTemporaryFolder(const std::string& path) {
  const Folder folder(path + "/");  // which may be a link
  if (!folder.IsOpen()) return;
  const auto names = NamesOf(folder);
  if (!names) return;
  for (const std::string& name : *names) {
    if (IsTemporaryFile(folder.PathOf(name))) CleanTemporaryFile(folder, name);
    if (IsScratchFolder(folder.PathOf(name))) CleanScratchFolder(folder, name);
  }
}

bool Cleaner::CleanTemporaryFile(const Folder& folder, const std::string& name) {
  const std::optional<struct stat> record = folder.Look(name);
  return record && S_ISREG(record->st_mode) && IsOwnAndOld(*record) &&
         remover_.RemoveFile(folder, name, *record, leftBehind);
}

void Cleaner::CleanScratchFolder(const Folder& parent, const std::string& name) {
  const std::optional<struct stat> record = parent.Look(name);
  const Folder folder(parent, name);
  if (!record || !IsOwnAndOld(*record) || !folder.IsOpen()) return;
  const auto files = NamesOf(folder);
  if (!files) return;
  const auto stays = [&](const std::string& file) { return !CleanTemporaryFile(folder, file); };
  if (std::count_if(files->begin(), files->end(), stays) == 0) remover_.RemoveFolder(parent, name);
}

// Nothing where they can't be read, which is reported.
std::optional<std::vector<std::string>> Cleaner::NamesOf(const Folder& folder) {
  try {
    return folder.Names();
  } catch (const std::system_error& error) {
    remover_.Report(folder.Path(), ProblemOfErrno(error.code().value()));
    return std::nullopt;
  }
}

// Files and links are none, nor is what has gone meanwhile.
void Cleaner::ReportUnlessNoFolder(const std::string& path, int error) {
  if (error != ENOTDIR && error != ENOENT) remover_.Report(path, ProblemOfErrno(error));
}

// Where thumbnails lay in another way, each would look like one whose source is gone.
void CheckLayout() {
  if (file::GetEAPath("/folder/source", "entry") == "/folder/" + EAFolderName() + "/source/entry") return;
  throw std::runtime_error("this system stores thumbnails in an unknown layout; nothing was removed");
}

}  // namespace

bool Clean(const std::vector<std::string>& paths, const RemovalStyle& style) {
  CheckLayout();
  Cleaner cleaner(style);
  for (const std::string& path : paths) cleaner.CleanPath(path);
  for (const char* folder : temporaryFolders) cleaner.CleanTemporaryFolder(folder);
  return cleaner.Finish();
}

}  // namespace tavithumb::apps::command
