// SPDX-License-Identifier: GPL-3.0-or-later
// Prints the path of a thumbnail of the given picture.
#include <tavithumb/libtavithumb.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  tavithumb::Thumb job(argv[1], tavithumb::Thumb::OPT_BROVIX_EA, false);
  std::puts(job.CalcOutputFile("small").c_str());
  return 0;
}
