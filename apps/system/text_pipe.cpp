// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/text_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "system/descriptors.h"

namespace tavithumb::apps {

TextPipe::TextPipe() {
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  reading_ = FileDescriptor(ends[0]);
  writing_ = FileDescriptor(ends[1]);
}

void TextPipe::Send(int channel, const std::string& text) {
  WriteAll(channel, text.data(), text.size());
}

std::string TextPipe::Receive() const {
  std::string text(4096, '\0');
  const ssize_t size = read(reading_.Number(), text.data(), text.size());
  text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  return text;
}

}  // namespace tavithumb::apps
