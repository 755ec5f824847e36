// SPDX-License-Identifier: GPL-3.0-or-later
// Reports its arguments, argument 0 included, each followed by a NUL.
#include <cstring>

#include "report.h"

int main(int argc, char** argv) {
  std::FILE* report = OpenReport();
  for (int i = 0; i < argc; ++i) std::fwrite(argv[i], 1, std::strlen(argv[i]) + 1, report);
  return std::fclose(report);
}
