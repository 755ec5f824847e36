// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <temp_dir.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "ordinary_user.h"
#include "thumbs/stills.h"
#include "web/http_error.h"
#include "web/listing.h"

namespace fs = std::filesystem;

namespace tavithumb::apps::web {
namespace {

using Lines = std::vector<std::string>;

constexpr std::time_t kTaken = 1700000000;

// Each entry in one line, all of its fields; the folders that can't be read, if any, at the end.
Lines Describe(const Listing& listing) {
  Lines lines;
  for (const ListedFolder& folder : listing.folders) {
    lines.push_back("folder " + folder.name + " " + folder.url +
                    (folder.photos ? " " + std::to_string(*folder.photos) : "") +
                    (folder.cover.empty() ? "" : " cover " + folder.cover));
  }
  for (const ListedFile& file : listing.files) {
    lines.push_back(std::string(file.isVideo ? "video " : "image ") + file.name + " " + file.url + " " + file.type +
                    " " + std::to_string(file.bytes) + " " + std::to_string(file.modified) +
                    (file.HasOriginal() ? " original" : "") + (file.hasScreenshot ? " screenshot" : ""));
  }
  if (listing.unreadable > 0) lines.push_back("unreadable " + std::to_string(listing.unreadable));
  return lines;
}

std::string ErrorOf(const Roots& roots, const std::vector<std::string>& path) {
  try {
    ListFolder(roots, path, false);
    return "";
  } catch (const HttpError& error) {
    return std::to_string(error.Code()) + " " + error.what();
  }
}

class Lists : public testing::Test {
 protected:
  Lists() {
    chmod(folder_.Path().c_str(), 0755);
    fs::create_directory(folder_ / "shown");
  }

  std::string Shown(const std::string& name) const { return folder_ / ("shown/" + name); }
  void Add(const std::string& name, const std::string& content = "abc") const {
    test::WriteFile(Shown(name), content);
    test::SetTimes(Shown(name), kTaken, kTaken);
  }
  void AddScreenshot(const std::string& video, std::time_t time) const {
    const std::string path = Shown(".tavi_ea/" + video + "/TAVIVIDEO_VIDEO_SCREENSHOT.jpg");
    test::WriteFile(path, "picture");
    test::SetTimes(path, time, time);
  }
  Roots Only(bool showsHidden = false) const { return {{ParseRoot(folder_ / "shown")}, showsHidden}; }
  Lines InFolder() const { return Describe(ListFolder(Only(), {}, false)); }

