// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::proof {

struct Run {
  int code = -1;  // the exit status; -1 when the program died of a signal
  std::string out;
  std::string err;
  double seconds = 0;
  unsigned peakMiB = 0;  // resident, of the largest among the process and those that it waited for
};

// What a process and all that it starts may use, each for itself; 0 is no limit.
struct Limits {
  unsigned cpuSeconds = 0;
  unsigned memoryMiB = 0;
  unsigned fileSizeMiB = 0;
};
void Enter(const Limits& limits);

// Runs a program in `folder` to its end, with nothing but `environment` and without standard input.
Run RunProgram(const std::vector<std::string>& argv, const std::vector<std::string>& environment = {},
               const Limits& limits = {}, const std::string& folder = "/");

}  // namespace tavithumb::proof
