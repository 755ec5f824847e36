// SPDX-License-Identifier: GPL-3.0-or-later
// Every type of request, through real web servers.
#include <films.h>
#include <gtest/gtest.h>
#include <modern_pictures.h>
#include <pictures.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "site.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

constexpr char kJpeg[] = "image/jpeg";

PictureFacts FactsOf(const Response& response) {
  TempDir folder;
  WriteFile(folder / "picture", response.body);
  return Identify(folder / "picture");
}

std::string Describe(const Response& response) {
  const PictureFacts facts = FactsOf(response);
  return std::to_string(response.status) + " " + response.Header("content-type") + " " + facts.format + " " +
         std::to_string(facts.width) + "x" + std::to_string(facts.height);
}

std::string StoredEntry(const Site& site, const std::string& source, const std::string& entry) {
  return site.Photos() + "/.tavi_ea/" + source + "/" + entry;
}

Headers ErrorHeaders(const std::string& body) {
  return {{"cache-control", "no-store"},
          {"content-length", std::to_string(body.size())},
          {"content-type", "text/plain; charset=utf-8"},
          {"x-content-type-options", "nosniff"}};
}

// A delivery error after the library's caching header; the last header is effective.
void ExpectNeverStored(const Response& response) {
  EXPECT_EQ(std::count_if(response.headers.begin(), response.headers.end(),
                          [](const auto& header) { return header.first == "cache-control"; }),
            1);
  EXPECT_EQ(response.Header("cache-control"), "no-store");
  EXPECT_EQ(response.Header("content-type"), "text/plain; charset=utf-8");
  EXPECT_EQ(response.Header("x-content-type-options"), "nosniff");
}

class Answers : public testing::TestWithParam<Front> {};

INSTANTIATE_TEST_SUITE_P(Through, Answers,
                         testing::Values(Front::kNginxScgi, Front::kLighttpdScgi, Front::kNginxCgi,
                                         Front::kLighttpdCgi),
                         testing::PrintToStringParamName());

// A JPEG with so much detail that a scaled one is smaller.
void MakePhoto(const std::string& path) {
  RunTool({"/usr/bin/convert", "-size", "1600x1200", "-seed", "7", "plasma:", "+noise", "Gaussian", "-quality", "95",
           "jpeg:" + path});
}

void MakeOneOfEachKind(const Site& site) {
  MakePhoto(site / "photo.jpg");
  MakeJpeg(site / "light.jpg", 400, 300);
  RunTool({"/usr/bin/convert", "-size", "400x300", "-seed", "1", "plasma:red-blue", "-quality", "100",
           "jpeg:" + (site / "heavy.jpg")});
  MakePng(site / "drawing.png", 800, 600);
  MakeBmp(site / "old.bmp", 800, 600);
  MakeTiff(site / "scan.tif", 800, 600);
  MakeGif(site / "moving.gif", 600, 400, 3);
  MakeHeic(site / "phone.heic", 1600, 1200, true);
  MakeJpeg(site / "preview.jpg", 1600, 1200);
  MakeRaf(site / "camera.raf", site / "preview.jpg");
  fs::remove(site / "preview.jpg");
}

TEST_P(Answers, ServeAThumbnailOfEachTypeOfPicture) {
  const Site site(GetParam());
  MakeOneOfEachKind(site);
  const std::pair<std::string, std::string> rows[] = {
      {"photo.jpg", "200 image/jpeg JPEG 360x270"},  {"drawing.png", "200 image/png PNG 360x270"},
      {"old.bmp", "200 image/jpeg JPEG 360x270"},    {"scan.tif", "200 image/jpeg JPEG 360x270"},
      {"moving.gif", "200 image/jpeg JPEG 360x240"}, {"phone.heic", "200 image/jpeg JPEG 360x270"},
  };
  for (const auto& [name, expected] : rows) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Describe(site.Get("/thumb/" + name + "?size=medium")), expected);
    EXPECT_EQ(Describe(site.Get("/thumb/" + name + "?size=medium")), expected) << "stored";
  }
  const PictureFacts raw = FactsOf(site.Get("/thumb/camera.raf?size=medium"));
  EXPECT_GT(raw.width, 0);
  const Response animated = site.Get("/thumb/moving.gif?size=medium&animate=1");
  EXPECT_EQ(Describe(animated), "200 image/gif GIF 360x240");
  EXPECT_EQ(FactsOf(animated).frames, 3);
  EXPECT_EQ(Describe(site.Get("/thumb/drawing.png?size=100x100")), "200 image/png PNG 100x75");
  EXPECT_EQ(Describe(site.Get("/thumb/drawing.png?size=100")), "200 image/png PNG 100x75");
  EXPECT_EQ(Describe(site.Get("/thumb/drawing.png?size=100&avatar=1")), "200 image/png PNG 100x100");
  EXPECT_EQ(Describe(site.Get("/thumb/drawing.png?size=medium&rotate=1")), "200 image/png PNG 270x360");
  EXPECT_EQ(Describe(site.Get("/thumb/drawing.png?size=original")), "200 image/png PNG 800x600");
}

