// SPDX-License-Identifier: GPL-3.0-or-later
// Real children that end, crash, hang, and leave others behind. Where a test needs a grace period to pass, it is short;
// where it must not matter, it is an hour: no outcome depends on how fast the machine is.
#include "system/supervisor.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <temp_dir.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

bool operator==(const EndedChild& a, const EndedChild& b) {
  return a.process == b.process && a.status == b.status && a.wasLate == b.wasLate && a.wasStopped == b.wasStopped;
}

void PrintTo(const EndedChild& child, std::ostream* stream) {
  *stream << "process " << child.process << ", status " << child.status << (child.wasLate ? ", late" : "")
          << (child.wasStopped ? ", stopped" : "");
}

namespace {

using namespace std::chrono_literals;
using test::ReadFile;

using Work = std::function<void(int channel)>;

constexpr GracePeriods shortGraces = {20ms, 1h};
constexpr GracePeriods longGraces = {1h, 1h};

void Say(int channel, const std::string& text) {
  if (write(channel, text.data(), text.size()) == -1) _exit(99);
}

[[noreturn]] void Hang() {
  while (true) pause();
}

void IgnoreTerm() {
  static_cast<void>(std::signal(SIGTERM, SIG_IGN));
}

// A process in the child's group that says its number once it is ready.
void LeaveGrandchild(int channel, const std::function<void()>& prepare) {
  int ready[2];
  if (pipe(ready) != 0) _exit(99);
  if (fork() == 0) {
    prepare();
    Say(channel, std::to_string(getpid()) + "\n");
    close(ready[0]);
    close(ready[1]);
    Hang();
  }
  close(ready[1]);
  char none;
  while (read(ready[0], &none, 1) == -1 && errno == EINTR) {
  }
}

char StateOf(pid_t process) {
  const std::string stat = ReadFile("/proc/" + std::to_string(process) + "/stat");
  const std::size_t end = stat.rfind(')');
  return end == stat.npos ? '-' : stat.at(end + 2);
}

bool HasNoChildren() {
  siginfo_t info = {};
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD;
}

class SupervisorTest : public testing::Test {
 protected:
  SupervisorTest() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("no sockets");
    ours_ = FileDescriptor(ends[0]);
    theirs_ = FileDescriptor(ends[1]);
    static_cast<void>(std::fflush(stdout));  // else a sanitizer writes it again at the end of a child
  }

  ChildProcess Child(const Work& work) const {
    ChildProcess child;
    child.channel = theirs_.Number();
    child.work = [work, channel = child.channel] { work(channel); };
    return child;
  }

  // What the children say next, up to a line end.
  std::string Line() const {
    std::string line;
    for (char next = 0; read(ours_.Number(), &next, 1) == 1 && next != '\n';) line += next;
    return line;
  }

  // What they say until none of them is left.
  std::string Rest() {
    theirs_ = FileDescriptor();
    std::string rest;
    for (char next = 0; read(ours_.Number(), &next, 1) == 1;) rest += next;
    return rest;
  }

  static std::vector<EndedChild> CollectNext(Supervisor* supervisor) {
    std::vector<EndedChild> ended = supervisor->Collect();
    while (ended.empty()) {
      supervisor->Wait();
      ended = supervisor->Collect();
    }
    return ended;
  }

  // Collects until the process has come to `state`, and expects that nothing is reported by then.
  static void AwaitState(Supervisor* supervisor, pid_t process, char state) {
    while (StateOf(process) != state) {
      EXPECT_EQ(supervisor->Collect(), std::vector<EndedChild>{});
      usleep(1000);
    }
  }

  FileDescriptor ours_;
  FileDescriptor theirs_;
};

using Ended = std::vector<EndedChild>;

TEST_F(SupervisorTest, ReportsHowAChildHasEnded) {
  struct Row {
    const char* name;
    Work work;
    int status;
  };
  const std::vector<Row> rows = {
      {"returns", [](int) {}, 0},
      {"exits", [](int) { _exit(7); }, W_EXITCODE(7, 0)},
      {"throws", [](int) { throw std::runtime_error("thrown"); }, W_EXITCODE(1, 0)},
      {"throws something else", [](int) { throw 1; }, W_EXITCODE(1, 0)},
      {"crashes",
       [](int) {
         static_cast<void>(std::signal(SIGSEGV, SIG_DFL));  // a sanitizer catches it
         static_cast<void>(raise(SIGSEGV));
       },
       SIGSEGV},
      {"is killed", [](int) { static_cast<void>(raise(SIGKILL)); }, SIGKILL},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Supervisor supervisor(longGraces);
    const pid_t process = supervisor.Start(Child(row.work));
    Ended ended = CollectNext(&supervisor);
    ended.front().status &= ~WCOREFLAG;
    EXPECT_EQ(ended, (Ended{{process, row.status, false, false}}));
    EXPECT_EQ(supervisor.CountProcesses(), 0U);
    EXPECT_EQ(supervisor.NextEvent(), noDeadline);
    EXPECT_TRUE(HasNoChildren());
  }
}

