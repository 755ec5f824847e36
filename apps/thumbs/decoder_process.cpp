// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/decoder_process.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <vector>

#include "system/file_descriptor.h"
#include "system/supervisor.h"

namespace tavithumb::apps {
namespace {

constexpr rlim_t mostProcessorSeconds = 120;
constexpr rlim_t largestFile = rlim_t{64} * 1048576;
constexpr std::chrono::minutes timeout{5};

void Limit(__rlimit_resource resource, rlim_t maximum) {
  rlimit limit = {};
  getrlimit(resource, &limit);
  limit.rlim_cur = std::min(limit.rlim_max, maximum);
  setrlimit(resource, &limit);
}

// What the child has written to the pipe.
std::string ReadText(const FileDescriptor& pipe) {
  std::string text(64, '\0');
  const ssize_t size = read(pipe.Number(), text.data(), text.size());
  text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  return text;
}

}  // namespace

std::string RunInDecoderProcess(const std::function<std::string()>& work) {
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  Supervisor supervisor;
  ChildProcess child;
  child.channel = writing.Number();
  child.diesWithParent = true;
  child.work = [&] {
    Limit(RLIMIT_CORE, 0);
    Limit(RLIMIT_CPU, mostProcessorSeconds);
    Limit(RLIMIT_FSIZE, largestFile);
    const std::string text = work();
    if (!text.empty()) static_cast<void>(write(child.channel, text.data(), text.size()));
  };
  const pid_t process = supervisor.Start(child);
  supervisor.SetDeadline(process, Clock::now() + timeout);
  writing = FileDescriptor();
  for (;;) {
    const std::vector<EndedChild> ended = supervisor.Collect();
    if (!ended.empty()) return ended.front().status == 0 ? ReadText(reading) : "crashed";
    supervisor.Wait();
  }
}

}  // namespace tavithumb::apps
