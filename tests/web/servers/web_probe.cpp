// SPDX-License-Identifier: GPL-3.0-or-later
// Loaded into the web program before the platform's library: writes a line for each started tool, and each line of the
// log, to the file $PROBE_FILE, and makes the tools misbehave according to $PROBE_TOOL.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tavi/core.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// A worker clears its environment.
const std::string file = Variable("PROBE_FILE");
const std::string tool = Variable("PROBE_TOOL");

void Note(const std::string& line) {
  const int opened = open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  const std::string text = line + "\n";
  if (write(opened, text.data(), text.size()) == -1) abort();
  close(opened);
}

void NoteLog(const char* format, std::va_list arguments) {
  char text[2000];
  std::vsnprintf(text, sizeof text, format, arguments);
  Note(std::string("log: ") + text);
}

void NoteSurroundings() {
  for (const auto& [name, resource] :
       {std::pair("cpu", RLIMIT_CPU), std::pair("memory", RLIMIT_AS), std::pair("file", RLIMIT_FSIZE),
        std::pair("files", RLIMIT_NOFILE), std::pair("core", RLIMIT_CORE)}) {
    rlimit limit;
    getrlimit(resource, &limit);
    Note(std::string(name) + " " + std::to_string(limit.rlim_max));
  }
  for (char** variable = environ; *variable != nullptr; ++variable) Note(*variable);
  struct stat record;
  Note(std::string("scratch ") + (stat(std::getenv("TMPDIR"), &record) == 0 ? "exists" : "is missing"));
}

using Execv = int (*)(const char*, const char* const*, int);

int Run(const char* path, const char* const* argv, int wait) {
  static const auto real = reinterpret_cast<Execv>(dlsym(RTLD_NEXT, "TLIBCExecv"));
  return real(path, argv, wait);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void syslog(int, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  NoteLog(format, arguments);
  va_end(arguments);
}

extern "C" __attribute__((visibility("default"))) void __syslog_chk(int, int, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  NoteLog(format, arguments);
  va_end(arguments);
}

__attribute__((visibility("default"))) int TLIBCExecv(const char* path, const char* const* argv, int wait) {
  Note(std::string("run: ") + path);
  Note("scratch: " + Variable("TMPDIR"));
  if (tool == "crash") raise(SIGSEGV);
  if (tool == "surroundings") NoteSurroundings();
  if (tool == "hang") {
    const char* const hang[] = {"/bin/sh", "-c", "trap '' TERM; echo run: $$ >> \"$0\"; while :; do sleep 1; done",
                                file.c_str(), nullptr};
    return Run(hang[0], hang, wait);
  }
  if (tool == "slow") usleep(300000);
  return Run(path, argv, wait);
}
