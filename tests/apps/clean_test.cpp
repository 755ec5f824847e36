// SPDX-License-Identifier: GPL-3.0-or-later
// `tavithumb clean`: what it removes, what it keeps, and what it reports.
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// Every path below a folder, without the folder, sorted; links are not followed.
std::vector<std::string> Tree(const std::string& folder) {
  std::vector<std::string> paths;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    paths.push_back(entry.path().string().substr(folder.size() + 1));
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

// Runs the command with folders of its own for temporary files, so that it neither sees nor removes those of other
// programs.
class Clean : public testing::Test {
 protected:
  Clean() {
    for (const std::string& path : {TmpPath(""), VarTmpPath("")}) fs::create_directories(path);
    for (const std::string& path : {folder.Path(), system.Path()}) fs::permissions(path, fs::perms(0755));
  }

  std::string TmpPath(const std::string& name) const { return system / "tmp/" + name; }
  std::string VarTmpPath(const std::string& name) const { return system / "var/tmp/" + name; }

  Outcome Run(std::vector<std::string> arguments, const Start& how = {}) const {
    Start start = how;
    start.folder = folder.Path();
    start.environment = Preloading(SURROUNDINGS);
    start.environment.push_back("TEMPORARY_FOLDERS=" + system.Path());
    if (isLater) start.environment.emplace_back("SECONDS_LATER=3601");
    arguments.insert(arguments.begin(), "clean");
    return run(arguments, start);
  }

  void Expect(const std::vector<std::string>& arguments, const std::string& out, const std::string& err = "") const {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.out, out);
    EXPECT_EQ(outcome.err, err);
    EXPECT_EQ(outcome.code, err.empty() ? 0 : 1);
  }

  // A source in the folder, with an up-to-date entry.
  void Store(const std::string& source, const std::string& entry = kMediumJpeg) const {
    if (!Exists(folder / source)) WriteFile(folder / source, "photo");
    WriteFile(EntryOf(folder / source, entry), "1234567890");
    SetTimes(EntryOf(folder / source, entry), 1, ModificationTime(folder / source));
  }
  void StoreStale(const std::string& source, const std::string& entry = kMediumJpeg) const {
    Store(source, entry);
    SetTimes(EntryOf(folder / source, entry), 1, ModificationTime(folder / source) - 1);
  }
  void StoreOfGone(const std::string& source, const std::string& entry = kMediumJpeg) const {
    Store(source, entry);
    fs::remove(folder / source);
  }

  const TempDir folder;
  const TempDir system;
  const CommandRunner run;
  bool isLater = false;
};

TEST_F(Clean, LeavesUpToDateThumbnails) {
  for (const char* entry : {kMediumJpeg, "TAVIPHOTO_THUMB_M.jpg", "TAVIPHOTO:THUMB_M.jpg", "TAVIAVATAR_1x1.jpg",
                            "TAVIVIDEO_VIDEO_SCREENSHOT.jpg", "TAVIFILE_THUMB_9x9_r-1.png"}) {
    Store("a.jpg", entry);
  }
  const std::vector<std::string> before = Tree(folder.Path());
  isLater = true;
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_EQ(Tree(folder.Path()), before);
}

TEST_F(Clean, RemovesStaleThumbnailsWhoeverStoredThem) {
  Store("a.jpg");
  for (const char* entry : {"TAVIPHOTO_THUMB_M.jpg", "TAVIPHOTO:THUMB_M.jpg", "TAVIAVATAR_1x1.jpg",
                            "TAVIVIDEO_VIDEO_SCREENSHOT.jpg", "TAVIFILE_THUMB_9x9_r-1.png"}) {
    StoreStale("a.jpg", entry);
  }
  const std::string end = ": it is older than its source\n";
  Expect({"."}, "removed ./.tavi_ea/a.jpg/TAVIAVATAR_1x1.jpg" + end +                  //
                    "removed ./.tavi_ea/a.jpg/TAVIFILE_THUMB_9x9_r-1.png" + end +      //
                    "removed ./.tavi_ea/a.jpg/TAVIPHOTO:THUMB_M.jpg" + end +           //
                    "removed ./.tavi_ea/a.jpg/TAVIPHOTO_THUMB_M.jpg" + end +           //
                    "removed ./.tavi_ea/a.jpg/TAVIVIDEO_VIDEO_SCREENSHOT.jpg" + end +  //
                    "freed 50 bytes in 5 files\n");
  EXPECT_EQ(Tree(folder.Path()), (std::vector<std::string>{".tavi_ea", ".tavi_ea/a.jpg",
                                                           ".tavi_ea/a.jpg/" + std::string(kMediumJpeg), "a.jpg"}));
  Expect({"."}, "freed 0 bytes in 0 files\n");
}

