// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/folder_watches.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include "system/paths.h"

namespace tavithumb::apps::command {
namespace {

constexpr std::uint32_t watchedFor = IN_CREATE | IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE |
                                     IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW | IN_EXCL_UNLINK;
constexpr std::size_t bufferBytes = 65536;

bool IsIn(const std::string& path, const std::string& folder) {
  return path.compare(0, folder.size(), folder) == 0 && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

FolderWatches::FolderWatches() : file_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (!file_.IsOpen()) throw std::system_error(errno, std::generic_category(), "folders can't be watched");
}

int FolderWatches::Add(const std::string& folder) {
  const int watch = inotify_add_watch(file_.Number(), folder.c_str(), watchedFor);
  if (watch == -1) return errno;
  paths_[watch] = folder;
  return 0;
}

void FolderWatches::Remove(const std::string& folder) {
  for (auto watch = paths_.begin(); watch != paths_.end();) {
    if (!IsIn(watch->second, folder)) {
      ++watch;
      continue;
    }
    inotify_rm_watch(file_.Number(), watch->first);
    watch = paths_.erase(watch);
  }
}

std::vector<FolderEvent> FolderWatches::Read() {
  alignas(inotify_event) std::array<char, bufferBytes> buffer;
  const ssize_t size = read(file_.Number(), buffer.data(), buffer.size());
  std::vector<FolderEvent> events;
  for (ssize_t i = 0; i < size;) {
    const auto* const event = reinterpret_cast<const inotify_event*>(buffer.data() + i);
    Append(*event, &events);
    i += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
  }
  return events;
}

// The system ends the watch of a folder that is gone, and says so in an event of its own, the last one.
void FolderWatches::Append(const inotify_event& event, std::vector<FolderEvent>* events) {
  using Kind = FolderEvent::Kind;
  if ((event.mask & IN_Q_OVERFLOW) != 0) return events->push_back({Kind::kEventsWereLost, ""});
  const auto watch = paths_.find(event.wd);
  if (watch == paths_.end()) return;  // it was removed meanwhile
  if ((event.mask & (IN_IGNORED | IN_MOVE_SELF)) != 0) {
    events->push_back({Kind::kWatchedGone, watch->second});
    if ((event.mask & IN_IGNORED) != 0) paths_.erase(watch);
    return;
  }
  if (event.len == 0) return;  // of the folder itself
  const std::string path = JoinPath(watch->second, event.name);
  if ((event.mask & IN_ISDIR) == 0) return events->push_back({Kind::kFileChanged, path});
  if ((event.mask & (IN_CREATE | IN_MOVED_TO)) != 0) events->push_back({Kind::kFolderCame, path});
  if ((event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0) events->push_back({Kind::kFolderWent, path});
}

}  // namespace tavithumb::apps::command
