// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/make.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <set>
#include <utility>

#include "command/batch/pool.h"
#include "command/batch/progress_display.h"
#include "command/batch/summary.h"
#include "command/batch/walk.h"
#include "command/output.h"
#include "system/paths.h"
#include "system/signals.h"
#include "system/text.h"

namespace tavithumb::apps::command {
namespace {

// One run: names go from the walk to the pool, results from there to the summary and to those who read along.
class Run {
 public:
  explicit Run(MakeRequest request)
      : isDryRun_(request.order.isDryRun),
        json_(request.json),
        limit_(request.limit),
        walk_(std::move(request.names), std::move(request.list),
              [this](const std::string& name, const Problem& problem) {
                Result result;
                result.Fail("", problem);
                Tell({name, std::move(result), 0});
              }),
        pool_(request.jobs, std::move(request.order)) {}

  MakeOutcome ToItsEnd();

 private:
  bool IsStopped() const { return signalsSeen_ != 0 || broken_ || IsAtLimit(); }
  bool IsAtLimit() const { return limit_ && summary_.FilesWithMade() >= *limit_; }
  bool HasMore() const { return next_ || !walk_.HasEnded(); }
  bool IsDone() const { return pool_.Running() == 0 && (IsStopped() || !HasMore()); }
  void GiveOut();
  void GoOn();
  void TakeSignals();
  void Tell(const Done& done);
  void Print(const std::string& text);
  void ShowStatus();
  void SayWhereItStopped();

  const bool isDryRun_;
  const bool json_;
  const std::optional<std::size_t> limit_;
  const Signals signals_;
  ProgressDisplay progress_;
  Summary summary_;
  Walk walk_;
  Pool pool_;
  std::optional<std::string> next_;  // to be given out
  std::string last_;                 // that was given out
  int signalsSeen_ = 0;
  std::exception_ptr broken_;  // standard output is, and this tells how
};

MakeOutcome Run::ToItsEnd() {
  for (GiveOut(); !IsDone(); GiveOut()) {
    GoOn();
    for (const Done& done : pool_.Collect()) Tell(done);
    ShowStatus();
  }
  progress_.Clear();
  if (broken_) std::rethrow_exception(broken_);
  SayWhereItStopped();
  const bool isInterrupted = signalsSeen_ != 0;
  if (json_) WriteOut(summary_.AsJson(isInterrupted));
  WriteSummary(summary_.AsText(isDryRun_), json_);
  if (isInterrupted) return MakeOutcome::kInterrupted;
  return summary_.HasFailures() ? MakeOutcome::kSomeFailed : MakeOutcome::kAllWell;
}

// Each file that is worked on may be the one that reaches the limit.
void Run::GiveOut() {
  while (!IsStopped() && (!limit_ || summary_.FilesWithMade() + pool_.Running() < *limit_)) {
    if (!next_) next_ = walk_.Next();
    if (!next_ || !pool_.Give(*next_)) return;
    last_ = *std::exchange(next_, std::nullopt);
  }
}

// Waits until there is something to do, and walks on.
void Run::GoOn() {
  const bool canStep = !IsStopped() && walk_.CanStep();
  std::vector<pollfd> descriptors = {{signals_.Descriptor(), POLLIN, 0},
                                     {IsStopped() ? -1 : walk_.Descriptor(), POLLIN, 0}};
  pool_.AddTo(&descriptors);
  const int forPool = pool_.NextEvent();
  const int wait = forPool == -1 ? progress_.NextEvent() : std::min(forPool, progress_.NextEvent());
  poll(descriptors.data(), descriptors.size(), canStep ? 0 : wait);
  TakeSignals();
  if (canStep || descriptors[1].revents != 0) walk_.Step();
}

// The first lets the running files come to their end, the second does not.
void Run::TakeSignals() {
  while (const std::optional<int> number = signals_.Take()) {
    if (*number == SIGWINCH) {
      progress_.Redraw();
    } else if (++signalsSeen_ == 1) {
      progress_.Say("finishing the running files; press Ctrl-C again to stop them at once");
    } else {
      pool_.Abandon();
    }
  }
}

void Run::Tell(const Done& done) {
  summary_.Add(done.result);
  std::set<std::string> told;
  for (const Failure& failure : done.result.failures) {
    if (!told.insert(failure.reason).second) continue;
    progress_.Say(Printable(done.name) + ": " + failure.reason + "; " + failure.remedy);
  }
  if (json_) return Print(JsonResult(AbsolutePath(done.name), done.result, done.milliseconds));
  if (isDryRun_ && !done.result.made.empty()) Print(Printable(done.name) + ": " + Join(done.result.made, ", ") + "\n");
}

void Run::Print(const std::string& text) {
  if (broken_) return;
  if (isatty(STDOUT_FILENO) != 0) progress_.Clear();
  try {
    WriteOut(text);
  } catch (const std::exception&) {
    broken_ = std::current_exception();
  }
}

void Run::ShowStatus() {
  const std::size_t done = summary_.Files();
  progress_.Show({done, std::max(walk_.Count(), done + pool_.Running()), !walk_.HasFoundAll(), last_});
}

void Run::SayWhereItStopped() {
  if (signalsSeen_ != 0) {
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
  return Run(std::move(request)).ToItsEnd();
}

}  // namespace tavithumb::apps::command
