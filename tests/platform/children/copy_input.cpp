// SPDX-License-Identifier: GPL-3.0-or-later
// Writes its standard input into the file that is its argument.
#include <cstdio>

int main(int, char** argv) {
  std::FILE* copy = std::fopen(argv[1], "wb");
  if (copy == nullptr) return 1;
  for (int byte; (byte = std::getchar()) != EOF;) std::putc(byte, copy);
  return std::fclose(copy);
}
