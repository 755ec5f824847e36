// SPDX-License-Identifier: GPL-3.0-or-later
// Moves a finished thumbnail to its final path in the source's EA directory.
#include <sys/stat.h>
#include <tavi/core.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <limits>

#include "job/run_as.h"
#include "support/error_text.h"
#include "support/log.h"
#include "tavithumb/libtavithumb.h"
#include "tavithumb/util.h"

namespace tavithumb {
namespace {

constexpr char kSource[] = "libtavithumb";
constexpr std::uint32_t kUnbounded = std::numeric_limits<std::int32_t>::max();

// When an entry was last changed; zeros if there is none.
timespec LastChange(const std::string& path) {
  struct stat64 record = {};
  return stat64(path.c_str(), &record) == 0 ? record.st_ctim : timespec{};
}

// mv copies directly to the final name. A copy that it could not finish, because the volume is full, is not a valid
// thumbnail.
bool MoveToOtherVolume(const std::string& from, const std::string& to) {
  const timespec before = LastChange(to);
  if (TLIBCExecl("/bin/mv", 0, from.c_str(), to.c_str(), nullptr) == 0) return true;
  const timespec after = LastChange(to);
  if (after.tv_sec != before.tv_sec || after.tv_nsec != before.tv_nsec) unlink(to.c_str());
  return false;
}

bool MoveThumb(const std::string& from, const std::string& to) {
  constexpr char kFunction[] = "SaveThumbToEA";
  if (access(from.c_str(), F_OK) != 0) {
    syslog(LOG_ERR, TAVITHUMB_LOG("Can not acess thumbnail '%s'\\n"), kSource, 468, kFunction, from.c_str());
    return false;
  }
  if (rename(from.c_str(), to.c_str()) == 0) return true;
  const bool otherVolume = errno == EXDEV;
  if (otherVolume && MoveToOtherVolume(from, to)) return true;
  syslog(LOG_ERR, TAVITHUMB_LOG("Failed to move thumbnail file from '%s' to '%s'"), kSource, otherVolume ? 479 : 474,
         kFunction, from.c_str(), to.c_str());
  return false;
}

void OpenToAll(const std::string& thumb) {
  if (chmod(thumb.c_str(), 0777) == 0) return;
  syslog(LOG_ERR, TAVITHUMB_LOG("Failed to chmod '%s'"), kSource, 485, "SaveThumbToEA", thumb.c_str());
}

// Owner and time share one message.
void LogChown(int line, const std::string& thumb) {
  syslog(LOG_ERR, TAVITHUMB_LOG("Failed to chown '%s', %s"), kSource, line, "SaveThumbToEA", thumb.c_str(),
         ErrorText(errno).c_str());
}

void GiveToRoot(const std::string& thumb) {
  IF_RUN_AS2("root", kSource, 489) {
    if (chown(thumb.c_str(), 0, 0) != 0) LogChown(491, thumb);
  }
}

// Seconds since the epoch; 0 if the source can't be stat'ed (logged).
long TimeOfSource(const std::string& path) {
  struct stat64 record = {};
  if (stat64(path.c_str(), &record) != 0) {
    syslog(LOG_ERR, TAVITHUMB_LOG("Failed to get mime '%s'"), kSource, 501, "SaveThumbToEA", path.c_str());
    return 0;
  }
  return static_cast<long>(record.st_mtime);
}

void SetTime(const std::string& thumb, long mtime) {
  IF_RUN_AS2("root", kSource, 510) {
    const utimbuf times{0, mtime};
    if (utime(thumb.c_str(), &times) != 0) LogChown(512, thumb);
  }
}

// Whether the thumbnail at `path` is of the type that the job makes; failures are logged.
bool HasType(const std::string& path, const std::string& mimeType) {
  constexpr char kFunction[] = "SaveExistingThumbsToEA";
  try {
    ThumbInfo thumb(path, "original", {kUnbounded, kUnbounded});
    thumb.ExtractImgInfo(false);
    if (thumb.GetMimeType() == mimeType) return true;
    syslog(LOG_ERR, TAVITHUMB_LOG("Thumbnail has different mime type '%s'"), kSource, 558, kFunction, path.c_str());
  } catch (const Error&) {
    syslog(LOG_ERR, TAVITHUMB_LOG("Can not check thumbnail info of '%s'"), kSource, 563, kFunction, path.c_str());
  }
  return false;
}

}  // namespace

bool Thumb::SaveThumbToEA(const std::string& from, const std::string& to, long mtime) {
  if (!MoveThumb(from, to)) return false;
  OpenToAll(to);
  GiveToRoot(to);
  const long time = mtime != 0 ? mtime : TimeOfSource(srcPath_);
  if (time != 0) SetTime(to, time);
  return true;
}

std::string Thumb::GetOnlineOutputDest() const {
  return file::GetEAPath(srcPath_, avatar_ ? info_.GetAvatarThumbEAName() : info_.GetBrovixThumbEAName());
}

bool Thumb::SaveTmpThumbToEA(const std::string& tmpPath) {
  outputFile_ = GetOnlineOutputDest();
  return SaveThumbToEA(tmpPath, outputFile_, 0);
}

bool Thumb::SaveExistingThumbsToEA(const std::vector<std::pair<std::string, std::string>>& thumbs, long mtime,
                                   bool checkMime) {
  constexpr char kFunction[] = "SaveExistingThumbsToEA";
  try {
    ReadFacts();
  } catch (const Error& error) {
    syslog(LOG_ERR, TAVITHUMB_LOG("Failed to extrace img info '%s'"), kSource, 536, kFunction, srcPath_.c_str());
    throw Error(error);
  }
  if (!file::MakeEADir(srcPath_)) {
    syslog(LOG_ERR, TAVITHUMB_LOG("Failed to create eadir '%s'"), kSource, 542, kFunction, srcPath_.c_str());
    return false;
  }
  bool allStored = true;
  for (const auto& [sizeName, thumb] : thumbs) {
    if (checkMime && !HasType(thumb, GetOutputMimeType())) {
      allStored = false;
      continue;
    }
    SetRequest(sizeName);
    allStored = SaveThumbToEA(thumb, GetOnlineOutputDest(), mtime) && allStored;
  }
  return allStored;
}

}  // namespace tavithumb
