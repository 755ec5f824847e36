// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <functional>
#include <list>
#include <optional>
#include <string>

#include "system/file_descriptor.h"
#include "system/supervisor.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// Processes the file at `path`, unless there is a problem already, and reports the result. Returns whether all is well.
using Work = std::function<bool(const std::string& path, const std::optional<Problem>& problem)>;

// Runs `work` for the file at the absolute `path`, and returns what it returns. Root runs it as the owner of the file's
// folder, in a process of that user's with the same standard output and error, and with the file's path inside that
// folder. Throws OutputClosed if `work` did, else std::runtime_error with the message of what it has thrown.
bool RunAsOwner(const std::string& path, const Work& work);

// Processes that work on many files, one at a time: each for the files in the folders of one owner, as that user if
// root started them. A file on which the process dies has that as its problem, and the next one gets a new process.
class OwnerProcesses {
 public:
  // Processes the file at `path`, unless there is a problem already, as a message says, and returns the result as text.
  using Task =
      std::function<std::string(const std::string& message, const std::string& path, const std::optional<Problem>&)>;

  explicit OwnerProcesses(Task task);

  // Runs the task in the process of the owner of the folder of the file at the absolute `path`, as RunAsOwner() does,
  // and returns what it returns. The message is of up to 16 KiB, the result of up to 64 KiB.
  std::string Run(const std::string& path, const std::string& message);

 private:
  struct Process {
    uid_t owner;
    FileDescriptor channel;
  };

  Process& ProcessOf(uid_t owner);
  Process Start(uid_t owner);
  void RunLoop(int channel, uid_t owner) const;
  std::string WorkOn(const std::string& request, const std::optional<Problem>& refusal) const;
  std::optional<std::string> Exchange(uid_t owner, const std::string& request);

  const bool isRoots_;
  Task task_;
  Supervisor supervisor_;
  std::list<Process> processes_;  // the most recently used first
};

// Runs `work` in a process with the same standard output and error, after `prepare`, if that is not null, for which the
// descriptors of this process are still open. Returns the text that `work` returns, or nothing if the process died.
// Throws OutputClosed if `work` did, else std::runtime_error with the message of what it has thrown.
std::optional<std::string> RunInProcess(const std::function<void()>& prepare, const std::function<std::string()>& work);

}  // namespace tavithumb::apps::command
