// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/sizes.h"

#include <tavithumb/libtavithumb.h>

#include <algorithm>

#include "system/text.h"

namespace tavithumb::apps {
namespace {

// The letter of a stored size in the names of thumbnails.
std::string LetterOf(const std::string& size) {
  if (size == "large" || size == "xlarge") return "XL";
  return {static_cast<char>(size.front() - 'a' + 'A')};
}

// The library lists its sizes from the largest; "original" is never stored.
std::vector<std::string> ListStoredSizes() {
  std::vector<std::string> names(Thumb::size_vec.rbegin(), Thumb::size_vec.rend());
  names.erase(std::remove(names.begin(), names.end(), "original"), names.end());
  return names;
}

}  // namespace

const std::vector<std::string>& StoredSizes() {
  static const std::vector<std::string> names = ListStoredSizes();
  return names;
}

bool IsStoredSize(const std::string& name) {
  return std::find(StoredSizes().begin(), StoredSizes().end(), name) != StoredSizes().end();
}

const std::string& StoredSizeChoices() {
  static const std::string choices =
      Join({StoredSizes().begin(), StoredSizes().end() - 1}, ", ") + " or " + StoredSizes().back();
  return choices;
}

const std::string& SizeChoices() {
  static const std::string choices = Join(StoredSizes(), ", ") + ", original, WIDTHxHEIGHT or SIDE";
  return choices;
}

unsigned SideOf(const std::string& name) {
  return Thumb::strThumbSizeMap_.at(name).width;
}

std::string SizesWithLetter(const std::string& letter) {
  std::vector<std::string> names;
  for (const std::string& name : StoredSizes()) {
    if (LetterOf(name) == letter) names.push_back(name);
  }
  return Join(names, "/");
}

}  // namespace tavithumb::apps
