// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <string>

#include "system/file_descriptor.h"
#include "web/roots.h"
#include "web/scgi.h"
#include "web/workers.h"

namespace tavithumb::apps::web {

// What one worker and each of its tools may use; 0 for as much as the system gives.
struct ToolLimits {
  unsigned cpuSeconds = 20;
  unsigned memoryMiB = 1536;
  unsigned fileSizeMiB = 1024;
  unsigned openFiles = 256;
};

// What keeps a worker and its tools, which read what strangers have uploaded, away from everything else. Made once by
// the process that forks the workers, entered by each of them.
class Confinement {
 public:
  // `policyFolder` holds ImageMagick's policy.xml.
  Confinement(const Roots& roots, const ToolLimits& limits, const std::string& policyFolder);

  // Applies the limits to this process and all that it starts. From here on it reaches no file outside the roots, the
  // system's programs and the temporary folders, whatever links lead there. Without a kernel that knows Landlock the
  // limits hold alone. Throws std::system_error when it can't be confined although the kernel could.
  void Enter() const;

  // Leaves in the environment what the tools need and what the response depends on, and nothing that the request
  // brought besides.
  void SetEnvironment(const Variables& variables) const;

 private:
  ToolLimits limits_;
  std::string policyFolder_;
  FileDescriptor rules_;
};

// The folder for the tools' temporary files, as long as tools run; what starts them leaves it in their environment.
class ScratchFolder {
 public:
  explicit ScratchFolder(Progress* progress);
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

 private:
  Progress* progress_;
};

// Removes what a worker that has died has left in temporary folders.
void RemoveLeftovers(pid_t worker, const Progress& progress);

}  // namespace tavithumb::apps::web
