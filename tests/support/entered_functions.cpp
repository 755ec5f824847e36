// SPDX-License-Identifier: GPL-3.0-or-later
// Marks which functions a program enters: script/mutate links it into programs compiled with -finstrument-functions.
// The marks are in the file of the program's name in ENTERED_FOLDER, if there is one, and survive however a process
// ends.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

extern "C" {
extern const char __executable_start;
void __cyg_profile_func_enter(void* function, void* caller);
void __cyg_profile_func_exit(void* function, void* caller);
}

namespace {

// One byte for each of the program's, shared with the processes that it forks.
char* marks = nullptr;
std::size_t size = 0;

std::string NameOfProgram() {
  std::array<char, 4096> target;
  const ssize_t length = readlink("/proc/self/exe", target.data(), target.size());
  const std::string path(target.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  return path.substr(path.rfind('/') + 1);
}

[[gnu::constructor]] void Map() {
  const int file = open((ENTERED_FOLDER "/" + NameOfProgram()).c_str(), O_RDWR | O_CLOEXEC);
  if (file == -1) return;
  struct stat facts = {};
  fstat(file, &facts);
  void* const map = mmap(nullptr, static_cast<std::size_t>(facts.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (map == MAP_FAILED) return;
  marks = static_cast<char*>(map);
  size = static_cast<std::size_t>(facts.st_size);
}

}  // namespace

void __cyg_profile_func_enter(void* function, void* /*caller*/) {
  const std::uintptr_t offset =
      reinterpret_cast<std::uintptr_t>(function) - reinterpret_cast<std::uintptr_t>(&__executable_start);
  if (offset < size) marks[offset] = 1;
}

void __cyg_profile_func_exit(void* /*function*/, void* /*caller*/) {}
