// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/work.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <tavithumb/libtavithumb.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>

#include "system/paths.h"
#include "thumbs/answer.h"
#include "thumbs/lookup.h"
#include "thumbs/making.h"
#include "thumbs/reasons.h"
#include "thumbs/source_facts.h"
#include "thumbs/source_lock.h"

namespace tavithumb::apps::command {
namespace {

constexpr int options = Thumb::OPT_BROVIX_EA;

Request RequestOf(const std::string& size) {
  return {{size, {0, 0}}, 0, options, false};
}

std::uint64_t SizeOf(const std::string& path) {
  std::error_code gone;
  const std::uintmax_t size = std::filesystem::file_size(path, gone);
  return gone ? 0 : size;
}

// Call it with the source locked: other processes use the same temporary names.
void RemoveTemporaries(const std::string& path, const Making& making) {
  const std::string folder = file::Dirname(file::GetEAPath(path, making.temporary));
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    const std::string name = entry.path().filename();
    if (name.compare(0, making.temporary.size(), making.temporary) == 0) unlink(entry.path().c_str());
  }
}

// The sizes of one source, one after the other.
class Sizes {
 public:
  // Throws as SourceFacts does.
  Sizes(const std::string& path, const Order& order, const Announce& announce, Result* result)
      : path_(path),
        order_(order),
        announce_(announce),
        result_(result),
        facts_(path),
        lookUp_(path, options, false),
        canStore_(file::IsDestSupportEAWrite(file::Dirname(path)) && !file::GetEAPath(path, "thumbnail").empty()) {
    facts_.GiveTo(&lookUp_);
  }

  void Serve(const std::string& size);

 private:
  void MakeUnlessServed(const std::string& size);
  void Make(const std::string& size);
  Problem WhyNot(const Thumb& job, const std::string& size) const;

  const std::string& path_;
  const Order& order_;
  const Announce& announce_;
  Result* result_;
  SourceFacts facts_;
  Thumb lookUp_;
  bool canStore_;
  std::set<std::string> planned_;  // entries that a dry run would have made
};

// Two sizes may share their thumbnail.
void Sizes::Serve(const std::string& size) {
  lookUp_.SetRequest(size);
  if (HasStored(lookUp_) || planned_.count(lookUp_.GetOnlineOutputDest()) != 0) {
    result_->found.push_back(size);
  } else if (!order_.onlyOlder || HasOutdated(lookUp_)) {
    MakeUnlessServed(size);
  }
}

void Sizes::MakeUnlessServed(const std::string& size) {
  if (order_.isDryRun || !canStore_) {
    if (lookUp_.WouldServeSource() && !facts_.HavePreviewFor(lookUp_)) return result_->notNeeded.push_back(size);
    if (!canStore_) return result_->Fail(size, WhyNotStored(path_).value_or(NoEntriesOnVolume()));
    planned_.insert(lookUp_.GetOnlineOutputDest());
    return result_->made.push_back(size);
  }
  const Making making = {BaseName(lookUp_.GetOnlineOutputDest()), lookUp_.GetInfo().GetBrovixTmpThumbEAName(),
                         std::time(nullptr)};
  announce_(*result_, making);
  Make(size);
  if (!result_->failures.empty()) RemoveTemporaries(path_, making);
}

void Sizes::Make(const std::string& size) {
  if (!facts_.AreCurrent()) facts_ = SourceFacts(path_);
  Thumb job(path_, options, false);
  if (Resolve(RequestOf(size), facts_, &job) == Resolution::kNone) return result_->Fail(size, WhyNot(job, size));
  if (IsSource(job)) return result_->notNeeded.push_back(size);
  if (IsTemporary(job)) {
    unlink(job.GetOutputFile().c_str());
    return result_->Fail(size, NoEntriesOnVolume());
  }
  result_->made.push_back(size);
  result_->bytes += SizeOf(job.GetOutputFile());
}

// The source may have been removed or become unreadable since the first check.
Problem Sizes::WhyNot(const Thumb& job, const std::string& size) const {
  if (std::optional<Problem> problem = CheckSource(path_)) return *problem;
  return WhyNoAnswer(job.GetInfo(), RequestOf(size));
}

}  // namespace

Result WorkOn(const std::string& path, const Order& order, const Announce& announce) {
  Result result;
  if (const std::optional<Problem> problem = CheckSource(path)) {
    result.Fail("", *problem);
    return result;
  }
  if (IsSupportVideo(BaseName(path))) {  // only screenshots stored by other programs are found
    result.notNeeded = order.sizes;
    return result;
  }
  const SourceLock lock(path);
  try {
    Sizes sizes(path, order, announce, &result);
    for (const std::string& size : order.sizes) sizes.Serve(size);
  } catch (const std::exception&) {
    const Problem problem = ProblemOfException();
    result.Fail("", CheckSource(path).value_or(problem));
  }
  return result;
}

// If another process has the lock by now, it regenerates them and replaces what is left. A thumbnail finished at the
// last moment can't be told from a partial one, so it is removed too.
void RemoveHalfMade(const std::string& path, const Making& making) {
  const FileDescriptor source = OpenForLocks(path);
  if (flock(source.Number(), LOCK_EX | LOCK_NB) == -1 && errno == EWOULDBLOCK) return;
  RemoveTemporaries(path, making);
  const std::string entry = file::GetEAPath(path, making.entry);
  struct stat record = {};
  if (stat(entry.c_str(), &record) == 0 && record.st_ctim.tv_sec >= making.since) unlink(entry.c_str());
}

}  // namespace tavithumb::apps::command
