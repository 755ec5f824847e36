// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/walk.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <temp_dir.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

namespace tavithumb::apps::command {
namespace {

using Strings = std::vector<std::string>;

class Walks : public testing::Test {
 protected:
  void Write(const Strings& names) const {
    for (const std::string& name : names) test::WriteFile(folder / name, "");
  }

  Strings In(const Strings& names) const {
    Strings paths;
    for (const std::string& name : names) paths.push_back(folder / name);
    return paths;
  }

  Walk Start(const Strings& names, std::optional<NameList> list = {}, Filter filter = {}) {
    filter.takesVideos = takesVideos;
    return {names, std::move(list), filter, [this](const std::string& name, const Problem& problem) {
              problems.push_back(name + ": " + problem.reason);
            }};
  }

  // All that a walk finds, sorted.
  static Strings Found(Walk walk) { return AllOf(&walk); }

  static Strings AllOf(Walk* started) {
    Walk& walk = *started;
    Strings found;
    while (!walk.HasEnded()) {
      EXPECT_TRUE(walk.CanStep() || walk.Descriptor() != -1);
      walk.Step();
      while (std::optional<std::string> name = walk.Next()) found.push_back(*name);
    }
    EXPECT_TRUE(walk.Found().isAll);
    EXPECT_FALSE(walk.CanStep());
    EXPECT_EQ(walk.Descriptor(), -1);
    EXPECT_EQ(walk.Found().count, found.size());
    std::sort(found.begin(), found.end());
    return found;
  }

  NameList List(const Strings& names) const {
    std::string content;
    for (const std::string& name : names) content += name + "\n";
    test::WriteFile(folder / "list", content);
    return {folder / "list", '\n'};
  }

