// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/dates.h"

#include <gtest/gtest.h>
#include <pictures.h>
#include <sys/stat.h>
#include <temp_dir.h>

#include <filesystem>

#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

class Dates : public testing::Test {
 protected:
  Dates() {
    chmod(folder_.Path().c_str(), 0755);
    std::filesystem::create_directory(folder_ / "folder.jpg");
    test::WriteFile(folder_ / "damaged.jpg", "no picture");
    test::WriteFile(folder_ / "film.mp4", "no picture");
    test::MakeJpeg(folder_ / "none.jpg", 8, 6);
    AddTaken("b 1.jpg", "2024:05:01 12:30:00");
    AddTaken("a.jpg", "2023:01:02 03:04:05");
  }

  void AddTaken(const std::string& name, const std::string& time) const {
    test::MakeJpeg(folder_ / name, 8, 6);
    test::RunTool({"/usr/bin/exiv2", "-Mset Exif.Photo.DateTimeOriginal " + time, folder_ / name});
  }
  std::string After(const std::string& name, Clock::time_point deadline) const {
    return DatesAsJson(Roots({ParseRoot(folder_.Path())}, false), {}, name, deadline);
  }

  test::TempDir folder_;
};

TEST_F(Dates, AreThoseOfPhotosThatHaveOne) {
  EXPECT_EQ(After("", noDeadline),
            "{\"taken\":{\"a.jpg\":\"2023-01-02T03:04:05\",\"b%201.jpg\":\"2024-05-01T12:30:00\"},\"next\":null}\n");
}

TEST_F(Dates, ContinueAfterTheNameAtWhichTheTimeWasUp) {
  const Clock::time_point past = Clock::now();
  EXPECT_EQ(After("", past), "{\"taken\":{\"a.jpg\":\"2023-01-02T03:04:05\"},\"next\":\"a.jpg\"}\n");
  EXPECT_EQ(After("a.jpg", past), "{\"taken\":{\"b%201.jpg\":\"2024-05-01T12:30:00\"},\"next\":\"b%201.jpg\"}\n");
  EXPECT_EQ(After("b 1.jpg", past), "{\"taken\":{},\"next\":\"damaged.jpg\"}\n");
  EXPECT_EQ(After("none.jpg", past), "{\"taken\":{},\"next\":null}\n");
}

TEST_F(Dates, AreOnlyOfFoldersThatAreServed) {
  const Roots roots({ParseRoot(folder_.Path())}, false);
  for (const char* name : {"missing", "a.jpg", ".tavi_ea"}) {
    EXPECT_THROW(DatesAsJson(roots, {name}, "", noDeadline), HttpError) << name;
  }
}

}  // namespace
}  // namespace tavithumb::apps::web
