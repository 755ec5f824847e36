// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace tavithumb::apps {

// The names of the sizes in which thumbnails are stored, from smallest to largest.
const std::vector<std::string>& StoredSizes();
bool IsStoredSize(const std::string& name);

// "small, medium, big, large or xlarge"
const std::string& StoredSizeChoices();

// All sizes that a request may name: "small, ..., original, WIDTHxHEIGHT or SIDE".
const std::string& SizeChoices();

// The side in pixels of a stored size's box, which is a square. `name` must be one of StoredSizes().
unsigned SideOf(const std::string& name);

// The sizes that share a letter in the names of stored thumbnails: "small" for "S", "large/xlarge" for "XL"; "" for
// no such letter.
std::string SizesWithLetter(const std::string& letter);

}  // namespace tavithumb::apps
