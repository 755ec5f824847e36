// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <stdexcept>
#include <string>

namespace tavithumb::maker {

// Why the maker makes no thumbnail of a source.
enum class Reason {
  kUnknownType,  // no decoder knows the content
  kAnimation,    // the caller wants it kept animated
  kUnsupported,  // a decoder knows the type, but not this kind of it
  kTooLarge,     // over one of the limits
  kDamaged,      // nothing, or too little, can be decoded
  kUnreadable,   // the file can't be opened or read
};

// The source is left to others; what() says why, for people, and doesn't name the file.
class Declined : public std::runtime_error {
 public:
  Declined(Reason reason, const std::string& text) : std::runtime_error(text), reason_(reason) {}
  Reason Why() const { return reason_; }

 private:
  Reason reason_;
};

}  // namespace tavithumb::maker