  test::TempDir folder_;
  const std::string still = IsStillToolInstalled() ? " screenshot" : "";
};

TEST_F(Lists, HaveSupportedFilesInOrder) {
  for (const char* name :
       {"b.jpg", "B.JPEG", "a.txt",  "a",      "jpg",   ".jpg",  "c.jpe", "\xc3\xa4.png", "d.gif", "e.bmp",    "f.heic",
        "g.nef", "h.MP4",  "i.webp", "j.AVIF", "k.jxl", "l.hif", "m.CR3", "10.tif",       "9.tif", "a b&%.jpg"}) {
    Add(name);
  }
  for (const char* name : {"z", "Z", "folder.jpg", ".hidden"}) fs::create_directory(Shown(name));
  EXPECT_EQ(InFolder(), (Lines{"folder Z Z 0",
                               "folder folder.jpg folder.jpg 0",
                               "folder z z 0",
                               "image 10.tif 10.tif tif 3 1700000000",
                               "image 9.tif 9.tif tif 3 1700000000",
                               "image B.JPEG B.JPEG jpeg 3 1700000000 original",
                               "image a b&%.jpg a%20b%26%25.jpg jpg 3 1700000000 original",
                               "image b.jpg b.jpg jpg 3 1700000000 original",
                               "image c.jpe c.jpe jpe 3 1700000000 original",
                               "image d.gif d.gif gif 3 1700000000 original",
                               "image e.bmp e.bmp bmp 3 1700000000 original",
                               "image f.heic f.heic heic 3 1700000000",
                               "image g.nef g.nef nef 3 1700000000",
                               "video h.MP4 h.MP4 mp4 3 1700000000 original" + still,
                               "image i.webp i.webp webp 3 1700000000 original",
                               "image j.AVIF j.AVIF avif 3 1700000000 original",
                               "image jpg jpg jpg 3 1700000000 original",
                               "image k.jxl k.jxl jxl 3 1700000000",
                               "image l.hif l.hif hif 3 1700000000",
                               "image m.CR3 m.CR3 cr3 3 1700000000",
                               "image \xc3\xa4.png %C3%A4.png png 3 1700000000 original"}));
}

TEST_F(Lists, LinkToSubfoldersByTheirFullAddress) {
  Add("a b/c/d.jpg");
  fs::create_directory(Shown("a b/c/e"));
  const Listing listing = ListFolder(Only(), {"a b", "c"}, false);
  EXPECT_EQ(Describe(listing), (Lines{"folder e a%20b/c/e 0", "image d.jpg a%20b/c/d.jpg jpg 3 1700000000 original"}));
  EXPECT_EQ(listing.path, (std::vector<std::string>{"a b", "c"}));
}

TEST_F(Lists, OmitWhatCannotBeAccessed) {
  Add("a.jpg");
  test::WriteFile(folder_ / "secret.jpg", "");
  const std::pair<const char*, const char*> links[] = {
      {"broken.jpg", "missing.jpg"}, {"loop.jpg", "loop.jpg"},
      {"out.jpg", "../secret.jpg"},  {"outside", ".."},
      {"thumbs", ".tavi_ea"},        {"thumb.jpg", ".tavi_ea/a.jpg/x.jpg"}};
  for (const auto& [name, target] : links) fs::create_symlink(target, Shown(name));
  Add(".tavi_ea/a.jpg/x.jpg");
  ASSERT_EQ(mkfifo(Shown("pipe.jpg").c_str(), 0644), 0);
  EXPECT_EQ(InFolder(), Lines{"image a.jpg a.jpg jpg 3 1700000000 original"});
}

TEST_F(Lists, ShowTargetsOfLinksInsideUnderTheNamesOfTheLinks) {
  Add("sub/a.jpg", "12345");
  fs::create_symlink("sub/a.jpg", Shown("link.jpg"));
  fs::create_symlink("sub", Shown("linked"));
  EXPECT_EQ(InFolder(), (Lines{"folder linked linked 1 cover linked/a.jpg", "folder sub sub 1 cover sub/a.jpg",
                               "image link.jpg link.jpg jpg 5 1700000000 original"}));
}

TEST_F(Lists, ShowHiddenNamesOnlyIfConfigured) {
  Add(".a.jpg");
  Add(".tavi_ea/a.jpg/x.jpg");
  fs::create_directory(Shown(".sub"));
  EXPECT_EQ(InFolder(), Lines());
  EXPECT_EQ(Describe(ListFolder(Only(true), {}, false)),
            (Lines{"folder .sub .sub 0", "image .a.jpg .a.jpg jpg 3 1700000000 original"}));
}

TEST_F(Lists, SayWhichVideosHaveAnUpToDateScreenshotOrCanHaveAStill) {
  const std::pair<const char*, std::time_t> rows[] = {
      {"older.mp4", kTaken - 1}, {"same.mp4", kTaken}, {"newer.mp4", kTaken + 1}};
  for (const auto& [name, time] : rows) {
    Add(name);
    AddScreenshot(name, time);
  }
  Add("none.mp4");
  Add("sound.m4a");
  Add("a.jpg");
  AddScreenshot("a.jpg", kTaken);
  EXPECT_EQ(InFolder(), (Lines{"image a.jpg a.jpg jpg 3 1700000000 original",
                               "video newer.mp4 newer.mp4 mp4 3 1700000000 original screenshot",
                               "video none.mp4 none.mp4 mp4 3 1700000000 original" + still,
                               "video older.mp4 older.mp4 mp4 3 1700000000 original" + still,
                               "video same.mp4 same.mp4 mp4 3 1700000000 original screenshot",
                               "video sound.m4a sound.m4a m4a 3 1700000000"}));
}

TEST_F(Lists, PromiseNoStillsWhereTheLibraryMakesTheThumbnails) {
  for (const char* name : {"none.mp4", "stored.mp4"}) Add(name);
  AddScreenshot("stored.mp4", kTaken);
  EXPECT_EQ(Describe(ListFolder(Only(), {}, true)),
            (Lines{"video none.mp4 none.mp4 mp4 3 1700000000 original",
                   "video stored.mp4 stored.mp4 mp4 3 1700000000 original screenshot"}));
}

TEST_F(Lists, CountFoldersThatCannotBeRead) {
  const std::pair<const char*, mode_t> folders[] = {
      {"closed", 0}, {"listable", 0444}, {"open", 0555}, {"passable", 0111}};
  for (const auto& [name, mode] : folders) {
    fs::create_directories(Shown(name) + "/inner");
    chmod(Shown(name).c_str(), mode);
  }
  Add("a.jpg");
  chmod(Shown("a.jpg").c_str(), 0);
  fs::create_symlink("closed/inner", Shown("link"));
  test::CheckAsOrdinaryUser([this] {
    EXPECT_EQ(InFolder(), (Lines{"folder open open 0", "image a.jpg a.jpg jpg 3 1700000000 original", "unreadable 4"}));
    for (const char* name : {"closed", "listable", "passable"}) {
      EXPECT_EQ(ErrorOf(Only(), {name}), "403 permission denied") << name;
    }
    EXPECT_EQ(Describe(ListFolder(Only(), {"open"}, false)), Lines{"folder inner open/inner 0"});
  });
  for (const auto& [name, mode] : folders) chmod(Shown(name).c_str(), 0700);
}

TEST_F(Lists, ShowRootsByTheirNames) {
  for (const char* name : {"b", "a", "gone", "closed"}) fs::create_directory(folder_ / name);
  const Roots roots({ParseRoot("a=" + (folder_ / "a")), ParseRoot("gone=" + (folder_ / "gone")),
                     ParseRoot("closed=" + (folder_ / "closed")), ParseRoot("Z b=" + (folder_ / "b"))},
                    false);
  fs::remove(folder_ / "gone");
  chmod((folder_ / "closed").c_str(), 0);
  test::WriteFile(folder_ / "a/x.jpg", "abc");
  test::SetTimes(folder_ / "a/x.jpg", kTaken, kTaken);
  test::CheckAsOrdinaryUser([&] {
    EXPECT_EQ(Describe(ListFolder(roots, {}, false)),
              (Lines{"folder Z b Z%20b 0", "folder a a 1 cover a/x.jpg", "unreadable 1"}));
    EXPECT_EQ(Describe(ListFolder(roots, {"a"}, false)), Lines{"image x.jpg a/x.jpg jpg 3 1700000000 original"});
    EXPECT_EQ(ErrorOf(roots, {"gone"}), "404 there is nothing here");
    EXPECT_EQ(ErrorOf(roots, {"closed"}), "403 permission denied");
  });
  chmod((folder_ / "closed").c_str(), 0700);
}

TEST_F(Lists, CountTheFilesOfFoldersAndNameTheirFirstPhotos) {
  for (const char* name : {"mixed/a.mp4", "mixed/b.nef", "mixed/c.txt", "mixed/d.jpg", "mixed/.e.jpg", "films/a.mp4"})
    Add(name);
  fs::create_directories(Shown("years/2024"));
  EXPECT_EQ(InFolder(),
            (Lines{"folder films films 1", "folder mixed mixed 3 cover mixed/b.nef", "folder years years 0"}));
}

TEST_F(Lists, StopCountingAfterSoManyNames) {
  for (const char* name : {"a/1.jpg", "a/2.jpg", "b/1.jpg", "c/1.jpg"}) Add(name);
  EXPECT_EQ(Describe(ListFolder(Only(), {}, false, 3)),
            (Lines{"folder a a 2 cover a/1.jpg", "folder b b 1 cover b/1.jpg", "folder c c"}));
}

TEST_F(Lists, AreOnlyForFolders) {
  Add("a.jpg");
  fs::create_symlink("..", Shown("out"));
  for (const char* name : {"missing", "a.jpg", "out", ".tavi_ea"}) {
    EXPECT_EQ(ErrorOf(Only(), {name}), "404 there is nothing here") << name;
  }
}

TEST(ListAsJson, IsOneLineWithAllThatIsKnown) {
  const Listing listing = {{"a b", "c"},
                           {{"sub\"", "a%20b/c/sub%22", 3, "a%20b/c/sub%22/x.jpg"}, {"\xff", "a%20b/c/%FF", {}, ""}},
                           {{"x.jpg", "a%20b/c/x.jpg", false, "jpg", 5000000000, -1, false},
                            {"\xfe.nef", "a%20b/c/%FE.nef", false, "nef", 0, 1, false},
                            {"v.mp4", "a%20b/c/v.mp4", true, "mp4", 1, 2, true},
                            {"w.mp4", "a%20b/c/w.mp4", true, "mp4", 1, 2, false}},
                           3};
  EXPECT_EQ(ListAsJson(listing),
            R"({"path":"a b/c","folders":[{"name":"sub\"","url":"a%20b/c/sub%22","photos":3,)"
            R"("cover":"a%20b/c/sub%22/x.jpg"},)"
            "{\"name\":\"\xef\xbf\xbd\",\"name_hex\":\"ff\",\"url\":\"a%20b/c/%FF\"}],"
            R"("files":[{"name":"x.jpg","url":"a%20b/c/x.jpg","kind":"image","type":"jpg","bytes":5000000000,)"
            R"("modified":-1,"original":true},)"
            "{\"name\":\"\xef\xbf\xbd.nef\",\"name_hex\":\"fe2e6e6566\","
            R"("url":"a%20b/c/%FE.nef","kind":"image","type":"nef","bytes":0,"modified":1,"original":false},)"
            R"({"name":"v.mp4","url":"a%20b/c/v.mp4","kind":"video","type":"mp4","bytes":1,"modified":2,)"
            R"("original":true,"screenshot":true},)"
            R"({"name":"w.mp4","url":"a%20b/c/w.mp4","kind":"video","type":"mp4","bytes":1,"modified":2,)"
            R"("original":true,"screenshot":false}],"unreadable":3})"
            "\n");
  EXPECT_EQ(ListAsJson({{}, {}, {}, 0}), "{\"path\":\"\",\"folders\":[],\"files\":[],\"unreadable\":0}\n");
  EXPECT_EQ(ListAsJson({{"\xff"}, {}, {}, 0}),
            "{\"path\":\"\xef\xbf\xbd\",\"path_hex\":\"ff\",\"folders\":[],\"files\":[],\"unreadable\":0}\n");
}

TEST(ListAsHtml, IsACompletePage) {
  const Listing listing = {
      {"a b", "<c>"},
      {{"sub", "a%20b/%3Cc%3E/sub", 12, "a%20b/%3Cc%3E/sub/1.jpg"}, {"uncounted", "a%20b/%3Cc%3E/uncounted", {}, ""}},
      {{"x.jpg", "a%20b/%3Cc%3E/x.jpg", false, "jpg", 1, 1, false},
       {"y.nef", "a%20b/%3Cc%3E/y.nef", false, "nef", 1, 1, false},
       {"v.mp4", "a%20b/%3Cc%3E/v.mp4", true, "mp4", 1, 1, true},
       {"w.mp4", "a%20b/%3Cc%3E/w.mp4", true, "mp4", 1, 1, false},
       {"s.avi", "a%20b/%3Cc%3E/s.avi", true, "avi", 1, 1, true},
       {"t.avi", "a%20b/%3Cc%3E/t.avi", true, "avi", 1, 1, false}},
      2};
  EXPECT_EQ(ListAsHtml(listing, "/p"),
            R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>&lt;c&gt;</title>
<link rel="stylesheet" href="/p/page.css">
<link rel="icon" href="/p/icon.svg">
</head>
<body class="list">
)"
            R"(<header><h1>Photos</h1><nav aria-label="Folders"><ol class="crumbs">)"
            R"(<li><a href="/p/list/">All</a></li><li><a href="/p/list/a%20b">a b</a></li>)"
            R"(<li><a href="/p/list/a%20b/%3Cc%3E">&lt;c&gt;</a></li></ol></nav></header>
<main>
<ul class="folders">
<li><a href="/p/list/a%20b/%3Cc%3E/sub"><img src="/p/thumb/a%20b/%3Cc%3E/sub/1.jpg?size=small" w)"
            R"(idth="48" height="48" alt="" loading="lazy"><span class="name" dir="auto">sub</span><span class=)"
            R"("count">12 files</span></a></li>
<li><a href="/p/list/a%20b/%3Cc%3E/uncounted"><span class="name" dir="auto">uncounted</span></a>)"
            R"(</li>
