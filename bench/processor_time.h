// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/resource.h>

#include <string>
#include <vector>

namespace tavithumb::bench {

// User and system time of RUSAGE_SELF, or of the children that have been waited for (RUSAGE_CHILDREN).
double ProcessorSeconds(int who);

// Runs a program by its path and discards its output. Exits this program if that one fails.
void RunProgram(std::vector<std::string> words);

}  // namespace tavithumb::bench
