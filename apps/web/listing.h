// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "web/roots.h"

namespace tavithumb::apps::web {

struct ListedFolder {
  std::string name;
  std::string url;                    // after "list/"
  std::optional<std::size_t> photos;  // photos and videos in it by their names, if they have been counted
  std::string cover;                  // the first photo by its name, after "thumb/"; "" if there is none
};

struct ListedFile {
  std::string name;
  std::string url;  // after "thumb/" and "original/"
  bool isVideo;
  std::string type;  // by its name: "jpg"
  std::uint64_t bytes;
  std::int64_t modified;  // seconds since the epoch
  bool hasScreenshot;     // a video for which one is stored, or a still can be taken

  // Whether a browser may show or play the file itself, going by its name.
  bool HasOriginal() const;
};

struct Listing {
  std::vector<std::string> path;
  std::vector<ListedFolder> folders;  // sorted by name, as the files are
  std::vector<ListedFile> files;
  unsigned unreadable;                        // the number of folders left out because they can't be read
  std::optional<std::string> notStored = {};  // why no thumbnails can be stored, so that each request makes them again
};

// The folders, photos and videos in a folder, or the roots if they have names and `path` is empty. Throws HttpError 404
// if there is no such folder, 403 if it can't be read. With `byLibrary`, no stills are taken. Once the folders in it
// have had `mostCounted` names, the rest of them are not counted.
Listing ListFolder(const Roots& roots, const std::vector<std::string>& path, bool byLibrary,
                   std::size_t mostCounted = 50000);

// The names in an open folder that are shown, sorted. Throws like ListFolder().
std::vector<std::string> ShownNamesIn(const Found& folder, const Roots& roots);

std::string ListAsJson(const Listing& listing);

// A complete page with links and pictures; all addresses start with `prefix`.
std::string ListAsHtml(const Listing& listing, const std::string& prefix);

}  // namespace tavithumb::apps::web
