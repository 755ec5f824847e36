// SPDX-License-Identifier: GPL-3.0-or-later
// `tavithumb make`: which files it processes, with which results, and what it reports.
#include <pictures.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "batch.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using nlohmann::json;
using Strings = std::vector<std::string>;

class Make : public Batch {
 protected:
  static json Object(const std::string& source, const Strings& made, const Strings& found = {},
                     const Strings& notNeeded = {}) {
    return {{"source", source},        {"made", made},          {"found", found},  {"failed", json::array()},
            {"not_needed", notNeeded}, {"by_library", nullptr}, {"error", nullptr}};
  }

  static json Failed(const std::string& source, const std::string& error) {
    json object = Object(source, {});
    object["error"] = error;
    return object;
  }

  // The objects by source, without the fields that differ in each run; the last one, the summary, under "".
  static std::map<std::string, json> BySource(const std::string& output) {
    std::map<std::string, json> objects;
    for (json& object : ObjectsOf(output)) {
      const bool isSummary = object.contains("summary");
      EXPECT_TRUE(!isSummary || object.at("seconds").get<double>() >= 0);
      object.erase("seconds");
      object.erase("slowest");
      if (!isSummary) object.erase("bytes");
      const std::string source = isSummary ? "" : object.at("source").get<std::string>();
      EXPECT_TRUE(objects.emplace(source, std::move(object)).second) << source << " comes twice";
    }
    return objects;
  }

