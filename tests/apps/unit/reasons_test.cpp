// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/reasons.h"

#include <gtest/gtest.h>
#include <pictures.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <tavithumb/libtavithumb.h>
#include <temp_dir.h>
#include <unistd.h>

#include <string>

namespace tavithumb::apps {
namespace {

// The process can no longer run the program at that path.
bool Hide(const std::string& program, const std::string& file) {
  return mount(file.c_str(), program.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

TEST(Reasons, NameTheToolThatIsNotInstalled) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const test::TempDir folder;
  test::WriteFile(folder / "no program", "");
  test::WriteFile(folder / "a.png", "no picture");
  const pid_t child = fork();
  if (child == 0) {
    const bool isHidden = unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                          Hide("/usr/bin/convert", folder / "no program");
    if (!isHidden) _exit(77);
    const Problem problem =
        WhyNoAnswer(ThumbInfo(folder / "a.png", "small", Thumb::strThumbSizeMap_.at("small")), {{"small", {0, 0}}});
    test::WriteFile(folder / "problem", problem.reason + "; " + problem.remedy);
    _exit(problem.kind == Problem::Kind::kNoTool ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "needs mounts";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(test::ReadFile(folder / "problem"),
            "it could not be converted, and /usr/bin/convert is not installed; install the package imagemagick, or "
            "check that it opens in another program");
}

}  // namespace
}  // namespace tavithumb::apps
