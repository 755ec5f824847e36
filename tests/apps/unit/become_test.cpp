// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/become.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <temp_dir.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <system_error>
#include <vector>

#include "tests/platform/refused_calls.h"
#include "thumbs/as_owner.h"

namespace tavithumb::apps {
namespace {

constexpr uid_t unknown = 41001;
constexpr gid_t noGroup = 65534;

// Runs `body` in a process; whether all its expectations are met.
void CheckInFork(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    body();
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

void ExpectIds(uid_t user, gid_t group) {
  std::array<uid_t, 3> users = {};
  std::array<gid_t, 3> groups = {};
  ASSERT_EQ(getresuid(&users[0], &users[1], &users[2]) | getresgid(&groups[0], &groups[1], &groups[2]), 0);
  EXPECT_EQ(users, (std::array<uid_t, 3>{user, user, user}));
  EXPECT_EQ(groups, (std::array<gid_t, 3>{group, group, group}));
}

std::vector<gid_t> Groups() {
  std::vector<gid_t> groups(1000);
  groups.resize(static_cast<std::size_t>(getgroups(1000, groups.data())));
  return groups;
}

class Becoming : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root";
  }
};

TEST_F(Becoming, AUserGivesUpAllIdsAndGroupsOfRoot) {
  CheckInFork([] {
    const std::array<gid_t, 2> roots = {0, 6};
    ASSERT_EQ(setgroups(roots.size(), roots.data()), 0);
    Become(unknown);
    ExpectIds(unknown, noGroup);
    EXPECT_EQ(Groups(), std::vector<gid_t>{});
    EXPECT_EQ(setresuid(0, 0, 0), -1);
    EXPECT_EQ(setresgid(0, 0, 0), -1);
    EXPECT_EQ(open("/etc/shadow", O_RDONLY | O_CLOEXEC), -1);
  });
}

TEST_F(Becoming, AUserWithAnAccountTakesItsGroups) {
  const passwd* const account = getpwnam("daemon");
  if (account == nullptr) GTEST_SKIP() << "needs the user daemon";
  CheckInFork([account] {
    Become(account->pw_uid);
    ExpectIds(account->pw_uid, account->pw_gid);
    EXPECT_EQ(Groups(), std::vector<gid_t>{account->pw_gid});
  });
}

TEST_F(Becoming, RootChangesNothing) {
  CheckInFork([] {
    const std::vector<gid_t> before = Groups();
    setenv("SECRET", "kept", 1);
    Become(0);
    ExpectIds(0, 0);
    EXPECT_EQ(Groups(), before);
    EXPECT_STREQ(getenv("SECRET"), "kept");
  });
}

bool HasTerminal() {
  const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal != -1) close(terminal);
  return terminal != -1;
}

// The system would kill the session with the one that it began with.
TEST_F(Becoming, AUserLeavesRootsTerminalUnlessTheSessionBeganWithIt) {
  int master = -1, terminal = -1;
  ASSERT_EQ(openpty(&master, &terminal, nullptr, nullptr, nullptr), 0);
  CheckInFork([terminal] {
    ASSERT_NE(setsid(), -1);
    ASSERT_EQ(ioctl(terminal, TIOCSCTTY, 0), 0);
    CheckInFork([] {
      ASSERT_TRUE(HasTerminal());
      Become(unknown);
      EXPECT_FALSE(HasTerminal());
    });
    Become(unknown);
    EXPECT_EQ(getsid(0), getpid());
  });
  close(master);
  close(terminal);
}

TEST_F(Becoming, AUserLeavesRootsEnvironmentBehind) {
  CheckInFork([] {
    clearenv();
    const char* const kept[] = {"PATH", "TZ", "LANG", "LC_ALL", "MAGICK_CONFIGURE_PATH", "TMPDIR"};
    for (const char* name : kept) setenv(name, "a=b", 1);
    for (const char* name : {"HOME", "SECRET", "LANGUAGE_OF_ROOT", "LD_PRELOAD"}) setenv(name, "root's", 1);
    Become(unknown);
    for (const char* name : kept) EXPECT_STREQ(getenv(name), "a=b") << name;
    std::size_t count = 0;
    while (environ[count] != nullptr) ++count;
    EXPECT_EQ(count, std::size(kept));
  });
}