TEST_P(Answers, HaveTheHeadersThatACacheNeeds) {
  const Site site(GetParam());
  MakePng(site / "drawing.png", 800, 600);
  const Response response = site.Get("/thumb/drawing.png?size=medium");
  const std::string stored = StoredEntry(site, "drawing.png", "TAVIFILE_THUMB_M.png");
  const std::string etag = response.Header("etag"), modified = response.Header("last-modified");
  EXPECT_EQ(response.headers, (Headers{{"accept-ranges", "bytes"},
                                       {"cache-control", "private, max-age=300, must-revalidate"},
                                       {"content-length", std::to_string(fs::file_size(stored))},
                                       {"content-type", "image/png"},
                                       {"etag", etag},
                                       {"last-modified", modified},
                                       {"vary", "Accept"},
                                       {"x-content-type-options", "nosniff"}}));
  EXPECT_EQ(etag.front(), '"');
  EXPECT_EQ(modified.substr(modified.size() - 4), " GMT");
  EXPECT_TRUE(response.body == ReadFile(stored));
}

TEST_P(Answers, SendNoContentThatTheClientHasCached) {
  const Site site(GetParam());
  MakePng(site / "drawing.png", 800, 600);
  const std::string address = "/thumb/drawing.png?size=medium";
  const Response whole = site.Get(address);
  for (const std::string& header :
       {"If-None-Match: " + whole.Header("etag"), "If-None-Match: \"other\", " + whole.Header("etag"),
        std::string("If-None-Match: *"), "If-Modified-Since: " + whole.Header("last-modified")}) {
    SCOPED_TRACE(header);
    const Response again = site.Get(address, {header});
    EXPECT_EQ(again.status, 304);
    EXPECT_EQ(again.body, "");
    for (const char* name : {"etag", "last-modified", "cache-control", "vary", "x-content-type-options"}) {
      EXPECT_EQ(again.Header(name), whole.Header(name)) << name;
    }
  }
  for (const std::string header : {"If-None-Match: \"other\"", "If-Modified-Since: Thu, 01 Jan 1970 00:00:00 GMT"}) {
    SCOPED_TRACE(header);
    const Response other = site.Get(address, {header});
    EXPECT_EQ(other.status, 200);
    EXPECT_TRUE(other.body == whole.body);
  }
}

TEST_P(Answers, SendTheRequestedRange) {
  const Site site(GetParam());
  MakePng(site / "drawing.png", 800, 600);
  const std::string address = "/original/drawing.png", content = ReadFile(site / "drawing.png");
  const std::string size = std::to_string(content.size());

  const Response part = site.Get(address, {"Range: bytes=10-19"});
  EXPECT_EQ(part.status, 206);
  EXPECT_TRUE(part.body == content.substr(10, 10));
  EXPECT_EQ(part.Header("content-range"), "bytes 10-19/" + size);
  EXPECT_EQ(part.Header("content-length"), "10");
  EXPECT_EQ(part.Header("x-content-type-options"), "nosniff");
  EXPECT_TRUE(site.Get(address, {"Range: bytes=-5"}).body == content.substr(content.size() - 5));
  const Response ofThumbnail = site.Get("/thumb/drawing.png?size=medium", {"Range: bytes=1-3"});
  EXPECT_EQ(ofThumbnail.status, 206);
  EXPECT_EQ(ofThumbnail.body, "PNG");

  const Response beyond = site.Get(address, {"Range: bytes=" + size + "-"});
  EXPECT_EQ(beyond.status, 416);
  EXPECT_EQ(beyond.Header("content-range"), "bytes */" + size);
  EXPECT_EQ(beyond.body, "the requested range is outside the file\n");
  ExpectNeverStored(beyond);

  const Response several = site.Get(address, {"Range: bytes=0-1,5-6"});
  EXPECT_EQ(several.status, 200);
  EXPECT_TRUE(several.body == content);
}

