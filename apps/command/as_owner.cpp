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

constexpr char allWell[] = "+";
constexpr char notAllWell[] = "-";

// In the owner's process: one of the above, or the message of an exception.
std::string WorkInFolder(const std::string& path, uid_t owner, const Work& work) {
  std::string inside = path;
  std::optional<Problem> problem = WhyNotBecome(owner);
  if (!problem) problem = WhyNotEnter(path, &inside);
  try {
    return work(problem ? path : inside, problem) ? allWell : notAllWell;
  } catch (const std::exception& error) {
    return error.what();
  }
}

// What the process has sent; "" if it died.
std::string RunInProcess(const std::function<std::string()>& work) {
  const TextPipe pipe;
  ChildProcess child;
  child.standard = {-1, STDOUT_FILENO, STDERR_FILENO};
  child.channel = pipe.SendingEnd();
  child.diesWithParent = true;
  child.work = [&] { TextPipe::Send(child.channel, work()); };
  Supervisor::Run(child, noDeadline);
  return pipe.Receive();
}

}  // namespace

bool RunAsOwner(const std::string& path, const Work& work) {
  if (!IsRoot()) return work(path, std::nullopt);
  const uid_t owner = OwnerFor(path);
  const std::string result = RunInProcess([&] { return WorkInFolder(path, owner, work); });
  if (result.empty()) return work(path, died);
  if (result == allWell || result == notAllWell) return result == allWell;
  throw std::runtime_error(result);
}

}  // namespace tavithumb::apps::command