  // The sources of all objects, which must be the given ones.
  void ExpectSources(const Strings& arguments, Strings sources, const Start& start = {}) const {
    Strings all = {"make", "--sizes", "small", "--json", "--dry-run"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    Strings found;
    for (const auto& [source, object] : BySource(run(all, start).out)) {
      if (!source.empty()) found.push_back(source);
    }
    std::sort(sources.begin(), sources.end());
    EXPECT_EQ(found, sources);
  }

  Strings Entries(const std::string& source) const { return Names(EntryOf(source, "")); }

  const std::string png = folder / "picture.png";
};

TEST_F(Make, MakesMissingThumbnailsAndFindsThemTheNextTime) {
  MakePng(png, 800, 600);
  fs::create_directories(folder / "a/b");
  const std::string other = folder / "a/b/other.png";
  MakePng(other, 200, 100);
  const Strings arguments = {"make", "--library", "--sizes", "small,medium", "--jobs", "2", folder.Path()};

  const Outcome first = Probed(arguments);
  EXPECT_EQ(first.code, 0);
  EXPECT_EQ(first.err, "");
  const auto bytes = fs::file_size(EntryOf(png, "TAVIFILE_THUMB_S.png")) +
                     fs::file_size(EntryOf(png, "TAVIFILE_THUMB_M.png")) +
                     fs::file_size(EntryOf(other, "TAVIFILE_THUMB_S.png"));
  EXPECT_EQ(WithoutTime(first.out), Table({"2", "3", std::to_string(bytes), "0", "1", "0"}));
  EXPECT_EQ(Entries(png), (Strings{"TAVIFILE_THUMB_M.png", "TAVIFILE_THUMB_S.png"}));
  EXPECT_EQ(Entries(other), (Strings{"TAVIFILE_THUMB_S.png"}));
  EXPECT_EQ(Identify(EntryOf(png, "TAVIFILE_THUMB_M.png")).width, 360);
  EXPECT_EQ(Count("runs "), 3u);

  const Outcome second = Probed(arguments);
  EXPECT_EQ(second.code, 0);
  EXPECT_EQ(second.err, "");
  EXPECT_EQ(WithoutTime(second.out), Table({"2", "0", "0", "3", "1", "0"}));
  EXPECT_EQ(Count("runs "), 3u);
  EXPECT_EQ(Leftovers(), Strings{});
}

TEST_F(Make, PrintsAnObjectPerFileAndASummary) {
  MakePng(png, 800, 600);
  WriteFile(folder / "broken.png", "");
  const Outcome outcome = run({"make", "--sizes", "small,large", "--json", folder.Path()});
  EXPECT_EQ(outcome.code, 1);
  const std::string damaged = "it is damaged";
  EXPECT_EQ(WithoutTime(outcome.err),
            "tavithumb: " + (folder / "broken.png") + ": it is damaged; get a fresh copy of it\n" +
                Table({"2", "1", std::to_string(fs::file_size(EntryOf(png, "TAVIFILE_THUMB_S.png"))), "0", "1", "1"}) +
                "                       1  it is damaged\n");
  const std::map<std::string, json> objects = BySource(outcome.out);
  EXPECT_EQ(objects, (std::map<std::string, json>{{png, Object(png, {"small"}, {}, {"large"})},
                                                  {folder / "broken.png", Failed(folder / "broken.png", damaged)},
                                                  {"",
                                                   {{"summary", true},
                                                    {"files", 2},
                                                    {"made", 1},
                                                    {"found", 0},
                                                    {"not_needed", 1},
                                                    {"failed", 1},
                                                    {"failed_before", 0},
                                                    {"bytes", fs::file_size(EntryOf(png, "TAVIFILE_THUMB_S.png"))},
                                                    {"expected_seconds", nullptr},
                                                    {"passed_over", json::array()},
                                                    {"interrupted", false},
                                                    {"by_library", json::array()},
                                                    {"reasons", {{{"reason", damaged}, {"files", 1}}}}}}}));
}

TEST_F(Make, MakesTheSameAsGet) {
  const std::string copy = folder / "copy.png";
  MakePng(png, 1500, 1400);
  fs::copy_file(png, copy);
  ASSERT_EQ(run({"make", png}).code, 0);
  for (const char* size : {"small", "medium", "big", "large", "xlarge"}) {
    ASSERT_EQ(run({"get", "--size", size, copy}).code, 0);
  }
  EXPECT_EQ(Entries(png),
            (Strings{"TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_M.png", "TAVIFILE_THUMB_S.png", "TAVIFILE_THUMB_XL.png"}));
  EXPECT_EQ(Entries(copy), Entries(png));
  for (const std::string& entry : Entries(png)) {
    EXPECT_EQ(Identify(EntryOf(copy, entry)).width, Identify(EntryOf(png, entry)).width) << entry;
    EXPECT_LT(Difference(EntryOf(copy, entry), EntryOf(png, entry)), 0.01) << entry;
    EXPECT_EQ(ModificationTime(EntryOf(png, entry)), ModificationTime(png));
  }
}

TEST_F(Make, ProcessesThePhotosInFoldersAndSkipsTheRest) {
  MakePng(png, 200, 100);
  fs::create_directories(folder / "top/sub/.hidden");
  for (const char* taken : {"top/a.PNG", "top/.b.png", "top/sub/c.png", "top/sub/.hidden/d.png"}) {
    fs::copy_file(png, folder / taken);
  }
  fs::create_symlink(png, folder / "top/link.png");
  fs::create_symlink("nowhere", folder / "top/dangling.png");
  for (const char* passed : {"top/a.txt", "top/clip.mp4", "top/.tavi_ea/a.PNG/b.png", "else/e.png"}) {
    WriteFile(folder / passed, ReadFile(png));
  }
  fs::create_directory_symlink(folder / "else", folder / "top/linked");
  fs::create_directory_symlink(folder / "else", folder / "top/linked.png");
  ASSERT_EQ(mkfifo((folder / "top/pipe.png").c_str(), 0600), 0);
  ExpectSources({folder / "top", "--no-videos"},
                {folder / "top/a.PNG", folder / "top/.b.png", folder / "top/sub/c.png", folder / "top/link.png",
                 folder / "top/dangling.png", folder / "top/sub/.hidden/d.png"});
  ExpectSources({folder / "top/linked"}, {folder / "top/linked/e.png"});
}

struct Named {
  std::string name;
  std::string problem;
};

TEST_F(Make, SaysWhyAFileGivenByNameFails) {
  MakePng(png, 20, 10);
  WriteFile(folder / "text.txt", "");
  WriteFile(folder / "other.jpg", std::string(1000, 'x'));
  WriteFile(folder / ".tavi_ea/a.jpg/TAVIFILE_THUMB_S.jpg", "");
  fs::create_directory(folder / "empty");
  ASSERT_EQ(mkfifo((folder / "pipe.png").c_str(), 0600), 0);
  const std::vector<Named> rows = {
      {"", "it does not exist; check its name"},
      {"missing.png", "it does not exist; check its name"},
      {"picture.png/", "it does not exist; check its name"},
      {"new\nline.png", "it does not exist; check its name"},
      {"text.txt", "it is not a photo or video by its name; give it the right extension, such as .jpg or .mp4"},
      {"pipe.png", "it is not a regular file; name a photo or video file"},
      {"other.jpg", "its content is not in a known image format; check that it opens in another program"},
      {".tavi_ea", "it is a thumbnail folder; name the folder that holds the photos"},
      {".tavi_ea/a.jpg", "it is a thumbnail folder; name the folder that holds the photos"},
  };
  for (const Named& row : rows) {
    SCOPED_TRACE(row.name);
    const Outcome outcome = run({"make", "--", row.name}, In(folder.Path()));
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "tavithumb: " + Replaced(row.name, "\n", "\\n") + ": " + row.problem + "\n");
    EXPECT_EQ(WithoutTime(outcome.out), Table({"1", "0", "0", "0", "0", "1"}) + "                       1  " +
                                            row.problem.substr(0, row.problem.find(';')) + "\n");
  }
  EXPECT_EQ(WithoutTime(run({"make", "empty"}, In(folder.Path())).out), Table({"0", "0", "0", "0", "0", "0"}));
}

