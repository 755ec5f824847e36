// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/run.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <map>
#include <set>
#include <utility>

#include "command/batch/estimate.h"
#include "command/batch/failed_files.h"
#include "command/batch/pool.h"
#include "command/batch/progress_display.h"
#include "command/batch/summary.h"
#include "command/output.h"
#include "system/clock.h"
#include "system/paths.h"
#include "system/processor_use.h"
#include "system/service_manager.h"
#include "system/signals.h"
#include "system/text.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::command {
namespace {

// A dry run leaves them as they are.
std::string RecordsFor(const RunRequest& request) {
  return request.triesFailed && request.order.isDryRun ? "" : FailedFiles::UsualPath();
}

// One run: names go from the source to the pool, results from there to the summary and to the output.
class Run {
 public:
  Run(const RunRequest& request, const OpenSource& open)
      : request_(request),
        output_(request.output),
        progress_(StandardError(request.showsProgress && !request.output.isQuiet)),
        failed_(RecordsFor(request), request.triesFailed),
        source_(open(ReporterOfThis())),
        pool_(request.jobs, request.order) {}

  RunOutcome Execute();

 private:
  bool IsStopped() const { return pool_.IsInterrupted() || writeError_ || IsAtLimit(); }
  bool IsAtLimit() const { return request_.limit && summary_.FilesWithMade() >= *request_.limit; }
  bool HasMore() const { return next_ || !source_->HasEnded(); }
  bool IsDone() const { return pool_.Running() == 0 && (IsStopped() || !HasMore()); }
  Reporter ReporterOfThis();
  std::size_t MostAtOnce();
  std::optional<std::string> NextToTry();
  void Remember(const Done& done);
  void DispatchNames();
  Clock::time_point NextEvent() const;
  void AwaitEvents();
  void HandleSignals();
  void ReportDone(const Done& done);
  void Print(const std::string& text);
  void ShowStatus();
  void ReportSkippedVideos();
  void ReportWhereItStopped();

