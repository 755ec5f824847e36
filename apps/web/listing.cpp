// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/listing.h"

#include <fcntl.h>
#include <tavithumb/libtavithumb.h>
#include <tavithumb/util.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>

#include "system/folder.h"
#include "system/json_text.h"
#include "system/paths.h"
#include "system/text.h"
#include "thumbs/kinds.h"
#include "thumbs/reasons.h"
#include "thumbs/stills.h"
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

std::vector<std::string> ReadNames(const Found& found) {
  try {
    return NamesIn(found.descriptor);
  } catch (const std::system_error& error) {
    if (error.code().value() == EACCES) throw HttpError(kForbidden, "permission denied");
    throw NotFound();
  }
}

bool IsShownFile(const std::string& name) {
  return IsPhoto(name) || IsSupportVideo(name);
}

bool IsReadable(const Found& found) {
  return faccessat(found.descriptor.Number(), ".", R_OK | X_OK, AT_EACCESS) == 0;
}

std::string UrlOf(const std::vector<std::string>& path) {
  std::vector<std::string> encoded;
  encoded.reserve(path.size());
  for (const std::string& name : path) encoded.push_back(UrlEncoded(name));
  return Join(encoded, "/");
}

ListedFile ListFile(const std::string& name, const std::string& url, const Found& found, bool takesStills) {
  const bool isVideo = IsSupportVideo(name);
  return {
      name,
      url,
      isVideo,
      file::GetFileExt(name),
      static_cast<std::uint64_t>(found.record.st_size),
      found.record.st_mtime,
      (takesStills && IsFilm(name)) || (isVideo && Thumb(found.path, Thumb::OPT_NO_CONVERT, false).SetOutCinevoEA())};
}

// A folder that is listed, and the names that may still be counted in it and those after it.
struct Progress {
  const Roots& roots;
  bool takesStills;
  std::size_t namesLeft;
  Listing* listing;
};

ListedFolder ListSubfolder(const std::string& name, const std::string& url, const Found& found, Progress* progress) {
  ListedFolder folder = {name, url, std::nullopt, ""};
  if (progress->namesLeft == 0) return folder;
  const std::vector<std::string> names = ShownNamesIn(found, progress->roots);
  progress->namesLeft -= std::min(progress->namesLeft, names.size());
  const auto cover = std::find_if(names.begin(), names.end(), IsPhoto);
  if (cover != names.end()) folder.cover = url + "/" + UrlEncoded(*cover);
  folder.photos = static_cast<std::size_t>(std::count_if(names.begin(), names.end(), IsShownFile));
  return folder;
}

void List(const std::vector<std::string>& path, Progress* progress) {
  Listing* const listing = progress->listing;
  const std::string url = UrlOf(path);
  const std::string& name = path.back();
  const Found found = progress->roots.Find(path);
  if (S_ISDIR(found.record.st_mode)) {
    if (IsReadable(found)) {
      listing->folders.push_back(ListSubfolder(name, url, found, progress));
    } else {
      ++listing->unreadable;
    }
  } else if (S_ISREG(found.record.st_mode) && IsShownFile(name)) {
    listing->files.push_back(ListFile(name, url, found, progress->takesStills));
  }
}

// Skips files removed meanwhile and links out of the roots, and counts those that can't be accessed.
void ListIfFound(const std::vector<std::string>& path, Progress* progress) {
  try {
    List(path, progress);
  } catch (const HttpError& error) {
    if (error.Code() == kForbidden) ++progress->listing->unreadable;
  } catch (const std::exception&) {  // removed after it was found
  }
}

std::optional<std::string> WhyNotStoredIn(const std::string& folder) {
  const std::optional<Problem> problem = WhyNothingIsStored(JoinPath(folder, "photo"));
  return problem ? std::optional<std::string>(problem->reason) : std::nullopt;
}

void ListRoots(Progress* progress) {
  for (const Root& root : progress->roots.All()) ListIfFound({root.name}, progress);
  std::vector<ListedFolder>& folders = progress->listing->folders;
  std::sort(folders.begin(), folders.end(),
            [](const ListedFolder& one, const ListedFolder& other) { return one.name < other.name; });
}

nlohmann::ordered_json JsonOf(const ListedFile& file) {
  nlohmann::ordered_json object;
  SetName(&object, "name", file.name);
  object["url"] = file.url;
  object["kind"] = file.isVideo ? "video" : "image";
  object["type"] = file.type;
  object["bytes"] = file.bytes;
  object["modified"] = file.modified;
  object["original"] = file.HasOriginal();
  if (file.isVideo) object["screenshot"] = file.hasScreenshot;
  return object;
}

}  // namespace

bool ListedFile::HasOriginal() const {
  return IsExtensionShownByBrowsers(type) || !PlayableVideoType(type).empty();
}

std::vector<std::string> ShownNamesIn(const Found& found, const Roots& roots) {
  std::vector<std::string> names = ReadNames(found);
  const auto isHidden = [&](const std::string& name) { return !roots.IsShown(name); };
  names.erase(std::remove_if(names.begin(), names.end(), isHidden), names.end());
  return names;
}

Listing ListFolder(const Roots& roots, const std::vector<std::string>& path, bool byLibrary, std::size_t mostCounted) {
  Listing listing = {path, {}, {}, 0};
  Progress progress = {roots, !byLibrary && IsStillToolInstalled(), mostCounted, &listing};
  if (roots.AreNamed() && path.empty()) {
    ListRoots(&progress);
    return listing;
  }
  const Found folder = roots.Find(path);
  listing.notStored = WhyNotStoredIn(folder.path);
  std::vector<std::string> entry = path;
  for (const std::string& name : ShownNamesIn(folder, roots)) {
    entry.push_back(name);
    ListIfFound(entry, &progress);
    entry.pop_back();
  }
  return listing;
}

std::string ListAsJson(const Listing& listing) {
  nlohmann::ordered_json object;
  SetName(&object, "path", Join(listing.path, "/"));
  object["folders"] = nlohmann::ordered_json::array();
  for (const ListedFolder& folder : listing.folders) {
    nlohmann::ordered_json entry;
    SetName(&entry, "name", folder.name);
    entry["url"] = folder.url;
    if (folder.photos) entry["photos"] = *folder.photos;
    if (!folder.cover.empty()) entry["cover"] = folder.cover;
    object["folders"].push_back(entry);
  }
  object["files"] = nlohmann::ordered_json::array();
  for (const ListedFile& file : listing.files) object["files"].push_back(JsonOf(file));
  object["unreadable"] = listing.unreadable;
  if (listing.notStored) object["not_stored"] = *listing.notStored;
  return JsonLine(object);
}

}  // namespace tavithumb::apps::web
