// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <tavi/core.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "children.h"
#include "interruptions.h"
#include "refused_calls.h"

namespace tavithumb::test {
namespace {

int Execv(const std::string& path, const std::vector<std::string>& others, int wait = 1) {
  return TLIBCExecv(path.c_str(), Arguments(path, others).Vector(), wait);
}

std::string Terminated(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all += text + '\0';
  return all;
}

const std::vector<std::string> kOddArguments{"",      " ",           "two words", "$HOME", "`id`", ";exit 1", "*",
                                             "'\"\\", "line\nbreak", "\xFF\xFE",  "-n",    "%d",   "~",       ">x",
                                             "a=b",   "|cat",        "&",         "(",     "#",    "\t"};

TEST(Execv, PassesEveryArgumentUnchanged) {
  const Report report;
  EXPECT_EQ(Execv(Child("echo_arguments"), kOddArguments), 0);
  std::vector<std::string> expected{Child("echo_arguments")};
  expected.insert(expected.end(), kOddArguments.begin(), kOddArguments.end());
  EXPECT_EQ(report.Text(), Terminated(expected));
}

TEST(Execv, RunsTheFileOfThePathUnderAnotherArgumentZero) {
  const Report report;
  const char* argv[] = {"/usr/bin/convert", "x", nullptr};
  EXPECT_EQ(TLIBCExecv(Child("echo_arguments").c_str(), argv, 1), 0);
  EXPECT_EQ(report.Text(), Terminated({"/usr/bin/convert", "x"}));
}

TEST(Execv, IsZeroOnlyForANormalExitWithStatusZero) {
  EXPECT_EQ(Execv(Child("exit_with"), {"0"}), 0);
  for (const char* status : {"1", "2", "126", "127", "128", "255"}) {
    EXPECT_NE(Execv(Child("exit_with"), {status}), 0) << status;
  }
}

TEST(Execv, FailsForAProgramThatIsKilledByASignal) {
  for (const int number : {SIGKILL, SIGTERM, SIGPIPE, SIGHUP}) {
    EXPECT_NE(Execv(Child("kill_self"), {std::to_string(number)}), 0) << number;
  }
}

TEST(Execv, FailsForAnythingButAProgram) {
  TempDir folder;
  WriteFile(folder / "not-executable", "#!/bin/sh\nexit 0\n");
  WriteFile(folder / "no-interpreter", "exit 0\n");
  ASSERT_EQ(chmod((folder / "no-interpreter").c_str(), 0755), 0);
  for (const char* name : {"missing", "", "not-executable", "not-executable/below", "no-interpreter"}) {
    EXPECT_NE(Execv(folder / name, {}), 0) << name;
  }
}

TEST(Execv, DoesNotSearchThePath) {
  EXPECT_NE(Execv("true", {}), 0);
}

TEST(Execv, GivesTheChildAnEmptyInputAndOnlyTheCallersOutputAndError) {
  const Report report;
  TempDir folder;
  WriteFile(folder / "input", "of the caller");
  CheckInProcess([&] {
    ASSERT_EQ(dup2(open((folder / "input").c_str(), O_RDONLY), 0), 0);
    ASSERT_EQ(dup2(open((folder / "output").c_str(), O_WRONLY | O_CREAT, 0600), 1), 1);
    ASSERT_EQ(dup2(open((folder / "error").c_str(), O_WRONLY | O_CREAT, 0600), 2), 2);
    for (const int fd : {3, 7, 63, 500, 900}) ASSERT_EQ(dup2(0, fd), fd);  // left open, not close-on-exec
    EXPECT_EQ(Execv(Child("list_descriptors"), {}), 0);
  });
  EXPECT_EQ(report.Text(), "0 /dev/null\n1 " + (folder / "output") + "\n2 " + (folder / "error") + "\n");
}

TEST(Execv, GivesTheChildNullDevicesForWhatTheCallerHasClosed) {
  TempDir folder;
  for (int closed = 0; closed < 8; ++closed) {
    for (const bool closesOnExec : {false, true}) {  // close-on-exec: open in the caller, closed for its children
      SCOPED_TRACE(std::to_string(closed) + (closesOnExec ? " close-on-exec" : " closed"));
      const Report report;
      EXPECT_EQ(InProcess([&] {
                  dup2(open((folder / "output").c_str(), O_WRONLY | O_CREAT, 0600), 1);
                  dup2(1, 2);
                  for (int fd = 0; fd < 3; ++fd) {
                    if ((closed >> fd & 1) == 0) continue;
                    closesOnExec ? fcntl(fd, F_SETFD, FD_CLOEXEC) : close(fd);
                  }
                  return Execv(Child("list_descriptors"), {});
                }),
                0);
      const std::string output = (closed & 2) != 0 ? "/dev/null" : folder / "output";
      const std::string error = (closed & 4) != 0 ? "/dev/null" : folder / "output";
      EXPECT_EQ(report.Text(), "0 /dev/null\n1 " + output + "\n2 " + error + "\n");
    }
  }
}

TEST(Execv, StartsTheChildWithNoSignalBlockedAndNoneOfTheCallersIgnoredPipeOrChildSignals) {
  const Report report;
  CheckInProcess([&] {
    sigset_t all;
    sigfillset(&all);
    ASSERT_EQ(sigprocmask(SIG_SETMASK, &all, nullptr), 0);
    ASSERT_NE(signal(SIGPIPE, SIG_IGN), SIG_ERR);
    ASSERT_NE(signal(SIGCHLD, SIG_IGN), SIG_ERR);
    Execv(Child("signal_state"), {});
  });
  EXPECT_EQ(report.Text(), "");
}

// User-mode emulation can't start the intermediate process.
bool ProgramsAreEmulated() {
  return Execv(Child("exit_with"), {"0"}) == -1 && errno == EINVAL;
}

TEST(Execv, ReportsTheExitToACallerThatIgnoresItsChildren) {
  const Report report;
  for (const bool byFlag : {false, true}) {
    SCOPED_TRACE(byFlag);
    CheckInProcess([&] {
      IgnoreChildren(byFlag);
      if (ProgramsAreEmulated()) return;
      const std::vector<std::string> before = Names("/proc/self/fd");
      EXPECT_EQ(Execv(Child("exit_with"), {"0"}), 0);
      EXPECT_EQ(Execv(Child("exit_with"), {"3"}), 3);
      EXPECT_EQ(Execv(Child("kill_self"), {"9"}), -1);
      errno = 0;
      EXPECT_EQ(Execv("/missing", {}), -1);
      EXPECT_EQ(errno, ENOENT);
      EXPECT_EQ(TLIBCExecl("/bin/mv", 0, "/missing", "/tmp", nullptr), 1);
      EXPECT_EQ(Execv(Child("signal_state"), {}), 0);
      EXPECT_EQ(report.Text(), "");
      EXPECT_EQ(Names("/proc/self/fd"), before);
      EXPECT_EQ(waitpid(-1, nullptr, WNOHANG | __WALL), -1);
      EXPECT_EQ(errno, ECHILD);
      struct sigaction after = {};
      sigaction(SIGCHLD, nullptr, &after);
      EXPECT_EQ(after.sa_handler, byFlag ? SIG_DFL : SIG_IGN);
      EXPECT_EQ(after.sa_flags & SA_NOCLDWAIT, byFlag ? SA_NOCLDWAIT : 0);
    });
  }
}

TEST(Execv, KeepsTheHandlersOfACallerThatIgnoresItsChildrenToTheCaller) {
  CheckInProcess([] {
    IgnoreChildren(false);
    if (ProgramsAreEmulated()) return;
    const Interruptions interruptions;
    sigset_t before, after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    for (int run = 0; run < 50; ++run) EXPECT_EQ(Execv(Child("exit_with"), {"0"}), 0);
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int number = 1; number < 32; ++number) {
      EXPECT_EQ(sigismember(&before, number), sigismember(&after, number)) << number;
    }
    Interruptions::Await(2);
  });
}

std::atomic<int> handlerRuns{0};

TEST(Execv, RunsNoHandlersOfACallerThatIgnoresItsChildrenInAnotherProcess) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "ThreadSanitizer starts no threads in a forked process";
#endif
  TempDir folder;
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  CheckInProcess([&] {
    IgnoreChildren(false);
    if (ProgramsAreEmulated()) return;
    ASSERT_EQ(setpgid(0, 0), 0);
    for (const int number : {SIGHUP, SIGUSR1, SIGRTMAX}) {
      handlerRuns = 0;
      ASSERT_NE(signal(number, [](int) { ++handlerRuns; }), SIG_ERR);
      std::thread sender([&] {
        const int end = open((folder / "fifo").c_str(), O_WRONLY);  // waits until the program runs
        kill(0, number);
        close(end);
      });
      EXPECT_EQ(Execv(Child("await_end"), {folder / "fifo", "0"}), -1) << number;  // the program had no handler
      sender.join();
      EXPECT_EQ(handlerRuns, 1) << number;
    }
  });
}