TEST_F(Becoming, AUserStillDiesWithTheParent) {
  CheckInFork([] {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    Become(unknown);
    int signal = 0;
    prctl(PR_GET_PDEATHSIG, &signal);
    EXPECT_EQ(signal, SIGTERM);
  });
}

TEST_F(Becoming, FailsWhenTheSystemRefusesAnyStep) {
  for (const long call : {SYS_setgroups, SYS_setresgid, SYS_setresuid}) {
    SCOPED_TRACE(call);
    CheckInFork([call] {
      if (!test::RefuseCalls({call}, EPERM)) return;
      EXPECT_THROW(Become(unknown), std::system_error);
      const std::optional<Problem> problem = WhyNotBecome(unknown);
      ASSERT_TRUE(problem);
      EXPECT_EQ(problem->reason, "this process cannot become the owner of its folder, 41001: Operation not permitted");
      EXPECT_EQ(problem->remedy, "run this as that user");
    });
  }
}

TEST_F(Becoming, FailsForAProcessThatWouldKeepItsCapabilities) {
  CheckInFork([] {
    ASSERT_EQ(prctl(PR_SET_SECUREBITS, 1 << 2), 0);  // SECBIT_NO_SETUID_FIXUP
    EXPECT_THROW(Become(unknown), std::system_error);
  });
}

TEST_F(Becoming, TheOwnerOfAFileGoesByItsFolder) {
  const test::TempDir folder;
  test::WriteFile(folder / "photo", "");
  ASSERT_EQ(chown(folder.Path().c_str(), unknown, 0) | chown((folder / "photo").c_str(), 2, 2), 0);
  CheckInFork([&] {
    BecomeOwnerOf(folder / "photo");
    ExpectIds(unknown, noGroup);
    BecomeOwnerOf("/etc/passwd");  // no way on
    ExpectIds(unknown, noGroup);
  });
  EXPECT_THROW(BecomeOwnerOf(folder / "missing/photo"), std::system_error);
}

TEST_F(Becoming, TheOwnerIsInTheFolderWhateverItsPathIsMeanwhile) {
  const test::TempDir outside;
  ASSERT_EQ(chmod(outside.Path().c_str(), 0777), 0);
  for (const char* name : {"mine", "other"}) {
    test::WriteFile((outside / name) + "/photo", name);
    ASSERT_EQ(chown((outside / name).c_str(), std::string(name) == "mine" ? unknown : 2, 0), 0);
  }
  CheckInFork([&] {
    Become(unknown);
    try {
      EnterFolderOf(outside / "other/photo");
      ADD_FAILURE() << "entered";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), EPERM);
    }
    EXPECT_EQ(EnterFolderOf(outside / "mine/photo"), "./photo");
    EXPECT_EQ(test::ReadFile("./photo"), "mine");
    ASSERT_EQ(rename((outside / "mine").c_str(), (outside / "moved").c_str()), 0);
    ASSERT_EQ(symlink("other", (outside / "mine").c_str()), 0);
    EXPECT_EQ(test::ReadFile("./photo"), "mine");
  });
}

TEST(PathsFromOutside, AreThoseOfTheFolder) {
  EXPECT_EQ(PathFromOutside("./.tavi_ea/a.jpg/THUMB", "/photos/a.jpg"), "/photos/.tavi_ea/a.jpg/THUMB");
  EXPECT_EQ(PathFromOutside("./a.jpg", "/a.jpg"), "/a.jpg");
  EXPECT_EQ(PathFromOutside("/var/tmp/a.jpg", "/photos/a.jpg"), "/var/tmp/a.jpg");
}

}  // namespace
}  // namespace tavithumb::apps
