// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/add.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <optional>

#include "command/as_owner.h"
#include "command/output.h"
#include "system/become.h"
#include "system/descriptors.h"
#include "system/paths.h"
#include "system/quiet_log.h"
#include "system/text.h"
#include "thumbs/facts.h"
#include "thumbs/facts_in_bounds.h"
#include "thumbs/privacy.h"
#include "thumbs/reasons.h"
#include "thumbs/rendering.h"
#include "thumbs/sizes.h"
#include "thumbs/store.h"
#include "thumbs/store_size.h"

namespace tavithumb::apps::command {
namespace {

using Kind = Problem::Kind;

const Problem notMoved = {Kind::kForbidden, "it could not be moved",
                          "make its folder writable, and check that the disk has space"};

// A problem, and the name of a pair that it concerns.
struct Refusal {
  std::string name;
  Problem problem;
};

std::optional<struct stat> Look(const std::string& path) {
  struct stat record = {};
  if (lstat(path.c_str(), &record) != 0) return std::nullopt;
  return record;
}

bool AreSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool AreUnchanged(const struct stat& before, const struct stat& now) {
  return AreSame(before, now) && before.st_ctim.tv_sec == now.st_ctim.tv_sec &&
         before.st_ctim.tv_nsec == now.st_ctim.tv_nsec;
}

std::optional<Problem> CheckSourceAndVolume(const std::string& source) {
  if (std::optional<Problem> problem = CheckSource(source)) return problem;
  if (HasPlaceFor(source)) return std::nullopt;
  return NoEntriesOnVolume();
}

// The library sets mode, owner and time of a moved file through its name: if that is a link, they would change another
// file.
std::optional<Problem> CheckThumbnail(const std::string& thumbnail, const std::string& source) {
  const std::optional<struct stat> record = Look(thumbnail);
  if (!record) return ProblemOfErrno(errno);
  if (S_ISLNK(record->st_mode))
    return Problem{Kind::kMissing, "it is a symbolic link", "name the file that it points to"};
  if (S_ISDIR(record->st_mode)) return Problem{Kind::kMissing, "it is a folder", "name a picture in it"};
  if (!S_ISREG(record->st_mode)) return Problem{Kind::kMissing, "it is not a regular file", "name a picture"};
  struct stat photo = {};
  if (stat(source.c_str(), &photo) != 0 || !AreSame(*record, photo)) return std::nullopt;
  return Problem{Kind::kUnsupported, "it is the source itself", "name another file"};
}

std::optional<Problem> CheckType(const std::string& thumbnail, const std::string& type, const char* remedy) {
  const std::optional<Picture> picture = MeasurePicture(thumbnail);
  if (!picture) return UnknownContent();
  if (picture->mimeType == type) return std::nullopt;
  return Problem{Kind::kUnsupported, "it is " + picture->mimeType + ", but thumbnails of its source are " + type,
                 remedy};
}

// A move across volumes would put the file into a folder, or follow a link.
std::optional<Problem> CheckPlace(const std::string& place, const std::string& shown) {
  const std::optional<struct stat> record = Look(place);
  if (!record || S_ISREG(record->st_mode)) return std::nullopt;
  return Problem{Kind::kNoPlace, "the path of its thumbnail is taken by something other than a file",
                 "remove " + Printable(shown)};
}

// A failed move across volumes may have replaced the stored thumbnail with a truncated one.
void RemoveHalf(const std::string& place, const std::optional<struct stat>& before, const std::string& thumbnail) {
  const std::optional<struct stat> now = Look(place);
  if (!now || (before && AreUnchanged(*before, *now)) || !Look(thumbnail)) return;
  unlink(place.c_str());
}

// The library sets the time only as root. A thumbnail whose time isn't its source's would be made again.
void SetTime(const std::string& place, long mtime, const std::string& source) {
  struct stat photo = {};
  if (mtime == 0 && stat(source.c_str(), &photo) == 0) mtime = photo.st_mtim.tv_sec;
  const std::array<timespec, 2> times = {{{0, UTIME_OMIT}, {mtime, 0}}};
  if (mtime != 0) utimensat(AT_FDCWD, place.c_str(), times.data(), 0);
}

// A source, as its processor reaches it, and a thumbnail of it, by absolute path.
struct Addition {
  Pair names;        // as typed
  std::string path;  // the source's, absolute
  std::string source;
  std::string thumbnail;
};

// Moves the thumbnail and sets `place` to its new path, as seen from outside; or returns why not, and leaves the
// thumbnail in place. Throws like the library if the source can't be read.
std::optional<Refusal> Store(const Addition& addition, const AddStyle& style, std::string* place) {
  const auto& [names, path, source, thumbnail] = addition;
  Thumb job(source, 0, false);
  job.SetRequest(style.size);
  ReadFactsOnly(&job);
  if (style.checkType) {
    if (const auto problem = CheckType(thumbnail, job.GetOutputMimeType(), "convert it, or leave out --check-type"))
      return Refusal{names.second, *problem};
  }
  *place = NewEntryPath(source, BaseName(job.GetOnlineOutputDest()));
  if (const auto problem = CheckPlace(*place, PathFromOutside(*place, path))) return Refusal{names.first, *problem};
  const std::optional<struct stat> before = Look(*place);
  const QuietLog quiet;
  const bool isStored = file::MakeEADir(source) && job.SaveThumbToEA(thumbnail, *place, style.mtime);
  if (isStored && Look(*place)) {
    SetTime(*place, style.mtime, source);
    RestrictToReadersOf(source, *place);
    CountStored(*place);
    *place = PathFromOutside(*place, path);
    return std::nullopt;
  }
  RemoveHalf(*place, before, thumbnail);
  if (const auto problem = WhyNotStored(source)) return Refusal{names.first, *problem};
  return Refusal{names.second, notMoved};
}

// The sizes that have thumbnails of their own.
std::vector<Request> AllSizes() {
  std::vector<Request> requests;
  for (const std::string& size : StoredSizes()) {
    if (requests.empty() || SideOf(size) != SideOf(requests.back().size.name)) requests.push_back({{size, {0, 0}}});
  }
  return requests;
}

// Makes the thumbnails of all sizes from the given one, which is then removed. Like Store(), with a path on each line.
std::optional<Refusal> StoreInAllSizes(const Addition& addition, std::string* places) {
  const auto& [names, path, source, thumbnail] = addition;
  Thumb picture(thumbnail, 0, false), job(source, Thumb::OPT_BROVIX_EA, false);
  ReadFactsOnly(&picture);
  ReadFactsOnly(&job);
  if (const auto problem = CheckType(thumbnail, job.GetOutputMimeType(), "convert it"))
    return Refusal{names.second, *problem};
  const std::optional<std::string> refusal = RenderInChildFrom(
      thumbnail, source, [&] { return RenderAndStoreFrom(picture.GetInfo(), job.GetInfo(), AllSizes()); });
  if (refusal) {
    if (const auto problem = WhyNotStored(source)) return Refusal{names.first, *problem};
    return Refusal{names.second, *refusal == notStored ? notMoved : UnknownContent()};
  }
  for (const Request& request : AllSizes()) {
    job.SetRequest(request.size.name);
    CountStored(job.GetOnlineOutputDest());
    *places += (places->empty() ? "" : "\n") + PathFromOutside(job.GetOnlineOutputDest(), path);
  }
  unlink(thumbnail.c_str());
  return std::nullopt;
}

std::optional<Refusal> Move(const Addition& addition, const AddStyle& style, std::string* place) {
  const auto& [names, path, source, thumbnail] = addition;
  if (const auto problem = CheckSourceAndVolume(source)) return Refusal{names.first, *problem};
  if (const auto problem = CheckThumbnail(thumbnail, source)) return Refusal{names.second, *problem};
  const QuietErrors quiet;
  try {
    return style.size.empty() ? StoreInAllSizes(addition, place) : Store(addition, style, place);
  } catch (const std::exception&) {
    return Refusal{names.first, ProblemOfException()};
  }
}

bool AddOne(const Pair& names, const AddStyle& style) {
  const std::string path = AbsolutePath(names.first), thumbnail = AbsolutePath(names.second);
  return RunAsOwner(path, [&](const std::string& inside, const std::optional<Problem>& problem) {
    std::string place;
    const std::optional<Refusal> refusal =
        problem ? Refusal{names.first, *problem} : Move({names, path, inside, thumbnail}, style, &place);
    if (refusal) {
      ReportProblem(refusal->name, refusal->problem);
    } else {
      WriteOut(place + "\n");
    }
    return !refusal;
  });
}

}  // namespace

bool Add(const std::vector<Pair>& pairs, const AddStyle& style) {
  bool allAdded = true;
  for (const Pair& names : pairs) {
    if (!AddOne(names, style)) allAdded = false;
  }
  return allAdded;
}

}  // namespace tavithumb::apps::command