TEST_F(SupervisorTest, ReportsTheEndThoughTheCallerHadSigchldIgnored) {
  static_cast<void>(std::signal(SIGCHLD, SIG_IGN));
  Supervisor supervisor;
  const pid_t process = supervisor.Start(Child([](int) { _exit(7); }));
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, W_EXITCODE(7, 0), false, false}}));
}

TEST_F(SupervisorTest, ReportsEachChildOnce) {
  Supervisor supervisor;
  std::set<pid_t> started, reported;
  for (int i = 0; i < 20; ++i) started.insert(supervisor.Start(Child([](int) {})));
  for (std::size_t count = 0; count < 20;) {
    for (const EndedChild& ended : CollectNext(&supervisor)) {
      reported.insert(ended.process);
      ++count;
    }
  }
  EXPECT_EQ(reported, started);
  EXPECT_EQ(supervisor.Collect(), Ended{});
}

TEST_F(SupervisorTest, AChildLeadsAProcessGroupOfItsOwn) {
  Supervisor supervisor;
  const pid_t process = supervisor.Start(Child([](int channel) { Say(channel, std::to_string(getpgrp()) + "\n"); }));
  EXPECT_EQ(Line(), std::to_string(process));
}

TEST_F(SupervisorTest, AChildBlocksNoSignalAndEndsOnTerm) {
  const Signals blocked({SIGTERM, SIGINT, SIGHUP});
  IgnoreTerm();
  Supervisor supervisor(longGraces);
  const pid_t process = supervisor.Start(Child([](int channel) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) Say(channel, sigismember(&mask, number) ? "b" : "-");
    Say(channel, "\n");
    Hang();
  }));
  static_cast<void>(std::signal(SIGTERM, SIG_DFL));
  EXPECT_EQ(Line(), "----");
  supervisor.StopAll();
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, SIGTERM, false, true}}));
}

// Of the process that calls it: what each descriptor refers to.
std::map<int, std::string> OpenDescriptors() {
  std::map<int, std::string> open;
  DIR* const directory = opendir("/proc/self/fd");
  while (const dirent* const entry = readdir(directory)) {
    char target[200] = {};
    const std::string path = "/proc/self/fd/" + std::string(entry->d_name);
    const int number = std::atoi(entry->d_name);
    if (entry->d_name[0] == '.' || number == dirfd(directory)) continue;
    if (readlink(path.c_str(), target, sizeof target - 1) != -1) open[number] = target;
  }
  closedir(directory);
  return open;
}

std::string TextOf(const std::map<int, std::string>& descriptors) {
  std::string text;
  for (const auto& [number, target] : descriptors) text += std::to_string(number) + " " + target + "; ";
  return text;
}

TEST_F(SupervisorTest, AChildKeepsOnlyTheDescriptorsThatItIsGiven) {
  const FileDescriptor file(open("/dev/zero", O_RDONLY)), other(dup(file.Number())), last(fcntl(0, F_DUPFD, 500));
  std::map<int, std::string> parent = OpenDescriptors();
  const std::string channel = parent.at(theirs_.Number()), errors = parent.at(STDERR_FILENO), null = "/dev/null";
  struct Row {
    std::array<int, 3> standard;
    int channel;
    std::map<int, std::string> expected;
  };
  const int number = theirs_.Number();
  const std::vector<Row> rows = {
      {{-1, -1, -1}, number, {{0, null}, {1, null}, {2, null}, {number, channel}}},
      {{number, number, -1}, -1, {{0, channel}, {1, channel}, {2, null}}},
      {{file.Number(), number, STDERR_FILENO}, -1, {{0, "/dev/zero"}, {1, channel}, {2, errors}}},
  };
  for (const Row& row : rows) {
    Supervisor supervisor;
    ChildProcess child;
    child.standard = row.standard;
    child.channel = row.channel;
    const int output = row.channel == -1 ? STDOUT_FILENO : row.channel;
    child.work = [output] { Say(output, TextOf(OpenDescriptors()) + "\n"); };
    supervisor.Start(child);
    EXPECT_EQ(Line(), TextOf(row.expected));
    CollectNext(&supervisor);
  }
}