TEST_F(Clean, LeavesAloneWhatPatternsExclude) {
  for (const char* name : {"gone.jpg", "gone.png", "deep/gone.jpg", "old/gone.jpg"}) StoreOfGone(name);
  const std::string end = ": its source is gone\n", empty = ": nothing is left in it\n";
  Expect({"--exclude", "*.png", "--exclude", folder / "old", "--exclude", "deep/gone.jpg", "."},
         "removed ./.tavi_ea/gone.jpg/TAVIFILE_THUMB_M.jpg" + end + "removed ./.tavi_ea/gone.jpg" + empty +
             "freed 10 bytes in 1 file\n");
}

TEST_F(Clean, LeavesOutMountedVolumesOnRequest) {
  StoreOfGone("volume/gone.jpg");
  if (mount("none", (folder / "volume").c_str(), "tmpfs", 0, nullptr) != 0) GTEST_SKIP() << "may not mount";
  StoreOfGone("volume/gone.jpg");
  Expect({"--one-file-system", "."}, "freed 0 bytes in 0 files\n");
  umount((folder / "volume").c_str());
}

TEST_F(Clean, PrintsProblemsOnlyWhenItIsQuiet) {
  StoreOfGone("gone.jpg");
  const Outcome outcome = run({"clean", "-q", folder.Path(), "/no/such/folder"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "tavithumb: /no/such/folder: it does not exist; check its name\n");
  EXPECT_EQ(Tree(folder.Path()), std::vector<std::string>{});
}

TEST_F(Clean, RemovesThumbnailsWithoutASourceAndTheirFolders) {
  StoreOfGone("deep/er/gone.jpg");
  StoreOfGone("deep/gone.jpg");
  Store("deep/kept.jpg");
  Expect({folder.Path()},
         "removed " + folder.Path() + "/deep/.tavi_ea/gone.jpg/TAVIFILE_THUMB_M.jpg: its source is gone\n" +  //
             "removed " + folder.Path() + "/deep/.tavi_ea/gone.jpg: nothing is left in it\n" +                //
             "removed " + folder.Path() + "/deep/er/.tavi_ea/gone.jpg/TAVIFILE_THUMB_M.jpg: its source is gone\n" +
             "removed " + folder.Path() + "/deep/er/.tavi_ea/gone.jpg: nothing is left in it\n" +  //
             "removed " + folder.Path() + "/deep/er/.tavi_ea: nothing is left in it\n" +           //
             "freed 20 bytes in 2 files\n");
  EXPECT_EQ(Tree(folder.Path()), (std::vector<std::string>{"deep", "deep/.tavi_ea", "deep/.tavi_ea/kept.jpg",
                                                           "deep/.tavi_ea/kept.jpg/" + std::string(kMediumJpeg),
                                                           "deep/er", "deep/kept.jpg"}));
  Expect({folder.Path()}, "freed 0 bytes in 0 files\n");
}

TEST_F(Clean, RemovesNothingInADryRunAndReportsTheSame) {
  StoreOfGone("gone.jpg");
  StoreStale("stale.jpg");
  StoreStale("other.jpg");
  const std::vector<std::string> before = Tree(folder.Path());
  // Reported once, however often it is found.
  Expect({"--dry-run", ".", "gone.jpg"},
         "would remove ./.tavi_ea/gone.jpg/TAVIFILE_THUMB_M.jpg: its source is gone\n"
         "would remove ./.tavi_ea/gone.jpg: nothing is left in it\n"
         "would remove ./.tavi_ea/other.jpg/TAVIFILE_THUMB_M.jpg: it is older than its source\n"
         "would remove ./.tavi_ea/stale.jpg/TAVIFILE_THUMB_M.jpg: it is older than its source\n"
         "would free 30 bytes in 3 files\n");
  EXPECT_EQ(Tree(folder.Path()), before);
}

TEST_F(Clean, ReportsEachRemovalInJson) {
  StoreOfGone("gone\xfc.jpg");
  const std::string path = folder / "./.tavi_ea/gone\xef\xbf\xbd.jpg";
  for (const bool isDryRun : {true, false}) {
    std::vector<std::string> arguments = {"--json", "."};
    if (isDryRun) arguments.emplace_back("--dry-run");
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
    std::vector<json> objects = ObjectsOf(outcome.out);
    ASSERT_EQ(objects.size(), 4u);
    for (json& object : objects) object.erase("path_hex");
    EXPECT_EQ(objects, (std::vector<json>{{{"path", path + "/TAVIFILE_THUMB_M.jpg"},
                                           {"reason", "its source is gone"},
                                           {"bytes", 10},
                                           {"removed", !isDryRun},
                                           {"error", nullptr}},
                                          {{"path", path},
                                           {"reason", "nothing is left in it"},
                                           {"bytes", 0},
                                           {"removed", !isDryRun},
                                           {"error", nullptr}},
                                          {{"path", folder / "./.tavi_ea"},
                                           {"reason", "nothing is left in it"},
                                           {"bytes", 0},
                                           {"removed", !isDryRun},
                                           {"error", nullptr}},
                                          {{"files", 1}, {"bytes", 10}, {"dry_run", isDryRun}}}));
  }
  EXPECT_EQ(Tree(folder.Path()), std::vector<std::string>{});
}

TEST_F(Clean, AcceptsTheNamesOfExistingAndDeletedFiles) {
  StoreOfGone("gone.jpg");
  StoreStale("stale.jpg");
  StoreStale("other.jpg");
  Expect({"gone.jpg", folder / "stale.jpg", "missing.jpg", ""},
         "removed ./.tavi_ea/gone.jpg/TAVIFILE_THUMB_M.jpg: its source is gone\n"
         "removed ./.tavi_ea/gone.jpg: nothing is left in it\n"
         "removed " +
             folder.Path() +
             "/.tavi_ea/stale.jpg/TAVIFILE_THUMB_M.jpg: it is older than its source\n"
             "freed 20 bytes in 2 files\n",
         "tavithumb: missing.jpg: it does not exist; check its name\n"
         "tavithumb: : it does not exist; check its name\n");
  EXPECT_TRUE(Exists(EntryOf(folder / "other.jpg", kMediumJpeg)));
  fs::remove(folder / "other.jpg");
  Expect({"other.jpg"},
         "removed ./.tavi_ea/other.jpg/TAVIFILE_THUMB_M.jpg: its source is gone\n"
         "removed ./.tavi_ea/other.jpg: nothing is left in it\n"
         "freed 10 bytes in 1 file\n");
  EXPECT_EQ(Names(folder / ".tavi_ea"), std::vector<std::string>{"stale.jpg"});
}

TEST_F(Clean, RemovesTheEmptyFolderOfAnExistingFileAfterAnHour) {
  StoreStale("a.jpg");
  Expect({"."},
         "removed ./.tavi_ea/a.jpg/TAVIFILE_THUMB_M.jpg: it is older than its source\n"
         "freed 10 bytes in 1 file\n");
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_TRUE(Exists(folder / ".tavi_ea/a.jpg"));
  isLater = true;
  Expect({"."},
         "removed ./.tavi_ea/a.jpg: nothing is left in it\n"
         "removed ./.tavi_ea: nothing is left in it\n"
         "freed 0 bytes in 0 files\n");
  EXPECT_EQ(Tree(folder.Path()), std::vector<std::string>{"a.jpg"});
}

TEST_F(Clean, RemovesTemporaryEntriesOnlyAfterAnHour) {
  const std::vector<std::string> left = {".tavi_copy.a1Z9bY", "TAVIFILETMP_THUMB.jpg", "TAVIFILETMP_THUMB.jpg_1_2",
                                         "TAVIFILETMP_THUMB.jpg_2", "TAVIFILE_THUMB_M.jpg_1_2"};
  // A preview has the time of its photo, so a file with an old time may be new.
  for (const std::string& entry : left) StoreStale("a.jpg", entry);
  StoreOfGone("gone.jpg", "TAVIFILETMP_THUMB.jpg");
  Store("a.jpg");
  const std::vector<std::string> before = Tree(folder.Path());
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_EQ(Tree(folder.Path()), before);
  isLater = true;
  std::string told;
  for (const std::string& entry : left) told += "removed ./.tavi_ea/a.jpg/" + entry + ": it was left behind\n";
  Expect({"."}, told +
                    "removed ./.tavi_ea/gone.jpg/TAVIFILETMP_THUMB.jpg: it was left behind\n"
                    "removed ./.tavi_ea/gone.jpg: nothing is left in it\n"
                    "freed 60 bytes in 6 files\n");
  EXPECT_EQ(Names(EntryOf(folder / "a.jpg", "")), std::vector<std::string>{kMediumJpeg});
}

TEST_F(Clean, RemovesUnfinishedThumbnailDirectoriesOnlyIfEmptyAndAfterAnHour) {
  Store("a.jpg");
  for (const char* name : {".tavi_mkdir.a1Z9bY", ".tavi_mkdir.full99", ".tavi_mkdir.short"}) {
    fs::create_directory(folder / name);
  }
  WriteFile(folder / ".tavi_mkdir.full99/notes.txt", "notes");
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_TRUE(Exists(folder / ".tavi_mkdir.a1Z9bY"));
  isLater = true;
  Expect({"."},
         "removed ./.tavi_mkdir.a1Z9bY: nothing is left in it\n"
         "freed 0 bytes in 0 files\n");
  EXPECT_FALSE(Exists(folder / ".tavi_mkdir.a1Z9bY"));
  EXPECT_TRUE(Exists(folder / ".tavi_mkdir.full99/notes.txt"));
  EXPECT_TRUE(Exists(folder / ".tavi_mkdir.short"));
}

TEST_F(Clean, LeavesFilesWithOtherNames) {
  for (const char* entry :
       {"photo.jpg", "TAVIFILE_THUMB_L.jpg", "TAVIFILE_THUMB_M_r4.jpg", "TAVIFILE_THUMB_M.jpg.bak", "notes"}) {
    StoreStale("a.jpg", entry);
    StoreOfGone("gone.jpg", entry);
  }
  WriteFile(folder / ".tavi_ea/TAVIFILE_THUMB_M.jpg", "no folder");
  WriteFile(folder / "TAVIFILE_THUMB_M.jpg", "a photo of that name");
  SetTimes(folder / "TAVIFILE_THUMB_M.jpg", 1, 1);
  WriteFile(folder / "TAVIFILETMP_THUMB.jpg_1_2", "not in the place of thumbnails");
  const std::vector<std::string> before = Tree(folder.Path());
  isLater = true;
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_EQ(Tree(folder.Path()), before);
}

TEST_F(Clean, RecognisesASourceThatIsNamedLikeAThumbnail) {
  Store("TAVIFILE_THUMB_M.jpg", "TAVIFILE_THUMB_S.jpg");
  StoreStale("TAVIFILE_THUMB_M.jpg");
  Expect({"."},
         "removed ./.tavi_ea/TAVIFILE_THUMB_M.jpg/TAVIFILE_THUMB_M.jpg: it is older than its source\n"
         "freed 10 bytes in 1 file\n");
  EXPECT_EQ(Tree(folder.Path()),
            (std::vector<std::string>{".tavi_ea", ".tavi_ea/TAVIFILE_THUMB_M.jpg",
                                      ".tavi_ea/TAVIFILE_THUMB_M.jpg/TAVIFILE_THUMB_S.jpg", "TAVIFILE_THUMB_M.jpg"}));
}

TEST_F(Clean, LeavesLinksAndTheirTargets) {
  const TempDir other;
  WriteFile(EntryOf(other / "gone.jpg", kMediumJpeg), "elsewhere");
  WriteFile(other / kMediumJpeg, "elsewhere");
  fs::create_directories(folder / "b/.tavi_ea/gone.jpg");
  fs::create_symlink(other / kMediumJpeg, folder / "b/.tavi_ea/gone.jpg/" + kMediumJpeg);  // for an entry
  fs::create_directory_symlink(other / ".tavi_ea/gone.jpg",
                               folder / "b/.tavi_ea/x.jpg");  // for the entries of a source
  fs::create_directories(folder / "c");
  fs::create_directory_symlink(other / ".tavi_ea", folder / "c/.tavi_ea");  // for those of a folder
  fs::create_directory_symlink(other.Path(), folder / "d");                 // for a folder
  fs::create_symlink(other / kMediumJpeg, TmpPath("thumb.1.2.3.jpg"));
  fs::create_directory_symlink(other.Path(), TmpPath("tavithumb-web.abcdef"));
  const std::vector<std::string> before = Tree(folder.Path());
  const std::vector<std::string> behind = Tree(other.Path());
  isLater = true;
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_EQ(Tree(folder.Path()), before);
  EXPECT_EQ(Tree(other.Path()), behind);
  EXPECT_EQ(Names(TmpPath("")), (std::vector<std::string>{"tavithumb-web.abcdef", "thumb.1.2.3.jpg"}));
}

TEST_F(Clean, LeavesFoldersAndPipesWithAThumbnailsName) {
  StoreOfGone("gone.jpg");
  fs::remove(EntryOf(folder / "gone.jpg", kMediumJpeg));
  fs::create_directory(EntryOf(folder / "gone.jpg", kMediumJpeg));
  ASSERT_EQ(mkfifo(EntryOf(folder / "gone.jpg", "TAVIFILE_THUMB_S.jpg").c_str(), 0600), 0);
  fs::create_directory(TmpPath("thumb.1.2.3.jpg"));
  const std::vector<std::string> before = Tree(folder.Path());
  isLater = true;
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_EQ(Tree(folder.Path()), before);
  EXPECT_EQ(Names(TmpPath("")), std::vector<std::string>{"thumb.1.2.3.jpg"});
}

TEST_F(Clean, FollowsALinkToAFolderOnlyIfItEndsWithASlash) {
  StoreOfGone("photos/gone.jpg");
  fs::create_directory_symlink("photos", folder / "link");
  Expect({"link"}, "freed 0 bytes in 0 files\n",
         "tavithumb: link: it is a symbolic link to a folder; append a '/' to its name\n");
  Expect({"link/"},
         "removed link/.tavi_ea/gone.jpg/TAVIFILE_THUMB_M.jpg: its source is gone\n"
         "removed link/.tavi_ea/gone.jpg: nothing is left in it\n"
         "removed link/.tavi_ea: nothing is left in it\n"
         "freed 10 bytes in 1 file\n");
}

TEST_F(Clean, LeavesThumbnailsWhoseSourceIsNotAFileOrNotAccessible) {
  Store("linked.jpg");
  fs::rename(folder / "linked.jpg", folder / "target.jpg");
  fs::create_symlink("target.jpg", folder / "linked.jpg");
  Store("dangling.jpg");
  fs::remove(folder / "dangling.jpg");
  fs::create_symlink("on-a-disk-that-is-not-plugged-in", folder / "dangling.jpg");
  Store("album.jpg");
  fs::remove(folder / "album.jpg");
  fs::create_directory(folder / "album.jpg");
  Store("pipe.jpg");
  fs::remove(folder / "pipe.jpg");
  ASSERT_EQ(mkfifo((folder / "pipe.jpg").c_str(), 0600), 0);
  for (const char* source : {"dangling.jpg", "album.jpg", "pipe.jpg"})
    SetTimes(EntryOf(folder / source, kMediumJpeg), 1, 1);
  const std::vector<std::string> before = Tree(folder.Path());
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_EQ(Tree(folder.Path()), before);
  // The thumbnails of a link are those of its target.
  SetTimes(EntryOf(folder / "linked.jpg", kMediumJpeg), 1, ModificationTime(folder / "target.jpg") - 1);
  Expect({"."},
         "removed ./.tavi_ea/linked.jpg/TAVIFILE_THUMB_M.jpg: it is older than its source\n"
         "freed 10 bytes in 1 file\n");
}

TEST_F(Clean, SkipsASourceWhoseThumbnailIsBeingMade) {
  StoreStale("a.jpg");
  const int source = open((folder / "a.jpg").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(source, LOCK_EX), 0);
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_TRUE(Exists(EntryOf(folder / "a.jpg", kMediumJpeg)));
  close(source);
  Expect({"."},
         "removed ./.tavi_ea/a.jpg/TAVIFILE_THUMB_M.jpg: it is older than its source\n"
         "freed 10 bytes in 1 file\n");
}

TEST_F(Clean, RemovesItsOwnOldTemporaryFilesWhateverPathIsGiven) {
  const std::vector<std::string> left = {TmpPath("tavithumb-web.abcdef/magick-1234"), TmpPath("thumb.1.2.3.jpg"),
                                         VarTmpPath("convert_thumbnail__1700000000new\nline.gif"),
                                         VarTmpPath("tavithumb_TAVIFILETMP_THUMB_r1.jpg_1234_1700000000")};
  for (const std::string& path : left) {
    WriteFile(path, "1234567890");
    SetTimes(path, 1, 1);
  }
  for (const std::string& path :
       {TmpPath("thumb.jpg"), TmpPath("magick-1234"), VarTmpPath("thumb.1.2.3.jpg"), VarTmpPath("tavithumb_abc_1_2")}) {
    WriteFile(path, "somebody's");
  }
  const std::vector<std::string> before = Tree(system.Path());
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_EQ(Tree(system.Path()), before);

  isLater = true;
  const std::string told = " /tmp/tavithumb-web.abcdef/magick-1234: it was left behind\n";
  for (const bool isDryRun : {true, false}) {
    const std::string begin = isDryRun ? "would remove" : "removed";
    Expect(isDryRun ? std::vector<std::string>{"--dry-run", "."} : std::vector<std::string>{"."},
           begin + told +                                                                               //
               begin + " /tmp/tavithumb-web.abcdef: nothing is left in it\n" +                          //
               begin + " /tmp/thumb.1.2.3.jpg: it was left behind\n" +                                  //
               begin + " /var/tmp/convert_thumbnail__1700000000new\\nline.gif: it was left behind\n" +  //
               begin + " /var/tmp/tavithumb_TAVIFILETMP_THUMB_r1.jpg_1234_1700000000: it was left behind\n" +
               (isDryRun ? "would free" : "freed") + " 40 bytes in 4 files\n");
    EXPECT_EQ(Tree(system.Path()) == before, isDryRun);
  }
  EXPECT_EQ(Tree(system.Path()), (std::vector<std::string>{"tmp", "tmp/magick-1234", "tmp/thumb.jpg", "var", "var/tmp",
                                                           "var/tmp/tavithumb_abc_1_2", "var/tmp/thumb.1.2.3.jpg"}));
}

TEST_F(Clean, LeavesOtherUsersTemporaryFiles) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  for (const std::string& path : {TmpPath("thumb.1.2.3.jpg"), TmpPath("tavithumb-web.abcdef/file")}) {
    WriteFile(path, "another's");
    ASSERT_EQ(chown(path.c_str(), kNobody, kNobody), 0);
  }
  ASSERT_EQ(chown(TmpPath("tavithumb-web.abcdef").c_str(), kNobody, kNobody), 0);
  const std::vector<std::string> before = Tree(system.Path());
  isLater = true;
  Expect({"."}, "freed 0 bytes in 0 files\n");
  EXPECT_EQ(Tree(system.Path()), before);
}

