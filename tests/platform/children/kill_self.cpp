// SPDX-License-Identifier: GPL-3.0-or-later
// Dies of the signal whose number is its argument.
#include <signal.h>

#include <cstdlib>

int main(int, char** argv) {
  const int number = std::atoi(argv[1]);
  signal(number, SIG_DFL);
  return raise(number);
}