TEST_P(Answers, SendNothingOfAnotherVersion) {
  const Site site(GetParam());
  MakePng(site / "drawing.png", 800, 600);
  const std::string address = "/original/drawing.png", etag = site.Get(address).Header("etag");
  for (const std::string header : {"If-Match: \"other\"", "If-Unmodified-Since: Thu, 01 Jan 1970 00:00:00 GMT"}) {
    SCOPED_TRACE(header);
    const Response response = site.Get(address, {header, "Range: bytes=0-1"});
    EXPECT_EQ(response.status, 412);
    EXPECT_EQ(response.body, "the file has changed\n");
    ExpectNeverStored(response);
  }
  EXPECT_EQ(site.Get(address, {"If-Match: " + etag, "Range: bytes=0-1"}).status, 206);
}

TEST_P(Answers, SendOnlyTheHeadersForHead) {
  const Site site(GetParam());
  MakePng(site / "drawing.png", 800, 600);
  for (const char* address : {"/thumb/drawing.png?size=medium", "/original/drawing.png", "/list/"}) {
    SCOPED_TRACE(address);
    const Response get = site.Get(address), head = site.Ask("HEAD", address);
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.body, "");
    EXPECT_EQ(head.headers, get.headers);
  }
  EXPECT_EQ(site.Ask("HEAD", "/thumb/missing.jpg?size=small").status, 404);
}

TEST_P(Answers, SendAnOriginalThatBrowsersCanShow) {
  const Site site(GetParam());
  MakeOneOfEachKind(site);
  const std::pair<std::string, std::string> rows[] = {
      {"photo.jpg", kJpeg}, {"drawing.png", "image/png"}, {"old.bmp", "image/x-ms-bmp"}, {"moving.gif", "image/gif"}};
  for (const auto& [name, type] : rows) {
    SCOPED_TRACE(name);
    const Response response = site.Get("/original/" + name);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.Header("content-type"), type);
    EXPECT_EQ(response.Header("x-content-type-options"), "nosniff");
    EXPECT_TRUE(response.body == ReadFile(site / name));
  }
  EXPECT_EQ(site.Noted("log: "), std::vector<std::string>{});
  for (const char* name : {"scan.tif", "camera.raf", "phone.heic"}) {
    SCOPED_TRACE(name);
    const Response response = site.Get(std::string("/original/") + name);
    EXPECT_EQ(response.status, 415);
    EXPECT_EQ(response.headers, ErrorHeaders(response.body));
    EXPECT_EQ(response.body, "a browser cannot show the original\n");
  }
}

TEST_P(Answers, ShowAStillOfAVideo) {
  if (!HasFilmTools()) GTEST_SKIP() << "needs ffmpeg and ffmpegthumbnailer";
  const Site site(GetParam());
  MakeJpeg(site / "scene.jpg", 640, 480);
  MakeFilm(site / "film.mp4", site / "scene.jpg", 3);
  EXPECT_EQ(Describe(site.Get("/thumb/film.mp4?size=medium")), "200 image/jpeg JPEG 360x270");
  EXPECT_EQ(Describe(site.Get("/thumb/film.mp4?size=200x100")), "200 image/jpeg JPEG 133x100");
  EXPECT_EQ(Describe(site.Get("/thumb/film.mp4?size=small&avatar=1")), "200 image/jpeg JPEG 120x120");
  EXPECT_LT(Difference(StoredEntry(site, "film.mp4", "TAVIFILE_THUMB_M.jpg"), site / "scene.jpg"), 0.03);
  EXPECT_EQ(site.Get("/original/film.mp4?facts=1").body, "{\"width\":640,\"height\":480,\"duration\":3.0}\n");
}

TEST_P(Answers, SendTheVideosThatSomeBrowsersPlay) {
  const Site site(GetParam());
  const std::pair<const char*, const char*> rows[] = {
      {"a.mp4", "video/mp4"},        {"b.M4V", "video/mp4"}, {"c.mov", "video/quicktime"}, {"d.webm", "video/webm"},
      {"e.mkv", "video/x-matroska"}, {"f.ogv", "video/ogg"}, {"g.3gp", "video/3gpp"}};
  for (const auto& [name, type] : rows) {
    SCOPED_TRACE(name);
    WriteFile(site / name, "<script>alert(1)</script>");
    const Response response = site.Get(std::string("/original/") + name, {"Range: bytes=1-6"});
    EXPECT_EQ(response.status, 206);
    EXPECT_EQ(response.Header("content-type"), type);
    EXPECT_EQ(response.Header("x-content-type-options"), "nosniff");
    EXPECT_EQ(response.Header("content-disposition"), "");
    EXPECT_EQ(response.body, "script");
  }
}

