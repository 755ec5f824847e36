// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace tavithumb::apps {

void OpenStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) == -1) open("/dev/null", O_RDONLY);
  }
}

bool WriteAll(int descriptor, const void* data, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t step = write(descriptor, static_cast<const char*>(data) + done, size - done);
    if (step == -1 && errno != EINTR) return false;
    if (step > 0) done += static_cast<std::size_t>(step);
  }
  return true;
}

QuietErrors::QuietErrors() : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
  const int discard = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (discard == -1) return;
  dup2(discard, STDERR_FILENO);
  close(discard);
}

QuietErrors::~QuietErrors() {
  if (saved_ == -1) return;
  dup2(saved_, STDERR_FILENO);
  close(saved_);
}

}  // namespace tavithumb::apps
