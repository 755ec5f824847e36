// SPDX-License-Identifier: GPL-3.0-or-later
#include "processor_time.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

namespace tavithumb::bench {
namespace {

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

double ProcessorSeconds(int who) {
  rusage usage = {};
  getrusage(who, &usage);
  return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

void RunProgram(std::vector<std::string> words) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions = {};
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  int status = -1;
  const bool isStarted = posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  if (isStarted && waitpid(child, &status, 0) == child && status == 0) return;
  std::cerr << words[0] << " failed for " << words.back() << "\n";
  std::exit(1);  // NOLINT(concurrency-mt-unsafe): there is one thread
}

}  // namespace tavithumb::bench