TEST_F(Clean, ReportsWhatItMayNotRemoveOrReadAndContinues) {
  if (const std::string why = CommandRunner::WhyNotAs(kNobody); !why.empty()) GTEST_SKIP() << why;
  StoreOfGone("a/gone.jpg");
  StoreOfGone("c/gone.jpg");
  fs::create_directory(folder / "b");
  fs::permissions(folder / "b", fs::perms(0700));
  fs::permissions(EntryOf(folder / "c/gone.jpg", ""), fs::perms(0777));
  const std::string inA = "tavithumb: ./a/.tavi_ea/gone.jpg/TAVIFILE_THUMB_M.jpg: it cannot be removed: ";
  const Outcome outcome = Run({"."}, As(kNobody));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out,
            "removed ./c/.tavi_ea/gone.jpg/TAVIFILE_THUMB_M.jpg: its source is gone\n"
            "freed 10 bytes in 1 file\n");
  EXPECT_EQ(outcome.err,
            inA +
                "Permission denied; make its folder writable, or run as its owner\n"
                "tavithumb: ./b: permission denied; ask its owner for read permission\n"
                "tavithumb: ./c/.tavi_ea/gone.jpg: it cannot be removed: Permission denied; make its folder "
                "writable, or run as its owner\n");
  EXPECT_TRUE(Exists(EntryOf(folder / "a/gone.jpg", kMediumJpeg)));
  const std::vector<json> objects = ObjectsOf(Run({"--json", "b"}, As(kNobody)).out);
  EXPECT_EQ(objects, (std::vector<json>{{{"path", folder / "b"}, {"error", "permission denied"}},
                                        {{"files", 0}, {"bytes", 0}, {"dry_run", false}}}));
}

