// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::test {

// Regular expressions, compiled here once: <regex> takes seconds of each file that uses it.

// Whether all of the text matches.
bool Matches(const std::string& text, const std::string& pattern);

// Whether a part of it does.
bool HasMatch(const std::string& text, const std::string& pattern);

// The text with all matches replaced.
std::string Replaced(const std::string& text, const std::string& pattern, const std::string& replacement);

}  // namespace tavithumb::test
