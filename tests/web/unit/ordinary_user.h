// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <functional>

namespace tavithumb::test {

// Runs `body`, in which all expectations must pass, in a process of a user who is bound by file modes.
inline void CheckAsOrdinaryUser(const std::function<void()>& body) {
  constexpr uid_t kNobody = 65534;
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    if (geteuid() == 0 && (setresgid(kNobody, kNobody, kNobody) | setresuid(kNobody, kNobody, kNobody)) != 0) _exit(2);
    try {
      body();
    } catch (const std::exception& error) {
      ADD_FAILURE() << error.what();
    }
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "see above";
}

}  // namespace tavithumb::test
