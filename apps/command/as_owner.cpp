// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/as_owner.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "command/output.h"
#include "system/become.h"
#include "system/channel.h"
#include "system/supervisor.h"
#include "system/text_pipe.h"
#include "thumbs/as_owner.h"

namespace tavithumb::apps::command {
namespace {

const Problem died = {Problem::Kind::kDamaged, "the process working on it died",
                      "check that it opens in another program"};

// Begin what the process sends.
constexpr char aText = '=';
constexpr char anException = '!';
constexpr char aClosedOutput = '|';

std::string Outcome(const std::function<std::string()>& work) {
  try {
    return aText + work();
  } catch (const OutputClosed&) {
    return {aClosedOutput};
  } catch (const std::exception& error) {
    return anException + std::string(error.what());
  }
}

// Throws what the process has sent as an exception.
std::string TextOf(const std::string& outcome) {
  if (outcome.front() == aClosedOutput) throw OutputClosed();
  if (outcome.front() == anException) throw std::runtime_error(outcome.substr(1));
  return outcome.substr(1);
}

// Returned as text.
constexpr char allIsWell[] = "+";
constexpr char notAllIsWell[] = "-";

// Those of fewer owners than a photo library has users would be restarted all the time.
constexpr std::size_t mostProcesses = 16;
constexpr std::size_t longestMessage = 65536;

std::optional<std::string> Receive(int channel) {
  std::string text(longestMessage, '\0');
  ssize_t size;
  do {
    size = recv(channel, text.data(), text.size(), 0);
  } while (size == -1 && errno == EINTR);
  if (size <= 0) return std::nullopt;
  text.resize(static_cast<std::size_t>(size));
  return text;
}

bool WorkInFolder(const std::string& path, uid_t owner, const Work& work) {
  std::string inside = path;
  std::optional<Problem> problem = WhyNotBecome(owner);
  if (!problem) problem = WhyNotEnter(path, &inside);
  return work(problem ? path : inside, problem);
}

}  // namespace

std::optional<std::string> RunInProcess(const std::function<void()>& prepare,
                                        const std::function<std::string()>& work) {
  const TextPipe pipe;
  ChildProcess child;
  child.standard = {-1, STDOUT_FILENO, STDERR_FILENO};
  child.channel = pipe.SendingEnd();
  child.diesWithParent = true;
  child.prepare = prepare;
  child.work = [&] { TextPipe::Send(child.channel, Outcome(work)); };
  Supervisor::Run(child, noDeadline);
  const std::string outcome = pipe.Receive();
  if (outcome.empty()) return std::nullopt;
  return TextOf(outcome);
}

bool RunAsOwner(const std::string& path, const Work& work) {
  if (!IsRoot()) return work(path, std::nullopt);
  const uid_t owner = OwnerFor(path);
  const auto isWell = RunInProcess(nullptr, [&] { return WorkInFolder(path, owner, work) ? allIsWell : notAllIsWell; });
  return isWell ? *isWell == allIsWell : work(path, died);
}

OwnerProcesses::OwnerProcesses(Task task) : isRoots_(IsRoot()), task_(std::move(task)) {}

std::string OwnerProcesses::Run(const std::string& path, const std::string& message) {
  if (path.size() >= PATH_MAX) return task_(message, path, ProblemOfErrno(ENAMETOOLONG));
  const std::optional<std::string> outcome = Exchange(isRoots_ ? OwnerFor(path) : geteuid(), path + '\0' + message);
  return outcome ? TextOf(*outcome) : task_(message, path, died);
}

// Nothing if the process died of the request.
std::optional<std::string> OwnerProcesses::Exchange(uid_t owner, const std::string& request) {
  while (send(ProcessOf(owner).channel.Number(), request.data(), request.size(), MSG_NOSIGNAL) == -1) {
    if (errno != EPIPE && errno != ECONNRESET) throw std::system_error(errno, std::generic_category(), "send");
    processes_.pop_front();  // it was killed while it was idle
  }
  std::optional<std::string> outcome = Receive(processes_.front().channel.Number());
  if (!outcome) processes_.pop_front();
  return outcome;
}

// Moves it to the front. One whose channel is closed exits.
OwnerProcesses::Process& OwnerProcesses::ProcessOf(uid_t owner) {
  const auto found = std::find_if(processes_.begin(), processes_.end(),
                                  [owner](const Process& process) { return process.owner == owner; });
  if (found != processes_.end()) {
    processes_.splice(processes_.begin(), processes_, found);
    return processes_.front();
  }
  if (processes_.size() == mostProcesses) processes_.pop_back();
  supervisor_.Collect();
  processes_.push_front(Start(owner));
  return processes_.front();
}

OwnerProcesses::Process OwnerProcesses::Start(uid_t owner) {
  auto [ours, theirs] = OpenChannel();
  ChildProcess child;
  child.standard = {-1, STDOUT_FILENO, STDERR_FILENO};
  child.channel = theirs.Number();
  child.diesWithParent = true;
  child.work = [this, &child, owner] { RunLoop(child.channel, owner); };
  supervisor_.Start(child);
  return {owner, std::move(ours)};
}

void OwnerProcesses::RunLoop(int channel, uid_t owner) const {
  const std::optional<Problem> refusal = isRoots_ ? WhyNotBecome(owner) : std::nullopt;
  while (const std::optional<std::string> request = Receive(channel)) {
    const std::string outcome = Outcome([&] { return WorkOn(*request, refusal); });
    send(channel, outcome.data(), outcome.size(), MSG_NOSIGNAL);
  }
}

std::string OwnerProcesses::WorkOn(const std::string& request, const std::optional<Problem>& refusal) const {
  const std::string path = request.substr(0, request.find('\0')), message = request.substr(path.size() + 1);
  if (!isRoots_ || refusal) return task_(message, path, refusal);
  std::string inside = path;
  const std::optional<Problem> problem = WhyNotEnter(path, &inside);
  return task_(message, problem ? path : inside, problem);
}

}  // namespace tavithumb::apps::command
