// SPDX-License-Identifier: GPL-3.0-or-later
// Which stored thumbnails the program serves, and which it makes again.
#include <gtest/gtest.h>
#include <pictures.h>
#include <stored_thumbnails.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "site.h"

namespace tavithumb::test {
namespace {

ino_t Inode(const std::string& path) {
  struct stat record = {};
  return stat(path.c_str(), &record) == 0 ? record.st_ino : 0;
}

// The file that it sends for the small size.
std::string Ask(const Site& site, const std::string& name) {
  const std::string response =
      site.Scgi({{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", "/thumb/" + name + "?size=small"}, {"SCRIPT_NAME", ""}});
  const std::size_t end = response.find("\r\n\r\n");
  EXPECT_NE(end, response.npos) << response;
  return response.substr(end + 4);
}

// With the user 0, the program runs as whoever runs the tests.
class StoredThumbnailsOnTheWeb : public testing::TestWithParam<uid_t> {};

INSTANTIATE_TEST_SUITE_P(Users, StoredThumbnailsOnTheWeb, testing::Values(0, 65534));

TEST_P(StoredThumbnailsOnTheWeb, AreMadeAgainOnceIfTheyAreStaleOrBad) {
  if (const std::string why = Site::WhyNotAs(GetParam()); !why.empty()) GTEST_SKIP() << why;
  SiteOptions options;
  options.user = GetParam();
  const Site site(Front::kNone, options);
  const std::string photo = site / "photo.jpg";
  const std::string entry = site / ".tavi_ea/photo.jpg/TAVIFILE_THUMB_S.jpg";
  MakePhotoForEverybody(photo);
  for (const StoredThumbnail& row : GoodStaleAndBadThumbnails()) {
    SCOPED_TRACE(row.what);
    std::filesystem::remove_all(site / ".tavi_ea");
    Plant(row, entry);
    const std::string planted = ReadFile(entry);
    const std::string first = Ask(site, "photo.jpg");
    EXPECT_EQ(first == planted, !row.isMadeAgain);
    EXPECT_TRUE(first == ReadFile(entry));
    EXPECT_EQ(ModificationTime(entry), kPhotoTime);
    const ino_t made = Inode(entry);
    EXPECT_TRUE(Ask(site, "photo.jpg") == first);
    EXPECT_EQ(Inode(entry), made);
  }
}

}  // namespace
}  // namespace tavithumb::test