  const RunRequest& request_;
  const RunOutput& output_;
  Signals signals_{SIGINT, SIGTERM, SIGHUP, SIGWINCH};
  ProgressDisplay progress_;
  Summary summary_;
  ServiceManager serviceManager_;
  ProcessorUse processor_;
  std::optional<std::string> next_;  // to be dispatched
  double workDone_ = 0;              // as the source expects it
  std::string last_;                 // most recently dispatched
  FailedFiles failed_;
  std::map<std::string, FailedFiles::Version> versions_;  // of the files that are being processed
  std::size_t failedBefore_ = 0;
  std::exception_ptr writeError_;  // of standard output
  const std::unique_ptr<NameSource> source_;
  Pool pool_;
};

// Folders and lists that can't be read are reported like files.
Reporter Run::ReporterOfThis() {
  const auto fail = [this](const std::string& name, const Problem& problem) {
    Result result;
    result.Fail("", problem);
    ReportDone({name, std::move(result), 0});
  };
  return {fail, [this](const std::string& message) { progress_.Say(message); }};
}

RunOutcome Run::Execute() {
  serviceManager_.SayReady();
  for (DispatchNames(); !IsDone(); DispatchNames()) {
    AwaitEvents();
    for (const Done& done : pool_.Collect()) ReportDone(done);
    ShowStatus();
  }
  serviceManager_.SayStopping();
  progress_.Clear();
  if (writeError_) std::rethrow_exception(writeError_);
  ReportSkippedVideos();
  ReportWhereItStopped();
  const bool isInterrupted = pool_.IsInterrupted();
  const RunFacts run = {request_.jobs, request_.order.isDryRun, isInterrupted, source_->PassedOver(), failedBefore_};
  if (output_.json) WriteOut(summary_.AsJson(run));
  if (!output_.isQuiet) WriteSummary(summary_.AsText(run), output_.json);
  if (isInterrupted) return RunOutcome::kInterrupted;
  return summary_.HasFailures() ? RunOutcome::kSomeFailed : RunOutcome::kAllWell;
}

// Any file in progress may be the one that reaches the limit.
std::size_t Run::MostAtOnce() {
  const std::size_t most = request_.makesWay && processor_.IsUsedByOthers() ? 1 : request_.jobs;
  return request_.limit ? std::min(most, *request_.limit - std::min(*request_.limit, summary_.FilesWithMade())) : most;
}

std::optional<std::string> Run::NextToTry() {
  while (std::optional<std::string> name = source_->Next()) {
    const auto version = FailedFiles::VersionOf(*name, request_.order.byLibrary);
    if (!version || !failed_.Has(*version)) {
      if (version) versions_[*name] = *version;
      return name;
    }
    ++failedBefore_;
    workDone_ += ExpectedMilliseconds(*name);
  }
  return std::nullopt;
}

// In the version in which the file was dispatched: it may have changed since.
void Run::Remember(const Done& done) {
  const auto version = versions_.find(done.name);
  if (version == versions_.end()) return;
  const auto isOfContent = [](const Failure& failure) { return failure.kind == Problem::Kind::kDamaged; };
  const bool isRemembered = std::any_of(done.result.failures.begin(), done.result.failures.end(), isOfContent);
  if (isRemembered && !request_.order.isDryRun) failed_.Add(version->second);
  versions_.erase(version);
}

void Run::DispatchNames() {
  while (!IsStopped()) {
    if (!next_) next_ = NextToTry();
    if (!next_ || pool_.Running() >= MostAtOnce() || !pool_.Dispatch(*next_)) return;
    last_ = *std::exchange(next_, std::nullopt);
  }
}

Clock::time_point Run::NextEvent() const {
  const Clock::time_point next = std::min({pool_.NextEvent(), progress_.NextEvent(), serviceManager_.NextEvent()});
  if (IsStopped()) return next;
  return std::min({next, source_->NextEvent(), next_ && request_.makesWay ? processor_.NextEvent() : noDeadline});
}

// Waits for an event, and advances the source by one step.
void Run::AwaitEvents() {
  const bool canStep = !IsStopped() && source_->CanStep();
  std::vector<pollfd> descriptors = {{signals_.Descriptor(), POLLIN, 0},
                                     {IsStopped() ? -1 : source_->Descriptor(), POLLIN, 0}};
  pool_.AddTo(&descriptors);
  poll(descriptors.data(), descriptors.size(), canStep ? 0 : MillisecondsUntil(NextEvent()));
  serviceManager_.SayAlive();
  HandleSignals();
  if (canStep || descriptors[1].revents != 0) source_->Step();
}

void Run::HandleSignals() {
  while (const std::optional<int> number = signals_.Receive()) {
    if (*number == SIGWINCH) {
      progress_.Redraw();
      continue;
    }
    if (!pool_.IsInterrupted()) progress_.Say("finishing the running files; press Ctrl-C again to stop them at once");
    pool_.Interrupt();
    signals_.StayBlocked();
  }
}

void Run::ReportDone(const Done& done) {
  Remember(done);
  summary_.Add(done.name, done.result, done.milliseconds);
  workDone_ += ExpectedMilliseconds(done.name);
  std::set<std::string> reported;
  for (const Failure& failure : done.result.failures) {
    if (!reported.insert(failure.reason).second) continue;
    progress_.Say(Printable(done.name) + ": " + failure.reason + "; " + failure.remedy);
  }
  if (output_.json) return Print(JsonResult(AbsolutePath(done.name), done.result, done.milliseconds));
  if (output_.isVerbose) return Print(ResultLine(Printable(done.name), done.result, request_.order.isDryRun));
  const bool isListed = request_.order.isDryRun && !output_.isQuiet && !done.result.made.empty();
  if (isListed) Print(Printable(done.name) + ": " + Join(done.result.made, ", ") + "\n");
}

void Run::Print(const std::string& text) {
  if (writeError_) return;
  if (isatty(STDOUT_FILENO) != 0) progress_.Clear();
  try {
    WriteOut(text);
  } catch (const std::exception&) {
    writeError_ = std::current_exception();
  }
}

void Run::ShowStatus() {
  const std::size_t done = summary_.Files() + failedBefore_;
  const FoundNames found = source_->Found();
  progress_.Show({done, std::max(found.count, done + pool_.Running()), !found.isAll, last_, workDone_,
                  std::max(found.expectedWork - workDone_, 0.0)});
}

// Once, not for each of them.
void Run::ReportSkippedVideos() {
  if (request_.lacksStillTool && source_->HasSkippedVideos()) progress_.Say(WhyVideosAreLeftOut());
}

void Run::ReportWhereItStopped() {
  if (pool_.IsInterrupted()) {
    const std::string where = last_.empty() ? "before the first file" : "at " + Printable(last_);
    progress_.Say("stopped after " + std::to_string(summary_.Files()) + " files, " + where +
                  "; run it again to continue from there");
  } else if (IsAtLimit() && HasMore()) {
    progress_.Say("stopped after making thumbnails for " + std::to_string(*request_.limit) +
                  " files, the --limit; more may remain: run it again to continue from there");
  }
}

}  // namespace

std::string WhyVideosAreLeftOut() {
  const Problem problem = NoStillTool();
  return "videos are left out: " + problem.reason + "; " + problem.remedy + ", or add --no-videos";
}

RunOutcome RunBatch(const RunRequest& request, const OpenSource& open) {
  return Run(request, open).Execute();
}

}  // namespace tavithumb::apps::command
