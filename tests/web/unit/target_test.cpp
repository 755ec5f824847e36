// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/target.h"

#include <gtest/gtest.h>
#include <tavithumb/libtavithumb.h>

#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

using Names = std::vector<std::string>;

constexpr int kStored = Thumb::OPT_ALBUMEX_EA | Thumb::OPT_BROVIX_EA;

Variables Get(const std::string& address, const std::string& prefix = "") {
  return {{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", address}, {"SCRIPT_NAME", prefix}};
}

// "404 there is nothing here", or "" when the request is a good one.
std::string ErrorOf(const Variables& variables) {
  try {
    ParseTarget(variables);
    return "";
  } catch (const HttpError& error) {
    return std::to_string(error.Code()) + " " + error.what();
  }
}

// The whole target in one line.
std::string Describe(const Target& target) {
  const char* const routes[] = {"thumb", "original", "list"};
  std::string text = routes[static_cast<int>(target.route)];
  for (const std::string& name : target.path) text += "/" + name;
  if (target.route != Route::kThumb) return text;
  const Request& request = target.request;
  text += " " + (request.size.IsBox()
                     ? std::to_string(request.size.box.width) + "x" + std::to_string(request.size.box.height)
                     : request.size.name);
  return text + " " + std::to_string(request.quarterTurns) + " " + std::to_string(request.options);
}

constexpr char kNothing[] = "404 there is nothing here";
constexpr char kBadHex[] = "400 a '%' in the address has no two hex digits";
constexpr char kBadSize[] =
    "400 'size' takes small, medium, big, large, xlarge, original, WIDTHxHEIGHT or SIDE, with sides of 1 to 65535 "
    "pixels";

TEST(Target, IsWhatTheAddressSays) {
  const std::pair<const char*, std::string> rows[] = {
      {"/thumb/a.jpg?size=small", "thumb/a.jpg small 0 3"},
      {"/thumb/a.jpg?size=medium", "thumb/a.jpg medium 0 3"},
      {"/thumb/a.jpg?size=big", "thumb/a.jpg big 0 3"},
      {"/thumb/a.jpg?size=large", "thumb/a.jpg large 0 3"},
      {"/thumb/a.jpg?size=xlarge", "thumb/a.jpg xlarge 0 3"},
      {"/thumb/a.jpg?size=original", "thumb/a.jpg original 0 3"},
      {"/thumb/a.jpg?size=1x1", "thumb/a.jpg 1x1 0 2"},
      {"/thumb/a.jpg?size=65535x65535", "thumb/a.jpg 65535x65535 0 2"},
      {"/thumb/a.jpg?size=256", "thumb/a.jpg 256x256 0 2"},
      {"/thumb/a.jpg?size=%73mall", "thumb/a.jpg small 0 3"},
      {"/thumb/a.jpg?rotate=0&size=small", "thumb/a.jpg small 0 3"},
      {"/thumb/a.jpg?size=small&rotate=3", "thumb/a.jpg small 3 3"},
      {"/thumb/a.jpg?size=small&avatar=1", "thumb/a.jpg small 0 " + std::to_string(kStored | Thumb::OPT_AVATAR)},
      {"/thumb/a.jpg?size=small&animate=1", "thumb/a.jpg small 0 " + std::to_string(kStored | Thumb::OPT_ENABLE_GIF)},
      {"/thumb/a.jpg?size=small&fallback=1",
       "thumb/a.jpg small 0 " + std::to_string(kStored | Thumb::OPT_FALLBACK_SMALLER)},
      {"/thumb/a.jpg?%73ize=small", "thumb/a.jpg small 0 3"},
      {"/thumb/a/b/c%20d.jpg?size=small", "thumb/a/b/c d.jpg small 0 3"},
      {"/thumb/%c3%A4%FF.jpg?size=small", "thumb/\xc3\xa4\xff.jpg small 0 3"},
      {"/thumb/a+b.jpg?size=small", "thumb/a+b.jpg small 0 3"},
      {"/thumb/...?size=small", "thumb/... small 0 3"},
      {"/thumb/%2e%2ea?size=small", "thumb/..a small 0 3"},
      {"/thumb?size=small", "thumb small 0 3"},
      {"/original/a.jpg", "original/a.jpg"},
      {"/original/a.jpg?", "original/a.jpg"},
      {"/list", "list"},
      {"/list/", "list"},
      {"/list/a", "list/a"},
      {"/list/a/", "list/a"},
  };
  for (const auto& [address, expected] : rows) {
    SCOPED_TRACE(address);
    EXPECT_EQ(ErrorOf(Get(address)), "");
    EXPECT_EQ(Describe(ParseTarget(Get(address))), expected);
  }
}

TEST(Target, IsNoneForABadAddress) {
  const std::pair<const char*, std::string> rows[] = {
      {"", kNothing},
      {"/", kNothing},
      {"thumb/a.jpg?size=small", kNothing},
      {"/other/a.jpg", kNothing},
      {"/Thumb/a.jpg?size=small", kNothing},
      {"/%74humb/a.jpg?size=small", kNothing},
      {"//thumb/a.jpg?size=small", kNothing},
      {"/thumb/?size=small", kNothing},
      {"/thumb/a/?size=small", kNothing},
      {"/thumb//a?size=small", kNothing},
      {"/thumb/../a?size=small", kNothing},
      {"/thumb/a/..?size=small", kNothing},
      {"/thumb/./a?size=small", kNothing},
      {"/thumb/%2e%2E/a?size=small", kNothing},
      {"/thumb/%2e/a?size=small", kNothing},
      {"/thumb/a%2fb?size=small", kNothing},
      {"/thumb/%2Fetc?size=small", kNothing},
      {"/thumb/a%00?size=small", kNothing},
      {"/list/a//", kNothing},
      {"/list//", kNothing},
      {"/list/..", kNothing},
      {"/list/a/../", kNothing},
      {"http://host/list/", kNothing},
      {"/thumb/%?size=small", kBadHex},
      {"/thumb/%4?size=small", kBadHex},
      {"/thumb/%zz?size=small", kBadHex},
      {"/thumb/%+1?size=small", kBadHex},
      {"/thumb/a.jpg?size=%", kBadHex},
      {"/thumb/a.jpg", "400 'size' is missing"},
      {"/thumb/a.jpg?", "400 'size' is missing"},
      {"/thumb/a.jpg?size=", kBadSize},
      {"/thumb/a.jpg?size", kBadSize},
      {"/thumb/a.jpg?size=giant", kBadSize},
      {"/thumb/a.jpg?size=Small", kBadSize},
      {"/thumb/a.jpg?size=0", kBadSize},
      {"/thumb/a.jpg?size=65536", kBadSize},
      {"/thumb/a.jpg?size=99999999999999999999", kBadSize},
      {"/thumb/a.jpg?size=1x", kBadSize},
      {"/thumb/a.jpg?size=x1", kBadSize},
      {"/thumb/a.jpg?size=x", kBadSize},
      {"/thumb/a.jpg?size=1x2x3", kBadSize},
      {"/thumb/a.jpg?size=-1", kBadSize},
      {"/thumb/a.jpg?size=+1", kBadSize},
      {"/thumb/a.jpg?size=%201", kBadSize},
      {"/thumb/a.jpg?size=1e3", kBadSize},
      {"/thumb/a.jpg?size=0x10", kBadSize},
      {"/thumb/a.jpg?size=small%00", kBadSize},
      {"/thumb/a.jpg?size=__CUSTOM_SIZE__", kBadSize},
      {"/thumb/a.jpg?size=small&rotate=4", "400 'rotate' takes quarter turns, 0 to 3"},
      {"/thumb/a.jpg?size=small&rotate=-1", "400 'rotate' takes quarter turns, 0 to 3"},
      {"/thumb/a.jpg?size=small&rotate=01", "400 'rotate' takes quarter turns, 0 to 3"},
      {"/thumb/a.jpg?size=small&rotate=", "400 'rotate' takes quarter turns, 0 to 3"},
      {"/thumb/a.jpg?size=small&avatar=0", "400 'avatar' takes 1 alone"},
      {"/thumb/a.jpg?size=small&avatar", "400 'avatar' takes 1 alone"},
      {"/thumb/a.jpg?size=small&animate=true", "400 'animate' takes 1 alone"},
      {"/thumb/a.jpg?size=small&fallback=11", "400 'fallback' takes 1 alone"},
      {"/thumb/a.jpg?size=9x9&fallback=1", "400 'fallback' needs a size with a name"},
      {"/thumb/a.jpg?size=small&size=small", "400 a parameter is there more than once"},
      {"/thumb/a.jpg?size=small&%73ize=big", "400 a parameter is there more than once"},
      {"/thumb/a.jpg?size=small&", "400 there is an unknown parameter"},
      {"/thumb/a.jpg?size=small&x=1", "400 there is an unknown parameter"},
      {"/thumb/a.jpg?size=small;rotate=1", kBadSize},
      {"/thumb/a.jpg?size=small?rotate=1", kBadSize},
      {"/original/a.jpg?size=small", "400 there is an unknown parameter"},
      {"/list/?x", "400 there is an unknown parameter"},
  };
  for (const auto& [address, expected] : rows) EXPECT_EQ(ErrorOf(Get(address)), expected) << address;
}

TEST(Target, LiesBelowThePrefix) {
  const std::pair<const char*, const char*> rows[] = {
      {"", ""}, {"/", ""}, {"/photos", "/photos"}, {"/photos/", "/photos"}, {"/a/b.cgi", "/a/b.cgi"}};
  for (const auto& [scriptName, prefix] : rows) {
    SCOPED_TRACE(scriptName);
    const Target target = ParseTarget(Get(std::string(prefix) + "/list/x", scriptName));
    EXPECT_EQ(target.prefix, prefix);
    EXPECT_EQ(target.path, Names{"x"});
  }
  for (const char* address : {"/list/", "/photos", "/photoslist/", "/photo/list/", "/photos%2Flist/"}) {
    EXPECT_EQ(ErrorOf(Get(address, "/photos")), kNothing) << address;
  }
}

TEST(Target, IsForGetAndHeadAlone) {
  Variables variables = Get("/list/");
  EXPECT_FALSE(ParseTarget(variables).isHead);
  variables["REQUEST_METHOD"] = "HEAD";
  EXPECT_TRUE(ParseTarget(variables).isHead);
  for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "get", "GETS", ""}) {
    variables["REQUEST_METHOD"] = method;
    EXPECT_EQ(ErrorOf(variables), "405 only GET and HEAD are answered") << method;
  }
  EXPECT_EQ(ErrorOf({}), "405 only GET and HEAD are answered");
}

