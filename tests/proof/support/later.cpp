// SPDX-License-Identifier: GPL-3.0-or-later
// Loaded before the C library: sets the clock two hours ahead.
#include <ctime>

extern "C" __attribute__((visibility("default"))) time_t time(time_t* result) noexcept {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  now.tv_sec += 7200;
  if (result != nullptr) *result = now.tv_sec;
  return now.tv_sec;
}