</ul>
<ul class="grid">
<li><a class="tile" href="/p/original/a%20b/%3Cc%3E/x.jpg"><img src="/p/thumb/a%20b/%3Cc%3E/x.jp)"
            R"(g?size=medium" width="360" height="360" alt="" loading="lazy"><span class="name" dir="auto">x.jp)"
            R"(g</span></a><a class="download" href="/p/original/a%20b/%3Cc%3E/x.jpg?download=1" aria-label="Do)"
            R"(wnload x.jpg">Download</a></li>
<li><a class="tile" href="/p/thumb/a%20b/%3Cc%3E/y.nef?size=large"><img src="/p/thumb/a%20b/%3Cc)"
            R"(%3E/y.nef?size=medium" width="360" height="360" alt="" loading="lazy"><span class="name" dir="au)"
            R"(to">y.nef</span></a><a class="download" href="/p/original/a%20b/%3Cc%3E/y.nef?download=1" aria-l)"
            R"(abel="Download y.nef">Download</a></li>
<li><a class="tile" href="/p/original/a%20b/%3Cc%3E/v.mp4"><img src="/p/thumb/a%20b/%3Cc%3E/v.mp)"
            R"(4?size=medium" width="360" height="360" alt="" loading="lazy"><span class="name" dir="auto">v.mp)"
            R"(4</span></a><a class="download" href="/p/original/a%20b/%3Cc%3E/v.mp4?download=1" aria-label="Do)"
            R"(wnload v.mp4">Download</a></li>
