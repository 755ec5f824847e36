// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/worker.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <tavithumb/util.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>

#include "command/batch/report.h"
#include "system/file_rules.h"
#include "system/priority.h"
#include "thumbs/as_owner.h"
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

// The files of one user, or as the user who started the program.
class Work {
 public:
  Work(const WorkerPlace& place, const Order& order) : place_(place), order_(order) {
    if (place.isRoots) refusal_ = WhyNotBecome(place.user);
  }

  Result On(const std::string& path, const Announce& announce) const {
    std::optional<FrequentYields> yields;
    if (!order_.isEager) yields.emplace();
    if (!place_.isRoots) return WorkOn(path, order_, announce);
    std::string inside;
    const std::optional<Problem> problem = refusal_ ? refusal_ : WhyNotEnter(path, &inside);
    if (!problem) return WorkOn(inside, order_, announce);
    Result result;
    result.Fail("", *problem);
    return result;
  }

 private:
  const WorkerPlace& place_;
  const Order& order_;
  std::optional<Problem> refusal_;
};

}  // namespace

void RunWorkerLoop(const WorkerPlace& place, const Order& order) {
  if (!order.isEager) RunWhenIdle();
  EnterRules(order);
  const Work work(place, order);
  UseScratchFolder(place.scratch);
  // The workers already run in parallel: their tools need no threads.
  setenv("MAGICK_THREAD_LIMIT", "1", 0);  // NOLINT(concurrency-mt-unsafe): there is one thread
  const auto announce = [&](const Result& soFar, const Making& making) { Send(place.channel, {soFar, making}); };
  std::string message(longestMessage, '\0');
  while (recv(place.channel, message.data(), message.size(), 0) > 0) {
    // Updates the folder's time, so that `clean` does not remove it as abandoned.
    utimensat(AT_FDCWD, place.scratch.c_str(), nullptr, 0);
    const std::string path = message.c_str();  // NOLINT(readability-redundant-string-cstr): it ends with its NUL
    Send(place.channel, {work.On(path, announce), {}});
  }
  std::error_code ignored;
  std::filesystem::remove_all(place.scratch, ignored);  // no other process does if the parent was killed
}

}  // namespace tavithumb::apps::command
