// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// A file in memory, gone with this object.
class MemoryFile {
 public:
  // Throws std::system_error.
  explicit MemoryFile(const std::vector<std::uint8_t>& content);
  // Of zeros. Writing behind its end fails. Throws std::system_error.
  static MemoryFile OfFixedSize(std::size_t bytes);

  int Descriptor() const { return file_.Number(); }

  // Opens it in this process.
  std::string Path() const { return "/proc/self/fd/" + std::to_string(file_.Number()); }

 private:
  FileDescriptor file_;
};

}  // namespace tavithumb::apps