TEST_P(Answers, DownloadTheOriginalOfEverything) {
  const Site site(GetParam());
  MakePng(site / "draw\"ing\".png", 8, 6);
  for (const char* name : {"phone.heic", "camera.nef", "film.avi", "film.mp4", "Z\xc3\xbcrich.jpg"})
    WriteFile(site / name, "<script>alert(1)</script>");
  const std::pair<std::string, std::string> rows[] = {
      {"draw%22ing%22.png", "filename=\"draw_ing_.png\"; filename*=UTF-8''draw%22ing%22.png"},
      {"phone.heic", "filename=\"phone.heic\"; filename*=UTF-8''phone.heic"},
      {"camera.nef", "filename=\"camera.nef\"; filename*=UTF-8''camera.nef"},
      {"film.avi", "filename=\"film.avi\"; filename*=UTF-8''film.avi"},
      {"film.mp4", "filename=\"film.mp4\"; filename*=UTF-8''film.mp4"},
      {"Z%C3%BCrich.jpg", "filename=\"Z_rich.jpg\"; filename*=UTF-8''Z%C3%BCrich.jpg"}};
  for (const auto& [address, names] : rows) {
    SCOPED_TRACE(address);
    const Response response = site.Get("/original/" + address + "?download=1");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.headers, (Headers{{"accept-ranges", "bytes"},
                                         {"cache-control", response.Header("cache-control")},
                                         {"content-disposition", "attachment; " + names},
                                         {"content-length", std::to_string(response.body.size())},
                                         {"content-type", "application/octet-stream"},
                                         {"etag", response.Header("etag")},
                                         {"last-modified", response.Header("last-modified")},
                                         {"x-content-type-options", "nosniff"}}));
  }
  EXPECT_EQ(site.Get("/original/film.avi?download=1").body, "<script>alert(1)</script>");
  EXPECT_EQ(site.Get("/original/film.avi?download=1", {"Range: bytes=1-6"}).body, "script");
}

TEST_P(Answers, TellTheFactsOfAPhoto) {
  const Site site(GetParam());
  MakeJpeg(site / "photo.jpg", 400, 300);
  RunTool({"/usr/bin/exiv2", "-Mset Exif.Photo.DateTimeOriginal 2024:05:01 12:30:00",
           "-Mset Exif.Image.Make NIKON CORPORATION", "-Mset Exif.Image.Model NIKON D3100",
           "-Mset Exif.Image.Orientation 6", "-Mset Exif.Photo.ExposureTime 1/60", site / "photo.jpg"});
  WriteFile(site / "film.mp4", "film");
  const Response response = site.Get("/original/photo.jpg?facts=1");
  EXPECT_EQ(response.headers, (Headers{{"cache-control", "private, no-cache"},
                                       {"content-length", std::to_string(response.body.size())},
                                       {"content-type", "application/json"},
                                       {"x-content-type-options", "nosniff"}}));
  EXPECT_EQ(response.body,
            R"({"mime_type":"image/jpeg","width":400,"height":300,"orientation":6,"rotation":1,"mirror":false,)"
            R"("heic":false,"preview":null,"colour_space":null,"taken":"2024-05-01T12:30:00",)"
            R"("camera_make":"NIKON CORPORATION","camera_model":"NIKON D3100","lens":null,"exposure":"1/60 s",)"
            R"("place":null,"camera":"NIKON D3100"})"
            "\n");
  EXPECT_EQ(site.Get("/original/film.mp4?facts=1").body, "{\"width\":null,\"height\":null,\"duration\":null}\n");
  EXPECT_EQ(site.Ask("HEAD", "/original/photo.jpg?facts=1").headers, response.headers);
  RunTool({"/usr/bin/heif-enc", site / "photo.jpg", "-o", site / "phone.heic"});
  const Response dates = site.Get("/list/?dates=1");
  EXPECT_EQ(dates.body,
            "{\"taken\":{\"phone.heic\":\"2024-05-01T12:30:00\",\"photo.jpg\":\"2024-05-01T12:30:00\"},"
            "\"next\":null}\n");
  EXPECT_EQ(site.Get("/list/?dates=1&after=photo.jpg").body, "{\"taken\":{},\"next\":null}\n");
}

TEST_P(Answers, SayThatAPictureIsTooLarge) {
  const Site site(GetParam());
  RunTool({"/usr/bin/convert", "-size", "8x8", "xc:red", "png:" + (site / "vast.png")});
  std::string vast = ReadFile(site / "vast.png");
  // The width and height in its header, and their checksum.
  vast.replace(16, 8, std::string("\x00\x00\x75\x30\x00\x00\x4e\x20", 8));
  WriteFile(site / "vast.png", vast);
  const Response response = site.Get("/thumb/vast.png?size=small");
  EXPECT_EQ(response.status, 422);
  EXPECT_EQ(response.body, "it is too large to be converted (30000x20000 pixels)\n");
}