TEST_F(SupervisorTest, PreparesAChildBeforeItsWorkWithWhatItsParentHasOpen) {
  const FileDescriptor zero(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  Supervisor supervisor;
  ChildProcess child = Child([](int channel) { Say(channel, "works\n"); });
  child.prepare = [&] {
    Say(child.channel, fcntl(zero.Number(), F_GETFD) == -1 ? "without " : "with ");
    Say(child.channel, getpgrp() == getpid() ? "in its group " : "in its parent's group ");
  };
  supervisor.Start(child);
  EXPECT_EQ(Line(), "with in its group works");
}

TEST_F(SupervisorTest, AChildThatCannotBePreparedDoesNotWork) {
  Supervisor supervisor;
  ChildProcess child = Child([](int channel) { Say(channel, "works"); });
  child.prepare = [] { throw std::runtime_error("no limits"); };
  const pid_t process = supervisor.Start(child);
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, W_EXITCODE(1, 0), false, false}}));
  EXPECT_EQ(Rest(), "");
}

TEST_F(SupervisorTest, AtItsDeadlineAChildGetsTerm) {
  Supervisor supervisor(longGraces);
  const pid_t process = supervisor.Start(Child([](int) { Hang(); }));
  EXPECT_TRUE(supervisor.SetDeadline(process, Clock::now() + 20ms));
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, SIGTERM, true, false}}));
}

TEST_F(SupervisorTest, AChildThatIgnoresTermIsKilledAfterTheGracePeriod) {
  Supervisor supervisor(shortGraces);
  const pid_t process = supervisor.Start(Child([](int channel) {
    IgnoreTerm();
    Say(channel, "ready\n");
    Hang();
  }));
  Line();
  supervisor.SetDeadline(process, Clock::now());
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, SIGKILL, true, false}}));
}

TEST_F(SupervisorTest, AChildMayFinishWithinTheGracePeriod) {
  Supervisor supervisor(longGraces);
  const pid_t process = supervisor.Start(Child([](int channel) {
    static volatile std::sig_atomic_t isTold = 0;
    static_cast<void>(std::signal(SIGTERM, [](int) { isTold = 1; }));
    Say(channel, "ready\n");
    while (isTold == 0) usleep(1000);
    usleep(50000);
  }));
  Line();
  supervisor.SetDeadline(process, Clock::now());
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, 0, true, false}}));
}

TEST_F(SupervisorTest, WhatADeadChildLeavesInItsGroupIsKilledAndReaped) {
  const std::vector<std::pair<Work, int>> ends = {{[](int) {}, 0},
                                                  {[](int) { _exit(3); }, W_EXITCODE(3, 0)},
                                                  {[](int) { static_cast<void>(raise(SIGKILL)); }, SIGKILL}};
  for (const auto& [end, status] : ends) {
    SCOPED_TRACE(status);
    Supervisor supervisor(longGraces);
    const pid_t process = supervisor.Start(Child([&end = end](int channel) {
      LeaveGrandchild(channel, IgnoreTerm);
      end(channel);
    }));
    const pid_t grandchild = std::stoi(Line());
    EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, status, false, false}}));
    EXPECT_EQ(StateOf(grandchild), '-');
    EXPECT_TRUE(HasNoChildren());
  }
}

TEST_F(SupervisorTest, AGrandchildThatIgnoresTermIsKilledAfterTheGracePeriod) {
  Supervisor supervisor(shortGraces);
  const pid_t process = supervisor.Start(Child([](int channel) {
    LeaveGrandchild(channel, IgnoreTerm);
    Hang();
  }));
  const pid_t grandchild = std::stoi(Line());
  supervisor.SetDeadline(process, Clock::now());
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, SIGTERM, true, false}}));
  EXPECT_EQ(StateOf(grandchild), '-');
  EXPECT_TRUE(HasNoChildren());
}

TEST_F(SupervisorTest, AGrandchildMayFinishWithinTheGracePeriodThoughItsParentIsDead) {
  static int output;
  Supervisor supervisor(longGraces);
  const pid_t process = supervisor.Start(Child([](int channel) {
    output = channel;
    LeaveGrandchild(channel, [] {
      static_cast<void>(std::signal(SIGTERM, [](int) {
        usleep(50000);
        Say(output, "tidied up");
        _exit(0);
      }));
    });
    Hang();
  }));
  Line();
  supervisor.SetDeadline(process, Clock::now());
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, SIGTERM, true, false}}));
  EXPECT_EQ(Rest(), "tidied up");
}