TEST_F(Clean, RejectsAThumbnailFolder) {
  StoreOfGone("gone.jpg");
  for (const std::string& path : {folder / ".tavi_ea", folder / ".tavi_ea/gone.jpg"}) {
    Expect({path}, "freed 0 bytes in 0 files\n",
           "tavithumb: " + path + ": it is a thumbnail folder; name the folder that holds the photos\n");
  }
  EXPECT_TRUE(Exists(EntryOf(folder / "gone.jpg", kMediumJpeg)));
}

TEST_F(Clean, StopsAtAPathThatIsTooLongForThumbnails) {
  const int start = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(chdir(folder.Path().c_str()), 0);
  const std::string name(200, 'd');
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
    ASSERT_EQ(chdir(name.c_str()), 0);
  }
  ASSERT_EQ(fchdir(start), 0);
  close(start);
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit few = before;
  few.rlim_cur = 40;  // enough for as many folders as a path can name
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  Expect({"."}, "freed 0 bytes in 0 files\n");
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(Clean, RemovesNothingIfThumbnailsAreStoredInAnotherLayout) {
  StoreOfGone("gone.jpg");
  Start start = In(folder.Path());
  start.environment = Preloading(OTHER_LAYOUT);
  const Outcome outcome = run({"clean", "."}, start);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "tavithumb: this system stores thumbnails in an unknown layout; nothing was removed\n");
  EXPECT_TRUE(Exists(EntryOf(folder / "gone.jpg", kMediumJpeg)));
}

