// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/list.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>

#include "command/folder_totals.h"
#include "command/output.h"
#include "command/table.h"
#include "system/descriptors.h"
#include "system/folder.h"
#include "system/json_text.h"
#include "system/paths.h"
#include "system/text.h"
#include "thumbs/facts.h"
#include "thumbs/reasons.h"
#include "thumbs/source.h"
#include "thumbs/store.h"
#include "thumbs/stored_entries.h"

namespace tavithumb::apps::command {
namespace {

struct Entry {
  std::string path;
  std::optional<EntryName> name;
  std::optional<Picture> picture;
  std::uint64_t bytes;
  Freshness freshness;
};

const Row heading = {"CONSUMER", "SIZE", "ROTATION", "PIXELS", "BYTES", "TYPE", "STATE", "PATH"};

const char* Describe(Freshness freshness) {
  switch (freshness) {
    case Freshness::kUpToDate:
      return "up to date";
    case Freshness::kStale:
      return "stale";
    case Freshness::kSourceIsGone:
      return "source is gone";
    case Freshness::kUnknown:
      break;
  }
  return "unknown";
}

std::string ConsumerOf(const Entry& entry) {
  return entry.name ? entry.name->consumer + (entry.name->isTemporary ? " temporary" : "") : "other";
}

Row RowOf(const Entry& entry) {
  return {ConsumerOf(entry),
          entry.name && !entry.name->size.empty() ? entry.name->size : "-",
          entry.name ? std::to_string(entry.name->quarterTurns * 90) : "-",
          entry.picture ? PixelSize(entry.picture->width, entry.picture->height) : "-",
          ByteText(entry.bytes),
          entry.picture ? entry.picture->mimeType : "-",
          Describe(entry.freshness),
          Printable(entry.path)};
}

nlohmann::ordered_json JsonOf(const Entry& entry) {
  nlohmann::ordered_json object;
  SetName(&object, "path", entry.path);
  object["consumer"] = ConsumerOf(entry);
  object["size"] = nullptr;
  object["rotation"] = nullptr;
  if (entry.name && !entry.name->size.empty()) object["size"] = entry.name->size;
  if (entry.name) object["rotation"] = entry.name->quarterTurns;
  object["bytes"] = entry.bytes;
  object["picture"] = JsonPicture(entry.picture);
  object["state"] = Describe(entry.freshness);
  return object;
}

std::string JsonOf(const std::string& path, const std::vector<Entry>& entries) {
  nlohmann::ordered_json object;
  SetName(&object, "source", path);
  object["entries"] = nlohmann::ordered_json::array();
  for (const Entry& entry : entries) object["entries"].push_back(JsonOf(entry));
  object["error"] = nullptr;
  return JsonLine(object);
}

// Nothing for a picture of unknown type.
std::optional<Picture> PictureAt(const std::string& path) {
  const QuietErrors quiet;
  std::optional<Picture> picture = MeasurePicture(path);
  if (picture && picture->mimeType.empty()) return std::nullopt;
  return picture;
}

// Throws std::system_error if they can't be read, like the next function.
void ReadEntries(const std::string& path, const Source& source, std::vector<Entry>* entries) {
  const Folder folder(path);
  if (!folder.IsOpen() && (errno == ENOENT || errno == ENOTDIR)) return;
  if (!folder.IsOpen()) throw std::system_error(errno, std::generic_category());
  for (const std::string& name : folder.Names()) {
    const std::optional<struct stat> record = folder.Stat(name);
    if (!record || !S_ISREG(record->st_mode)) continue;
    const std::string entry = folder.PathOf(name);
    entries->push_back({entry, ParseEntryName(name), PictureAt(entry), static_cast<std::uint64_t>(record->st_size),
                        source.FreshnessOf(*record)});
  }
}

std::vector<Entry> EntriesOf(const std::string& path) {
  const Source source(AT_FDCWD, path);
  std::vector<Entry> entries;
  for (const std::string& folder : EntryFoldersOf(path)) ReadEntries(folder, source, &entries);
  return entries;
}

// Fills `entries`, or returns why there are none.
std::optional<Problem> Read(const std::string& path, std::vector<Entry>* entries) {
  try {
    *entries = EntriesOf(path);
  } catch (const std::system_error& error) {
    return ProblemOfErrno(error.code().value());
  }
  return entries->empty() ? CheckSource(path) : std::nullopt;
}

const Row totalsHeading = {"CONSUMER", "SIZE", "FILES", "STALE", "SOURCE GONE", "DISK", "FOLDER"};

using StoredTotals = std::map<FolderTotals::Names, StoredTotal>;

Row RowOf(const FolderTotals::Names& names, const StoredTotal& total, const std::string& folder) {
  return {names.first,
          names.second.empty() ? "-" : names.second,
          std::to_string(total.files),
          std::to_string(total.stale),
          std::to_string(total.gone),
          ByteText(total.disk),
          Printable(folder)};
}

std::string TableOf(const std::string& folder, const StoredTotals& totals) {
  if (totals.empty()) return Printable(folder) + ": nothing is stored\n";
  std::vector<Row> rows = {totalsHeading};
  StoredTotal all;
  for (const auto& [names, total] : totals) {
    rows.push_back(RowOf(names, total, folder));
    all = {all.files + total.files, all.stale + total.stale, all.gone + total.gone, all.disk + total.disk};
  }
  rows.push_back(RowOf({"all", ""}, all, folder));
  return Aligned(rows);
}

nlohmann::ordered_json JsonOf(const StoredTotals& totals) {
  nlohmann::ordered_json array = nlohmann::ordered_json::array();
  for (const auto& [names, total] : totals) {
    array.push_back({{"consumer", names.first},
                     {"size", nullptr},
                     {"files", total.files},
                     {"stale", total.stale},
                     {"gone", total.gone},
                     {"disk", total.disk}});
    if (!names.second.empty()) array.back()["size"] = names.second;
  }
  return array;
}

// True if all of it could be read.
bool ListFolder(const std::string& name, bool json) {
  FolderTotals folder;
  const StoredTotals totals = folder.StoredFor(name);
  WriteOut(json ? folder.JsonLineOf(name, JsonOf(totals)) : TableOf(name, totals));
  return folder.IsComplete();
}

}  // namespace

bool List(const std::vector<std::string>& sources, bool json) {
  bool allRead = true;
  std::vector<Row> rows = {heading};
  std::string empty;
  for (const std::string& name : sources) {
    const std::string path = AbsolutePath(name);
    if (IsFolder(path)) {
      if (!ListFolder(name, json)) allRead = false;
      continue;
    }
    std::vector<Entry> entries;
    const std::optional<Problem> problem = Read(path, &entries);
    if (problem) {
      ReportProblem(name, *problem);
      allRead = false;
    }
    if (json) WriteOut(problem ? JsonProblem("source", path, *problem) : JsonOf(path, entries));
    if (!problem && entries.empty()) empty += Printable(name) + ": nothing is stored\n";
    for (const Entry& entry : entries) rows.push_back(RowOf(entry));
  }
  if (!json && rows.size() > 1) WriteOut(Aligned(rows));
  if (!json) WriteOut(empty);
  return allRead;
}

}  // namespace tavithumb::apps::command
