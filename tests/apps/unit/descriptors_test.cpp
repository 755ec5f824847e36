// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/descriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <temp_dir.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace tavithumb::apps {
namespace {

// The exit status of `body` in a process of its own.
int InProcess(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(StandardDescriptors, ThatAreClosedAreOpenedOnNothing) {
  for (int closed = 0; closed < 8; ++closed) {
    EXPECT_EQ(InProcess([closed] {
                for (int fd = 0; fd < 3; ++fd) {
                  if ((closed >> fd & 1) != 0) close(fd);
                }
                OpenStandardDescriptors();
                for (int fd = 0; fd < 3; ++fd) {
                  if (fcntl(fd, F_GETFD) == -1) return 1 + fd;
                  const bool isReadOnly = (fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDONLY;
                  if ((closed >> fd & 1) != 0 && !isReadOnly) return 4 + fd;
                }
                return 0;
              }),
              0)
        << closed;
  }
}

TEST(QuietErrors, DiscardStandardErrorForTheirLifetime) {
  const test::TempDir folder;
  EXPECT_EQ(InProcess([&folder] {
              dup2(open((folder / "errors").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDERR_FILENO);
              if (write(STDERR_FILENO, "before ", 7) != 7) return 1;
              {
                const QuietErrors quiet;
                if (write(STDERR_FILENO, "during ", 7) != 7) return 2;
              }
              return write(STDERR_FILENO, "after", 5) == 5 ? 0 : 3;
            }),
            0);
  EXPECT_EQ(test::ReadFile(folder / "errors"), "before after");
}

TEST(QuietErrors, TakeNoStandardDescriptor) {
  EXPECT_EQ(InProcess([] {
              close(STDOUT_FILENO);
              const QuietErrors quiet;
              return fcntl(STDOUT_FILENO, F_GETFD) == -1 ? 0 : 1;
            }),
            0);
}

}  // namespace
}  // namespace tavithumb::apps