<li><a class="tile" href="/p/original/a%20b/%3Cc%3E/w.mp4"><span class="placeholder">Video</span)"
            R"(><span class="name" dir="auto">w.mp4</span></a><a class="download" href="/p/original/a%20b/%3Cc%)"
            R"(3E/w.mp4?download=1" aria-label="Download w.mp4">Download</a></li>
<li><a class="tile" href="/p/thumb/a%20b/%3Cc%3E/s.avi?size=large"><img src="/p/thumb/a%20b/%3Cc)"
            R"(%3E/s.avi?size=medium" width="360" height="360" alt="" loading="lazy"><span class="name" dir="au)"
            R"(to">s.avi</span></a><a class="download" href="/p/original/a%20b/%3Cc%3E/s.avi?download=1" aria-l)"
            R"(abel="Download s.avi">Download</a></li>
<li><span class="tile"><span class="placeholder">Video</span><span class="name" dir="auto">t.avi)"
            R"(</span></span><a class="download" href="/p/original/a%20b/%3Cc%3E/t.avi?download=1" aria-label=")"
            R"(Download t.avi">Download</a></li>
</ul>
<p class="note">Folders that cannot be read: 2</p>
</main>
</body>
</html>
)");
}

TEST(ListAsHtml, SaysThatThereIsNothing) {
  const std::string page = ListAsHtml({{}, {}, {}, 0}, "");
  EXPECT_NE(page.find("<title>Photos</title>"), page.npos);
  EXPECT_NE(page.find("<ol class=\"crumbs\"><li><a href=\"/list/\">All</a></li></ol>"), page.npos);
  EXPECT_EQ(page.substr(page.find("<main>")),
            "<main>\n<p class=\"note\">There are no photos here.</p>\n</main>\n</body>\n</html>\n");
  EXPECT_EQ(ListAsHtml({{}, {}, {{"a.jpg", "url", false, "jpg", 1, 1, false}}, 0}, "").find("There are no photos"),
            page.npos);
}

