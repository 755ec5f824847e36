// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <tavithumb/thumb_info.h>

#include <future>
#include <mutex>

namespace tavithumb::test {

// Whether the lock of Exiv2 is free: another thread can acquire it.
inline bool Exiv2LockIsFree() {
  return std::async(std::launch::async,
                    [] {
                      const std::unique_lock<std::mutex> lock(ThumbInfo::exiv2_mutex_, std::try_to_lock);
                      return lock.owns_lock();
                    })
      .get();
}

}  // namespace tavithumb::test
