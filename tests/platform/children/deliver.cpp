// SPDX-License-Identifier: GPL-3.0-or-later
// Prints a caching line, outputs a file in the form "file" or "stream" (or a "null" stream) as the given MIME type,
// and reports the result: deliver FORM PATH MIME [OPTION...]. It returns from main, so that whatever
// is still buffered is written then.
#include <http_file_outputer.h>
#include <signal.h>
#include <stdio_ext.h>
#include <sys/time.h>

#include <set>
#include <string>

#include "report.h"

namespace {

void Ignore(int) {}

void InterruptEveryMillisecond() {
  struct sigaction action = {};
  action.sa_handler = Ignore;  // without SA_RESTART
  sigaction(SIGALRM, &action, nullptr);
  const itimerval often{{0, 1000}, {0, 1000}};
  setitimer(ITIMER_REAL, &often, nullptr);
}

void MakeSigPipePending() {
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  sigprocmask(SIG_BLOCK, &pipe, nullptr);
  raise(SIGPIPE);
}

bool Has(void (*state)(sigset_t*)) {
  sigset_t set;
  state(&set);
  return sigismember(&set, SIGPIPE) == 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string form = argv[1], path = argv[2], mime = argv[3];
  const std::set<std::string> options(argv + 4, argv + argc);
  if (options.count("interrupted") != 0) InterruptEveryMillisecond();
  if (options.count("pending") != 0) MakeSigPipePending();
  std::FILE* stream = form == "stream" ? std::fopen(path.c_str(), "rb") : nullptr;
  if (options.count("partly-read") != 0) std::getc(stream);

  std::puts("Cache-Control: max-age=300, must-revalidate\r");
  HTTPFileOutputer outputer;
  const int result =
      form == "file" ? outputer.Output(path.c_str(), mime.c_str()) : outputer.Output(stream, "name.jpg", mime.c_str());

  std::FILE* report = OpenReport();
  std::fprintf(report, "%s", result == 0 ? "delivered" : "failed");
  if (Has([](sigset_t* set) { sigprocmask(SIG_SETMASK, nullptr, set); })) std::fputs(", SIGPIPE blocked", report);
  if (Has([](sigset_t* set) { sigpending(set); })) std::fputs(", SIGPIPE pending", report);
  if (__fpending(stdout) != 0) std::fputs(", output left", report);
  if (stream != nullptr && std::fclose(stream) != 0) std::fputs(", stream closed", report);
  std::fclose(report);
  if (options.count("print-more") != 0) std::puts("more");
  return 0;
}
