// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::apps {

// " (did you mean 'medium'?)" for a word that is probably one of the choices, mistyped; "" if none is similar.
std::string Suggestion(const std::string& word, const std::vector<std::string>& choices);

}  // namespace tavithumb::apps
