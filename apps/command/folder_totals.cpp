// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/folder_totals.h"

#include <fcntl.h>
#include <tavithumb/util.h>

#include <cerrno>
#include <climits>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>
#include <vector>

#include "command/output.h"
#include "system/json_text.h"
#include "system/paths.h"
#include "thumbs/ea_folder.h"
#include "thumbs/kinds.h"
#include "thumbs/reasons.h"
#include "thumbs/store.h"
#include "thumbs/stored_entries.h"

namespace tavithumb::apps::command {
namespace {

std::uint64_t DiskOf(const struct stat& record) {
  return static_cast<std::uint64_t>(record.st_blocks) * 512;
}

FolderTotals::Names NamesOfThumbnail(const std::string& name) {
  const std::optional<EntryName> entry = ParseEntryName(name);
  if (!entry) return {"other", ""};
  return entry->isTemporary ? FolderTotals::Names{entry->consumer + " temporary", ""}
                            : FolderTotals::Names{entry->consumer, entry->size};
}

FolderTotals::Names KindOf(const std::string& name) {
  if (IsPhoto(name)) return {"image", file::GetFileExt(name)};
  if (IsSupportVideo(name)) return {"video", file::GetFileExt(name)};
  return {"other", ""};
}

}  // namespace

bool IsFolder(const std::string& path) {
  struct stat record = {};
  return stat(path.c_str(), &record) == 0 && S_ISDIR(record.st_mode);
}

std::vector<std::string> FolderTotals::NamesOf(const Folder& folder) {
  if (folder.IsOpen()) {
    try {
      return folder.Names();
    } catch (const std::system_error& error) {
      errno = error.code().value();
    }
  }
  if (errno == ENOENT || errno == ENOTDIR) return {};
  ReportProblem(folder.Path(), ProblemOfErrno(errno));
  isComplete_ = false;
  return {};
}

std::string FolderTotals::JsonLineOf(const std::string& path, const nlohmann::ordered_json& totals) const {
  nlohmann::ordered_json object;
  SetName(&object, "source", AbsolutePath(path));
  object["totals"] = totals;
  object["error"] = nullptr;
  if (!isComplete_) object["error"] = "some folders could not be read";
  return JsonLine(object);
}

void FolderTotals::Walk(const Folder& folder, const Visit& visit) {
  visit(folder);
  for (const std::string& name : NamesOf(folder)) {
    const std::optional<struct stat> record = folder.Stat(name);
    if (!record || !S_ISDIR(record->st_mode) || name == EAFolderName()) continue;
    const Folder inner(folder, name);
    if (inner.Path().size() < PATH_MAX && !IsStore(inner)) Walk(inner, visit);
  }
}

void FolderTotals::AddThumbnails(const Folder& eaFolder, const std::function<Source(const std::string&)>& sourceOf) {
  for (const std::string& name : NamesOf(eaFolder)) {
    const Folder entries(eaFolder, name);
    const std::vector<std::string> thumbnails = NamesOf(entries);
    if (thumbnails.empty()) continue;
    const Source source = sourceOf(name);
    for (const std::string& thumbnail : thumbnails) {
      const std::optional<struct stat> record = entries.Stat(thumbnail);
      if (!record || !S_ISREG(record->st_mode)) continue;
      StoredTotal& total = stored_[NamesOfThumbnail(thumbnail)];
      const Freshness freshness = source.FreshnessOf(*record);
      ++total.files;
      if (freshness == Freshness::kStale) ++total.stale;
      if (freshness == Freshness::kSourceIsGone) ++total.gone;
      total.disk += DiskOf(*record);
    }
  }
}

std::map<FolderTotals::Names, StoredTotal> FolderTotals::StoredFor(const std::string& path) {
  stored_.clear();
  Walk(Folder(path + "/"), [this](const Folder& folder) {
    AddThumbnails(Folder(folder, EAFolderName()),
                  [&](const std::string& name) { return Source(folder.Number(), name); });
  });
  if (StoreFolder().empty()) return stored_;
  const std::string real = MirrorOf(path).substr(StoreFolder().size());
  const Folder mirror = OpenInStore(real);
  if (!mirror.IsOpen()) return stored_;
  Walk(mirror, [&](const Folder& folder) {
    const std::string sources = folder.Path().substr(StoreFolder().size());
    AddThumbnails(Folder(folder, EAFolderName()),
                  [&](const std::string& name) { return Source(AT_FDCWD, JoinPath(sources, name)); });
  });
  return stored_;
}

void FolderTotals::AddFiles(const Folder& folder) {
  for (const std::string& name : NamesOf(folder)) {
    const std::optional<struct stat> record = folder.Stat(name);
    if (!record || !S_ISREG(record->st_mode)) continue;
    FileTotal& total = files_[KindOf(name)];
    ++total.files;
    total.disk += DiskOf(*record);
  }
}

std::map<FolderTotals::Names, FileTotal> FolderTotals::FilesIn(const std::string& path) {
  files_.clear();
  Walk(Folder(path + "/"), [this](const Folder& folder) { AddFiles(folder); });
  return files_;
}

}  // namespace tavithumb::apps::command
