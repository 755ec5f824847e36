// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "web/roots.h"

namespace tavithumb::apps::web {

struct ListedFolder {
  std::string name;
  std::string url;  // after "list/"
};

struct ListedFile {
  std::string name;
  std::string url;  // after "thumb/" and "original/"
  bool isVideo;
  std::string type;  // by its name: "jpg"
  std::uint64_t bytes;
  std::int64_t modified;  // seconds since the epoch
  bool hasScreenshot;     // a video for which one is stored

  // Whether a browser can show the file itself, going by its name.
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
// if there is no such folder, 403 if it can't be read.
Listing ListFolder(const Roots& roots, const std::vector<std::string>& path);

std::string ListAsJson(const Listing& listing);

// A complete page with links and pictures; all addresses start with `prefix`.
std::string ListAsHtml(const Listing& listing, const std::string& prefix);

}  // namespace tavithumb::apps::web
