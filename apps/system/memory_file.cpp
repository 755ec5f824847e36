// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/memory_file.h"

#include <sys/mman.h>

#include <cerrno>
#include <system_error>

#include "system/descriptors.h"

namespace tavithumb::apps {

MemoryFile::MemoryFile(const std::vector<std::uint8_t>& content) : file_(memfd_create("thumbnail", MFD_CLOEXEC)) {
  if (!file_.IsOpen() || !WriteAll(file_.Number(), content.data(), content.size())) {
    throw std::system_error(errno, std::generic_category(), "a file in memory");
  }
}

}  // namespace tavithumb::apps
