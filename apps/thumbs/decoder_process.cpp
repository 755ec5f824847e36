// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/decoder_process.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>

#include "system/descriptors.h"
#include "system/file_descriptor.h"
#include "system/limited_child.h"

namespace tavithumb::apps {
namespace {

constexpr ChildLimits limits = {mostDecodingSeconds, mostDecodedBytes, std::chrono::minutes(5)};

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
  const int status = RunLimited(limits, writing.Number(), [&](int channel) {
    const std::string text = work();
    WriteAll(channel, text.data(), text.size());
  });
  if (status != 0) return "crashed";
  writing = FileDescriptor();
  return ReadText(reading);
}

}  // namespace tavithumb::apps
