// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>

namespace tavithumb::apps {

// File names are any bytes but NUL.

bool IsUtf8(std::string_view text);

// Two lower-case digits for each byte.
std::string Hex(std::string_view bytes);

// `name` for people, always one line: control characters, backslashes and bytes that are not UTF-8 as "\n", "\\" or
// "\xHH".
std::string Printable(const std::string& name);

}  // namespace tavithumb::apps
