// SPDX-License-Identifier: GPL-3.0-or-later
// Runs a program with all of its children, and prints the processor time of all of them in milliseconds, and the
// largest resident memory that one of them had, in KiB.
#include <iostream>

#include "processor_time.h"

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  tavithumb::bench::RunProgram({argv + 1, argv + argc});
  rusage usage = {};
  getrusage(RUSAGE_CHILDREN, &usage);
  std::cout << 1000 * tavithumb::bench::ProcessorSeconds(RUSAGE_CHILDREN) << " " << usage.ru_maxrss << "\n";
}
