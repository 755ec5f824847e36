// SPDX-License-Identifier: GPL-3.0-or-later
// Reports its open descriptors, one "<number> <what it leads to>" a line.
#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "report.h"

int main() {
  std::string found;
  for (int fd = 0; fd < 1024; ++fd) {
    if (fcntl(fd, F_GETFD) == -1) continue;
    const std::string number = std::to_string(fd);
    char target[4096] = {};
    if (readlink(("/proc/self/fd/" + number).c_str(), target, sizeof target - 1) == -1) return 1;
    found += number + " " + target + "\n";
  }
  std::FILE* report = OpenReport();
  std::fputs(found.c_str(), report);
  return std::fclose(report);
}
