// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/worker.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "thumbs/temporary_files.h"

namespace tavithumb::apps::command {
namespace {

constexpr int ownLine = STDERR_FILENO + 1;

// Nothing of the parent's stays open: the line of another worker would never end.
void KeepOnly(int line) {
  dup2(line, ownLine);
  close_range(ownLine + 1, ~0U, 0);
  fcntl(ownLine, F_SETFD, FD_CLOEXEC);
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) dup2(nowhere, descriptor);
  close(nowhere);
}

void RestoreSignals() {
  sigset_t none;
  sigemptyset(&none);
  static_cast<void>(std::signal(SIGTERM, SIG_DFL));
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

void Send(const Report& report) {
  const std::string text = nlohmann::json(report).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  send(ownLine, text.data(), text.size(), MSG_NOSIGNAL);
}

// The workers are as many as shall run at once: their tools need no threads.
void Serve(const std::string& scratch, const Order& order) {
  UseScratchFolder(scratch);
  setenv("MAGICK_THREAD_LIMIT", "1", 0);  // NOLINT(concurrency-mt-unsafe): there is one thread
  std::string message(longestMessage, '\0');
  while (recv(ownLine, message.data(), message.size(), 0) > 0) {
    // It is in use, hence not left behind, however long nothing is put into it.
    utimensat(AT_FDCWD, scratch.c_str(), nullptr, 0);
    const std::string path = message.c_str();  // NOLINT(readability-redundant-string-cstr): it ends with its NUL
    Send({WorkOn(path, order, [](const Result& soFar, const Making& making) { Send({soFar, making}); }), {}});
  }
  std::error_code ignored;
  std::filesystem::remove_all(scratch, ignored);  // nobody else does when the parent has been killed
}

}  // namespace

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Making, entry, temporary, since)

void to_json(nlohmann::json& json, const Report& report) {
  json = {{"result", report.result}, {"making", report.making}};
}

void from_json(const nlohmann::json& json, Report& report) {
  json.at("result").get_to(report.result);
  json.at("making").get_to(report.making);
}

// An exception must not lead back to where the parent goes on.
void BeWorker(int line, const std::string& scratch, const Order& order) {
  setpgid(0, 0);
  KeepOnly(line);
  RestoreSignals();
  try {
    Serve(scratch, order);
  } catch (const std::exception&) {
    _exit(1);
  }
  _exit(0);
}

}  // namespace tavithumb::apps::command