TEST_P(Answers, SendHeifToClientsThatAcceptIt) {
  const Site site(GetParam());
  MakeHeic(site / "phone.heic", 1600, 1200, true);
  const std::string address = "/thumb/phone.heic?size=medium";
  for (const char* accept : {"image/heic", "image/webp, image/heif;q=0.8, */*"}) {
    SCOPED_TRACE(accept);
    const Response response = site.Get(address, {std::string("Accept: ") + accept});
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.Header("content-type"), "image/heic");
    EXPECT_TRUE(response.body == ReadFile(site / "phone.heic"));
  }
  EXPECT_EQ(Describe(site.Get(address, {"Accept: image/*, */*"})), "200 image/jpeg JPEG 360x270");
}

// Those of which the library has no facts, and WebP.
TEST_P(Answers, ServeThumbnailsOfTheTypesThatOnlyTheProgramsKnow) {
  const Site site(GetParam());
  for (const ModernType& type : ModernTypes()) {
    const std::string name = std::string("photo.") + type.extension;
    SCOPED_TRACE(name);
    type.make(site / name, 900, 600);
    const Response made = site.Get("/thumb/" + name + "?size=small");
    EXPECT_EQ(Describe(made), "200 image/jpeg JPEG 120x80");
    EXPECT_EQ(Names(site / (".tavi_ea/" + name)), std::vector<std::string>{"TAVIFILE_THUMB_S.jpg"});
    const Response stored = site.Get("/thumb/" + name + "?size=small");
    EXPECT_EQ(stored.headers, made.headers);
    EXPECT_TRUE(stored.body == made.body);
    EXPECT_EQ(Describe(site.Get("/thumb/" + name + "?size=90x90&avatar=1&rotate=1")), "200 image/jpeg JPEG 90x90");
    const bool isShown = std::string(type.extension) == "webp" || std::string(type.extension) == "avif";
    const Response original = site.Get("/original/" + name);
    EXPECT_EQ(original.status, isShown ? 200 : 415);
    EXPECT_EQ(original.Header("content-type"), isShown ? type.mimeType : "text/plain; charset=utf-8");
    EXPECT_EQ(original.body == ReadFile(site / name), isShown);
    type.make(site / ("light." + name), 300, 200);
    EXPECT_EQ(site.Get("/thumb/light." + name + "?size=medium").Header("content-type"),
              isShown ? type.mimeType : kJpeg);
  }
  EXPECT_EQ(site.Noted("run: "), std::vector<std::string>{});
  fs::resize_file(site / "photo.jxl", 40);
  const Response damaged = site.Get("/thumb/photo.jxl?size=big");
  EXPECT_EQ(damaged.status, 422);
  EXPECT_EQ(damaged.body, "it could not be converted\n");
}

// A JPEG whose thumbnail would be larger than itself is served unchanged, unless it has to be rotated.
TEST_P(Answers, RotateAPictureThatIsOtherwiseServedUnchanged) {
  const Site site(GetParam());
  MakeJpeg(site / "light.jpg", 400, 300);
  MakeHeic(site / "phone.heic", 64, 48, true);
  EXPECT_EQ(Describe(site.Get("/thumb/light.jpg?size=large")), "200 image/jpeg JPEG 400x300");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Describe(site.Get("/thumb/light.jpg?size=large&rotate=1")), "200 image/jpeg JPEG 300x400");
  }
  EXPECT_EQ(Names(site / ".tavi_ea/light.jpg"), std::vector<std::string>{"TAVIFILE_THUMB_XL_r1.jpg"});
  EXPECT_EQ(site.Noted("run: "), std::vector<std::string>{});
  EXPECT_EQ(Describe(site.Get("/thumb/phone.heic?size=large&rotate=3", {"Accept: image/heic"})),
            "200 image/jpeg JPEG 48x64");
}

// The library asks its caller to delete some thumbnails that it has stored; the program keeps them for everybody.
TEST_P(Answers, StoreEachThumbnailForTheNextRequest) {
  const Site site(GetParam());
  MakeOneOfEachKind(site);
  for (const char* name :
       {"photo.jpg", "heavy.jpg", "drawing.png", "old.bmp", "scan.tif", "moving.gif", "phone.heic", "camera.raf"}) {
    SCOPED_TRACE(name);
    const Response made = site.Get(std::string("/thumb/") + name + "?size=small");
    const std::size_t runs = site.Noted("run: ").size();
    EXPECT_EQ(Names(site / (std::string(".tavi_ea/") + name)).size(), 1U);
    const Response stored = site.Get(std::string("/thumb/") + name + "?size=small");
    EXPECT_EQ(stored.status, 200);
    EXPECT_EQ(stored.headers, made.headers);
    EXPECT_TRUE(stored.body == made.body);
    EXPECT_EQ(site.Noted("run: ").size(), runs);
  }
}

