// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "command/batch/filter.h"
#include "command/batch/folder_watches.h"
#include "command/batch/name_source.h"
#include "command/batch/quiet_files.h"
#include "command/batch/walk.h"

namespace tavithumb::apps::command {

// Who hears of what happens to folders that are followed.
struct Followers {
  Walk::OnProblem fail;                                 // what can't be read, and a folder that is no longer there
  std::function<void(const std::string&)> say;          // what else an administrator may want to change
  std::function<void(std::size_t)> onWatching;          // all folders, so many, are watched for the first time
  std::function<void(const std::string& path)> onGone;  // a file or folder that is gone
};

// Finds the photos and videos in folders and in all folders below them, and then those that are written there or moved
// there, for as long as one of the folders is there. A file is found when nobody has changed it for two seconds.
// Where the system loses events or watches no more folders, everything is looked through once more.
class FollowedFolders : public NameSource {
 public:
  // The folders are absolute and without links. Throws std::system_error if nothing can be watched.
  FollowedFolders(const std::vector<std::string>& folders, Filter filter, Followers followers);

  std::optional<std::string> Next() override;
  bool HasEnded() const override;
  FoundNames Found() const override;
  const std::map<std::string, std::size_t>& PassedOver() const override { return passedOver_; }
  bool HasSkippedVideos() const override { return false; }

  bool CanStep() const override;
  int Descriptor() const override { return watches_.Descriptor(); }
  Clock::time_point NextEvent() const override;
  void Step() override;

 private:
  std::optional<std::string> TakeFromWalk();
  void Handle(const FolderEvent& event);
  void HandleNewFolder(const std::string& path);
  void LookThroughAll();
  void LookThroughWaiting();
  void WatchFolder(const std::string& folder);
  void FindOrphansIn(const std::string& folder);
  void Lose(const std::string& folder);
  void Examine(const std::string& path);
  bool IsTaken(const std::string& path) const;

  const Filter filter_;
  const Followers followers_;
  std::set<std::string> folders_;  // as named, those that are still there
  FolderWatches watches_;
  QuietFiles changed_;
  std::deque<std::string> ready_;     // files that have been quiet
  std::vector<std::string> waiting_;  // folders to be looked through
  std::optional<Walk> walk_;          // through others
  FoundNames before_;                 // by earlier walks, and by events
  std::size_t postponed_ = 0;         // files that a walk has found, to be found once more
  bool isWatching_ = false;
  bool isAtLimit_ = false;  // of watches
  Clock::time_point nextWalk_ = noDeadline;
  std::map<std::string, std::size_t> passedOver_;
};

}  // namespace tavithumb::apps::command
