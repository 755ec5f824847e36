// SPDX-License-Identifier: GPL-3.0-or-later
// Prints answers that only the dummies give.
#include <tavithumb/libtavithumb.h>
#include <tavithumb/thumb_convert_cmd.h>
#include <tavithumb/util.h>

#include <cstdio>

int main(int, char** argv) {
  using namespace tavithumb;
  std::printf("%s\n", file::GetEAPath("/any", "NAME").c_str());
  std::printf("writable: %d\n", file::IsDestSupportEAWrite("/"));
  std::printf("moved: %d\n", file::SDKMoveFile("/nowhere/a", "/nowhere/b"));
  Thumb job(argv[1], 0, false);
  std::printf("delivered: %d\n", job.Output("original"));
  // The dummies cannot tell.
  std::printf("refused: %d\n", ConvertCmd(job.GetInfo(), "/%d.png", "/b.png").IsRefused());
  return 0;
}