// Its number is that of its group, which is still to be killed.
TEST_F(SupervisorTest, ADeadChildStaysUnreapedAsLongAsItsGroupMayFinish) {
  Supervisor supervisor(longGraces);
  const pid_t process = supervisor.Start(Child([](int channel) {
    LeaveGrandchild(channel, IgnoreTerm);
    Hang();
  }));
  const pid_t grandchild = std::stoi(Line());
  supervisor.SetDeadline(process, Clock::now());
  AwaitState(&supervisor, process, 'Z');
  EXPECT_EQ(supervisor.Collect(), Ended{});
  EXPECT_EQ(StateOf(process), 'Z');
  EXPECT_NE(StateOf(grandchild), '-');
  EXPECT_EQ(getpgid(grandchild), process);
}

TEST_F(SupervisorTest, KillsAndReapsAllThatStillRunsWhenItIsDestroyed) {
  pid_t process = -1, grandchild = -1;
  {
    Supervisor supervisor(longGraces);
    process = supervisor.Start(Child([](int channel) {
      IgnoreTerm();
      LeaveGrandchild(channel, IgnoreTerm);
      Hang();
    }));
    grandchild = std::stoi(Line());
  }
  EXPECT_EQ(StateOf(process), '-');
  EXPECT_EQ(StateOf(grandchild), '-');
  EXPECT_TRUE(HasNoChildren());
}

TEST_F(SupervisorTest, GivesAChildSeveralTasksEachWithItsDeadline) {
  Supervisor supervisor(longGraces);
  const pid_t process = supervisor.Start(Child([](int channel) {
    for (char task; read(channel, &task, 1) == 1;) Say(channel, "done\n");
  }));
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(supervisor.SetDeadline(process, Clock::now() + 1h));
    EXPECT_LE(supervisor.NextEvent(), Clock::now() + 1h);
    Say(ours_.Number(), "t");
    EXPECT_EQ(Line(), "done");
    EXPECT_TRUE(supervisor.SetDeadline(process, noDeadline));
    EXPECT_EQ(supervisor.NextEvent(), noDeadline);
    EXPECT_EQ(supervisor.Collect(), Ended{});
  }
  supervisor.SetDeadline(process, Clock::now());
  EXPECT_EQ(supervisor.Collect(), Ended{});
  EXPECT_FALSE(supervisor.SetDeadline(process, noDeadline)) << "it is being stopped";
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, SIGTERM, true, false}}));
  EXPECT_FALSE(supervisor.SetDeadline(process, noDeadline)) << "it is gone";
}

TEST_F(SupervisorTest, AChildThatHasEndedBeforeAnybodyLookedIsNeitherLateNorStopped) {
  Supervisor supervisor(longGraces);
  const pid_t process = supervisor.Start(Child([](int) {}));
  siginfo_t info = {};
  waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOWAIT);
  supervisor.SetDeadline(process, Clock::now());
  supervisor.StopAll();
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, 0, false, false}}));
}

TEST_F(SupervisorTest, TheFirstInterruptLetsFinishWhatRuns) {
  Supervisor supervisor(longGraces);
  const pid_t process = supervisor.Start(Child([](int channel) {
    char go;
    if (read(channel, &go, 1) != 1) _exit(1);
  }));
  EXPECT_FALSE(supervisor.IsInterrupted());
  supervisor.Interrupt();
  EXPECT_TRUE(supervisor.IsInterrupted());
  EXPECT_EQ(supervisor.Collect(), Ended{});
  Say(ours_.Number(), "g");
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, 0, false, false}}));
}

TEST_F(SupervisorTest, TheSecondInterruptStopsWhatRuns) {
  Supervisor supervisor(shortGraces);
  const pid_t hanging = supervisor.Start(Child([](int) { Hang(); }));
  const pid_t ignoring = supervisor.Start(Child([](int channel) {
    IgnoreTerm();
    Say(channel, "ready\n");
    Hang();
  }));
  Line();
  supervisor.Interrupt();
  supervisor.Interrupt();
  Ended ended;
  while (ended.size() < 2) {
    for (const EndedChild& child : CollectNext(&supervisor)) ended.push_back(child);
  }
  std::sort(ended.begin(), ended.end(), [](const auto& a, const auto& b) { return a.status > b.status; });
  EXPECT_EQ(ended, (Ended{{hanging, SIGTERM, false, true}, {ignoring, SIGKILL, false, true}}));
}

