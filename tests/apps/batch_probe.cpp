// SPDX-License-Identifier: GPL-3.0-or-later
// Loaded into the command before the platform's libraries: writes a line for each started tool to the file
// $PROBE_FILE, makes the tools or their worker misbehave as the name of their file says, and makes clocks run
// $PROBE_SPEED times as fast.
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <tavi/core.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

void Note(const std::string& line) {
  const int opened = open(Variable("PROBE_FILE").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (opened == -1) return;
  const std::string text = line + "\n";
  if (write(opened, text.data(), text.size()) == -1) abort();
  close(opened);
}

int Run(const char* path, const char* const* argv, int wait) {
  using Execv = int (*)(const char*, const char* const*, int);
  static const auto real = reinterpret_cast<Execv>(dlsym(RTLD_NEXT, "TLIBCExecv"));
  return real(path, argv, wait);
}

// Half of convert's output, and one of its temporary files; then the process ends.
[[noreturn]] void DieHalfway(const char* const* argv, int number) {
  const char* destination = nullptr;
  for (; *argv != nullptr; ++argv) destination = *argv;
  std::ofstream(destination) << "half";
  std::ofstream(Variable("TMPDIR") + "/magick-1") << "half";
  signal(number, SIG_DFL);  // a sanitizer installs its own handler
  raise(number);
  abort();
}

// The last bytes do not fit on the disk, and the tool does not notice.
int LoseTheEnd(const char* path, const char* const* argv, int wait) {
  const int result = Run(path, argv, wait);
  const char* destination = nullptr;
  for (; *argv != nullptr; ++argv) destination = *argv;
  struct stat record = {};
  return stat(destination, &record) == 0 && truncate(destination, record.st_size - 1) == 0 ? result : -1;
}

// A tool that ignores the request to stop.
int Hang() {
  const char* const hang[] = {"/bin/sh", "-c", "trap '' TERM; echo \"hangs $$\" >>\"$PROBE_FILE\"; exec sleep 1000",
                              nullptr};
  return Run(hang[0], hang, 1);
}

// What a decoder might do for whoever has written the picture.
void Stray() {
  const int opened = open(Variable("PROBE_STRAY").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  Note(opened == -1 ? "cannot write elsewhere" : "writes elsewhere");
  if (opened != -1) close(opened);
}

// Continues when the file $PROBE_GATE exists.
void AwaitGate() {
  Note("waits");
  while (access(Variable("PROBE_GATE").c_str(), F_OK) != 0) usleep(1000);
}

// Whole seconds of processor time, and bytes of a file.
std::string Limits() {
  timespec used = {};
  rlimit time = {};
  rlimit file = {};
  syscall(SYS_clock_gettime, CLOCK_PROCESS_CPUTIME_ID, &used);
  getrlimit(RLIMIT_CPU, &time);
  getrlimit(RLIMIT_FSIZE, &file);
  return std::to_string(time.rlim_cur - static_cast<rlim_t>(used.tv_sec)) + " " + std::to_string(file.rlim_cur);
}

bool Yields() {
  struct sigaction action = {};
  sigaction(SIGVTALRM, nullptr, &action);
  return action.sa_handler != SIG_DFL;
}

long Speed() {
  static const long speed = std::max(std::atol(Variable("PROBE_SPEED").c_str()), 1L);
  return speed;
}

}  // namespace

__attribute__((visibility("default"))) int TLIBCExecv(const char* path, const char* const* argv, int wait) {
  std::string all;
  for (const char* const* argument = argv; *argument != nullptr; ++argument) all += std::string(*argument) + " ";
  Note("runs " + std::string(path));
  if (all.find("/crash") != std::string::npos) DieHalfway(argv, SIGSEGV);
  if (all.find("/kill") != std::string::npos) DieHalfway(argv, SIGKILL);
  if (all.find("/hang") != std::string::npos) return Hang();
  if (all.find("/cut") != std::string::npos) return LoseTheEnd(path, argv, wait);
  if (all.find("/wait") != std::string::npos) AwaitGate();
  if (all.find("/priority") != std::string::npos) {
    Note(std::string(sched_getscheduler(0) == SCHED_IDLE ? "runs when idle" : "competes") +
         (Yields() ? ", yields" : ""));
  }
  if (all.find("/stray") != std::string::npos) Stray();
  return Run(path, argv, wait);
}

// Called for each thumbnail that the maker has made.
extern "C" __attribute__((visibility("default"))) int futimens(int file, const timespec* times) {
  if (!Variable("PROBE_LIMITS").empty()) Note("limits " + Limits());
  using Futimens = int (*)(int, const timespec*);
  static const auto real = reinterpret_cast<Futimens>(dlsym(RTLD_NEXT, "futimens"));
  return real(file, times);
}

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* time) {
  const long result = syscall(SYS_clock_gettime, clock, time);
  if (clock != CLOCK_MONOTONIC || Speed() == 1) return static_cast<int>(result);
  const long long nanoseconds = (time->tv_sec * 1000000000LL + time->tv_nsec) * Speed();
  time->tv_sec = static_cast<time_t>(nanoseconds / 1000000000LL);
  time->tv_nsec = static_cast<long>(nanoseconds % 1000000000LL);
  return static_cast<int>(result);
}

// The system allows $PROBE_WATCHES watches.
extern "C" __attribute__((visibility("default"))) int inotify_add_watch(int file, const char* path,
                                                                        std::uint32_t mask) {
  static const std::string most = Variable("PROBE_WATCHES");
  static int watches = 0;
  if (!most.empty() && watches >= std::atoi(most.c_str())) {
    errno = ENOSPC;
    return -1;
  }
  ++watches;
  using AddWatch = int (*)(int, const char*, std::uint32_t);
  static const auto real = reinterpret_cast<AddWatch>(dlsym(RTLD_NEXT, "inotify_add_watch"));
  return real(file, path, mask);
}

extern "C" __attribute__((visibility("default"))) int poll(pollfd* descriptors, nfds_t count, int timeout) {
  using Poll = int (*)(pollfd*, nfds_t, int);
  static const auto real = reinterpret_cast<Poll>(dlsym(RTLD_NEXT, "poll"));
  return real(descriptors, count, timeout < 0 ? timeout : static_cast<int>((timeout + Speed() - 1) / Speed()));
}
