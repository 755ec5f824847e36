// SPDX-License-Identifier: GPL-3.0-or-later
#include "job/run_as.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <string>
#include <vector>

#include "fake_libc.h"

namespace tavithumb::test {
namespace {

using Log = std::vector<LogLine>;
using StepNames = std::vector<std::string>;

constexpr int authError = LOG_AUTH | LOG_ERR;
constexpr int authCritical = LOG_AUTH | LOG_CRIT;

// A process with its own ids, in which root is 0:0. Switches are recorded as
// text, -1 for an unchanged id; the one whose text is `failing` fails.
class RunAs : public testing::Test {
 protected:
  RunAs() {
    libc.geteuid = [this] { return user; };
    libc.getegid = [this] { return group; };
    libc.setresuid = [this](uid_t real, uid_t effective, uid_t saved) {
      return Switch("uid", real, effective, saved, &user);
    };
    libc.setresgid = [this](gid_t real, gid_t effective, gid_t saved) {
      return Switch("gid", real, effective, saved, &group);
    };
  }

  int Switch(const std::string& kind, unsigned real, unsigned effective, unsigned saved, unsigned* current) {
    const auto text = [](unsigned id) { return std::to_string(static_cast<int>(id)); };
    const std::string step = kind + " " + text(real) + " " + text(effective) + " " + text(saved);
    steps.push_back(step);
    if (step == failing) return errno = EPERM, -1;
    if (effective != static_cast<unsigned>(-1)) *current = effective;
    return 0;
  }

  // Runs a guarded block; returns whether it ran, and stores the ids it ran under.
  bool RunBlock(const char* target = "root") {
    bool ran = false;
    IF_RUN_AS2(target, "libtavithumb", 489) {
      ran = true;
      userInside = user;
      groupInside = group;
    }
    return ran;
  }

