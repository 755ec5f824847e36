// SPDX-License-Identifier: GPL-3.0-or-later
#include "program.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "temp_dir.h"

namespace tavithumb::proof {
namespace {

void Limit(__rlimit_resource resource, rlim_t most) {
  const rlimit limit = {most, most};
  if (most != 0) setrlimit(resource, &limit);
}

std::vector<char*> Words(const std::vector<std::string>& texts) {
  std::vector<char*> words;
  for (const std::string& text : texts) words.push_back(const_cast<char*>(text.c_str()));
  words.push_back(nullptr);
  return words;
}

}  // namespace

void Enter(const Limits& limits) {
  constexpr rlim_t mebibyte = 1048576;
  Limit(RLIMIT_CPU, limits.cpuSeconds);
  Limit(RLIMIT_AS, limits.memoryMiB * mebibyte);
  Limit(RLIMIT_FSIZE, limits.fileSizeMiB * mebibyte);
}

Run RunProgram(const std::vector<std::string>& argv, const std::vector<std::string>& environment, const Limits& limits,
               const std::string& folder) {
  const test::TempDir files;
  const std::vector<char*> arguments = Words(argv), variables = Words(environment);
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(open((files / "out").c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
    dup2(open((files / "err").c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
    Enter(limits);
    if (chdir(folder.c_str()) == 0) execve(arguments[0], arguments.data(), variables.data());
    _exit(127);
  }
  int status = 0;
  rusage usage = {};
  while (wait4(child, &status, 0, &usage) == -1 && errno == EINTR) {
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, test::ReadFile(files / "out"), test::ReadFile(files / "err"),
          time.count(), static_cast<unsigned>(usage.ru_maxrss / 1024)};
}

}  // namespace tavithumb::proof
