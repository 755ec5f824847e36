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
#include "web/http_error.h"
#include "web/target.h"

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

std::vector<std::string> ShownNamesIn(const Found& found, const Roots& roots) {
  std::vector<std::string> names = ReadNames(found);
  const auto isHidden = [&](const std::string& name) { return !roots.IsShown(name); };
  names.erase(std::remove_if(names.begin(), names.end(), isHidden), names.end());
  return names;
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

ListedFile ListFile(const std::string& name, const std::string& url, const Found& found) {
  const bool isVideo = IsSupportVideo(name);
  return {name,
          url,
          isVideo,
          file::GetFileExt(name),
          static_cast<std::uint64_t>(found.record.st_size),
          found.record.st_mtime,
          isVideo && Thumb(found.path, Thumb::OPT_NO_CONVERT, false).SetOutCinevoEA()};
}

void List(const std::vector<std::string>& path, const Roots& roots, Listing* listing) {
  const std::string url = UrlOf(path);
  const std::string& name = path.back();
  const Found found = roots.Find(path);
  if (S_ISDIR(found.record.st_mode)) {
    if (IsReadable(found)) {
      listing->folders.push_back({name, url});
    } else {
      ++listing->unreadable;
    }
  } else if (S_ISREG(found.record.st_mode) && (IsPhoto(name) || IsSupportVideo(name))) {
    listing->files.push_back(ListFile(name, url, found));
  }
}

// Skips files removed meanwhile and links out of the roots, and counts those that can't be accessed.
void ListIfFound(const std::vector<std::string>& path, const Roots& roots, Listing* listing) {
  try {
    List(path, roots, listing);
  } catch (const HttpError& error) {
    if (error.Code() == kForbidden) ++listing->unreadable;
  } catch (const std::exception&) {  // removed after it was found
  }
}

std::optional<std::string> WhyNotStoredIn(const std::string& folder) {
  const std::optional<Problem> problem = WhyNothingIsStored(JoinPath(folder, "photo"));
  return problem ? std::optional<std::string>(problem->reason) : std::nullopt;
}

void ListRoots(const Roots& roots, Listing* listing) {
  for (const Root& root : roots.All()) ListIfFound({root.name}, roots, listing);
  std::sort(listing->folders.begin(), listing->folders.end(),
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
  return IsExtensionShownByBrowsers(type);
}

Listing ListFolder(const Roots& roots, const std::vector<std::string>& path) {
  Listing listing = {path, {}, {}, 0};
  if (roots.AreNamed() && path.empty()) {
    ListRoots(roots, &listing);
    return listing;
  }
  const Found folder = roots.Find(path);
  listing.notStored = WhyNotStoredIn(folder.path);
  std::vector<std::string> entry = path;
  for (const std::string& name : ShownNamesIn(folder, roots)) {
    entry.push_back(name);
    ListIfFound(entry, roots, &listing);
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
    object["folders"].push_back(entry);
  }
  object["files"] = nlohmann::ordered_json::array();
  for (const ListedFile& file : listing.files) object["files"].push_back(JsonOf(file));
  object["unreadable"] = listing.unreadable;
  if (listing.notStored) object["not_stored"] = *listing.notStored;
  return JsonLine(object);
}

}  // namespace tavithumb::apps::web
