// SPDX-License-Identifier: GPL-3.0-or-later
// Requests of all types from callers in unusual states: the results are the same as for an ordinary caller, and what
// belongs to the caller, its children, signal handlers, masks and descriptors, is unchanged.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <tavithumb/error.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "jobs.h"
#include "private_tmp.h"
#include "process.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

constexpr int kOwnStatus = 42;
constexpr std::size_t kSmallStack = 65536;
constexpr rlim_t kManyDescriptors = 10000;

volatile sig_atomic_t alarms = 0;

void IgnoreChildren() {
  Require(signal(SIGCHLD, SIG_IGN) != SIG_ERR, "signal");
}

void AskForNoZombies() {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  action.sa_flags = SA_NOCLDWAIT;
  Require(sigaction(SIGCHLD, &action, nullptr) == 0, "sigaction");
}

void BlockAllSignals() {
  sigset_t all;
  sigfillset(&all);
  Require(sigprocmask(SIG_SETMASK, &all, nullptr) == 0, "sigprocmask");
}

void TakeAlarms() {
  struct sigaction action = {};
  action.sa_handler = [](int) { alarms = alarms + 1; };
  const itimerval often{{0, 1000}, {0, 1000}};
  Require(sigaction(SIGALRM, &action, nullptr) == 0 && setitimer(ITIMER_REAL, &often, nullptr) == 0, "setitimer");
}

void CloseStandardDescriptors() {
  for (int fd = 0; fd <= STDERR_FILENO; ++fd) close(fd);
}

void OpenManyDescriptors() {
  const rlimit more{kManyDescriptors + 100, kManyDescriptors + 100};
  Require(setrlimit(RLIMIT_NOFILE, &more) == 0, "setrlimit");
  int last = 0;
  for (rlim_t i = 0; i < kManyDescriptors && last != -1; ++i) last = open("/dev/null", O_RDONLY);
  Require(last != -1, "open");
}

void RemoveWorkingDirectory() {
  const fs::path gone = fs::temp_directory_path() / ("tavithumb-test-" + std::to_string(getpid()));
  fs::create_directory(gone);
  fs::current_path(gone);
  fs::remove(gone);
}

struct State {
  const char* name;
  std::function<void()> enter;
  bool hasOutput = true;
  bool keepsChildren = true;
  bool hasSmallStack = false;
};

const std::vector<State> kStates = {
    {"ignores SIGCHLD", IgnoreChildren, true, false},
    {"asks for no zombies", AskForNoZombies, true, false},
    {"blocks all signals", BlockAllSignals},
    {"has a 1 ms timer without SA_RESTART", TakeAlarms},
    {"ignores SIGCHLD, with that timer",
     [] {
       IgnoreChildren();
       TakeAlarms();
     },
     true, false},
    {"has closed descriptor 0", [] { close(STDIN_FILENO); }},
    {"has closed descriptor 2", [] { close(STDERR_FILENO); }},
    {"has closed descriptors 0 to 2", CloseStandardDescriptors, false},
    {"has 10,000 descriptors open", OpenManyDescriptors},
    {"removed its working directory", RemoveWorkingDirectory},
#if !PROOF_IS_SANITIZED
    {"runs on a thread with 64 KiB of stack", [] {}, true, true, true},
#endif
    {"does all of that at once",
     [] {
       RemoveWorkingDirectory();
       OpenManyDescriptors();
       CloseStandardDescriptors();
       IgnoreChildren();
       TakeAlarms();
     },
     false, false},
};

// The caller's state that must not change.
struct Belongings {
  std::map<int, std::pair<sighandler_t, int>> handlers;
  std::string mask;
  std::vector<std::string> descriptors;

  bool operator==(const Belongings& other) const {
    return handlers == other.handlers && mask == other.mask && descriptors == other.descriptors;
  }
};

Belongings Take() {
  Belongings belongings;
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  for (int number = 1; number <= SIGRTMAX; ++number) {
    struct sigaction action = {};
    if (sigaction(number, nullptr, &action) != 0) continue;
    belongings.handlers[number] = {action.sa_handler, action.sa_flags};
    belongings.mask += sigismember(&mask, number) == 1 ? '1' : '0';
  }
  belongings.descriptors = test::Names("/proc/self/fd");
  return belongings;
}

// A child of the caller that has exited and has not been reaped; in a caller that ignores its children, a running one.
pid_t MakeOwnChild(bool ends) {
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (!ends) pause();
    _exit(kOwnStatus);
  }
  siginfo_t ended;
  while (ends && waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT) == -1 && errno == EINTR) {
  }
  return child;
}

