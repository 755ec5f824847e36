// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>

namespace tavithumb::apps {

// Opens those of the descriptors 0 to 2 that are closed on /dev/null, read-only, so that no file opened later becomes
// standard output.
void OpenStandardDescriptors();

// Writes all of it to a file. Returns false if that fails, with errno set.
bool WriteAll(int descriptor, const void* data, std::size_t size);

// Discards standard error during its lifetime: messages of external tools and image libraries would mix with the one
// line that the command prints about a file.
class QuietErrors {
 public:
  QuietErrors();
  ~QuietErrors();
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;

 private:
  int saved_;
};

}  // namespace tavithumb::apps
