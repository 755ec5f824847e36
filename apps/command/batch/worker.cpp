// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/worker.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <tavithumb/util.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "command/batch/report.h"
#include "system/file_rules.h"
#include "system/priority.h"
#include "thumbs/store.h"
#include "thumbs/temporary_files.h"

namespace tavithumb::apps::command {
namespace {

void Send(int channel, const Report& report) {
  const std::string message = Serialise(report);
  send(channel, message.data(), message.size(), MSG_NOSIGNAL);
}

// A file that takes a decoder over can read what its user can, but store only where thumbnails are, and run only the
// system's programs.
void EnterRules(const Order& order) {
  FileRules rules;
  rules.Allow("/", FileRules::Access::kRead);
  rules.AllowSystem();
  for (const std::string& folder : order.folders) rules.Allow(folder, FileRules::Access::kStore);
  if (!StoreFolder().empty()) rules.Allow(StoreFolder(), FileRules::Access::kStore);
  for (const char* folder : file::TEMPORARY_FOLDERS) rules.Allow(folder, FileRules::Access::kStore);
  rules.Allow(std::filesystem::temp_directory_path(), FileRules::Access::kStore);
  rules.Enter();
}

}  // namespace

void RunWorkerLoop(int channel, const std::string& scratch, const Order& order) {
  if (!order.isEager) RunWhenIdle();
  EnterRules(order);
  UseScratchFolder(scratch);
  // The workers already run in parallel: their tools need no threads.
  setenv("MAGICK_THREAD_LIMIT", "1", 0);  // NOLINT(concurrency-mt-unsafe): there is one thread
  const auto announce = [channel](const Result& soFar, const Making& making) { Send(channel, {soFar, making}); };
  std::string message(longestMessage, '\0');
  while (recv(channel, message.data(), message.size(), 0) > 0) {
    // Updates the folder's time, so that `clean` does not remove it as abandoned.
    utimensat(AT_FDCWD, scratch.c_str(), nullptr, 0);
    const std::string path = message.c_str();  // NOLINT(readability-redundant-string-cstr): it ends with its NUL
    Send(channel, {WorkOn(path, order, announce), {}});
  }
  std::error_code ignored;
  std::filesystem::remove_all(scratch, ignored);  // no other process does if the parent was killed
}

}  // namespace tavithumb::apps::command
