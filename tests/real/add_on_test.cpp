// SPDX-License-Identifier: GPL-3.0-or-later
// Whether the tests of this program run with the add-on that replaces convert: they run once with it and once without.
#include "real_support.h"

namespace tavithumb::test {
namespace {

class Converts : public RealTest {};

// ImageMagick estimates the quality of a JPEG from its tables; its own is 92.
TEST_F(Converts, AreTheSystemsOrTheAddOns) {
  MakeTiff(Source("a.tif"), 600, 400);
  const Answer answer = Ask(Dated(Source("a.tif")), "small");
  ExpectAnswer(answer, EAEntry(Source("a.tif"), "TAVIFILE_THUMB_S.jpg"), "Brovix", "image/jpeg");
  ExpectPicture(answer.path, "JPEG", 120, 80);
  const bool isInstalled = access("/var/packages/Codexa/enabled", F_OK) == 0;
  EXPECT_EQ(RunTool({"/usr/bin/identify", "-format", "%Q", answer.path}), isInstalled ? "80" : "92");
}

}  // namespace
}  // namespace tavithumb::test