TEST(Execv, FailsWhenACallerThatIgnoresItsChildrenMayHaveNoMoreProcesses) {
  CheckInProcess([] {
    IgnoreChildren(false);
    if (ProgramsAreEmulated() || !RefuseCalls({SYS_clone, SYS_clone3}, EAGAIN)) return;
    EXPECT_EQ(Execv(Child("exit_with"), {"0"}), -1);
    EXPECT_EQ(errno, EAGAIN);
  });
}

TEST(Execv, RunsInParallelForThreadsOfACallerThatIgnoresItsChildren) {
  TempDir folder;
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  CheckInProcess([&] {
    IgnoreChildren(false);
    if (ProgramsAreEmulated()) return;
    int status = 0;
    std::thread other([&] { status = Execv(Child("await_end"), {folder / "fifo", "7"}); });
    for (int run = 0; run < 20; ++run) EXPECT_EQ(Execv(Child("exit_with"), {"5"}), 5);
    close(open((folder / "fifo").c_str(), O_WRONLY));
    other.join();
    EXPECT_EQ(status, 7);
  });
}

TEST(Execv, KeepsTheCallersOwnSignalState) {
  sigset_t before, after;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  Execv(Child("exit_with"), {"0"});
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  for (int number = 1; number < 32; ++number) {
    EXPECT_EQ(sigismember(&before, number), sigismember(&after, number)) << number;
  }
}

