// SPDX-License-Identifier: GPL-3.0-or-later
#include "failing_allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

// How many allocations of this thread succeed before one fails; negative: none fails.
thread_local int allocationsLeft = -1;

}  // namespace

// Replaces the C++ library's, for this program and all its libraries.
void* operator new(std::size_t size) {
  if (allocationsLeft >= 0 && allocationsLeft-- == 0) throw std::bad_alloc();
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

void operator delete[](void* memory) noexcept {
  std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace tavithumb::test {

int FailEachAllocation(const std::function<void()>& body) {
  for (int failed = 0;; ++failed) {
    allocationsLeft = failed;
    body();
    const bool hasFailed = allocationsLeft == -1;
    allocationsLeft = -1;
    if (!hasFailed) return failed;
  }
}

}  // namespace tavithumb::test
