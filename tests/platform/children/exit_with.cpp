// SPDX-License-Identifier: GPL-3.0-or-later
// Exits with the status that is its argument.
#include <cstdlib>

int main(int, char** argv) {
  return std::atoi(argv[1]);
}
