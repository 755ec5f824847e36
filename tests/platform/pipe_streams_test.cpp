// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tavi/core.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "children.h"
#include "interruptions.h"
#include "refused_calls.h"

namespace tavithumb::test {
namespace {

FILE* Popenv(const std::string& path, const char* mode, const std::vector<std::string>& others) {
  return TLIBCPopenv(path.c_str(), mode, Arguments(path, others).Vector());
}

std::string ReadAll(FILE* stream) {
  std::string all;
  char data[4096];
  for (std::size_t got; (got = std::fread(data, 1, sizeof data, stream)) > 0;) all.append(data, got);
  return all;
}

std::string Flood(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251);
  return bytes;
}

TEST(Popenv, GivesTheWholeOutput) {
  for (const std::size_t size : {0u, 1u, 4096u, 65536u, 65537u, 1000000u}) {
    SCOPED_TRACE(size);
    FILE* stream = Popenv(Child("flood"), "r", {std::to_string(size)});
    ASSERT_NE(stream, nullptr);
    EXPECT_TRUE(ReadAll(stream) == Flood(size));
    EXPECT_EQ(TLIBCPclose(stream), 0);
  }
}

TEST(Popenv, GivesTheOutputThroughItsDescriptorAsWell) {
  FILE* stream = Popenv(Child("flood"), "r", {"100"});
  ASSERT_NE(stream, nullptr);
  std::string got(200, '#');
  ssize_t size = 0;
  for (ssize_t more; (more = read(fileno(stream), &got[static_cast<std::size_t>(size)], 10)) > 0;) size += more;
  EXPECT_EQ(got.substr(0, static_cast<std::size_t>(size)), Flood(100));
  EXPECT_EQ(TLIBCPclose(stream), 0);
}

TEST(Popenv, PassesEveryArgumentUnchanged) {
  FILE* stream = Popenv(Child("echo_arguments"), "r", {"", "two words", "$HOME", ";exit", "line\nbreak", "\xFF"});
  ASSERT_NE(stream, nullptr);
  const std::string parts[] = {Child("echo_arguments"), "", "two words", "$HOME", ";exit", "line\nbreak", "\xFF"};
  std::string expected;
  for (const std::string& part : parts) expected += part + '\0';
  EXPECT_EQ(ReadAll(stream), expected);
  EXPECT_EQ(TLIBCPclose(stream), 0);
}

TEST(Popenv, WritesToTheInput) {
  TempDir folder;
  const std::string content = Flood(200000);
  FILE* stream = Popenv(Child("copy_input"), "w", {folder / "copy"});
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(std::fwrite(content.data(), 1, content.size(), stream), content.size());
  EXPECT_EQ(TLIBCPclose(stream), 0);
  EXPECT_TRUE(ReadFile(folder / "copy") == content);
}

TEST(Popenv, RefusesOtherModes) {
  for (const char* mode : {"", "rw", "r+", "a", "R", "re"}) {
    errno = 0;
    EXPECT_EQ(Popenv(Child("exit_with"), mode, {"0"}), nullptr) << mode;
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST(Popenv, IsNullForAProgramThatCannotBeStarted) {
  TempDir folder;
  WriteFile(folder / "not-executable", "");
  const struct {
    std::string path;
    int reason;
  } rows[] = {{folder / "missing", ENOENT}, {folder / "not-executable", EACCES}, {folder.Path(), EACCES}};
  const std::vector<std::string> before = Names("/proc/self/fd");
  for (const auto& row : rows) {
    for (const char* mode : {"r", "w"}) {
      SCOPED_TRACE(row.path + " " + mode);
      errno = 0;
      EXPECT_EQ(Popenv(row.path, mode, {}), nullptr);
      EXPECT_EQ(errno, row.reason);
    }
  }
  EXPECT_EQ(Names("/proc/self/fd"), before);
}

TEST(Popenv, IsNullWhenNoDescriptorIsLeft) {
  CheckInProcess([] {
    const rlimit few{64, 64};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    while (open("/dev/null", O_RDONLY) != -1) {
    }
    EXPECT_EQ(Popenv(Child("exit_with"), "r", {"0"}), nullptr);
    EXPECT_EQ(errno, EMFILE);
  });
}

TEST(Popenv, GivesTheChildNoDescriptorButItsPipeAndTheCallersOutputs) {
  TempDir folder;
  CheckInProcess([&] {
    ASSERT_EQ(dup2(open((folder / "error").c_str(), O_WRONLY | O_CREAT, 0600), 2), 2);
    for (const int fd : {3, 9, 100, 900}) ASSERT_EQ(dup2(2, fd), fd);
    FILE* stream = Popenv(Child("list_descriptors"), "r", {});
    ASSERT_NE(stream, nullptr);
    struct stat pipe;
    ASSERT_EQ(fstat(fileno(stream), &pipe), 0);
    EXPECT_EQ(ReadAll(stream),
              "0 /dev/null\n1 pipe:[" + std::to_string(pipe.st_ino) + "]\n2 " + (folder / "error") + "\n");
    EXPECT_EQ(TLIBCPclose(stream), 0);
  });
}

TEST(Popenv, WorksWhateverStandardDescriptorsTheCallerHasClosed) {
  TempDir folder;
  for (int closed = 0; closed < 8; ++closed) {
    SCOPED_TRACE(closed);
    EXPECT_EQ(InProcess([&] {
                dup2(open((folder / "output").c_str(), O_WRONLY | O_CREAT, 0600), 1);
                dup2(1, 2);
                for (int fd = 0; fd < 3; ++fd) {
                  if ((closed >> fd & 1) != 0) close(fd);
                }
                FILE* stream = Popenv(Child("list_descriptors"), "r", {});
                if (stream == nullptr) return 1;
                if (fileno(stream) < 3) return 2;
                struct stat pipe;
                fstat(fileno(stream), &pipe);
                const std::string error = (closed & 4) != 0 ? "/dev/null" : folder / "output";
                const std::string expected =
                    "0 /dev/null\n1 pipe:[" + std::to_string(pipe.st_ino) + "]\n2 " + error + "\n";
                if (ReadAll(stream) != expected) return 3;
                if (TLIBCPclose(stream) != 0) return 4;

                FILE* input = Popenv(Child("copy_input"), "w", {folder / "copy"});
                if (input == nullptr) return 5;
                std::fputs("content", input);
                if (TLIBCPclose(input) != 0) return 6;
                return ReadFile(folder / "copy") == "content" ? 0 : 7;
              }),
              0);
  }
}

TEST(Popenv, StartsTheChildWithNoSignalBlockedAndNoneOfTheCallersIgnoredPipeOrChildSignals) {
  CheckInProcess([] {
    sigset_t all;
    sigfillset(&all);
    ASSERT_EQ(sigprocmask(SIG_SETMASK, &all, nullptr), 0);
    ASSERT_NE(signal(SIGPIPE, SIG_IGN), SIG_ERR);
    ASSERT_NE(signal(SIGCHLD, SIG_IGN), SIG_ERR);
    FILE* stream = Popenv(Child("signal_state"), "r", {});
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(ReadAll(stream), "");
    TLIBCPclose(stream);
  });
}

TEST(Popenv, KeepsItsStreamFromOtherChildrenOfTheCaller) {
  FILE* stream = Popenv(Child("exit_with"), "r", {"0"});
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fcntl(fileno(stream), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(TLIBCPclose(stream), 0);
}

TEST(Pclose, IsZeroOnlyForANormalExitWithStatusZero) {
  const struct {
    std::string child, argument;
    bool good;
  } rows[] = {{"exit_with", "0", true},    {"exit_with", "1", false}, {"exit_with", "127", false},
              {"exit_with", "255", false}, {"kill_self", "9", false}, {"kill_self", "15", false}};
  for (const auto& row : rows) {
    for (const char* mode : {"r", "w"}) {
      FILE* stream = Popenv(Child(row.child), mode, {row.argument});
      ASSERT_NE(stream, nullptr);
      EXPECT_EQ(TLIBCPclose(stream) == 0, row.good) << row.child << " " << row.argument << " " << mode;
    }
  }
}

// User-mode emulation can't start the intermediate process.
bool PipesAreEmulated() {
  FILE* const stream = Popenv(Child("exit_with"), "r", {"0"});
  if (stream == nullptr) return errno == EINVAL;
  TLIBCPclose(stream);
  return false;
}

// In a process that ignores its children, by one means and by the other.
void CheckIgnoringChildren(const std::function<void()>& body) {
  for (const bool byFlag : {false, true}) {
    SCOPED_TRACE(byFlag);
    CheckInProcess([&] {
      IgnoreChildren(byFlag);
      if (PipesAreEmulated()) return;
      const std::vector<std::string> before = Names("/proc/self/fd");
      body();
      EXPECT_EQ(Names("/proc/self/fd"), before);
      struct sigaction after = {};
      sigaction(SIGCHLD, nullptr, &after);
      EXPECT_EQ(after.sa_handler, byFlag ? SIG_DFL : SIG_IGN);
      EXPECT_EQ(after.sa_flags & SA_NOCLDWAIT, byFlag ? SA_NOCLDWAIT : 0);
    });
  }
}

TEST(Pclose, ReportsTheExitToACallerThatIgnoresItsChildren) {
  CheckIgnoringChildren([] {
    for (const char* mode : {"r", "w"}) {
      EXPECT_EQ(TLIBCPclose(Popenv(Child("exit_with"), mode, {"0"})), 0);
      EXPECT_EQ(TLIBCPclose(Popenv(Child("exit_with"), mode, {"3"})), 3);
      EXPECT_EQ(TLIBCPclose(Popenv(Child("kill_self"), mode, {"9"})), -1);
      errno = 0;
      EXPECT_EQ(Popenv("/missing", mode, {}), nullptr);
      EXPECT_EQ(errno, ENOENT);
    }
  });
}

TEST(Pclose, LeavesNoProcessBehindInACallerThatIgnoresItsChildren) {
  CheckInProcess([] {
    IgnoreChildren(false);
    if (PipesAreEmulated()) return;
    TLIBCPclose(Popenv(Child("exit_with"), "r", {"0"}));
    EXPECT_EQ(Popenv("/missing", "r", {}), nullptr);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG | __WALL), -1);
    EXPECT_EQ(errno, ECHILD);
  });
}

TEST(Popenv, IsNullWhenACallerThatIgnoresItsChildrenMayHaveNoMoreProcesses) {
  CheckIgnoringChildren([] {
    if (!RefuseCalls({SYS_clone, SYS_clone3}, EAGAIN)) return;
    EXPECT_EQ(Popenv(Child("exit_with"), "r", {"0"}), nullptr);
    EXPECT_EQ(errno, EAGAIN);
  });
}

TEST(Popenv, StreamsBothWaysForACallerThatIgnoresItsChildren) {
  TempDir folder;
  CheckIgnoringChildren([&] {
    FILE* const first = Popenv(Child("copy_input"), "w", {folder / "first"});
    FILE* const flood = Popenv(Child("flood"), "r", {"1000000"});
    FILE* const second = Popenv(Child("copy_input"), "w", {folder / "second"});
    std::fputs("one", first);
    EXPECT_EQ(TLIBCPclose(first), 0);  // would wait indefinitely if another process held its pipe
    EXPECT_EQ(ReadFile(folder / "first"), "one");
    EXPECT_TRUE(ReadAll(flood) == Flood(1000000));
    EXPECT_EQ(TLIBCPclose(flood), 0);
    EXPECT_EQ(TLIBCPclose(second), 0);
  });
}

TEST(Popenv, KeepsTheHandlersOfACallerThatIgnoresItsChildrenToTheCaller) {
  TempDir folder;
  CheckIgnoringChildren([&] {
    const Interruptions interruptions;
    sigset_t before, after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    for (int run = 0; run < 20; ++run) EXPECT_EQ(TLIBCPclose(Popenv(Child("exit_with"), "r", {"0"})), 0);
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int number = 1; number < 32; ++number) {
      EXPECT_EQ(sigismember(&before, number), sigismember(&after, number)) << number;
    }
    Interruptions::Await(2);
  });
}

std::atomic<int>* runsOfHandler = nullptr;

TEST(Popenv, RunsNoHandlersOfACallerThatIgnoresItsChildrenInAnotherProcess) {
  void* const shared = mmap(nullptr, sizeof *runsOfHandler, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  runsOfHandler = new (shared) std::atomic<int>(0);
  CheckIgnoringChildren([] {
    *runsOfHandler = 0;
    ASSERT_EQ(setpgid(0, 0), 0);
    ASSERT_NE(signal(SIGUSR1, [](int) { ++*runsOfHandler; }), SIG_ERR);
    FILE* const stream = Popenv(Child("flood"), "r", {"1000000"});
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(std::fgetc(stream), 0);
    ASSERT_EQ(kill(0, SIGUSR1), 0);
    EXPECT_EQ(TLIBCPclose(stream), -1);  // the program had no handler
    EXPECT_EQ(*runsOfHandler, 1);
  });
  munmap(shared, sizeof *runsOfHandler);
}

TEST(Popenv, StartsTheChildOfACallerThatIgnoresItsChildrenLikeAnyOther) {
  TempDir folder;
  CheckIgnoringChildren([&] {
    FILE* const signals = Popenv(Child("signal_state"), "r", {});
    EXPECT_EQ(ReadAll(signals), "");
    EXPECT_EQ(TLIBCPclose(signals), 0);
    const int error = dup(2), file = open((folder / "error").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    dup2(file, 2);
    FILE* const descriptors = Popenv(Child("list_descriptors"), "r", {});
    struct stat pipe;
    fstat(fileno(descriptors), &pipe);
    EXPECT_EQ(ReadAll(descriptors),
              "0 /dev/null\n1 pipe:[" + std::to_string(pipe.st_ino) + "]\n2 " + (folder / "error") + "\n");
    EXPECT_EQ(TLIBCPclose(descriptors), 0);
    dup2(error, 2);
    close(error);
    close(file);
  });
}

TEST(Pclose, DoesNotWaitForOutputThatNobodyReads) {
  FILE* stream = Popenv(Child("flood"), "r", {"10000000"});
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(std::fgetc(stream), 0);
  EXPECT_NE(TLIBCPclose(stream), 0);  // the child dies of its broken pipe
}

TEST(Pclose, WaitsForItsOwnChildInAnyOrder) {
  const std::vector<std::vector<int>> orders{{0, 1, 2}, {2, 1, 0}, {1, 0, 2}};
  for (const std::vector<int>& order : orders) {
    std::vector<FILE*> streams;
    for (const char* status : {"0", "1", "0"}) streams.push_back(Popenv(Child("exit_with"), "r", {status}));
    for (const int index : order) {
      EXPECT_EQ(TLIBCPclose(streams[static_cast<std::size_t>(index)]) == 0, index != 1) << index;
    }
  }
}

TEST(Pclose, ClosesTheInputOfItsChildWhileOthersRun) {
  TempDir folder;
  FILE* first = Popenv(Child("copy_input"), "w", {folder / "first"});
  FILE* second = Popenv(Child("copy_input"), "w", {folder / "second"});
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  std::fputs("one", first);
  EXPECT_EQ(TLIBCPclose(first), 0);  // would wait indefinitely if the second child held the first one's pipe
  EXPECT_EQ(ReadFile(folder / "first"), "one");
  std::fputs("two", second);
  EXPECT_EQ(TLIBCPclose(second), 0);
  EXPECT_EQ(ReadFile(folder / "second"), "two");
}

TEST(Pclose, LeavesOtherChildrenToTheCaller) {
  std::fflush(nullptr);
  const pid_t other = fork();
  if (other == 0) _exit(42);
  siginfo_t ended;
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(other), &ended, WEXITED | WNOWAIT), 0);
  FILE* stream = Popenv(Child("exit_with"), "r", {"0"});
  EXPECT_EQ(TLIBCPclose(stream), 0);
  EXPECT_EQ(EndOf(other), 42);
}

TEST(Pclose, ContinuesWaitingAfterASignal) {
  TempDir folder;
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  for (const int status : {0, 3}) {
    FILE* stream = Popenv(Child("await_end"), "r", {folder / "fifo", std::to_string(status)});
    ASSERT_NE(stream, nullptr);
    const Interruptions interruptions;
    std::thread ender([&] {
      BlockInterruptions();
      Interruptions::Await(5);
      close(open((folder / "fifo").c_str(), O_WRONLY));
    });
    EXPECT_EQ(TLIBCPclose(stream) == 0, status == 0) << status;
    ender.join();
  }
}

TEST(Pclose, RefusesAStreamThatPopenvDidNotOpen) {
  std::FILE* stream = std::tmpfile();
  errno = 0;
  EXPECT_NE(TLIBCPclose(stream), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(std::fputs("still open", stream) >= 0, true);
  EXPECT_EQ(std::fclose(stream), 0);
  EXPECT_NE(TLIBCPclose(nullptr), 0);
}

TEST(Pclose, LeavesNoChildAndNoDescriptorBehind) {
  CheckInProcess([] {
    const std::vector<std::string> before = Names("/proc/self/fd");
    for (int i = 0; i < 20; ++i) TLIBCPclose(Popenv(Child("exit_with"), i % 2 == 0 ? "r" : "w", {"0"}));
    EXPECT_EQ(Names("/proc/self/fd"), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
  });
}

TEST(PipeStreams, OfSeveralThreadsAreIndependent) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (std::size_t i = 0; i < wrong.size(); ++i) {
    threads.emplace_back([i, &wrong] {
      for (std::size_t round = 0; round < 20; ++round) {
        const std::size_t size = 1000 * i + round;
        FILE* flood = Popenv(Child("flood"), "r", {std::to_string(size)});
        FILE* failing = Popenv(Child("exit_with"), "r", {"1"});
        if (ReadAll(flood) != Flood(size)) ++wrong[i];
        if (TLIBCPclose(flood) != 0 || TLIBCPclose(failing) == 0) ++wrong[i];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

}  // namespace
}  // namespace tavithumb::test
