// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <stdexcept>
#include <string>

#include "tavithumb/export.h"

namespace tavithumb {

/// The only exception type that the library defines. Branch on Code(); what() is for people.
///
///     601  the source cannot be stat'ed, or its metadata is damaged
///     602  no image facts: the content is not a known image type; a job continues without them
///     603  the source cannot be opened for reading its metadata
///
/// An Error is an ordinary value: copies are equal and independent. Apart from it, the library throws only standard
/// exceptions: std::out_of_range ("map::at") for a size name that has no entry in a table, std::invalid_argument or
/// std::out_of_range for an orientation tag that is not a number, std::bad_alloc.
class TAVITHUMB_API Error : public std::runtime_error {
 public:
  /// what() reads "(E<code>) ", trailing blank included.
  explicit Error(int code);

  /// what() reads "(E<code>) <message>".
  Error(int code, const std::string& message);

  /// 601, 602 or 603.
  int Code() const { return code_; }

 protected:
  int code_;             ///< what Code() returns
  std::string message_;  ///< without code and prefix; "" if there is none
};

}  // namespace tavithumb
