// SPDX-License-Identifier: GPL-3.0-or-later
// Writes the bytes 0 to 250, over and over, until there are as many as its argument says.
#include <cstdio>
#include <cstdlib>

int main(int, char** argv) {
  const long size = std::atol(argv[1]);
  for (long i = 0; i < size; ++i) {
    if (std::putchar(static_cast<int>(i % 251)) == EOF) return 1;
  }
  return std::fflush(stdout);
}
