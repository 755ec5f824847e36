// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/picture.h"

#include <cstring>
#include <new>

namespace tavithumb::maker {

Plane::Plane(Size size)
    : size_(size), stride_((static_cast<std::size_t>(size.width) + 2 * kAlignment - 1) / kAlignment * kAlignment) {
  // With 32 bits, the product of two valid sides may be more than a std::size_t holds.
  const std::uint64_t needed = std::uint64_t{stride_} * static_cast<unsigned>(size.height) + kAlignment;
  const auto bytes = static_cast<std::size_t>(needed);
  if (bytes != needed) throw std::bad_alloc();
  samples_.reset(static_cast<std::uint8_t*>(std::aligned_alloc(kAlignment, bytes)));
  if (!samples_) throw std::bad_alloc();
  std::memset(samples_.get(), 0, bytes);
}

}  // namespace tavithumb::maker