bool IsStillOurs(pid_t child, bool ended) {
  if (!ended) return kill(child, SIGKILL) == 0;
  int status = 0;
  pid_t reaped;
  do {
    reaped = waitpid(child, &status, 0);
  } while (reaped == -1 && errno == EINTR);
  return reaped == child && WIFEXITED(status) && WEXITSTATUS(status) == kOwnStatus;
}

struct Request {
  const Kind* kind;
  const Source* source;
  std::string answer;
};

void* Ask(void* data) {
  Request& request = *static_cast<Request*>(data);
  try {
    request.answer = request.kind->ask(request.source->Path());
  } catch (const Error& error) {
    request.answer = error.what();
  }
  return nullptr;
}

void AskOnSmallStack(Request* request) {
  pthread_attr_t attributes;
  pthread_t thread;
  pthread_attr_init(&attributes);
  Require(pthread_attr_setstacksize(&attributes, kSmallStack) == 0, "pthread_attr_setstacksize");
  Require(pthread_create(&thread, &attributes, Ask, request) == 0, "pthread_create");
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// In a process of its own, which writes failures to the file `report`.
void Serve(const State& state, const Kind& kind, const Source& source, const std::string& expected) {
  state.enter();
  const pid_t own = MakeOwnChild(state.keepsChildren);
  const Belongings before = Take();
  Request request{&kind, &source, ""};
  state.hasSmallStack ? AskOnSmallStack(&request) : static_cast<void>(Ask(&request));
  const Belongings after = Take();
  Require(request.answer == expected, "the answer is '" + request.answer + "', not '" + expected + "'");
  Require(before == after, "handlers, mask or descriptors are others");
  Require(IsStillOurs(own, state.keepsChildren), "a child of the caller was reaped");
}

// A description of the failure; "" if there is none.
std::string FlawOfCaller(const State& state, const Kind& kind, const Source& source, const std::string& expected,
                         const std::string& report) {
  fs::remove(report);
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    Redirect({STDOUT_FILENO, STDERR_FILENO}, report + ".output");
    try {
      Serve(state, kind, source, expected);
    } catch (const std::exception& exception) {
      test::WriteFile(report, exception.what());
    }
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status)) return "it died of signal " + std::to_string(WTERMSIG(status));
  return test::ReadFile(report);
}

class Proof {
 public:
  // The number of requests.
  void Run(const State& state, const Kind& kind) {
    if (kind.leavesPipe || (kind.delivers && !state.hasOutput)) return;
    const std::string name = std::string(kind.name) + ", a caller that " + state.name;
    const Source& source = SourceOf(kind);
    const State plain = {"is plain", [] {}};
    const std::string expected = kind.entry[0] == '\0' ? "" : EAEntry(source.Path(), kind.entry);
    if (expected.empty()) return;
    source.Reset();
    std::string flaw = FlawOfCaller(plain, kind, source, expected, folder_ / "report");
    const std::string content = test::ReadFile(expected);
    source.Reset();
    if (flaw.empty()) flaw = FlawOfCaller(state, kind, source, expected, folder_ / "report");
    if (flaw.empty() && test::ReadFile(expected) != content) flaw = "another thumbnail";
    ++requests_;
    if (flaw.empty()) return;
    ++wrong_;
    std::fprintf(stderr, "%s: %s\n", name.c_str(), flaw.c_str());
  }

  bool Print() const {
    std::printf(
        "callers in %zu odd states: results, children, handlers, masks or descriptors that differ\t%u\t%u requests\n",
        kStates.size(), wrong_, requests_);
    return wrong_ == 0;
  }

 private:
  const Source& SourceOf(const Kind& kind) {
    const auto found = sources_.find(kind.name);
    return found != sources_.end() ? found->second
                                   : sources_.emplace(kind.name, Source(folder_ / kind.name, kind)).first->second;
  }

  const test::TempDir folder_;
  std::map<std::string, Source> sources_;
  unsigned requests_ = 0;
  unsigned wrong_ = 0;
};

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  using namespace tavithumb::proof;
  const bool isFull = argc > 1 && std::strcmp(argv[1], "full") == 0;
  EnterPrivateTmp();
  Proof proof;
  for (int round = 0; round < (isFull ? 10 : 1); ++round) {
    for (std::size_t i = 0; i < kStates.size(); ++i) {
      for (std::size_t j = 0; j < Kinds().size(); ++j) {
        if (isFull || (i + j) % 5 == 0) proof.Run(kStates[i], Kinds()[j]);
      }
    }
  }
  return proof.Print() ? 0 : 1;
}
