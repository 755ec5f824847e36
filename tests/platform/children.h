// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "temp_dir.h"

namespace tavithumb::test {

// The path of one of the programs in the folder of children.
inline std::string Child(const std::string& name) {
  return std::string(CHILDREN_FOLDER) + "/" + name;
}

// A complete argument vector: argument 0 is the program's path, a null pointer ends it.
class Arguments {
 public:
  Arguments(std::string path, std::vector<std::string> others) : texts_(std::move(others)) {
    texts_.insert(texts_.begin(), std::move(path));
    for (const std::string& text : texts_) pointers_.push_back(text.c_str());
    pointers_.push_back(nullptr);
  }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  const char* Path() const { return pointers_.front(); }
  const char* const* Vector() const { return pointers_.data(); }

 private:
  std::vector<std::string> texts_;
  std::vector<const char*> pointers_;
};

// Where the children of its lifetime write what they found.
class Report {
 public:
  Report() { setenv("REPORT", (folder_ / "report").c_str(), 1); }
  ~Report() { unsetenv("REPORT"); }
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;

  std::string Text() const { return ReadFile(folder_ / "report"); }

 private:
  TempDir folder_;
};

// Waits for a child of the test. Its exit status, or minus the number of the signal that it died of.
inline int EndOf(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Runs `body` in a forked process, where it may change what belongs to the whole process; its exit status.
inline int InProcess(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) _exit(body());
  return EndOf(child);
}

// The same for a body with expectations, all of which must be met.
inline void CheckInProcess(const std::function<void()>& body) {
  EXPECT_EQ(InProcess([&body] {
              body();
              std::fflush(nullptr);
              return testing::Test::HasFailure() ? 1 : 0;
            }),
            0);
}

// Runs `body` as somebody who is not the superuser.
inline void CheckAsOrdinaryUser(const std::function<void()>& body) {
  CheckInProcess([&body] {
    constexpr uid_t kNobody = 65534;
    if (geteuid() == 0) {
      ASSERT_EQ(setresgid(kNobody, kNobody, kNobody) | setresuid(kNobody, kNobody, kNobody), 0);
    }
    body();
  });
}

// Makes the calling process one that gets no exit status from the system, by ignoring SIGCHLD or by SA_NOCLDWAIT.
inline void IgnoreChildren(bool byFlag) {
  struct sigaction action = {};
  action.sa_handler = byFlag ? SIG_DFL : SIG_IGN;
  action.sa_flags = byFlag ? SA_NOCLDWAIT : 0;
  ASSERT_EQ(sigaction(SIGCHLD, &action, nullptr), 0);
}

// Makes the calling process the superuser of its own mounts; false when the system doesn't allow it.
inline bool EnterMountNamespace() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWNS | (user == 0 ? 0 : CLONE_NEWUSER)) != 0) return false;
  if (user != 0) {
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
  }
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// Runs `body` where it can make mounts, which disappear with it. It returns "" or what the test needs and is missing.
inline void CheckWithMounts(const std::function<std::string()>& body) {
  TempDir folder;
  const std::string reason = folder / "reason";
  CheckInProcess([&] {
    const std::string why = EnterMountNamespace() ? body() : "needs root or user namespaces";
    if (!why.empty()) WriteFile(reason, why);
  });
  if (Exists(reason)) GTEST_SKIP() << ReadFile(reason);
}

inline struct stat Facts(const std::string& path) {
  struct stat facts = {};
  if (lstat(path.c_str(), &facts) != 0) ADD_FAILURE() << "lstat " << path << ": " << std::strerror(errno);
  return facts;
}

inline mode_t ModeOf(const std::string& path) {
  return Facts(path).st_mode & 07777;
}

}  // namespace tavithumb::test