// Lets a child of await_end exit after the caller's wait was interrupted a few times.
std::thread ExitAfterInterruptions(const std::string& fifo) {
  return std::thread([fifo] {
    BlockInterruptions();
    Interruptions::Await(5);
    close(open(fifo.c_str(), O_WRONLY));
  });
}

TEST(Execv, ContinuesWaitingAfterASignal) {
  TempDir folder;
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  for (const int status : {0, 3}) {
    const Interruptions interruptions;
    std::thread exiter = ExitAfterInterruptions(folder / "fifo");
    EXPECT_EQ(Execv(Child("await_end"), {folder / "fifo", std::to_string(status)}) == 0, status == 0) << status;
    exiter.join();
  }
}

int forks = 0;

TEST(Execv, DoesNotCopyTheCallersMemory) {
  static const int registered = pthread_atfork([] { ++forks; }, nullptr, nullptr);
  ASSERT_EQ(registered, 0);
  forks = 0;
  EXPECT_EQ(Execv(Child("exit_with"), {"0"}), 0);
  EXPECT_EQ(forks, 0) << "a fork, whose cost grows with the caller";
  InProcess([] { return 0; });
  EXPECT_EQ(forks, 1) << "the test sees no forks";
}

TEST(Execv, LeavesOtherChildrenToTheCaller) {
  std::fflush(nullptr);
  const pid_t other = fork();
  if (other == 0) _exit(42);
  siginfo_t ended;
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(other), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(Execv(Child("exit_with"), {"0"}), 0);
  EXPECT_NE(Execv(Child("exit_with"), {"1"}), 0);
  EXPECT_EQ(EndOf(other), 42);
}