// From the smallest stored size that covers it, or from the photo. Anybody can ask for any number of them.
TEST_P(Answers, StoreNoThumbnailOfABox) {
  const Site site(GetParam());
  MakeOneOfEachKind(site);
  MakePhoto(site / "big.jpg");
  const std::vector<std::tuple<std::string, std::string, std::vector<std::string>>> rows = {
      {"photo.jpg?size=200x50", "200 image/jpeg JPEG 67x50", {"TAVIFILE_THUMB_M.jpg"}},
      {"photo.jpg?size=50x200&rotate=1",
       "200 image/jpeg JPEG 50x67",
       {"TAVIFILE_THUMB_M.jpg", "TAVIFILE_THUMB_M_r1.jpg"}},
      {"big.jpg?size=1300", "200 image/jpeg JPEG 1300x975", {}},
      {"big.jpg?size=100x50&avatar=1", "200 image/jpeg JPEG 100x50", {}},
      {"drawing.png?size=120", "200 image/png PNG 120x90", {"TAVIFILE_THUMB_S.png"}},
      {"phone.heic?size=100", "200 image/jpeg JPEG 100x75", {"TAVIFILE_THUMB_S.jpg"}},
      {"moving.gif?size=100&animate=1", "200 image/gif GIF 100x67", {}},
      {"light.jpg?size=5000", "200 image/jpeg JPEG 400x300", {}},
  };
  for (const auto& [address, described, stored] : rows) {
    for (int i = 0; i < 2; ++i) EXPECT_EQ(Describe(site.Get("/thumb/" + address)), described) << address;
    const std::string folder = site / (".tavi_ea/" + address.substr(0, address.find('?')));
    EXPECT_EQ(fs::exists(folder) ? Names(folder) : std::vector<std::string>(), stored) << address;
  }
}

TEST_P(Answers, FallBackToASmallerSizeOnRequest) {
  const Site site(GetParam());
  MakeTiff(site / "scan.tif", 800, 600);
  EXPECT_EQ(site.Get("/thumb/scan.tif?size=original").status, 415);
  EXPECT_EQ(Describe(site.Get("/thumb/scan.tif?size=original&fallback=1")), "200 image/jpeg JPEG 800x600");
}

TEST_P(Answers, RotateAnAlbumexThumbnailDuringDelivery) {
  const Site site(GetParam());
  MakeJpeg(site / "photo.jpg", 1600, 1200);
  MakeJpeg(site / "album.jpg", 320, 240);
  const std::string entry = StoredEntry(site, "photo.jpg", "TAVIPHOTO_THUMB_M.jpg");
  WriteFile(entry, ReadFile(site / "album.jpg"));
  EXPECT_EQ(Describe(site.Get("/thumb/photo.jpg?size=medium")), "200 image/jpeg JPEG 320x240");
  const Response turned = site.Get("/thumb/photo.jpg?size=medium&rotate=1");
  EXPECT_EQ(Describe(turned), "200 image/jpeg JPEG 240x320");
  EXPECT_EQ(turned.Header("accept-ranges"), "none");
  EXPECT_EQ(turned.Header("cache-control"), "private, max-age=300, must-revalidate");
  EXPECT_EQ(turned.Header("etag"), "");
}

TEST_P(Answers, ListAFolder) {
  const Site site(GetParam());
  MakePng(site / "a b.png", 8, 6);
  WriteFile(site / "film.mp4", "film");
  WriteFile(site / "shown.mp4", "film");
  WriteFile(site / "notes.txt", "no picture");
  WriteFile(site / ".hidden.png", "hidden");
  fs::create_directory(site / "sub");
  SetTimes(site / "shown.mp4", 1700000000, 1700000000);
  MakeJpeg(site / "screenshot.jpg", 64, 48);
  fs::create_directories(fs::path(StoredEntry(site, "shown.mp4", "x")).parent_path());
  fs::rename(site / "screenshot.jpg", StoredEntry(site, "shown.mp4", "TAVIVIDEO_VIDEO_SCREENSHOT.jpg"));
  for (const char* name : {"a b.png", "film.mp4"}) SetTimes(site / name, 1700000001, 1700000001);

  const Response response = site.Get("/list/");
  EXPECT_EQ(response.status, 200);
  const std::string etag = response.Header("etag");
  EXPECT_EQ(response.headers, (Headers{{"cache-control", "private, no-cache"},
                                       {"content-length", std::to_string(response.body.size())},
                                       {"content-type", "application/json"},
                                       {"etag", etag},
                                       {"vary", "Accept"},
                                       {"x-content-type-options", "nosniff"}}));
  const nlohmann::json expected = {{"path", ""},
                                   {"folders", {{{"name", "sub"}, {"url", "sub"}, {"photos", 0}}}},
                                   {"files",
                                    {{{"name", "a b.png"},
                                      {"url", "a%20b.png"},
                                      {"kind", "image"},
                                      {"type", "png"},
                                      {"bytes", fs::file_size(site / "a b.png")},
                                      {"modified", 1700000001},
                                      {"original", true}},
                                     {{"name", "film.mp4"},
                                      {"url", "film.mp4"},
                                      {"kind", "video"},
                                      {"type", "mp4"},
                                      {"bytes", 4},
                                      {"modified", 1700000001},
                                      {"original", true},
                                      {"screenshot", HasFilmTools()}},
                                     {{"name", "shown.mp4"},
                                      {"url", "shown.mp4"},
                                      {"kind", "video"},
                                      {"type", "mp4"},
                                      {"bytes", 4},
                                      {"modified", 1700000000},
                                      {"original", true},
                                      {"screenshot", true}}}},
                                   {"unreadable", 0}};
  EXPECT_EQ(nlohmann::json::parse(response.body), expected);
  EXPECT_EQ(Describe(site.Get("/thumb/shown.mp4?size=medium")), "200 image/jpeg JPEG 64x48");
}

