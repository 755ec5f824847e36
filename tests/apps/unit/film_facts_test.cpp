// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/film_facts.h"

#include <films.h>
#include <gtest/gtest.h>
#include <pictures.h>
#include <temp_dir.h>

#include <cmath>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

namespace tavithumb::apps {
namespace {

std::string Described(const std::string& path) {
  const FilmFacts facts = ReadFilmFacts(path);
  return std::to_string(std::lround(facts.seconds)) + "s " + std::to_string(facts.width) + "x" +
         std::to_string(facts.height) + (facts.isHdr ? " HDR" : "") + (facts.hasCover ? " cover" : "");
}

class FilmHeaders : public testing::Test {
 protected:
  void SetUp() override {
    if (!test::HasFilmTools()) GTEST_SKIP() << "needs ffmpeg and ffmpegthumbnailer";
    test::MakeJpeg(scene, 320, 200);
  }

  const test::TempDir folder;
  const std::string scene = folder / "scene.jpg";
};

TEST_F(FilmHeaders, TellSizeAndLengthOfTheUsualContainers) {
  for (const char* name : {"a.mp4", "a.mov", "a.mkv", "a.m4v"}) {
    test::MakeFilm(folder / name, scene, 7);
    EXPECT_EQ(Described(folder / name), "7s 320x200") << name;
  }
  test::MakeFilm(folder / "first.mp4", scene, 7, {"-movflags", "+faststart"});
  EXPECT_EQ(Described(folder / "first.mp4"), "7s 320x200");
  test::MakeFilm(folder / "a.avi", scene, 2);
  EXPECT_EQ(Described(folder / "a.avi"), "0s 0x0");
}

TEST_F(FilmHeaders, TellWhetherThereIsACover) {
  test::MakeFilm(folder / "plain.mp4", scene, 2);
  for (const char* name : {"a.mp4", "a.mkv"}) {
    test::AddCover(folder / "plain.mp4", scene, folder / name);
    EXPECT_EQ(Described(folder / name), "2s 320x200 cover") << name;
  }
}

TEST_F(FilmHeaders, TellHdr) {
  for (const char* name : {"a.mp4", "a.mkv", "a.mov"}) {
    test::MakeHdrFilm(folder / name, scene, "smpte2084");
    EXPECT_EQ(Described(folder / name), "2s 320x200 HDR") << name;
    test::MakeHdrFilm(folder / name, scene, "arib-std-b67");
    EXPECT_EQ(Described(folder / name), "2s 320x200 HDR") << name;
  }
}

TEST_F(FilmHeaders, ThatAreCutOffOrDamagedTellLess) {
  test::MakeFilm(folder / "a.mp4", scene, 2, {"-movflags", "+faststart"});
  test::MakeFilm(folder / "a.mkv", scene, 2);
  for (const char* name : {"a.mp4", "a.mkv"}) {
    const std::string whole = test::ReadFile(folder / name).substr(0, 1500);
    for (std::size_t i = 0; i < whole.size(); ++i) {
      std::string damaged = whole;
      damaged[i] = static_cast<char>(~damaged[i]);
      test::WriteFile(folder / "damaged", damaged);
      ReadFilmFacts(folder / "damaged");
      if (i % 100 == 0) {
        test::WriteFile(folder / "cut", whole.substr(0, i));
        ReadFilmFacts(folder / "cut");
      }
    }
  }
  EXPECT_EQ(Described(folder / "missing.mp4"), "0s 0x0");
}

}  // namespace
}  // namespace tavithumb::apps
