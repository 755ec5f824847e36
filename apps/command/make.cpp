// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/make.h"

#include <poll.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <filesystem>
#include <set>
#include <utility>

#include "command/batch/estimate.h"
#include "command/batch/pool.h"
#include "command/batch/progress_display.h"
#include "command/batch/summary.h"
#include "command/batch/walk.h"
#include "command/output.h"
#include "system/clock.h"
#include "system/paths.h"
#include "system/signals.h"
#include "system/text.h"
#include "thumbs/reasons.h"
#include "thumbs/stills.h"

namespace tavithumb::apps::command {
namespace {

// Where the thumbnails of these names are stored. Those in a list may lie anywhere.
std::vector<std::string> FoldersOf(const MakeRequest& request) {
  std::vector<std::string> folders;
  if (request.list) folders.emplace_back("/");
  for (const std::string& name : request.names) {
    const std::string path = AbsolutePath(name);
    std::error_code ignored;
    folders.push_back(std::filesystem::is_directory(path, ignored) ? path : file::Dirname(path));
  }
  return folders;
}

// The filter, without videos if no stills of them can be taken.
Filter WithoutTool(Filter filter) {
  filter.takesVideos = filter.takesVideos && IsStillToolInstalled();
  return filter;
}

// One run: names go from the walk to the pool, results from there to the summary and to the output.
class Run {
 public:
  explicit Run(MakeRequest request)
      : jobs_(request.jobs),
        isDryRun_(request.order.isDryRun),
        output_(request.output),
        limit_(request.limit),
        takesVideos_(request.filter.takesVideos),
        progress_(StandardError(!request.output.isQuiet)),
        walk_(std::move(request.names), std::move(request.list), WithoutTool(std::move(request.filter)),
              [this](const std::string& name, const Problem& problem) {
                Result result;
                result.Fail("", problem);
                ReportDone({name, std::move(result), 0});
              }),
        pool_(request.jobs, std::move(request.order)) {}

  MakeOutcome Execute();

 private:
  bool IsStopped() const { return pool_.IsInterrupted() || writeError_ || IsAtLimit(); }
  bool IsAtLimit() const { return limit_ && summary_.FilesWithMade() >= *limit_; }
  bool HasMore() const { return next_ || !walk_.HasEnded(); }
  bool IsDone() const { return pool_.Running() == 0 && (IsStopped() || !HasMore()); }
  void DispatchNames();
  void AwaitEvents();
  void HandleSignals();
  void ReportDone(const Done& done);
  void Print(const std::string& text);
  void ShowStatus();
  void ReportSkippedVideos();
  void ReportWhereItStopped();

  const std::size_t jobs_;
  const bool isDryRun_;
  const MakeOutput output_;
  const std::optional<std::size_t> limit_;
  const bool takesVideos_;
  const Signals signals_{SIGINT, SIGTERM, SIGHUP, SIGWINCH};
  ProgressDisplay progress_;
  Summary summary_;
  Walk walk_;
  Pool pool_;
  std::optional<std::string> next_;  // to be dispatched
  double workDone_ = 0;              // as the walk expects it
  std::string last_;                 // most recently dispatched
  std::exception_ptr writeError_;    // of standard output
};

MakeOutcome Run::Execute() {
  for (DispatchNames(); !IsDone(); DispatchNames()) {
    AwaitEvents();
    for (const Done& done : pool_.Collect()) ReportDone(done);
    ShowStatus();
  }
  progress_.Clear();
  if (writeError_) std::rethrow_exception(writeError_);
  ReportSkippedVideos();
  ReportWhereItStopped();
  const bool isInterrupted = pool_.IsInterrupted();
  const RunFacts run = {jobs_, isDryRun_, isInterrupted, walk_.PassedOver()};
  if (output_.json) WriteOut(summary_.AsJson(run));
  if (!output_.isQuiet) WriteSummary(summary_.AsText(run), output_.json);
  if (isInterrupted) return MakeOutcome::kInterrupted;
  return summary_.HasFailures() ? MakeOutcome::kSomeFailed : MakeOutcome::kAllWell;
}

// Any file in progress may be the one that reaches the limit.
void Run::DispatchNames() {
  while (!IsStopped() && (!limit_ || summary_.FilesWithMade() + pool_.Running() < *limit_)) {
    if (!next_) next_ = walk_.Next();
    if (!next_ || !pool_.Dispatch(*next_)) return;
    last_ = *std::exchange(next_, std::nullopt);
  }
}

// Waits for an event, and advances the walk by one step.
void Run::AwaitEvents() {
  const bool canStep = !IsStopped() && walk_.CanStep();
  std::vector<pollfd> descriptors = {{signals_.Descriptor(), POLLIN, 0},
                                     {IsStopped() ? -1 : walk_.Descriptor(), POLLIN, 0}};
  pool_.AddTo(&descriptors);
  const Clock::time_point next = std::min(pool_.NextEvent(), progress_.NextEvent());
  poll(descriptors.data(), descriptors.size(), canStep ? 0 : MillisecondsUntil(next));
  HandleSignals();
  if (canStep || descriptors[1].revents != 0) walk_.Step();
}

void Run::HandleSignals() {
  while (const std::optional<int> number = signals_.Receive()) {
    if (*number == SIGWINCH) {
      progress_.Redraw();
      continue;
    }
    if (!pool_.IsInterrupted()) progress_.Say("finishing the running files; press Ctrl-C again to stop them at once");
    pool_.Interrupt();
  }
}

void Run::ReportDone(const Done& done) {
  summary_.Add(done.name, done.result, done.milliseconds);
  workDone_ += ExpectedMilliseconds(done.name);
  std::set<std::string> reported;
  for (const Failure& failure : done.result.failures) {
    if (!reported.insert(failure.reason).second) continue;
    progress_.Say(Printable(done.name) + ": " + failure.reason + "; " + failure.remedy);
  }
  if (output_.json) return Print(JsonResult(AbsolutePath(done.name), done.result, done.milliseconds));
  if (output_.isVerbose) return Print(ResultLine(Printable(done.name), done.result, isDryRun_));
  const bool isListed = isDryRun_ && !output_.isQuiet && !done.result.made.empty();
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
  const std::size_t done = summary_.Files();
  progress_.Show({done, std::max(walk_.Count(), done + pool_.Running()), !walk_.HasFoundAll(), last_, workDone_,
                  std::max(walk_.ExpectedWork() - workDone_, 0.0)});
}

// Once, not for each of them.
void Run::ReportSkippedVideos() {
  if (!takesVideos_ || !walk_.HasSkippedVideos()) return;
  const Problem problem = NoStillTool();
  progress_.Say("videos are left out: " + problem.reason + "; " + problem.remedy + ", or add --no-videos");
}

void Run::ReportWhereItStopped() {
  if (pool_.IsInterrupted()) {
    const std::string where = last_.empty() ? "before the first file" : "at " + Printable(last_);
    progress_.Say("stopped after " + std::to_string(summary_.Files()) + " files, " + where +
                  "; run it again to continue from there");
  } else if (IsAtLimit() && HasMore()) {
    progress_.Say("stopped after making thumbnails for " + std::to_string(*limit_) +
                  " files, the --limit; more may remain: run it again to continue from there");
  }
}

}  // namespace

MakeOutcome Make(MakeRequest request) {
  request.order.folders = FoldersOf(request);
  return Run(std::move(request)).Execute();
}

}  // namespace tavithumb::apps::command
