// SPDX-License-Identifier: GPL-3.0-or-later
#include "core/spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <new>

namespace tavi {
namespace {

// Preparing a spawn fails for want of memory alone.
void Require(int error) {
  if (error != 0) throw std::bad_alloc();
}

class FileActions {
 public:
  FileActions() { Require(posix_spawn_file_actions_init(&actions_)); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  void OpenNull(int fd, int flags) { Require(posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", flags, 0)); }
  void Duplicate(int fd, int target) { Require(posix_spawn_file_actions_adddup2(&actions_, fd, target)); }
  void CloseFrom(int fd) { Require(posix_spawn_file_actions_addclosefrom_np(&actions_, fd)); }
  const posix_spawn_file_actions_t* Get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

// No signal blocked; SIGPIPE and SIGCHLD handled as usual, whatever the caller ignores.
class SignalAttributes {
 public:
  SignalAttributes() {
    Require(posix_spawnattr_init(&attributes_));
    sigset_t none, usual;
    sigemptyset(&none);
    sigemptyset(&usual);
    sigaddset(&usual, SIGPIPE);
    sigaddset(&usual, SIGCHLD);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &usual);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SignalAttributes() { posix_spawnattr_destroy(&attributes_); }
  SignalAttributes(const SignalAttributes&) = delete;
  SignalAttributes& operator=(const SignalAttributes&) = delete;

  const posix_spawnattr_t* Get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

bool IsInherited(int fd) {
  const int flags = fcntl(fd, F_GETFD);
  return flags != -1 && (flags & FD_CLOEXEC) == 0;
}

}  // namespace

pid_t Spawn(const char* path, const char* const* argv, const Redirection* redirection) {
  FileActions actions;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (redirection != nullptr && redirection->target == fd) {
      actions.Duplicate(redirection->fd, fd);
    } else if (fd == STDIN_FILENO) {
      actions.OpenNull(fd, O_RDONLY);
    } else if (!IsInherited(fd)) {
      actions.OpenNull(fd, O_WRONLY);
    }
  }
  actions.CloseFrom(STDERR_FILENO + 1);

  const SignalAttributes attributes;
  pid_t child;
  const int error = posix_spawn(&child, path, actions.Get(), attributes.Get(), const_cast<char* const*>(argv), environ);
  if (error == 0) return child;
  errno = error;
  return -1;
}

int WaitFor(pid_t child) {
  int status;
  pid_t done;
  do {
    done = waitpid(child, &status, 0);
  } while (done == -1 && errno == EINTR);
  return done == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace tavi
