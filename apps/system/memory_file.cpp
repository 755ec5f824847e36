// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/memory_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "system/descriptors.h"

namespace tavithumb::apps {

namespace {

[[noreturn]] void Fail() {
  throw std::system_error(errno, std::generic_category(), "a file in memory");
}

}  // namespace

MemoryFile::MemoryFile(const std::vector<std::uint8_t>& content)
    : file_(memfd_create("thumbnail", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
  if (!file_.IsOpen() || !WriteAll(file_.Number(), content.data(), content.size())) Fail();
}

MemoryFile MemoryFile::OfFixedSize(std::size_t bytes) {
  MemoryFile file(std::vector<std::uint8_t>{});
  const int number = file.file_.Number();
  if (ftruncate(number, static_cast<off_t>(bytes)) != 0 || fcntl(number, F_ADD_SEALS, F_SEAL_GROW) != 0) Fail();
  return file;
}

}  // namespace tavithumb::apps