  const test::TempDir folder;
  bool takesVideos = false;
  Strings problems;
};

TEST_F(Walks, FindVideosInFoldersAndListsUnlessTheyAreLeftOut) {
  Write({"a.mp4", "b.MKV", "c.png", "sound.m4a", "disc.iso", "data.dat", "sub/d.webm"});
  const Strings names = In({"sub", "a.mp4", "sound.m4a"});
  EXPECT_EQ(Found(Start({folder.Path()})), In({"c.png"}));
  EXPECT_EQ(Found(Start({}, List(names))), Strings{});
  EXPECT_EQ(Found(Start({folder / "a.mp4", folder / "sound.m4a"})), In({"a.mp4", "sound.m4a"}));
  takesVideos = true;
  EXPECT_EQ(Found(Start({folder.Path()})), In({"a.mp4", "b.MKV", "c.png", "sub/d.webm"}));
  EXPECT_EQ(Found(Start({}, List(names))), In({"a.mp4", "sub/d.webm"}));
}

TEST_F(Walks, TellWhetherTheyHaveSkippedVideos) {
  Write({"films/a.mp4", "photos/b.png", "photos/sound.m4a"});
  for (const bool isTaken : {false, true}) {
    for (const char* name : {"films", "photos"}) {
      takesVideos = isTaken;
      Walk walk = Start({folder / name});
      while (!walk.Found().isAll) walk.Step();
      EXPECT_EQ(walk.HasSkippedVideos(), !isTaken && name == std::string("films")) << name;
    }
  }
}

TEST_F(Walks, FindThePhotosInFoldersAndSkipTheRest) {
  Write({"top/a.PNG", "top/.b.png", "top/sub/c.png", "top/sub/.hidden/d.png", "top/a.txt", "top/clip.mp4",
         "top/.tavi_ea/a.PNG/b.png", "else/e.png"});
  fs::create_symlink(folder / "top/a.PNG", folder / "top/link.png");
  fs::create_symlink("nowhere", folder / "top/dangling.png");
  fs::create_directory_symlink(folder / "else", folder / "top/linked");
  fs::create_directory_symlink(folder / "else", folder / "top/linked.png");
  ASSERT_EQ(mkfifo((folder / "top/pipe.png").c_str(), 0600), 0);
  EXPECT_EQ(Found(Start({folder / "top"})), In({"top/.b.png", "top/a.PNG", "top/dangling.png", "top/link.png",
                                                "top/sub/.hidden/d.png", "top/sub/c.png"}));
  EXPECT_EQ(Found(Start({folder / "top/linked"})), In({"top/linked/e.png"}));
  EXPECT_EQ(problems, Strings{});
}

TEST_F(Walks, LeaveOutTheDirectoriesThatAnotherRunIsMaking) {
  Write({".tavi_mkdir.a1B2c3/a.png", ".tavi_mkdir.name/b.png"});
  EXPECT_EQ(Found(Start(In({""}))), In({".tavi_mkdir.name/b.png"}));
}

TEST_F(Walks, FindTheTypesThatOnlyTheProgramsKnow) {
  Write({"a.webp", "b.AVIF", "c.jxl", "d.HIF", "e.Cr3", "f.jp2", "g.cr4", "webp.txt"});
  EXPECT_EQ(Found(Start({folder.Path()})), In({"a.webp", "b.AVIF", "c.jxl", "d.HIF", "e.Cr3"}));
}

TEST_F(Walks, FindEachFileOnceHoweverOftenItIsNamed) {
  Write({"a/x.png", "a/b/y.png"});
  fs::create_directory_symlink(folder / "a", folder / "link");
  const Strings both = In({"a/b/y.png", "a/x.png"});
  EXPECT_EQ(Found(Start(In({"a", "a/b", "link", "a/x.png", "link/b/y.png"}))), both);
  EXPECT_EQ(Found(Start(In({"a/b/y.png", "a/b/../b/y.png", "a/x.png", "a/x.png", "a"}))), both);
  EXPECT_EQ(Found(Start(In({"a/b", "a"}))), both);
}

// They must be reported.
TEST_F(Walks, KeepNamesOfFilesWhateverTheyAre) {
  Write({"notes.txt", "clip.mp4"});
  EXPECT_EQ(Found(Start(In({"clip.mp4", "missing.png", "notes.txt"}))), In({"clip.mp4", "missing.png", "notes.txt"}));
  EXPECT_EQ(Found(Start({""})), Strings{""});
}

TEST_F(Walks, SkipThumbnailsAndOtherFilesInAList) {
  Write({"a.png", "sub/b.png", "notes.txt", ".tavi_ea/a.png/TAVIFILE_THUMB_S.png"});
  const Strings names = In({"sub", "a.png", "notes.txt", ".tavi_ea", ".tavi_ea/a.png/TAVIFILE_THUMB_S.png", "a.png",
                            "missing.png", "missing.txt"});
  EXPECT_EQ(Found(Start({}, List(names))), In({"a.png", "missing.png", "missing.txt", "sub/b.png"}));
  EXPECT_EQ(Found(Start({folder / "sub"}, List(In({"a.png", "sub/b.png"})))), In({"a.png", "sub/b.png"}));
  EXPECT_EQ(problems, Strings{});
}

TEST_F(Walks, ReportFoldersThatCannotBeRead) {
  Write({".tavi_ea/a.png/TAVIFILE_THUMB_S.png", "ok/a.png"});
  EXPECT_EQ(Found(Start(In({".tavi_ea", ".tavi_ea/a.png", "ok"}))), In({"ok/a.png"}));
  EXPECT_EQ(problems, (Strings{folder / ".tavi_ea: it is a thumbnail folder",
                               folder / ".tavi_ea/a.png: it is a thumbnail folder"}));
}

TEST_F(Walks, ReportAListThatCannotBeRead) {
  EXPECT_EQ(Found(Start({}, NameList(folder.Path(), '\n'))), Strings{});
  EXPECT_EQ(problems, Strings{folder.Path() + ": Is a directory"});
}

TEST_F(Walks, LeaveOutWhatPatternsExclude) {
  Write({"a.png", "b.gif", "[c].png", "sub/a.png", "sub/old/d.png", "sub/old/deep/e.png", "other/old/f.png"});
  const std::pair<Strings, Strings> rows[] = {
      {{"*.gif"}, {"[c].png", "a.png", "other/old/f.png", "sub/a.png", "sub/old/d.png", "sub/old/deep/e.png"}},
      {{"*.gif", "old", "\\[c].png"}, {"a.png", "sub/a.png"}},
      {{"sub/old", "*f.png"}, {"[c].png", "a.png", "b.gif", "sub/a.png"}},
      {{"old/*.png", "*.gif", "[[]*"}, {"a.png", "sub/a.png", "sub/old/deep/e.png"}},
      {{folder / "sub/", "other/"}, {"[c].png", "a.png", "b.gif"}},
      {{"/sub", "", "/", "*/*/*/*/*/*/*/*", "*b"}, {"[c].png", "a.png", "b.gif", "other/old/f.png"}},
  };
  for (const auto& [excluded, found] : rows) {
    EXPECT_EQ(Found(Start({folder.Path()}, {}, {excluded, false, {}})), In(found)) << testing::PrintToString(excluded);
  }
  EXPECT_EQ(Found(Start(In({"a.png", "b.gif", "sub"}), {}, {{"b.*", "sub"}, false, {}})),
            In({"a.png", "sub/a.png", "sub/old/d.png", "sub/old/deep/e.png"}));
  EXPECT_EQ(Found(Start({}, List(In({"a.png", "b.gif"})), {{"b.*"}, false, {}})), In({"a.png"}));
}

TEST_F(Walks, LeaveOutFilesThatHaveNotChangedSinceAMoment) {
  Write({"a.png", "sub/b.png"});
  struct stat record = {};
  ASSERT_EQ(stat((folder / "a.png").c_str(), &record), 0);
  timespec before = record.st_ctim;
  --before.tv_sec;
  timespec after = before;
  after.tv_sec += 60;
  EXPECT_EQ(Found(Start({folder.Path()}, {}, {{}, false, before})), In({"a.png", "sub/b.png"}));
  test::SetTimes(folder / "a.png", 1, 1);  // as a copy of an old photo has
  EXPECT_EQ(Found(Start({folder.Path()}, {}, {{}, false, before})), In({"a.png", "sub/b.png"}));
  EXPECT_EQ(Found(Start(In({"a.png", "sub"}), {}, {{}, false, after})), Strings{});
  EXPECT_EQ(Found(Start(In({"missing.png"}), {}, {{}, false, after})), In({"missing.png"}));
}

TEST_F(Walks, StayOnTheFileSystemOfEachNameOnRequest) {
  Write({"a.png", "sub/b.png"});
  if (mount("none", (folder / "sub").c_str(), "tmpfs", 0, nullptr) != 0) GTEST_SKIP() << "may not mount";
  Write({"sub/c.png"});
  const Strings here = Found(Start({folder.Path()}, {}, {{}, true, {}}));
  const Strings both = Found(Start(In({"", "sub"}), {}, {{}, true, {}}));
  umount((folder / "sub").c_str());
  EXPECT_EQ(here, In({"a.png"}));
  EXPECT_EQ(both.size(), 2u);
}

TEST_F(Walks, CountWhatTheyPassOverByItsKind) {
  Write({"a.png", "b.GIF", "notes.txt", "sub/more.TXT", "clip.mp4", "README", ".hidden", "a.b/none"});
  fs::create_directory_symlink(folder / "sub", folder / "linked");
  Walk walk = Start({folder.Path()}, List(In({"notes.txt", "missing.txt"})), {{"*.GIF"}, false, {}});
  EXPECT_EQ(AllOf(&walk), In({"a.png", "missing.txt"}));
  EXPECT_EQ(walk.PassedOver(), (std::map<std::string, std::size_t>{{"txt", 3}, {"mp4", 1}, {"", 4}, {"excluded", 1}}));
}

TEST_F(Walks, CountManyKindsTogether) {
  Strings names;
  for (int i = 0; i < 1100; ++i) names.push_back("a." + std::to_string(10000 + i));
  Write(names);
  Walk walk = Start({folder.Path()});
  EXPECT_EQ(AllOf(&walk), Strings{});
  EXPECT_EQ(walk.PassedOver().size(), 1001u);
  EXPECT_EQ(walk.PassedOver().at("other"), 100u);
}

TEST_F(Walks, StartWithTheFirstFile) {
  Write({"a/1.png", "b/2.png"});
  Walk walk = Start(In({"a/1.png", "b"}));
  EXPECT_EQ(walk.Next(), std::nullopt);
  walk.Step();
  EXPECT_EQ(walk.Found().count, 1u);
  EXPECT_FALSE(walk.Found().isAll);
  EXPECT_EQ(walk.Next(), folder / "a/1.png");
  EXPECT_FALSE(walk.HasEnded());
}

// Names of some 100 kB in all fill the queue with 65 MB; a folder is read in steps, so that a step stays short.
TEST_F(Walks, StopWhileTheQueueIsFull) {
  const std::string name = folder / (std::string(200, 'x') + "/" + std::string(200, 'y') + ".png");
  const std::size_t room = 16777216 / (name.size() + 64) + 1;
  Strings names(room + 1000, name);
  for (std::size_t i = 0; i < names.size(); ++i) names[i] += std::to_string(i) + ".png";
  Walk walk = Start(names);
  while (walk.CanStep()) walk.Step();
  EXPECT_LT(walk.Found().count, names.size());
  EXPECT_FALSE(walk.Found().isAll);
  EXPECT_EQ(walk.Descriptor(), -1);
  ASSERT_TRUE(walk.Next());
  EXPECT_TRUE(walk.CanStep());
}

TEST_F(Walks, ReadALongFolderInSteps) {
  Strings names;
  for (int i = 1000; i < 1600; ++i) names.push_back("a/" + std::to_string(i) + ".png");
  Write(names);
  Walk walk = Start({folder / "a"});
  walk.Step();  // opens it
  walk.Step();
  EXPECT_GT(walk.Found().count, 0u);
  EXPECT_LT(walk.Found().count, 300u);
  EXPECT_EQ(AllOf(&walk), In(names));
}

}  // namespace
}  // namespace tavithumb::apps::command