TEST_F(Clean, RejectsNamesThatAreTooLong) {
  const std::string name(100000, 'n');
  Expect({name}, "freed 0 bytes in 0 files\n",
         "tavithumb: " + name + ": it cannot be accessed: File name too long; check its path\n");
}

TEST_F(Clean, AcceptsNamesWithAnyBytes) {
  for (const std::string& name :
       {std::string("new\nline.jpg"), std::string("latin\xfc.jpg"), std::string("-dash.jpg")}) {
    StoreOfGone(name);
  }
  Expect({"--", "-dash.jpg", "."},
         "removed ./.tavi_ea/-dash.jpg/TAVIFILE_THUMB_M.jpg: its source is gone\n"
         "removed ./.tavi_ea/-dash.jpg: nothing is left in it\n"
         "removed ./.tavi_ea/latin\\xfc.jpg/TAVIFILE_THUMB_M.jpg: its source is gone\n"
         "removed ./.tavi_ea/latin\\xfc.jpg: nothing is left in it\n"
         "removed ./.tavi_ea/new\\nline.jpg/TAVIFILE_THUMB_M.jpg: its source is gone\n"
         "removed ./.tavi_ea/new\\nline.jpg: nothing is left in it\n"
         "removed ./.tavi_ea: nothing is left in it\n"
         "freed 30 bytes in 3 files\n");
  EXPECT_EQ(Tree(folder.Path()), std::vector<std::string>{});
}

TEST_F(Clean, LeavesAFolderWithAFileThatIsNoFoldersEntries) {
  WriteFile(folder / ".tavi_ea/stray", "of another program");
  for (const char* option : {"--dry-run", "--json"}) {
    const Outcome outcome = Run({option, "."});
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_EQ(outcome.out.find("nothing is left in it"), std::string::npos) << outcome;
  }
  EXPECT_EQ(Tree(folder.Path()), (std::vector<std::string>{".tavi_ea", ".tavi_ea/stray"}));
}

}  // namespace
}  // namespace tavithumb::test
