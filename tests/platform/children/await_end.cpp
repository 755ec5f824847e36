// SPDX-License-Identifier: GPL-3.0-or-later
// Waits until somebody has opened the named pipe of its first argument for writing and closed it again, then exits
// with the status of its second.
#include <cstdio>
#include <cstdlib>

int main(int, char** argv) {
  std::FILE* pipe = std::fopen(argv[1], "r");
  if (pipe == nullptr) return 1;
  while (std::getc(pipe) != EOF) {
  }
  return std::atoi(argv[2]);
}
