// SPDX-License-Identifier: GPL-3.0-or-later
// ea_places SOURCE [DIRECTORY]   Reports where the entries of SOURCE are: the EA directory and the entry THUMB, "none"
// for what it has not. Makes DIRECTORY, an EA directory; exits with errno if it can't.
#include <tavi/sdk.h>

#include <cerrno>

#include "report.h"

int main(int argc, char** argv) {
  char directory[4096] = "none", entry[4096] = "none";
  if (argc > 2 && TAVIEAMKDir(1, argv[2]) != 0) return errno;
  TAVIEADirPath(0, argv[1], directory, sizeof directory);
  TAVIEAPath(0, argv[1], "THUMB", entry, sizeof entry, 0);
  std::FILE* report = OpenReport();
  std::fprintf(report, "%s\n%s\n", directory, entry);
  return std::fclose(report);
}
