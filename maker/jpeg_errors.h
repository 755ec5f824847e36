// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <csetjmp>
#include <cstddef>
#include <cstdio>

// After the headers that it forgets to include.
#include <jpeglib.h>

namespace tavithumb::maker {

// libjpeg's reports of errors: it may not return from them, so they jump. Messages go nowhere.
struct JpegErrors {
  jpeg_error_mgr manager = {};  // first, so that libjpeg's pointer to it is one to the whole
  std::jmp_buf jump = {};

  // To be libjpeg's `err`.
  jpeg_error_mgr* Prepare();
};

// Runs `step`, which calls libjpeg, and returns whether it completed. An error in libjpeg ends it from within: neither
// `step` nor what it calls may own anything.
template <typename Step>
bool Completes(JpegErrors& errors, Step step) {
  if (setjmp(errors.jump) != 0) return false;  // NOLINT(cert-err52-cpp): libjpeg knows no other way
  step();
  return true;
}

// Throws Declined, or std::bad_alloc, for the error that was reported last.
[[noreturn]] void ThrowError(j_common_ptr jpeg);

}  // namespace tavithumb::maker