  uid_t user = 0;
  gid_t group = 0;
  uid_t userInside = 99;
  gid_t groupInside = 99;
  std::string failing;
  StepNames steps;
  FakeLibc libc;
  CapturedLog log;
};

TEST_F(RunAs, SwitchesToRootAndBackInTheFewestSteps) {
  struct Row {
    uid_t user;
    gid_t group;
    StepNames steps;
  };
  const Row rows[] = {
      {0, 0, {}},
      {0, 100, {"gid -1 0 -1", "gid -1 100 -1"}},
      {1000, 0, {"uid -1 0 -1", "uid -1 0 -1", "uid -1 1000 -1"}},
      {1000, 100, {"uid -1 0 -1", "gid -1 0 -1", "uid -1 0 -1", "gid -1 100 -1", "uid -1 1000 -1"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.user << ":" << row.group);
    user = row.user;
    group = row.group;
    steps.clear();
    EXPECT_TRUE(RunBlock());
    EXPECT_EQ(userInside, 0u);
    EXPECT_EQ(groupInside, 0u);
    EXPECT_EQ(user, row.user);
    EXPECT_EQ(group, row.group);
    EXPECT_EQ(steps, row.steps);
    EXPECT_EQ(log.lines, Log{});
  }
}

TEST_F(RunAs, SkipsTheBlockAndLogsWhenAStepFails) {
  struct Row {
    uid_t user;
    gid_t group;
    const char* failing;
    StepNames steps;
  };
  const Row rows[] = {
      {1000, 100, "uid -1 0 -1", {"uid -1 0 -1"}},
      {1000, 100, "gid -1 0 -1", {"uid -1 0 -1", "gid -1 0 -1", "uid -1 1000 -1"}},
      {0, 100, "gid -1 0 -1", {"gid -1 0 -1"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.user << ":" << row.group << " fails at " << row.failing);
    user = row.user;
    group = row.group;
    failing = row.failing;
    steps.clear();
    log.lines.clear();
    EXPECT_FALSE(RunBlock());
    EXPECT_EQ(user, row.user);
    EXPECT_EQ(group, row.group);
    EXPECT_EQ(steps, row.steps);
    EXPECT_EQ(log.lines, (Log{{authError, "libtavithumb:489 ERROR: IF_RUN_AS2(\"root\")"}}));
  }
}

TEST_F(RunAs, LogsCriticallyWhenItCannotSwitchBack) {
  for (const std::string step : {"gid -1 100 -1", "uid -1 1000 -1"}) {
    SCOPED_TRACE(step);
    user = 1000;
    group = 100;
    failing = step;
    log.lines.clear();
    EXPECT_TRUE(RunBlock());
    EXPECT_EQ(user, 0u);
    EXPECT_EQ(log.lines, (Log{{authCritical, "libtavithumb:489 ERROR: ~IF_RUN_AS2(1000, 100)"}}));
  }
}

TEST_F(RunAs, LooksTheUserUpInABufferOfTheSystemsSize) {
  for (const auto& [configured, size] : {std::pair{2048L, size_t{2048}}, {-1L, size_t{16384}}}) {
    SCOPED_TRACE(configured);
    size_t used = 0;
    std::string name;
    const long answer = configured;
    libc.sysconf = [answer](int what) { return what == _SC_GETPW_R_SIZE_MAX ? answer : -1L; };
    libc.getpwnam_r = [&](const char* wanted, passwd* entry, char*, size_t bytes, passwd** found) {
      name = wanted;
      used = bytes;
      entry->pw_uid = 0;
      entry->pw_gid = 0;
      *found = entry;
      return 0;
    };
    EXPECT_TRUE(RunBlock());
    EXPECT_EQ(used, size);
    EXPECT_EQ(name, "root");
  }
}

TEST_F(RunAs, UsesTheIdsOfTheUser) {
  libc.getpwnam_r = [](const char*, passwd* entry, char*, size_t, passwd** found) {
    entry->pw_uid = 5;
    entry->pw_gid = 6;
    *found = entry;
    return 0;
  };
  user = 1000;
  group = 100;
  EXPECT_TRUE(RunBlock());
  EXPECT_EQ(userInside, 5u);
  EXPECT_EQ(groupInside, 6u);
  EXPECT_EQ(steps, (StepNames{"uid -1 0 -1", "gid -1 6 -1", "uid -1 5 -1",  //
                              "uid -1 0 -1", "gid -1 100 -1", "uid -1 1000 -1"}));
}

TEST_F(RunAs, DoesNotChangeAnIdOfMinusOne) {
  libc.getpwnam_r = [](const char*, passwd* entry, char*, size_t, passwd** found) {
    entry->pw_uid = static_cast<uid_t>(-1);
    entry->pw_gid = static_cast<gid_t>(-1);
    *found = entry;
    return 0;
  };
  EXPECT_TRUE(RunBlock());
  EXPECT_EQ(steps, StepNames{});
}

TEST_F(RunAs, LogsAnUnknownUser) {
  libc.getpwnam_r = [](const char*, passwd*, char*, size_t, passwd** found) {
    *found = nullptr;
    return 0;
  };
  EXPECT_FALSE(RunBlock());
  EXPECT_EQ(log.lines, (Log{{authError, "libtavithumb:489 ERROR: getpwnam(root) [Name not found]"},
                            {authError, "libtavithumb:489 ERROR: IF_RUN_AS2(\"root\")"}}));
}

TEST_F(RunAs, LogsAFailedLookupWithItsReason) {
  libc.getpwnam_r = [](const char*, passwd*, char*, size_t, passwd** found) {
    *found = nullptr;
    return EIO;
  };
  EXPECT_FALSE(RunBlock());
  EXPECT_EQ(log.lines, (Log{{authError, "libtavithumb:489 ERROR: getpwnam(root) [Input/output error]"},
                            {authError, "libtavithumb:489 ERROR: IF_RUN_AS2(\"root\")"}}));
}

// As unsigned bytes, -2 is more than any machine has. The sanitizers' allocators need allocator_may_return_null=1,
// which their presets set.
TEST_F(RunAs, LogsABufferThatCannotBeAllocated) {
  libc.sysconf = [](int) { return -2L; };
  EXPECT_FALSE(RunBlock());
  EXPECT_EQ(log.lines, (Log{{authError, "libtavithumb:489 ERROR: malloc(-2) [Cannot allocate memory]"},
                            {authError, "libtavithumb:489 ERROR: IF_RUN_AS2(\"root\")"}}));
}

}  // namespace
}  // namespace tavithumb::test
