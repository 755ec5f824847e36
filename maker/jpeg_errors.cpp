// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/jpeg_errors.h"

#include <jerror.h>

#include <array>
#include <new>
#include <string>

#include "maker/declined.h"

namespace tavithumb::maker {
namespace {

[[noreturn]] void Jump(j_common_ptr jpeg) {
  std::longjmp(reinterpret_cast<JpegErrors*>(jpeg->err)->jump, 1);  // NOLINT(cert-err52-cpp): no frame owns anything
}

void CountWarnings(j_common_ptr jpeg, int level) {
  if (level < 0) ++jpeg->err->num_warnings;
}

void PrintNothing(j_common_ptr) {}

Reason ReasonOf(int code) {
  switch (code) {
    case JERR_IMAGE_TOO_BIG:
    case JERR_WIDTH_OVERFLOW:
      return Reason::kTooLarge;
    case JERR_ARITH_NOTIMPL:
    case JERR_BAD_PRECISION:
    case JERR_COMPONENT_COUNT:
    case JERR_CONVERSION_NOTIMPL:
    case JERR_FRACT_SAMPLE_NOTIMPL:
    case JERR_NOT_COMPILED:
    case JERR_SOF_UNSUPPORTED:
      return Reason::kUnsupported;
    default:
      return Reason::kDamaged;
  }
}

}  // namespace

jpeg_error_mgr* JpegErrors::Prepare() {
  jpeg_std_error(&manager);
  manager.error_exit = Jump;
  manager.emit_message = CountWarnings;
  manager.output_message = PrintNothing;
  return &manager;
}

void ThrowError(j_common_ptr jpeg) {
  const int code = jpeg->err->msg_code;
  if (code == JERR_OUT_OF_MEMORY) throw std::bad_alloc();
  std::array<char, JMSG_LENGTH_MAX> text = {};
  jpeg->err->format_message(jpeg, text.data());
  throw Declined(ReasonOf(code), text.data());
}

}  // namespace tavithumb::maker
