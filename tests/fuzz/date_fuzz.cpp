// SPDX-License-Identifier: GPL-3.0-or-later
// An HTTP date.
#include "fuzz.h"
#include "http/http_date.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::int64_t now = 1800000000;
  const std::optional<std::int64_t> seconds = tavi::ParseHttpDate(TextOf(data, size), now);
  if (seconds && *seconds >= -62135596800) Require(tavi::ParseHttpDate(tavi::FormatHttpDate(*seconds), now) == seconds);
  return 0;
}