TEST_F(SupervisorTest, AChildThatIsLateStaysSoWhenAllAreStopped) {
  Supervisor supervisor(shortGraces);
  const pid_t process = supervisor.Start(Child([](int channel) {
    IgnoreTerm();
    Say(channel, "ready\n");
    Hang();
  }));
  Line();
  supervisor.SetDeadline(process, Clock::now());
  EXPECT_EQ(supervisor.Collect(), Ended{});
  supervisor.StopAll();
  EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, SIGKILL, true, false}}));
}

// A process whose tracer does not take notice of its end is not given to its parent: the nearest to one that hangs in
// the kernel.
TEST_F(SupervisorTest, AProcessThatTheSystemDoesNotLetGoOfIsGivenUpAndReapedLater) {
  Supervisor supervisor({20ms, 20ms});
  const pid_t process = supervisor.Start(Child([](int channel) {
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
    Say(channel, "ready\n");
    Hang();
  }));
  Line();
  const pid_t tracer = fork();
  if (tracer == 0) {
    Say(theirs_.Number(), ptrace(PTRACE_SEIZE, process, nullptr, nullptr) == 0 ? "traces\n" : "fails\n");
    Hang();
  }
  const bool isTraced = Line() == "traces";
  if (isTraced) {
    supervisor.SetDeadline(process, Clock::now());
    EXPECT_EQ(CollectNext(&supervisor), (Ended{{process, SIGKILL, true, false}}));
    EXPECT_EQ(supervisor.CountProcesses(), 1U);
    EXPECT_EQ(supervisor.NextEvent(), noDeadline);
    EXPECT_EQ(supervisor.Collect(), Ended{}) << "it is not reported again";
  }
  kill(tracer, SIGKILL);
  waitpid(tracer, nullptr, 0);
  if (!isTraced) GTEST_SKIP() << "no process can be traced here";
  while (supervisor.CountProcesses() != 0) {
    supervisor.Wait();
    EXPECT_EQ(supervisor.Collect(), Ended{});
  }
  EXPECT_TRUE(HasNoChildren());
}

// The parent is killed before it can stop its child, which is then this process's.
TEST_F(SupervisorTest, AChildDiesWithItsParentOnlyWhenItIsToldTo) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  for (const bool dies : {true, false}) {
    SCOPED_TRACE(dies);
    const pid_t parent = fork();
    if (parent == 0) {
      auto* const supervisor = new Supervisor();
      ChildProcess child = Child([](int channel) {
        Say(channel, std::to_string(getpid()) + "\n");
        char go;
        if (read(channel, &go, 1) == 1) _exit(5);
      });
      child.diesWithParent = dies;
      supervisor->Start(child);
      Hang();
    }
    const pid_t process = std::stoi(Line());
    kill(parent, SIGKILL);
    waitpid(parent, nullptr, 0);
    if (!dies) Say(ours_.Number(), "g");
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    EXPECT_EQ(status, dies ? SIGTERM : W_EXITCODE(5, 0));
  }
}

TEST_F(SupervisorTest, LeavesAsItWasWhetherTheProcessIsASubreaper) {
  for (const int before : {0, 1}) {
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, before), 0);
    int during = 0;
    {
      const Supervisor supervisor;
      prctl(PR_GET_CHILD_SUBREAPER, &during);
    }
    int after = 0;
    prctl(PR_GET_CHILD_SUBREAPER, &after);
    EXPECT_EQ(during, 1);
    EXPECT_EQ(after, before);
  }
  prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST_F(SupervisorTest, ThrowsWhenNoProcessCanBeStarted) {
  const pid_t limited = fork();
  if (limited == 0) {
    const rlimit one = {1, 1};
    if (geteuid() == 0 && setuid(54321) != 0) _exit(99);
    setrlimit(RLIMIT_NPROC, &one);
    Supervisor supervisor;
    try {
      supervisor.Start(Child([](int) {}));
    } catch (const std::system_error& error) {
      Say(theirs_.Number(), error.code().message() + ", " + std::to_string(supervisor.CountProcesses()) + "\n");
    }
    _exit(0);
  }
  EXPECT_EQ(Line(), "Resource temporarily unavailable, 0");
  waitpid(limited, nullptr, 0);
}

}  // namespace
}  // namespace tavithumb::apps
