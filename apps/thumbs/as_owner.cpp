// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/as_owner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "system/become.h"
#include "system/text.h"

namespace tavithumb::apps {
namespace {

using Kind = Problem::Kind;

std::string OwnerMayNot(const std::string& what) {
  return "the owner of its folder, " + UserName(geteuid()) + ", may not " + what;
}

Problem NotEntered(int error) {
  if (error == EPERM) {
    return {Kind::kForbidden, "its folder has been given to another user meanwhile", "run this again"};
  }
  if (error == EACCES) return {Kind::kForbidden, OwnerMayNot("enter it"), "open the folders above it to that user"};
  return ProblemOfErrno(error);
}

bool IsLink(const std::string& path) {
  struct stat record = {};
  return lstat(path.c_str(), &record) == 0 && S_ISLNK(record.st_mode);
}

// The folder of a source's thumbnails, or the one above it.
std::optional<Problem> WhyNotThroughLink(const std::string& source, const std::string& path) {
  const std::string entry = file::GetEAPath(source, "thumbnail");
  if (entry.empty()) return std::nullopt;
  const std::string entries = file::Dirname(entry);
  for (const std::string& folder : {entries, file::Dirname(entries)}) {
    if (!IsLink(folder)) continue;
    return Problem{Kind::kNoPlace, "its thumbnails would be stored through a symbolic link",
                   "remove " + Printable(PathFromOutside(folder, path))};
  }
  return std::nullopt;
}

}  // namespace

uid_t OwnerFor(const std::string& path) {
  try {
    return FolderOwnerOf(path);
  } catch (const std::system_error&) {
    return 0;
  }
}

std::optional<Problem> WhyNotBecome(uid_t user) {
  try {
    Become(user);
    return std::nullopt;
  } catch (const std::system_error& error) {
    return Problem{
        Kind::kForbidden,
        "this process cannot become the owner of its folder, " + UserName(user) + ": " + error.code().message(),
        "run this as that user"};
  }
}

std::optional<Problem> WhyNotEnter(const std::string& path, std::string* inside) {
  if (path.empty()) return ProblemOfErrno(ENOENT);
  try {
    *inside = EnterFolderOf(path);
  } catch (const std::system_error& error) {
    return NotEntered(error.code().value());
  }
  if (faccessat(AT_FDCWD, inside->c_str(), R_OK, AT_EACCESS) != 0 && errno == EACCES) {
    return Problem{Kind::kForbidden, OwnerMayNot("read it"), "give that user read permission"};
  }
  return WhyNotThroughLink(*inside, path);
}

}  // namespace tavithumb::apps
