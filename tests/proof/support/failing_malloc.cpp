// SPDX-License-Identifier: GPL-3.0-or-later
#include "failing_malloc.h"

#include <cerrno>
#include <cstddef>

#include "process.h"

namespace {

bool isCounting = false;
unsigned failing = 0;
bool failsForEver = false;
unsigned count = 0;

}  // namespace

#if !PROOF_IS_SANITIZED

namespace {

bool MustFail() {
  if (!isCounting) return false;
  ++count;
  if (failing == 0 || count < failing || (count > failing && !failsForEver)) return false;
  errno = ENOMEM;
  return true;
}

}  // namespace

// Replaces the C library's.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t number, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
  return MustFail() ? nullptr : __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(std::size_t number, std::size_t size) {
  return MustFail() ? nullptr : __libc_calloc(number, size);
}
__attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size) {
  return MustFail() ? nullptr : __libc_realloc(memory, size);
}
}

#endif

namespace tavithumb::proof {

void StartFailingAllocations(unsigned nth, bool forEver) {
  failing = nth;
  failsForEver = forEver;
  count = 0;
  isCounting = true;
}

unsigned StopFailingAllocations() {
  isCounting = false;
  return count;
}

}  // namespace tavithumb::proof