TEST(Target, IsWhatTheClientAccepts) {
  struct Row {
    const char* accept;
    bool heic;
    bool html;
  };
  const Row rows[] = {
      {"", false, false},
      {"*/*", false, false},
      {"image/*", false, false},
      {"image/heic", true, false},
      {"IMAGE/HEIF", true, false},
      {"image/webp, image/heic;q=0.5", true, false},
      {"image/heic;q=0", false, false},
      {"image/heic; q=0.000", false, false},
      {"image/heic;q=0.001", true, false},
      {"image/heic;q=0, image/heif", true, false},
      {"image/heics", false, false},
      {"text/html,application/xhtml+xml,*/*;q=0.8", false, true},
      {"application/json, text/html;level=1;q=0", false, false},
      {" text/html\t;q=1", false, true},
      {",,;;,", false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.accept);
    Variables variables = Get("/thumb/a.heic?size=small");
    variables["HTTP_ACCEPT"] = row.accept;
    EXPECT_EQ(ParseTarget(variables).request.acceptHeic, row.heic);
    EXPECT_EQ(ParseTarget(variables).wantsHtml, row.html);
  }
}

TEST(UrlEncoded, LeavesNothingThatMeansAnythingInAnAddress) {
  EXPECT_EQ(UrlEncoded("aZ09-._~"), "aZ09-._~");
  EXPECT_EQ(UrlEncoded(" %/?#&+\"<\xff\n"), "%20%25%2F%3F%23%26%2B%22%3C%FF%0A");
  EXPECT_EQ(UrlEncoded(std::string("\0", 1)), "%00");
}

}  // namespace
}  // namespace tavithumb::apps::web
