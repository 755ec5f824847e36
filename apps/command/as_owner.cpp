// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/as_owner.h"

#include <unistd.h>

#include <exception>
#include <stdexcept>
#include <system_error>

#include "system/become.h"
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

std::string Outcome(const std::function<std::string()>& work) {
  try {
    return aText + work();
  } catch (const std::exception& error) {
    return anException + std::string(error.what());
  }
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
  if (outcome.front() == anException) throw std::runtime_error(outcome.substr(1));
  return outcome.substr(1);
}

bool RunAsOwner(const std::string& path, const Work& work) {
  if (!IsRoot()) return work(path, std::nullopt);
  const uid_t owner = OwnerFor(path);
  const auto isWell = RunInProcess(nullptr, [&] { return WorkInFolder(path, owner, work) ? "+" : "-"; });
  return isWell ? *isWell == "+" : work(path, died);
}

}  // namespace tavithumb::apps::command
