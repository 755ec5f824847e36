// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/work.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <tavithumb/libtavithumb.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>

#include "system/clock.h"
#include "system/paths.h"
#include "thumbs/answer.h"
#include "thumbs/lookup.h"
#include "thumbs/making.h"
#include "thumbs/privacy.h"
#include "thumbs/reasons.h"
#include "thumbs/rendering.h"
#include "thumbs/sizes.h"
#include "thumbs/source_facts.h"
#include "thumbs/source_lock.h"
#include "thumbs/store.h"
#include "thumbs/store_size.h"
#include "thumbs/stored_state.h"

namespace tavithumb::apps::command {
namespace {

constexpr int options = Thumb::OPT_BROVIX_EA;
constexpr int mostSamples = 5;

Request RequestOf(const std::string& size, const Order& order) {
  return {{size, {0, 0}}, 0, options, false, order.byLibrary, order.quality};
}

std::uint64_t SizeOf(const std::string& path) {
  std::error_code gone;
  const std::uintmax_t size = std::filesystem::file_size(path, gone);
  return gone ? 0 : size;
}

// Call it with the source locked: other processes use the same temporary names.
void RemoveTemporaries(const std::string& path, const Making& making) {
  const std::string folder = file::Dirname(NewEntryPath(path, making.entry));
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
    const std::string name = entry.path().filename();
    const bool isTemporary =
        std::any_of(making.temporaries.begin(), making.temporaries.end(),
                    [&name](const std::string& prefix) { return name.compare(0, prefix.size(), prefix) == 0; });
    if (isTemporary) unlink(entry.path().c_str());
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
        canStore_(HasPlaceFor(path) && !NewEntryPath(path, "thumbnail").empty()) {
    lookUp_.SetFacts(order.byLibrary ? facts_.OfLibrary() : facts_.Known());
  }

  // Makes what is missing from one decode, as far as the maker can.
  void RenderMissing();
  void Serve(const std::string& size);
  // For a dry run: makes one thumbnail in memory, to see how fast this machine is. The first files are enough.
  void Sample();

 private:
  // The name of the thumbnail of the size that was looked up last, wherever it is stored.
  std::string Entry() const { return BaseName(lookUp_.GetOnlineOutputDest()); }
  StoredState StateOf(const std::string& size);
  bool IsMissing(const std::string& size);
  bool IsServedUnchanged(const std::string& size);
  void MakeUnlessServed(const std::string& size);
  void Make(const std::string& size);
  void CountMade(const std::string& size, const std::string& thumbnail);
  Problem WhyNot(const Thumb& job, const std::string& size) const;

  const std::string& path_;
  const Order& order_;
  const Announce& announce_;
  Result* result_;
  SourceFacts facts_;
  Thumb lookUp_;
  bool canStore_;
  std::set<std::string> good_;      // sizes whose thumbnails need no second look
  std::set<std::string> planned_;   // entries that a dry run would have made
  std::set<std::string> rendered_;  // entries that the maker has made
};

StoredState Sizes::StateOf(const std::string& size) {
  lookUp_.SetRequest(size);
  if (good_.count(size) != 0) return StoredState::kGood;
  const StoredState state = StateOfStored(RequestOf(size, order_), lookUp_);
  if (state == StoredState::kGood) good_.insert(size);
  return state;
}

bool Sizes::IsMissing(const std::string& size) {
  const StoredState state = StateOf(size);
  return order_.onlyOlder ? state == StoredState::kStale || state == StoredState::kBad : state != StoredState::kGood;
}

// By the rule of whoever would make the thumbnail.
bool Sizes::IsServedUnchanged(const std::string& size) {
  const Request request = RequestOf(size, order_);
  if (CanRender(request, lookUp_.GetInfo())) return apps::IsServedUnchanged(request, lookUp_.GetInfo());
  return lookUp_.WouldServeSource() && !facts_.HavePreviewFor(lookUp_);
}

void Sizes::RenderMissing() {
  if (order_.isDryRun || !canStore_) return;
  std::vector<Request> requests;
  Making making = {"", {}, std::time(nullptr)};
  for (const std::string& size : order_.sizes) {
    const Request request = RequestOf(size, order_);
    if (!IsMissing(size) || !CanRender(request, lookUp_.GetInfo()) || IsServedUnchanged(size)) continue;
    making.entry = Entry();
    if (!rendered_.insert(making.entry).second) continue;
    making.temporaries.push_back(TemporaryPrefix(making.entry));
    requests.push_back(request);
  }
  if (requests.empty()) return;
  announce_(*result_, making);
  const std::optional<std::string> refusal =
      RenderAndStore(lookUp_.GetInfo(), facts_.Details(), requests, Original::kSource);
  if (!refusal) return;
  rendered_.clear();
  if (!IsSupportVideo(BaseName(path_))) result_->byLibrary = *refusal;
}

// Two sizes may share their thumbnail.
void Sizes::Serve(const std::string& size) {
  if (good_.count(size) != 0) return result_->found.push_back(size);
  lookUp_.SetRequest(size);
  if (rendered_.erase(Entry()) != 0) {
    CountMade(size, lookUp_.GetOnlineOutputDest());
  } else if (StateOf(size) == StoredState::kGood || planned_.count(Entry()) != 0) {
    result_->found.push_back(size);
  } else if (IsMissing(size)) {
    MakeUnlessServed(size);
  }
}

void Sizes::MakeUnlessServed(const std::string& size) {
  const bool isMakers = CanRender(RequestOf(size, order_), lookUp_.GetInfo());
  if ((isMakers || order_.isDryRun || !canStore_) && IsServedUnchanged(size)) return result_->notNeeded.push_back(size);
  if (order_.isDryRun || !canStore_) {
    if (!canStore_) return result_->Fail(size, WhyNotStored(path_).value_or(NoEntriesOnVolume()));
    planned_.insert(Entry());
    result_->bytes += ExpectedBytes(RequestOf(size, order_), lookUp_.GetInfo());
    return result_->made.push_back(size);
  }
  const Making making = {Entry(), {lookUp_.GetInfo().GetBrovixTmpThumbEAName()}, std::time(nullptr)};
  announce_(*result_, making);
  Make(size);
  if (!result_->failures.empty()) RemoveTemporaries(path_, making);
}

void Sizes::Sample() {
  static int samples = 0;
  const auto largest = std::max_element(result_->made.begin(), result_->made.end(),
                                        [](const auto& one, const auto& other) { return SideOf(one) < SideOf(other); });
  if (largest == result_->made.end() || samples == mostSamples) return;
  ++samples;
  lookUp_.SetRequest(*largest);
  const Clock::time_point start = Clock::now();
  if (!CanRender(RequestOf(*largest, order_), lookUp_.GetInfo())) return;
  if (!RenderInMemory(lookUp_.GetInfo(), facts_.Details(), RequestOf(*largest, order_))) return;
  result_->sampleMilliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void Sizes::Make(const std::string& size) {
  if (!facts_.AreCurrent()) facts_ = SourceFacts(path_);
  Thumb job(path_, options, false);
  if (MakeByLibrary(RequestOf(size, order_), facts_, &job) == Resolution::kNone)
    return result_->Fail(size, WhyNot(job, size));
  if (IsSource(job)) return result_->notNeeded.push_back(size);
  if (IsTemporary(job)) {
    unlink(job.GetOutputFile().c_str());
    return result_->Fail(size, NoEntriesOnVolume());
  }
  CountMade(size, job.GetOutputFile());
}

void Sizes::CountMade(const std::string& size, const std::string& thumbnail) {
  result_->made.push_back(size);
  result_->bytes += SizeOf(thumbnail);
  CountStored(thumbnail);
}

// The source may have been removed or become unreadable since the first check.
Problem Sizes::WhyNot(const Thumb& job, const std::string& size) const {
  if (std::optional<Problem> problem = CheckSource(path_)) return *problem;
  return WhyNoAnswer(job.GetInfo(), RequestOf(size, order_));
}

}  // namespace

Result WorkOn(const std::string& path, const Order& order, const Announce& announce) {
  Result result;
  if (const std::optional<Problem> problem = CheckSource(path)) {
    result.Fail("", *problem);
    return result;
  }
  const SourceLock lock(path);
  if (!order.isDryRun) RestrictFoldersToReadersOf(path);
  try {
    Sizes sizes(path, order, announce, &result);
    sizes.RenderMissing();
    for (const std::string& size : order.sizes) sizes.Serve(size);
    if (order.isDryRun) sizes.Sample();
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
  const std::string entry = NewEntryPath(path, making.entry);
  struct stat record = {};
  if (stat(entry.c_str(), &record) == 0 && record.st_ctim.tv_sec >= making.since) unlink(entry.c_str());
}

}  // namespace tavithumb::apps::command
