// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tavithumb::apps {

// File names may contain any byte but NUL.

bool IsUtf8(std::string_view text);

// Two lower-case digits for each byte.
std::string Hex(std::string_view bytes);

// `name` as a single line for people: control characters, backslashes and bytes that are not UTF-8 become "\n", "\\" or
// "\xHH".
std::string Printable(const std::string& name);

// The end of `text` that fits into `columns` of a terminal. If `text` is cut, the result begins with "...", which
// counts; "" if there is no room for that and one more column.
std::string TailWithin(const std::string& text, std::size_t columns);

// A number of bytes for people: "999 bytes", "1.4 MB", "14 GB"; a kB has 1000 bytes.
std::string ByteText(std::uint64_t bytes);

// "99 s", "2 min", "100 min", "2 h"
std::string DurationText(double seconds);

// 16 digits, the same for the same text. Not for secrets.
std::string Fingerprint(std::string_view text);

// `name` as one segment of a URL's path.
std::string UrlEncoded(std::string_view name);

// An absolute path as that of a URL.
std::string UrlEncodedPath(const std::string& path);

std::string Join(const std::vector<std::string>& words, std::string_view separator);

}  // namespace tavithumb::apps