TEST_P(Answers, SendNoListThatTheClientHas) {
  const Site site(GetParam());
  MakePng(site / "drawing.png", 8, 6);
  const Response whole = site.Get("/list/");
  const std::string etag = whole.Header("etag");
  EXPECT_EQ(etag.size(), 18U);
  const Response unchanged = site.Get("/list/", {"If-None-Match: \"another\", " + etag});
  EXPECT_EQ(unchanged.status, 304);
  EXPECT_EQ(unchanged.body, "");
  EXPECT_EQ(unchanged.Header("etag"), etag);
  EXPECT_NE(site.Get("/list/", {"Accept: text/html"}).Header("etag"), etag);
  MakePng(site / "new.png", 8, 6);
  const Response changed = site.Get("/list/", {"If-None-Match: " + etag});
  EXPECT_EQ(changed.status, 200);
  EXPECT_NE(changed.Header("etag"), etag);
}

TEST(List, IsSortedByName) {
  const Site site(Front::kNone);
  for (int i = 99; i >= 10; --i) {
    WriteFile(site / ("photo" + std::to_string(i) + ".jpg"), "");
    fs::create_directory(site / ("folder" + std::to_string(i)));
  }
  const std::string response = site.Scgi({{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", "/list/"}, {"SCRIPT_NAME", ""}});
  const nlohmann::json list = nlohmann::json::parse(response.substr(response.find("\r\n\r\n")));
  ASSERT_EQ(list.at("files").size(), 90U);
  ASSERT_EQ(list.at("folders").size(), 90U);
  for (std::size_t i = 0; i < 90; ++i) {
    EXPECT_EQ(list.at("files")[i].at("name"), "photo" + std::to_string(i + 10) + ".jpg");
    EXPECT_EQ(list.at("folders")[i].at("name"), "folder" + std::to_string(i + 10));
  }
}

TEST_P(Answers, ListAFolderAsAPageForBrowsers) {
  const Site site(GetParam());
  MakePng(site / "a & <b>.png", 8, 6);
  const Response page = site.Get("/list/", {"Accept: text/html,application/xhtml+xml,*/*;q=0.8"});
  EXPECT_EQ(page.status, 200);
  EXPECT_EQ(page.Header("content-type"), "text/html; charset=utf-8");
  EXPECT_EQ(page.Header("content-security-policy"),
            "default-src 'none'; img-src 'self'; style-src 'self'; base-uri 'none'; form-action 'none'; "
            "frame-ancestors 'none'");
  EXPECT_NE(page.body.find("a &amp; &lt;b&gt;.png"), page.body.npos);
  EXPECT_EQ(page.body.find("<b>"), page.body.npos);
}

struct ErrorRow {
  std::string method;
  std::string address;
  int status;
  std::string body;
};

TEST_P(Answers, GiveTheReasonForAFailure) {
  const Site site(GetParam());
  MakePng(site / "drawing.png", 800, 600);
  WriteFile(site / "text.jpg", "this is text and no picture, whatever its name says");
  WriteFile(site / "notes.txt", "text");
  for (const char* name : {"film.mp4", "film.avi"}) WriteFile(site / name, "film");
  fs::create_directory(site / "sub");
  const std::string nothing = "there is nothing here\n";
  const std::string badSize =
      "'size' must be small, medium, big, large, xlarge, original, WIDTHxHEIGHT or SIDE, with sides of 1 to 65535 "
      "pixels\n";
  const ErrorRow rows[] = {
      {"GET", "/thumb/missing.png?size=small", 404, nothing},
      {"GET", "/thumb/sub?size=small", 404, nothing},
      {"GET", "/thumb/?size=small", 404, nothing},
      {"GET", "/list/missing", 404, nothing},
      {"GET", "/list/drawing.png", 404, nothing},
      {"GET", "/original/sub", 404, nothing},
      {"GET", "/thumb/film.mp4?size=small", HasFilmTools() ? 422 : 500,
       HasFilmTools() ? "no still could be taken of this video\n"
                      : "stills of videos need ffmpegthumbnailer, which is not installed\n"},
      {"GET", "/thumb/notes.txt?size=small", 415, "it is not a photo or video by its name\n"},
      {"GET", "/original/notes.txt", 415, "it is not a photo or video by its name\n"},
      {"GET", "/original/film.avi", 415, "a browser cannot show the original\n"},
      {"GET", "/original/missing.mp4?download=1", 404, nothing},
      {"GET", "/original/sub?download=1", 404, nothing},
      {"GET", "/original/notes.txt?download=1", 415, "it is not a photo or video by its name\n"},
      {"GET", "/original/drawing.png?download=1&facts=1", 400, "unknown parameter\n"},
      {"GET", "/original/text.jpg?facts=1", 422, "its content is not in a known image format\n"},
      {"GET", "/original/missing.jpg?facts=1", 404, nothing},
      {"GET", "/list/missing?dates=1", 404, nothing},
      {"GET", "/thumb/text.jpg?size=small", 422, "its content is not in a known image format\n"},
      {"GET", "/thumb/drawing.png?size=giant", 400, badSize},
      {"GET", "/thumb/drawing.png?size=0", 400, badSize},
      {"GET", "/thumb/drawing.png?rotate=1", 400, "'size' is missing\n"},
      {"GET", "/thumb/drawing.png?size=small&rotate=4", 400, "'rotate' must be a number of quarter turns, 0 to 3\n"},
      {"GET", "/thumb/drawing.png?size=small&avatar=2", 400, "'avatar' must be 1\n"},
      {"GET", "/thumb/drawing.png?size=small&colour=1", 400, "unknown parameter\n"},
      {"GET", "/thumb/drawing.png?size=small&size=big", 400, "a parameter is given more than once\n"},
      {"GET", "/thumb/drawing.png?size=80x60&fallback=1", 400, "'fallback' needs a named size\n"},
      {"GET", "/list/?size=small", 400, "unknown parameter\n"},
      {"POST", "/thumb/drawing.png?size=small", 405, "only GET and HEAD are supported\n"},
      {"DELETE", "/list/", 405, "only GET and HEAD are supported\n"},
  };
  for (const ErrorRow& row : rows) {
    SCOPED_TRACE(row.method + " " + row.address);
    const Response response =
        site.Ask(row.method, row.address,
                 row.method == "POST" ? std::vector<std::string>{"Content-Length: 0"} : std::vector<std::string>{});
    EXPECT_EQ(response.status, row.status);
    EXPECT_EQ(response.body, row.body);
    Headers headers = ErrorHeaders(row.body);
    if (row.status == 405) headers.insert(headers.begin(), {"allow", "GET, HEAD"});
    EXPECT_EQ(response.headers, headers);
  }
  EXPECT_EQ(Names(site / ".tavi_ea"), std::vector<std::string>{"text.jpg"}) << "only the tools can tell";
  EXPECT_EQ(Names(site / ".tavi_ea/text.jpg"), std::vector<std::string>{});
}

TEST_P(Answers, LogALineForEachFailure) {
  const Site site(GetParam());
  site.Get("/thumb/missing.jpg?size=small");
  site.Get("/thumb/%C3%A4.jpg?size=small&colour=1");
  const std::string get = GetParam() == Front::kLighttpdCgi ? "GET /photos.cgi" : "GET ";
  EXPECT_EQ(site.Noted("log: "),
            (std::vector<std::string>{get + "/thumb/missing.jpg?size=small: 404 there is nothing here",
                                      get + "/thumb/%C3%A4.jpg?size=small&colour=1: 400 unknown parameter"}));
}

TEST(Log, EscapesThePath) {
  const Site site(Front::kNone);
  site.Scgi({{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", "/thumb/a\n\x1b[2J\xff.jpg?size=small"}});
  EXPECT_EQ(site.Noted("log: "),
            (std::vector<std::string>{"GET /thumb/a\\n\\x1b[2J\\xff.jpg?size=small: 404 there is nothing here"}));
}

}  // namespace
}  // namespace tavithumb::test
