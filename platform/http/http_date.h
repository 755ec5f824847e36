// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tavi {

// Dates of HTTP header fields, in seconds since the epoch.

// "Sun, 06 Nov 1994 08:49:37 GMT"; a time outside the years 1 to 9999 becomes the first or last moment of these.
std::string FormatHttpDate(std::int64_t seconds);

// That format, and the two older ones: "Sunday, 06-Nov-94 08:49:37 GMT", whose year is the one within 50 years of
// `now`, and "Sun Nov  6 08:49:37 1994". Nothing for any other text, or a date that doesn't exist. The day of the week
// is not compared with the date.
std::optional<std::int64_t> ParseHttpDate(std::string_view text, std::int64_t now);

}  // namespace tavi
