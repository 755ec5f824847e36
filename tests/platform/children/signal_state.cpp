// SPDX-License-Identifier: GPL-3.0-or-later
// Reports every signal that is blocked or ignored, one "blocked <number>" or "ignored <number>" a line.
#include <signal.h>

#include "report.h"

int main() {
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  std::FILE* report = OpenReport();
  for (int number = 1; number < 32; ++number) {
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    if (sigismember(&mask, number) == 1) std::fprintf(report, "blocked %d\n", number);
    if (action.sa_handler == SIG_IGN) std::fprintf(report, "ignored %d\n", number);
  }
  return std::fclose(report);
}
