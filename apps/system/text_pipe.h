// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// Through it a child process returns a short text, of which 4096 bytes come back.
class TextPipe {
 public:
  // Throws std::system_error.
  TextPipe();

  // What the child inherits as its channel, and calls Send() with.
  int SendingEnd() const { return writing_.Number(); }
  static void Send(int channel, const std::string& text);

  // What the child has sent until now; does not wait.
  std::string Receive() const;

 private:
  FileDescriptor reading_;
  FileDescriptor writing_;
};

}  // namespace tavithumb::apps
