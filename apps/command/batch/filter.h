// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

namespace tavithumb::apps::command {

// Which files and folders are left out.
struct Filter {
  std::vector<std::string> excluded;  // patterns as Excludes() reads them
  bool staysOnFileSystem = false;     // other volumes that are mounted below a folder are left out
  std::optional<timespec> since;      // files that have not changed after this moment are left out
  bool takesVideos = true;            // otherwise those in folders and lists are left out

  // Whether the type of a file of this name is right: a photo, or a video if those are taken.
  bool Takes(const std::string& name) const;

  // Whether a pattern matches `path`: its last component, if the pattern has no slash; as many of its last components
  // as the pattern has, if it has slashes; all of the absolute path, if it starts with one.
  bool Excludes(const std::string& path) const;

  // Whether the file has neither been written nor moved, copied or given other rights after `since`.
  bool IsTooOld(const struct stat& record) const;
};

// "2026-11-23", "2026-11-23 08:30", "2026-11-23 08:30:15" in local time, or the time of the file of any other name.
// Throws std::invalid_argument with a message for people.
timespec ParseMoment(const std::string& text);

}  // namespace tavithumb::apps::command
