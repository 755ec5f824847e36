// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/picture.h"

#include <cstring>
#include <new>

namespace tavithumb::maker {

Plane::Plane(Size size)
    : size_(size), stride_((static_cast<std::size_t>(size.width) + 2 * kAlignment - 1) / kAlignment * kAlignment) {
  const std::size_t bytes = stride_ * static_cast<std::size_t>(size.height) + kAlignment;
  samples_.reset(static_cast<std::uint8_t*>(std::aligned_alloc(kAlignment, bytes)));
  if (!samples_) throw std::bad_alloc();
  std::memset(samples_.get(), 0, bytes);
}

}  // namespace tavithumb::maker
