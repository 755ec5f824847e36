// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::proof {

struct Run {
  int code = -1;  // the exit status; -1 if the program was killed by a signal
  std::string out;
  std::string err;
  double seconds = 0;
  unsigned peakMiB = 0;  // resident, of the largest among the process and those that it waited for
};

// Limits for a process and each process that it starts; 0 is no limit.
struct Limits {
  unsigned cpuSeconds = 0;
  unsigned memoryMiB = 0;
  unsigned fileSizeMiB = 0;
};
void Enter(const Limits& limits);

// Runs a program in `folder` until it exits, with only `environment` and without standard input.
Run RunProgram(const std::vector<std::string>& argv, const std::vector<std::string>& environment = {},
               const Limits& limits = {}, const std::string& folder = "/");

}  // namespace tavithumb::proof
