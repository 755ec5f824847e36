// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <string>

#include "system/file_rules.h"
#include "web/request_state.h"
#include "web/roots.h"
#include "web/scgi.h"

namespace tavithumb::apps::web {

// The limits of a worker and of each of its tools; 0 is no limit.
struct ToolLimits {
  unsigned cpuSeconds = 20;
  unsigned memoryMiB = 1536;
  unsigned fileSizeMiB = 1024;
  unsigned openFiles = 256;
};

// A sandbox for a worker and its tools, which read files that attackers may have uploaded. Created once by the process
// that forks the workers, entered by each of them.
class Confinement {
 public:
  // `policyFolder` has ImageMagick's policy.xml.
  Confinement(const Roots& roots, const ToolLimits& limits, const std::string& policyFolder);

  // Applies the limits to this process and everything that it starts, except that of processor time. From now on it
  // can't access any file outside the roots, the store, the system's programs and the temporary folders, not even
  // through links. On a kernel without Landlock only the limits apply. Throws std::system_error if a kernel with
  // Landlock fails to enforce the rules.
  void Enter() const;

  // Reduces the environment to what the tools need and to those of the request's variables on which the response
  // depends.
  void SetEnvironment(const Variables& variables) const;

  // Limits the processor time of this process from now on, and of everything that it starts. That can't be undone.
  void LimitProcessorTime() const;

 private:
  ToolLimits limits_;
  std::string policyFolder_;
  FileRules rules_;
};

// A folder for the tools' temporary files, which exists during this object's lifetime. The tools find it through their
// environment.
class ScratchFolder {
 public:
  explicit ScratchFolder(RequestState* state);
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

 private:
  RequestState* state_;
};

// Removes the temporary files of a worker that has died.
void RemoveLeftovers(pid_t worker, const RequestState& state);

}  // namespace tavithumb::apps::web
