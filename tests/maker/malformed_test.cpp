// SPDX-License-Identifier: GPL-3.0-or-later
// Files that the fuzzers have found.
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "decoding.h"
#include "pictures.h"
#include "temp_dir.h"

namespace tavithumb::maker {
namespace {

test::File FileOf(const std::string& content) {
  return {content.begin(), content.end()};
}

// The second side in the box "ispe", whose bytes are most significant first.
std::string WithHeightInHeader(std::string heif, char lowestByte) {
  const std::size_t box = heif.find("ispe");
  if (box == std::string::npos) throw std::runtime_error("no box ispe");
  heif.at(box + 15) = lowestByte;
  return heif;
}

TEST(MalformedHeif, WhosePictureIsSmallerThanItsHeaderSaysIsNotStretched) {
  const test::TempDir directory;
  test::MakeHeic(directory / "picture.heic", 64, 64, false);
  const std::string heif = test::ReadFile(directory / "picture.heic");
  EXPECT_EQ(test::WhyDeclined(OpenHeif, FileOf(heif)), std::nullopt);
  EXPECT_EQ(test::WhyDeclined(OpenHeif, FileOf(WithHeightInHeader(heif, 126))), Reason::kDamaged);
}

}  // namespace
}  // namespace tavithumb::maker
