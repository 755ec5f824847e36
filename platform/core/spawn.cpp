// SPDX-License-Identifier: GPL-3.0-or-later
#include "core/spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <new>

namespace tavi {
namespace {

// Preparing a spawn fails only if memory runs out.
void Require(int error) {
  if (error != 0) throw std::bad_alloc();
}

bool IsInherited(int fd) {
  const int flags = fcntl(fd, F_GETFD);
  return flags != -1 && (flags & FD_CLOEXEC) == 0;
}

}  // namespace

PreparedSpawn::PreparedSpawn(const Redirection* redirection) {
  Require(posix_spawn_file_actions_init(&actions_));
  try {
    PrepareStandardDescriptors(redirection);
    Require(posix_spawnattr_init(&attributes_));
  } catch (const std::bad_alloc&) {
    posix_spawn_file_actions_destroy(&actions_);
    throw;
  }
  PrepareSignals();
}

PreparedSpawn::~PreparedSpawn() {
  posix_spawnattr_destroy(&attributes_);
  posix_spawn_file_actions_destroy(&actions_);
}

void PreparedSpawn::PrepareStandardDescriptors(const Redirection* redirection) {
  const auto openNull = [this](int fd, int flags) {
    Require(posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", flags, 0));
  };
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (redirection != nullptr && redirection->target == fd) {
      Require(posix_spawn_file_actions_adddup2(&actions_, redirection->fd, fd));
    } else if (fd == STDIN_FILENO) {
      openNull(fd, O_RDONLY);
    } else if (!IsInherited(fd)) {
      openNull(fd, O_WRONLY);
    }
  }
  Require(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
}

// No signal blocked; default handling of SIGPIPE and SIGCHLD, even if the caller ignores them.
void PreparedSpawn::PrepareSignals() {
  sigset_t none, usual;
  sigemptyset(&none);
  sigemptyset(&usual);
  sigaddset(&usual, SIGPIPE);
  sigaddset(&usual, SIGCHLD);
  posix_spawnattr_setsigmask(&attributes_, &none);
  posix_spawnattr_setsigdefault(&attributes_, &usual);
  posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

int PreparedSpawn::Start(const char* path, const char* const* argv, pid_t* child) const {
  return posix_spawn(child, path, &actions_, &attributes_, const_cast<char* const*>(argv), environ);
}

pid_t Spawn(const char* path, const char* const* argv, const Redirection* redirection) {
  const PreparedSpawn program(redirection);
  pid_t child;
  const int error = program.Start(path, argv, &child);
  if (error == 0) return child;
  errno = error;
  return -1;
}

int WaitFor(pid_t child) {
  int status;
  pid_t done;
  do {
    done = waitpid(child, &status, static_cast<int>(__WALL));
  } while (done == -1 && errno == EINTR);
  return done == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace tavi
