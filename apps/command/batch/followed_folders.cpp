// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/followed_folders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tavithumb/util.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <system_error>
#include <utility>

#include "command/batch/estimate.h"
#include "system/folder.h"
#include "system/paths.h"
#include "thumbs/ea_folder.h"
#include "thumbs/stored_entries.h"

namespace tavithumb::apps::command {
namespace {

// How often folders are looked through that can't be watched.
constexpr std::chrono::minutes walkInterval(10);
constexpr int filesPerStep = 64;

const Problem notThere = {Problem::Kind::kMissing, "this folder is no longer there", "start again when it is back"};
const Problem noFolder = {Problem::Kind::kMissing, "it is not a folder", "name the folder that it is in"};

// How long ago the file was changed last; nothing for one from the future, as on a server whose clock is fast.
std::optional<Clock::duration> AgeOf(const struct stat& record) {
  using std::chrono::nanoseconds;
  using std::chrono::seconds;
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  const auto age = seconds(now.tv_sec - record.st_ctim.tv_sec) + nanoseconds(now.tv_nsec - record.st_ctim.tv_nsec);
  if (age < nanoseconds::zero()) return std::nullopt;
  return age;
}

std::optional<Problem> WhyNoFolder(const std::string& path) {
  struct stat record = {};
  if (stat(path.c_str(), &record) != 0) return ProblemOfErrno(errno);
  return S_ISDIR(record.st_mode) ? std::nullopt : std::optional(noFolder);
}

}  // namespace

FollowedFolders::FollowedFolders(const std::vector<std::string>& folders, Filter filter, Followers followers)
    : filter_(std::move(filter)), followers_(std::move(followers)) {
  for (const std::string& folder : folders) {
    if (const std::optional<Problem> problem = WhyNoFolder(folder)) {
      followers_.fail(folder, *problem);
    } else {
      folders_.insert(folder);
    }
  }
  LookThroughAll();
}

std::optional<std::string> FollowedFolders::Next() {
  if (ready_.empty()) return TakeFromWalk();
  std::string path = std::move(ready_.front());
  ready_.pop_front();
  return path;
}

// Those that may still be written are found later.
std::optional<std::string> FollowedFolders::TakeFromWalk() {
  while (std::optional<std::string> path = walk_ ? walk_->Next() : std::nullopt) {
    struct stat record = {};
    const std::optional<Clock::duration> age = stat(path->c_str(), &record) == 0 ? AgeOf(record) : std::nullopt;
    if (!age || *age >= QuietFiles::quietTime) return path;
    ++postponed_;
    changed_.Add(*path, *age);
  }
  return std::nullopt;
}

bool FollowedFolders::HasEnded() const {
  return folders_.empty() && waiting_.empty() && !walk_ && changed_.IsEmpty() && ready_.empty();
}

FoundNames FollowedFolders::Found() const {
  FoundNames found = walk_ ? walk_->Found() : FoundNames();
  found.count += before_.count - postponed_;
  found.expectedWork += before_.expectedWork;
  found.isAll = !walk_ && waiting_.empty();
  return found;
}

bool FollowedFolders::CanStep() const {
  const bool canWalk = walk_ ? walk_->CanStep() || walk_->HasEnded() : !waiting_.empty();
  return canWalk || NextEvent() <= Clock::now();
}

Clock::time_point FollowedFolders::NextEvent() const {
  return std::min(changed_.NextEvent(), nextWalk_);
}

void FollowedFolders::Step() {
  for (const FolderEvent& event : watches_.Read()) Handle(event);
  if (nextWalk_ <= Clock::now()) LookThroughAll();
  for (int i = 0; i < filesPerStep; ++i) {
    if (const std::optional<std::string> path = changed_.Take()) Examine(*path);
  }
  LookThroughWaiting();
}

void FollowedFolders::Handle(const FolderEvent& event) {
  switch (event.kind) {
    case FolderEvent::Kind::kFileChanged:
      if (IsTaken(event.path)) changed_.Add(event.path);
      break;
    case FolderEvent::Kind::kFolderCame:
      HandleNewFolder(event.path);
      break;
    case FolderEvent::Kind::kFolderWent:
      watches_.Remove(event.path);
      changed_.Add(event.path);
      break;
    case FolderEvent::Kind::kWatchedGone:
      if (folders_.count(event.path) != 0) Lose(event.path);
      break;
    case FolderEvent::Kind::kEventsWereLost:
      followers_.say("more has changed at once than the system keeps; all folders are looked through once more");
      LookThroughAll();
      break;
  }
}

// Those of thumbnails come and go with each photo.
void FollowedFolders::HandleNewFolder(const std::string& path) {
  const std::string name = BaseName(path);
  if (name == EAFolderName() || IsUnfinishedEADirectory(name) || filter_.Excludes(path)) return;
  waiting_.push_back(path);
}

void FollowedFolders::LookThroughAll() {
  waiting_.assign(folders_.begin(), folders_.end());
  nextWalk_ = noDeadline;
}

void FollowedFolders::LookThroughWaiting() {
  if (!walk_ && !waiting_.empty()) {
    // A folder that has come may have gone again.
    const auto fail = [this](const std::string& name, const Problem& problem) {
      if (problem.kind != Problem::Kind::kMissing || folders_.count(name) != 0) followers_.fail(name, problem);
    };
    walk_.emplace(std::exchange(waiting_, {}), std::nullopt, filter_, fail,
                  [this](const std::string& folder) { WatchFolder(folder); });
  }
  if (walk_ && walk_->CanStep()) walk_->Step();
  if (!walk_ || !walk_->HasEnded()) return;
  before_.count += walk_->Found().count;
  before_.expectedWork += walk_->Found().expectedWork;
  walk_.reset();
  if (!std::exchange(isWatching_, true)) followers_.onWatching(watches_.Count());
}

void FollowedFolders::WatchFolder(const std::string& folder) {
  const int error = watches_.Add(folder);
  if (error == 0) return FindOrphansIn(folder);
  if (error != ENOSPC && error != ENOMEM) return;
  nextWalk_ = Clock::now() + walkInterval;
  if (std::exchange(isAtLimit_, true)) return;
  followers_.say("only " + std::to_string(watches_.Count()) +
                 " folders can be watched, the rest are looked through every 10 minutes; raise the limit: "
                 "sysctl fs.inotify.max_user_watches");
}

// Thumbnails next to photos that went while nobody watched. Those in a store are left to `clean`: all of their photos
// would seem to be gone if their volume were not mounted yet.
void FollowedFolders::FindOrphansIn(const std::string& folder) {
  const Folder sources(folder);
  const Folder entries(sources, EAFolderName());
  if (!entries.IsOpen()) return;
  try {
    for (const std::string& name : entries.Names()) {
      const std::string path = sources.PathOf(name);
      if (!sources.Stat(name) && errno == ENOENT && !filter_.Excludes(path)) changed_.Add(path);
    }
  } catch (const std::system_error&) {
    return;  // `clean` reports it
  }
}

void FollowedFolders::Lose(const std::string& folder) {
  watches_.Remove(folder);
  folders_.erase(folder);
  followers_.fail(folder, notThere);
}

// A file whose folder is gone as well went with its thumbnails, or with the volume.
void FollowedFolders::Examine(const std::string& path) {
  struct stat record = {};
  if (lstat(path.c_str(), &record) != 0) {
    if (errno == ENOENT && !WhyNoFolder(file::Dirname(path))) followers_.onGone(path);
    return;
  }
  if (S_ISLNK(record.st_mode) && stat(path.c_str(), &record) != 0) return;
  if (!S_ISREG(record.st_mode)) return;
  const std::optional<Clock::duration> age = AgeOf(record);
  if (age && *age < QuietFiles::quietTime) return changed_.Add(path, *age);
  ++before_.count;
  before_.expectedWork += ExpectedMilliseconds(path);
  ready_.push_back(path);
}

bool FollowedFolders::IsTaken(const std::string& path) const {
  return filter_.Takes(BaseName(path)) && !filter_.Excludes(path);
}

}  // namespace tavithumb::apps::command