TEST(Execv, LeavesNoChildAndNoDescriptorBehind) {
  CheckInProcess([] {
    const std::vector<std::string> before = Names("/proc/self/fd");
    Execv(Child("exit_with"), {"0"});
    Execv(Child("kill_self"), {"9"});
    Execv("/missing", {});
    EXPECT_EQ(Names("/proc/self/fd"), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
  });
}

TEST(Execv, WithoutWaitingLeavesTheRunningChildToTheCaller) {
  CheckInProcess([] {
    TempDir folder;
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(Execv(Child("await_end"), {folder / "fifo", "7"}, 0), 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), 0);  // it exists and is running
    close(open((folder / "fifo").c_str(), O_WRONLY));
    EXPECT_EQ(EndOf(-1), 7);
  });
}

TEST(Execv, WithoutWaitingFailsForAProgramThatCannotBeStarted) {
  EXPECT_EQ(Execv("/missing", {}, 0), -1);
}

TEST(Execv, ReportsToEachThreadTheExitOfItsOwnChildren) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (std::size_t i = 0; i < wrong.size(); ++i) {
    threads.emplace_back([i, &wrong] {
      for (int round = 0; round < 20; ++round) {
        const bool fails = (round + static_cast<int>(i)) % 2 != 0;
        if ((Execv(Child("exit_with"), {fails ? "1" : "0"}) != 0) != fails) ++wrong[i];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(Execl, PassesThePathAndEveryArgumentUnchanged) {
  const Report report;
  const std::string path = Child("echo_arguments");
  EXPECT_EQ(TLIBCExecl(path.c_str(), 0, "", "two words", "$HOME", "\xFF", nullptr), 0);
  EXPECT_EQ(report.Text(), Terminated({path, "", "two words", "$HOME", "\xFF"}));
}

TEST(Execl, RunsAProgramWithoutArguments) {
  const Report report;
  const std::string path = Child("echo_arguments");
  EXPECT_EQ(TLIBCExecl(path.c_str(), 0, nullptr), 0);
  EXPECT_EQ(report.Text(), Terminated({path}));
}

TEST(Execl, IsZeroOnlyForANormalExitWithStatusZero) {
  EXPECT_EQ(TLIBCExecl(Child("exit_with").c_str(), 0, "0", nullptr), 0);
  EXPECT_NE(TLIBCExecl(Child("exit_with").c_str(), 0, "1", nullptr), 0);
  EXPECT_NE(TLIBCExecl(Child("exit_with").c_str(), 0, "127", nullptr), 0);
  EXPECT_NE(TLIBCExecl(Child("kill_self").c_str(), 0, "9", nullptr), 0);
  EXPECT_NE(TLIBCExecl("/missing", 0, nullptr), 0);
}

TEST(Execl, RefusesUnknownFlags) {
  TempDir folder;
  const Report report;
  EXPECT_NE(TLIBCExecl(Child("echo_arguments").c_str(), 1, "x", nullptr), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(report.Text(), "");
}

TEST(Execl, MovesAFileWithTheRealTool) {
  TempDir folder;
  WriteFile(folder / "-a b", "content");
  EXPECT_EQ(TLIBCExecl("/bin/mv", 0, (folder / "-a b").c_str(), (folder / "c").c_str(), nullptr), 0);
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{"c"});
  EXPECT_EQ(ReadFile(folder / "c"), "content");
}

}  // namespace
}  // namespace tavithumb::test