TEST_F(Make, FindsTheScreenshotOfAVideoForEverySize) {
  WriteFile(folder / "clip.mp4", "");
  fs::create_directories(fs::path(EntryOf(folder / "clip.mp4", "")));
  WriteFile(EntryOf(folder / "clip.mp4", "TAVIVIDEO_VIDEO_SCREENSHOT.jpg"), "screenshot");
  const Outcome outcome = run({"make", "--sizes", "small,big", "--json", folder / "clip.mp4"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(BySource(outcome.out).at(folder / "clip.mp4"), Object(folder / "clip.mp4", {}, {"small", "big"}));
}

TEST_F(Make, ReadsNamesFromAFileOrStandardInput) {
  const std::string odd = folder / "new\nline \xff.png";
  const std::string inFolder = folder / "sub/a.png";
  MakePng(png, 20, 10);
  fs::create_directory(folder / "sub");
  fs::copy_file(png, odd);
  fs::copy_file(png, inFolder);
  WriteFile(folder / "lines", "picture.png\n\n" + (folder / "sub") + "\npicture.png");
  WriteFile(folder / "nuls", std::string("picture.png\0\0sub\0", 17) + odd + '\0');
  Start start = In(folder.Path());
  ExpectSources({"--files-from", "lines"}, {png, inFolder}, start);
  ExpectSources({"--files-from", "lines", "sub"}, {png, inFolder}, start);
  start.input = folder / "nuls";
  const Outcome outcome = run({"make", "--dry-run", "--json", "-0", "--files-from", "-"}, start);
  EXPECT_EQ(outcome.err.find("tavithumb:"), std::string::npos);
  std::map<std::string, json> objects = BySource(outcome.out);
  EXPECT_EQ(objects.size(), 4u);
  std::string hex;
  for (const unsigned char byte : odd) {
    hex += "0123456789abcdef"[byte >> 4];
    hex += "0123456789abcdef"[byte & 15];
  }
  EXPECT_EQ(objects.at(folder / "new\nline \xef\xbf\xbd.png").at("source_hex"), hex);
}

// As listed by `find`: folders and thumbnails included.
TEST_F(Make, SkipsThumbnailsAndOtherTypesInAList) {
  MakePng(png, 300, 200);
  WriteFile(folder / "notes.txt", "no photo");
  ASSERT_EQ(run({"make", "--sizes", "small", png}).code, 0);
  const std::string thumbnail = EntryOf(png, "TAVIFILE_THUMB_S.png");
  Start start = In(folder.Path());
  start.input = folder / "names";
  WriteFile(start.input, folder.Path() + "\nnotes.txt\n.tavi_ea\n" + thumbnail + "\n" + png + "\n");
  ExpectSources({"--files-from", "-"}, {png}, start);
}

TEST_F(Make, SaysThatAThumbnailCannotHaveAThumbnail) {
  MakePng(png, 300, 200);
  ASSERT_EQ(run({"make", "--sizes", "small", png}).code, 0);
  const std::string thumbnail = EntryOf(png, "TAVIFILE_THUMB_S.png");
  MakePng(thumbnail, 300, 200);
  const Outcome outcome = run({"make", "--sizes", "small,big", thumbnail});
  EXPECT_EQ(outcome.code, 1) << outcome;
  EXPECT_EQ(outcome.err, "tavithumb: " + thumbnail +
                             ": there is no place for a thumbnail next to it; copy it to an ordinary folder with a "
                             "shorter path\n");
}

TEST_F(Make, StartsBeforeTheListIsComplete) {
  const std::string other = folder / "other.png";
  MakePng(png, 200, 100);
  MakePng(other, 200, 100);
  ASSERT_EQ(mkfifo((folder / "list").c_str(), 0600), 0);
  const pid_t process = run.Begin({"make", "--sizes", "small", "--jobs", "1", "--files-from", folder / "list"});
  std::ofstream list(folder / "list");
  for (const std::string& source : {png, other}) {
    list << source << std::endl;
    while (!Exists(EntryOf(source, "TAVIFILE_THUMB_S.png"))) usleep(1000);
  }
  list.close();
  EXPECT_EQ(run.Await(process).code, 0);
}

TEST_F(Make, RejectsAListWithoutSeparators) {
  MakePng(png, 20, 10);
  WriteFile(folder / "list", png + "\n" + std::string(70000, 'x') + "\n" + png + "\n");
  const Outcome whole = run({"make", "--files-from", folder / "list"});
  EXPECT_EQ(whole.code, 1);  // a name that the system can't look up
  WriteFile(folder / "list", png + "\n" + std::string(200000, 'x'));
  const Outcome outcome = run({"make", "--files-from", folder / "list"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "tavithumb: " + (folder / "list") +
                             ": it contains a name of more than 65536 bytes; add -0 if its names end with NUL bytes\n");
  EXPECT_EQ(WithoutTime(outcome.out).substr(0, 32), Table({"2", "0", "0", "0", "5", "1"}).substr(0, 32));
}

TEST_F(Make, OlderRegeneratesOnlyStaleThumbnails) {
  MakePng(png, 800, 600);
  WriteFile(EntryOf(png, "TAVIFILE_THUMB_S.png"), "stale");
  WriteFile(EntryOf(png, "TAVIFILE_THUMB_M.png"), "fresh");
  SetTimes(EntryOf(png, "TAVIFILE_THUMB_S.png"), 1, ModificationTime(png) - 1);
  SetTimes(EntryOf(png, "TAVIFILE_THUMB_M.png"), 1, ModificationTime(png));
  const Outcome outcome = run({"make", "--older", "--json", png});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(BySource(outcome.out).at(png), Object(png, {"small"}, {"medium"}));
  EXPECT_EQ(Entries(png), (Strings{"TAVIFILE_THUMB_M.png", "TAVIFILE_THUMB_S.png"}));
  EXPECT_EQ(Identify(EntryOf(png, "TAVIFILE_THUMB_S.png")).width, 120);
  EXPECT_EQ(ReadFile(EntryOf(png, "TAVIFILE_THUMB_M.png")), "fresh");
}

TEST_F(Make, LimitCountsFilesThatThumbnailsWereMadeFor) {
  fs::create_directory(folder / "all");
  for (const char* name : {"a", "b", "c", "d", "e"}) MakePng(folder / "all/" + name + ".png", 200, 100);
  ASSERT_EQ(run({"make", "--sizes", "small", folder / "all/b.png"}).code, 0);
  const Strings arguments = {"make", "--sizes", "small", "--jobs", "3", "--limit", "3", "--json", folder / "all"};
  const auto made = [this] {
    std::size_t count = 0;
    for (const char* name : {"a", "b", "c", "d", "e"}) {
      count += Exists(EntryOf(folder / "all/" + name + ".png", "TAVIFILE_THUMB_S.png")) ? 1 : 0;
    }
    return count;
  };
  const Outcome first = run(arguments);
  EXPECT_EQ(first.code, 0);
  EXPECT_EQ(made(), 4u);
  EXPECT_EQ(BySource(first.out).at("").at("made"), 3);
  EXPECT_EQ(first.err.substr(0, first.err.find('\n')),
            "tavithumb: stopped after making thumbnails for 3 files, the --limit; more may remain: run it again to "
            "continue from there");
  const Outcome second = run(arguments);
  EXPECT_EQ(second.code, 0);
  EXPECT_EQ(made(), 5u);
  EXPECT_EQ(BySource(second.out).at("").at("files"), 5);
  EXPECT_EQ(second.err.find("tavithumb:"), std::string::npos);
}

TEST_F(Make, CountsWhatItPassesOverAndNamesTheSlowestAndWhatFailed) {
  MakePng(png, 200, 100);
  WriteFile(folder / "broken.png", "");
  for (const char* name : {"notes.txt", "more.TXT", "a.pdf", "b.gif"}) WriteFile(folder / name, "text");
  const Outcome outcome = run({"make", "-s", "small", "--exclude", "*.gif", folder.Path()});
  const std::string end =
      "passed over            4  files: 2 txt, 1 excluded, 1 pdf\n"
      "failed                 1  files\n"
      "                       1  it is damaged: " +
      (folder / "broken.png") +
      "\n"
      "slowest            N s  " +
      png + "\n";
  EXPECT_EQ(Replaced(outcome.out.substr(outcome.out.find("passed over")), "[0-9]+\\.[0-9] s", "N s"), end);
}

TEST_F(Make, LeavesOutFilesThatHaveNotChangedSinceADateOrAFile) {
  MakePng(png, 200, 100);
  WriteFile(folder / "mark", "");
  SetTimes(folder / "mark", 1, 1);
  EXPECT_EQ(WithoutTime(run({"make", "-s", "small", "--newer-than", "2999-01-01", folder.Path()}).out).substr(0, 26),
            "files                  0  ");
  EXPECT_EQ(WithoutTime(run({"make", "-s", "small", "--newer-than", folder / "mark", folder.Path()}).out).substr(0, 26),
            "files                  1  ");
  EXPECT_EQ(Entries(png), Strings{"TAVIFILE_THUMB_S.png"});
}

TEST_F(Make, PrintsALineForEachFileOrProblemsOnly) {
  MakePng(png, 200, 100);
  WriteFile(folder / "broken.png", "");
  const std::string problem = "tavithumb: " + (folder / "broken.png") + ": it is damaged; get a fresh copy of it\n";
  const Outcome verbose = run({"make", "-v", "--jobs", "1", "-s", "small,big", png, folder / "broken.png"});
  EXPECT_EQ(verbose.out.substr(0, verbose.out.find("files  ")),
            png + ": made small; not needed big\n" + (folder / "broken.png") + ": failed\n");
  EXPECT_EQ(verbose.err, problem);
  for (const Strings& options : {Strings{"-q"}, Strings{"--quiet", "--dry-run"}}) {
    Strings arguments = {"make", "--retry", folder.Path()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const Outcome quiet = run(arguments);
    EXPECT_EQ(quiet.code, 1);
    EXPECT_EQ(quiet.out, "");
    EXPECT_EQ(quiet.err, problem);
  }
  const Outcome objects = run({"make", "-q", "--json", "--retry", folder.Path()});
  EXPECT_EQ(BySource(objects.out).size(), 3u);
  EXPECT_EQ(objects.err, problem);
}

TEST_F(Make, DryRunPrintsWhatWouldBeMadeAndWritesNothing) {
  MakePng(png, 1500, 1400);
  const std::string small = folder / "small.png";
  MakePng(small, 100, 100);
  const Outcome outcome = Probed({"make", "--dry-run", folder.Path()});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  std::string table = Table({"2", "4", "0", "1", "5", "0"});
  table.replace(table.find("made          "), 14, "would be made ");
  table.replace(table.find(", 0 bytes"), 9, ", about BYTES, in about TIME");
  const std::string printed =
      Replaced(WithoutTime(outcome.out), "about [0-9.]+ .B, in about [0-9]+ s", "about BYTES, in about TIME");
  EXPECT_EQ(printed, png + ": small, medium, big, large\n" + table);
  EXPECT_EQ(Names(folder.Path()), (Strings{"picture.png", "small.png"}));
  EXPECT_EQ(Count("runs "), 0u);
  const Outcome told = run({"make", "--dry-run", "--json", png});
  EXPECT_EQ(BySource(told.out).at(png), Object(png, {"small", "medium", "big", "large"}, {"xlarge"}));
  EXPECT_EQ(BySource(run({"make", "--json", png}).out).at(png),
            Object(png, {"small", "medium", "big", "large"}, {"xlarge"}));
}

// The small size is made from the preview although the source could be served.
TEST_F(Make, DryRunKnowsThatAPreviewWouldBeStored) {
  const std::string jpeg = folder / "photo.jpg";
  const std::string preview = folder / "preview";
  MakeJpeg(jpeg, 120, 110);
  MakeJpeg(preview, 118, 104);
  SetPreview(jpeg, preview);
  const json would =
      BySource(run({"make", "--library", "--sizes", "small,big", "--dry-run", "--json", jpeg}).out).at(jpeg);
  EXPECT_EQ(Names(folder.Path()), (Strings{"photo.jpg", "preview"}));
  EXPECT_EQ(would, Object(jpeg, {"small"}, {}, {"big"}));
  EXPECT_EQ(BySource(run({"make", "--library", "--sizes", "small,big", "--json", jpeg}).out).at(jpeg), would);
}

TEST_F(Make, FindsThumbnailsMadeForASourceWithoutFacts) {
  const std::string sample = SamplesFolder() + "/raw/SigmaDP2.x3f";
  if (!Exists(sample)) GTEST_SKIP() << "needs the sample raw/SigmaDP2.x3f";
  const std::string raw = folder / "raw.x3f";
  fs::copy_file(sample, raw);
  json expected = Object(raw, {"small"});
  expected["by_library"] = "unsupported";
  EXPECT_EQ(BySource(run({"make", "--sizes", "small", "--json", raw}).out).at(raw), expected);
  EXPECT_EQ(BySource(run({"make", "--sizes", "small", "--json", raw}).out).at(raw), Object(raw, {}, {"small"}));
}

TEST_F(Make, LeavesNothingOnAVolumeThatCannotStoreEntries) {
  MakePng(png, 200, 100);
  Start start;
  start.environment = Preloading(NO_EA_VOLUME);
  const Strings before = TemporaryFiles();
  const Outcome outcome = run({"make", "--sizes", "small,medium", "--json", png}, start);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err.substr(0, outcome.err.find('\n')),
            "tavithumb: " + png +
                ": thumbnails cannot be stored on its volume; request them one by one with 'tavithumb get', or copy it "
                "to a local disk");
  json expected = Object(png, {}, {}, {"medium"});
  expected["failed"] = {{{"size", "small"}, {"error", "thumbnails cannot be stored on its volume"}}};
  EXPECT_EQ(BySource(outcome.out).at(png), expected);
  EXPECT_EQ(Names(folder.Path()), Strings{"picture.png"});
  for (const std::string& path : TemporaryFiles()) {
    EXPECT_EQ(path.find("TAVIFILETMP_THUMB.png_" + std::to_string(outcome.process)), std::string::npos) << path;
  }
}

// A folder that can't be read, one that can't be written to, and a file that can't be read.
TEST_F(Make, ContinuesAfterPermissionErrors) {
  const std::string why = CommandRunner::WhyNotAs(kNobody);
  if (!why.empty()) GTEST_SKIP() << why;
  fs::permissions(folder.Path(), fs::perms::all);
  for (const char* name : {"closed/a.png", "fixed/b.png", "secret.png", "fine.png"}) {
    fs::create_directories(fs::path(folder / name).parent_path());
    MakePng(folder / name, 200, 100);
  }
  fs::permissions(folder / "closed", fs::perms::owner_all);
  fs::permissions(folder / "fixed", fs::perms(0755));
  fs::permissions(folder / "secret.png", fs::perms::owner_all);
  Start start = In(folder.Path());
  start.user = kNobody;
  const Outcome outcome = run({"make", "--sizes", "small", "--jobs", "1", "."}, start);
  EXPECT_EQ(outcome.code, 1);
  std::istringstream lines(outcome.err);
  Strings said;
  for (std::string line; std::getline(lines, line);) said.push_back(line);
  std::sort(said.begin(), said.end());
  EXPECT_EQ(said, (Strings{"tavithumb: ./closed: permission denied; ask its owner for read permission",
                           "tavithumb: ./fixed/b.png: no thumbnail can be written next to it; make its folder "
                           "writable, or work on a copy",
                           "tavithumb: ./secret.png: permission denied; ask its owner for read permission"}));
  const auto bytes = fs::file_size(EntryOf(folder / "fine.png", "TAVIFILE_THUMB_S.png"));
  EXPECT_EQ(WithoutTime(outcome.out), Table({"4", "1", std::to_string(bytes), "0", "0", "3"}) +
                                          "                       2  permission denied\n"
                                          "                       1  no thumbnail can be written next to it\n");
}

TEST_F(Make, SaysThatTheDiskIsFull) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string disk = folder / "disk";
  fs::create_directory(disk);
  if (mount("none", disk.c_str(), "tmpfs", 0, "size=64k") != 0) GTEST_SKIP() << "needs a file system to be mounted";
  MakePng(disk + "/a.png", 200, 100);
  fs::copy_file(disk + "/a.png", disk + "/b.png");
  std::ofstream(disk + "/rest") << std::string(100000, 'x');
  const Outcome outcome = run({"make", "--sizes", "small", "--jobs", "1", disk + "/a.png", disk + "/b.png"});
  const Strings left = Names(disk);
  umount(disk.c_str());
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 2);
  EXPECT_NE(outcome.err.find("/disk/a.png: the disk is full; free some space on it\n"), std::string::npos)
      << outcome.err;
  EXPECT_NE(outcome.err.find("/disk/b.png: the disk is full; free some space on it\n"), std::string::npos)
      << outcome.err;
  EXPECT_EQ(WithoutTime(outcome.out),
            Table({"2", "0", "0", "0", "0", "2"}) + "                       2  the disk is full\n");
}

TEST_F(Make, StopsWhenItsOutputIsClosed) {
  for (const char* name : {"a", "b", "c"}) MakePng(folder / (std::string(name) + ".png"), 200, 100);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  Start start;
  start.outputDescriptor = ends[1];
  const Outcome outcome = run({"make", "--sizes", "small", "--jobs", "1", "--json", folder.Path()}, start);
  close(ends[1]);
  EXPECT_EQ(outcome.code, 128 + SIGPIPE);
  EXPECT_EQ(outcome.err, "");
  std::size_t made = 0;
  for (const char* name : {"a", "b", "c"}) {
    made += Exists(EntryOf(folder / (std::string(name) + ".png"), "TAVIFILE_THUMB_S.png")) ? 1 : 0;
  }
  EXPECT_EQ(made, 1u);
}

TEST_F(Make, MakesNothingTwiceInTwoRunsAtOnce) {
  for (int i = 0; i < 10; ++i) MakePng(folder / std::to_string(i) + ".png", 200, 100);
  const BatchRunner other;
  const Strings arguments = {"make", "--sizes", "small", "--jobs", "2", "--json", folder.Path()};
  const pid_t process = run.Begin(arguments);
  const Outcome two = other(arguments);
  const Outcome one = run.Await(process);
  EXPECT_EQ(one.code, 0) << one.err;
  EXPECT_EQ(two.code, 0) << two.err;
  const json first = BySource(one.out).at("");
  const json second = BySource(two.out).at("");
  EXPECT_EQ(first.at("made").get<int>() + second.at("made").get<int>(), 10);
  EXPECT_EQ(first.at("found").get<int>() + second.at("found").get<int>(), 10);
}

TEST_F(Make, TakesNoTimeForAFolderOfThumbnails) {
  fs::create_directories(folder / ".tavi_ea");
  const Outcome outcome = run({"make", "--json", folder / ".tavi_ea"});
  EXPECT_NE(outcome.out.find("\"milliseconds\":0.0,"), std::string::npos) << outcome;
}

}  // namespace
}  // namespace tavithumb::test