TEST(ListAsHtml, SaysWhyNewThumbnailsAreNotStored) {
  const ListedFile photo = {"a.jpg", "url", false, "jpg", 1, 1, false};
  EXPECT_NE(
      ListAsHtml({{}, {}, {photo}, 0, "<full>"}, "")
          .find("</ul>\n<p class=\"note\">New thumbnails of a photo here are not stored: &lt;full&gt;.</p>\n</main>"),
      std::string::npos);
  EXPECT_EQ(ListAsHtml({{}, {}, {}, 0, "full"}, "").find("full"), std::string::npos);
}

TEST(ListAsHtml, EscapesNames) {
  const std::pair<const char*, const char*> rows[] = {{"<script>", "&lt;script&gt;"},
                                                      {"a&lt;b", "a&amp;lt;b"},
                                                      {"\" onclick=\"x", "&quot; onclick=&quot;x"},
                                                      {"it's", "it's"},
                                                      {"a\nb", "a\\nb"},
                                                      {"\xff", "\\xff"},
                                                      {"\xc3\xa4", "\xc3\xa4"}};
  for (const auto& [name, shown] : rows) {
    const std::string page =
        ListAsHtml({{name}, {{name, "url", {}, ""}}, {{name, "url", false, "jpg", 1, 1, false}}, 0}, "");
    EXPECT_NE(page.find(std::string("<title>") + shown + "</title>"), page.npos) << page;
    EXPECT_NE(page.find(std::string(">") + shown + "</a></li></ol>"), page.npos) << page;
    EXPECT_NE(
        page.find("<a href=\"/list/url\"><span class=\"name\" dir=\"auto\">" + (shown + std::string("</span></a>"))),
        page.npos)
        << page;
    EXPECT_NE(page.find(std::string("aria-label=\"Download ") + shown + "\">"), page.npos) << page;
    EXPECT_NE(page.find(std::string("<span class=\"name\" dir=\"auto\">") + shown + "</span>"), page.npos) << page;
  }
}

TEST(ListAsHtml, EscapesThePrefix) {
  const Listing listing = {{}, {{"a", "a", 1, "a/c.jpg"}}, {{"b.jpg", "b.jpg", false, "jpg", 1, 1, false}}, 0};
  const std::string page = ListAsHtml(listing, "/a&copy\"><b>");
  std::size_t found = 0;
  for (std::size_t at = page.find("\"/a&amp;copy&quot;&gt;&lt;b&gt;/"); at != page.npos;
       at = page.find("\"/a&amp;copy&quot;&gt;&lt;b&gt;/", at + 1)) {
    ++found;
  }
  EXPECT_EQ(found, 8U) << page;
  EXPECT_EQ(page.find("<b>"), page.npos);
}

}  // namespace
}  // namespace tavithumb::apps::web
