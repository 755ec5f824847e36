// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/target.h"

#include <gtest/gtest.h>
#include <tavithumb/libtavithumb.h>

#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

constexpr int kStored = Thumb::OPT_ALBUMEX_EA | Thumb::OPT_BROVIX_EA;

Variables Get(const std::string& address, const std::string& prefix = "") {
  return {{"REQUEST_METHOD", "GET"}, {"REQUEST_URI", address}, {"SCRIPT_NAME", prefix}};
}

// "404 there is nothing here", or "" if the request is valid.
std::string ErrorOf(const Variables& variables) {
  try {
    ParseTarget(variables);
    return "";
  } catch (const HttpError& error) {
    return std::to_string(error.Code()) + " " + error.what();
  }
}

// The whole target in one line: "/prefix thumb/a.jpg small 0 3 head html heic". Parts with their default value are
// omitted.
std::string Describe(const Target& target) {
  const char* const routes[] = {"thumb", "original", "download", "facts", "list", "dates"};
  std::string text = target.prefix + (target.prefix.empty() ? "" : " ") + routes[static_cast<int>(target.route)];
  for (const std::string& name : target.path) text += "/" + name;
  const Request& request = target.request;
  const std::string box = std::to_string(request.size.box.width) + "x" + std::to_string(request.size.box.height);
  const std::string asked = " " + request.size.name + (box == "0x0" ? "" : box) + " " +
                            std::to_string(request.quarterTurns) + " " + std::to_string(request.options);
  if (asked != "  0 0") text += asked;
  if (!target.after.empty()) text += " after " + target.after;
  if (target.isHead) text += " head";
  if (target.wantsHtml) text += " html";
  return text + (request.acceptHeic ? " heic" : "");
}

std::string Outcome(const Variables& variables) {
  const std::string error = ErrorOf(variables);
  return error.empty() ? Describe(ParseTarget(variables)) : error;
}

constexpr char kNoTarget[] = "404 there is nothing here";
constexpr char kBadHex[] = "400 a '%' in the address is not followed by two hex digits";
constexpr char kBadSize[] =
    "400 'size' must be small, medium, big, large, xlarge, original, WIDTHxHEIGHT or SIDE, with sides of 1 to 65535 "
    "pixels";

TEST(Target, IsParsedFromTheAddress) {
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
      {"/thumb/a.jpg?size=small&rotate=1", "thumb/a.jpg small 1 3"},
      {"/thumb/a.jpg?size=small&rotate=2", "thumb/a.jpg small 2 3"},
      {"/thumb/a.jpg?size=small&rotate=3", "thumb/a.jpg small 3 3"},
      {"/thumb/a.jpg?size=small&avatar=1", "thumb/a.jpg small 0 " + std::to_string(kStored | Thumb::OPT_AVATAR)},
      {"/thumb/a.jpg?size=small&animate=1", "thumb/a.jpg small 0 " + std::to_string(kStored | Thumb::OPT_ENABLE_GIF)},
      {"/thumb/a.jpg?size=small&fallback=1",
       "thumb/a.jpg small 0 " + std::to_string(kStored | Thumb::OPT_FALLBACK_SMALLER)},
      {"/thumb/a.jpg?fallback=1&animate=1&avatar=1&rotate=2&size=xlarge",
       "thumb/a.jpg xlarge 2 " +
           std::to_string(kStored | Thumb::OPT_AVATAR | Thumb::OPT_ENABLE_GIF | Thumb::OPT_FALLBACK_SMALLER)},
      {"/thumb/a.jpg?size=1x2&avatar=1&animate=1",
       "thumb/a.jpg 1x2 0 " + std::to_string(Thumb::OPT_BROVIX_EA | Thumb::OPT_AVATAR | Thumb::OPT_ENABLE_GIF)},
      {"/thumb/a.jpg?%73ize=small", "thumb/a.jpg small 0 3"},
      {"/thumb/a.jpg?size=%31%78%32", "thumb/a.jpg 1x2 0 2"},
      {"/thumb/a.jpg?size=007x0008", "thumb/a.jpg 7x8 0 2"},
      {"/thumb/a/b/c%20d.jpg?size=small", "thumb/a/b/c d.jpg small 0 3"},
      {"/thumb/%c3%A4%FF.jpg?size=small", "thumb/\xc3\xa4\xff.jpg small 0 3"},
      {"/thumb/a+b.jpg?size=small", "thumb/a+b.jpg small 0 3"},
      {"/thumb/...?size=small", "thumb/... small 0 3"},
      {"/thumb/%2e%2ea?size=small", "thumb/..a small 0 3"},
      {"/thumb?size=small", "thumb small 0 3"},
      {"/original/a.jpg", "original/a.jpg"},
      {"/original/a.jpg?", "original/a.jpg"},
      {"/original", "original"},
      {"/original/list/thumb", "original/list/thumb"},
      {"/list/%25%32%65%3F", "list/%2e?"},
      {"/list/%0a%5C#", "list/\n\\#"},
      {"/original/a.jpg?download=1", "download/a.jpg"},
      {"/original/a.jpg?facts=1", "facts/a.jpg"},
      {"/list/a?dates=1", "dates/a"},
      {"/list/?dates=1&after=", "dates"},
      {"/list/?after=a%20b%2F%FF&dates=1", "dates after a b/\xff"},
      {"/list", "list"},
      {"/list/", "list"},
      {"/list/a", "list/a"},
      {"/list/a/", "list/a"},
  };
  for (const auto& [address, expected] : rows) EXPECT_EQ(Outcome(Get(address)), expected) << address;
}

TEST(Target, IsRejectedForAnInvalidAddress) {
  const std::pair<const char*, std::string> rows[] = {
      {"", kNoTarget},
      {"/", kNoTarget},
      {"thumb/a.jpg?size=small", kNoTarget},
      {"/other/a.jpg", kNoTarget},
      {"/Thumb/a.jpg?size=small", kNoTarget},
      {"/%74humb/a.jpg?size=small", kNoTarget},
      {"//thumb/a.jpg?size=small", kNoTarget},
      {"/thumb/?size=small", kNoTarget},
      {"/thumb/a/?size=small", kNoTarget},
      {"/thumb//a?size=small", kNoTarget},
      {"/thumb/../a?size=small", kNoTarget},
      {"/thumb/a/..?size=small", kNoTarget},
      {"/thumb/./a?size=small", kNoTarget},
      {"/thumb/%2e%2E/a?size=small", kNoTarget},
      {"/thumb/%2e/a?size=small", kNoTarget},
      {"/thumb/a%2fb?size=small", kNoTarget},
      {"/thumb/%2Fetc?size=small", kNoTarget},
      {"/thumb/a%00?size=small", kNoTarget},
      {"/original/a.jpg/", kNoTarget},
      {"/original/", kNoTarget},
      {"/original/a%00.jpg", kNoTarget},
      {"/list%2f", kNoTarget},
      {"/list/a//", kNoTarget},
      {"/list//", kNoTarget},
      {"/list/..", kNoTarget},
      {"/list/a/../", kNoTarget},
      {"http://host/list/", kNoTarget},
      {"/thumb/%?size=small", kBadHex},
      {"/thumb/%4?size=small", kBadHex},
      {"/thumb/%zz?size=small", kBadHex},
      {"/thumb/%+1?size=small", kBadHex},
      {"/thumb/a.jpg?size=%", kBadHex},
  };
  for (const auto& [address, expected] : rows) EXPECT_EQ(Outcome(Get(address)), expected) << address;
}

TEST(Target, NeedsAValidSize) {
  const std::pair<const char*, std::string> rows[] = {
      {"/thumb/a.jpg", "400 'size' is missing"},
      {"/thumb/a.jpg?", "400 'size' is missing"},
      {"/thumb/a.jpg?size=", kBadSize},
      {"/thumb/a.jpg?size", kBadSize},
      {"/thumb/a.jpg?size=giant", kBadSize},
      {"/thumb/a.jpg?size=Small", kBadSize},
      {"/thumb/a.jpg?size=0", kBadSize},
      {"/thumb/a.jpg?size=65536", kBadSize},
      {"/thumb/a.jpg?size=0x1", kBadSize},
      {"/thumb/a.jpg?size=1x0", kBadSize},
      {"/thumb/a.jpg?size=65536x1", kBadSize},
      {"/thumb/a.jpg?size=1x65536", kBadSize},
      {"/thumb/a.jpg?size=-1x1", kBadSize},
      {"/thumb/a.jpg?size=1x-1", kBadSize},
      {"/thumb/a.jpg?size=1X1", kBadSize},
      {"/thumb/a.jpg?size=1x%201", kBadSize},
      {"/thumb/a.jpg?size=1+1", kBadSize},
      {"/thumb/a.jpg?size=1x99999999999999999999", kBadSize},
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
  };
  for (const auto& [address, expected] : rows) EXPECT_EQ(Outcome(Get(address)), expected) << address;
}

TEST(Target, NeedsValidValuesOfOtherParameters) {
  const std::pair<const char*, std::string> rows[] = {
      {"/thumb/a.jpg?size=small&rotate=4", "400 'rotate' must be a number of quarter turns, 0 to 3"},
      {"/thumb/a.jpg?size=small&rotate=-1", "400 'rotate' must be a number of quarter turns, 0 to 3"},
      {"/thumb/a.jpg?size=small&rotate=01", "400 'rotate' must be a number of quarter turns, 0 to 3"},
      {"/thumb/a.jpg?size=small&rotate=", "400 'rotate' must be a number of quarter turns, 0 to 3"},
      {"/thumb/a.jpg?size=small&avatar=0", "400 'avatar' must be 1"},
      {"/thumb/a.jpg?size=small&rotate", "400 'rotate' must be a number of quarter turns, 0 to 3"},
      {"/thumb/a.jpg?size=small&rotate=a", "400 'rotate' must be a number of quarter turns, 0 to 3"},
      {"/thumb/a.jpg?size=small&avatar", "400 'avatar' must be 1"},
      {"/thumb/a.jpg?size=small&avatar=true", "400 'avatar' must be 1"},
      {"/thumb/a.jpg?size=small&animate=0", "400 'animate' must be 1"},
      {"/thumb/a.jpg?size=small&animate=", "400 'animate' must be 1"},
      {"/thumb/a.jpg?size=small&fallback=0", "400 'fallback' must be 1"},
      {"/thumb/a.jpg?size=small&fallback=", "400 'fallback' must be 1"},
      {"/thumb/a.jpg?size=9x9&fallback=0", "400 'fallback' must be 1"},
      {"/thumb/a.jpg?size=small&animate=true", "400 'animate' must be 1"},
      {"/thumb/a.jpg?size=small&fallback=11", "400 'fallback' must be 1"},
      {"/thumb/a.jpg?size=9x9&fallback=1", "400 'fallback' needs a named size"},
  };
  for (const auto& [address, expected] : rows) EXPECT_EQ(Outcome(Get(address)), expected) << address;
}

TEST(Target, AcceptsEachKnownParameterOnce) {
  const std::pair<const char*, std::string> rows[] = {
      {"/thumb/a.jpg?size=small&size=small", "400 a parameter is given more than once"},
      {"/thumb/a.jpg?size=small&%73ize=big", "400 a parameter is given more than once"},
      {"/thumb/a.jpg?size=small&", "400 unknown parameter"},
      {"/thumb/a.jpg?size=small&x=1", "400 unknown parameter"},
      {"/thumb/a.jpg?size=small&=1", "400 unknown parameter"},
      {"/thumb/a.jpg?size=small&%78=1", "400 unknown parameter"},
      {"/thumb/a.jpg?size=small&Rotate=1", "400 unknown parameter"},
      {"/thumb/a.jpg?size=small&rotate%00=1", "400 unknown parameter"},
      {"/thumb/a.jpg?size=small&x=1&x=2", "400 a parameter is given more than once"},
      {"/thumb/a.jpg?size=small&avatar=1&avatar=1", "400 a parameter is given more than once"},
      {"/thumb/a.jpg?&&size=small", "400 a parameter is given more than once"},
      {"/thumb/a.jpg?x=%zz", kBadHex},
      {"/thumb/a.jpg?size=small;rotate=1", kBadSize},
      {"/thumb/a.jpg?size=small?rotate=1", kBadSize},
      {"/original/a.jpg?size=small", "400 unknown parameter"},
      {"/original/a.jpg?rotate=0", "400 unknown parameter"},
      {"/original/a.jpg?&", "400 a parameter is given more than once"},
      {"/original/a.jpg?download=1&facts=1", "400 unknown parameter"},
      {"/original/a.jpg?download=0", "400 'download' must be 1"},
      {"/original/a.jpg?facts", "400 'facts' must be 1"},
      {"/original/a.jpg?dates=1", "400 unknown parameter"},
      {"/thumb/a.jpg?size=small&download=1", "400 unknown parameter"},
      {"/list/?dates=2", "400 'dates' must be 1"},
      {"/list/?after=a", "400 unknown parameter"},
      {"/list/?download=1", "400 unknown parameter"},
      {"/list/?size=small", "400 unknown parameter"},
      {"/list/?x", "400 unknown parameter"},
  };
  for (const auto& [address, expected] : rows) EXPECT_EQ(Outcome(Get(address)), expected) << address;
}

TEST(Target, IsBelowThePrefix) {
  struct Row {
    const char* scriptName;
    const char* address;
    const char* expected;
  };
  const Row rows[] = {
      {"", "/list/x", "list/x"},
      {"/", "/list/x", "list/x"},
      {"/photos", "/photos/list/x", "/photos list/x"},
      {"/photos/", "/photos/list/x", "/photos list/x"},
      {"/photos", "/photos/thumb/a.jpg?size=big", "/photos thumb/a.jpg big 0 3"},
      {"/photos", "/photos/original/photos/a.jpg", "/photos original/photos/a.jpg"},
      {"/a/b.cgi", "/a/b.cgi/list/x", "/a/b.cgi list/x"},
      {"/photos", "/list/", kNoTarget},
      {"/photos", "/photos", kNoTarget},
      {"/photos", "/photos/", kNoTarget},
      {"/photos", "/photo/list/", kNoTarget},
      {"/photos", "/photoslist/", kNoTarget},
      {"/photos", "/photos2/list/", kNoTarget},
      {"/photos", "/photos2list/", kNoTarget},
      {"/photos", "/photos//list/", kNoTarget},
      {"/photos", "/photos%2Flist/", kNoTarget},
      {"/photos", "/x/photos/list/", kNoTarget},
      {"/photos", "/PHOTOS/list/", kNoTarget},
  };
  for (const Row& row : rows) EXPECT_EQ(Outcome(Get(row.address, row.scriptName)), row.expected) << row.address;
}

TEST(Target, IsOnlyForGetAndHead) {
  Variables variables = Get("/list/");
  EXPECT_EQ(Outcome(variables), "list");
  variables["REQUEST_METHOD"] = "HEAD";
  EXPECT_EQ(Outcome(variables), "list head");
  for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "PATCH", "get", "GETS", "GET ", ""}) {
    variables["REQUEST_METHOD"] = method;
    EXPECT_EQ(Outcome(variables), "405 only GET and HEAD are supported") << method;
  }
  EXPECT_EQ(Outcome({}), "405 only GET and HEAD are supported");
}

TEST(Target, DependsOnWhatTheClientAccepts) {
  const std::pair<const char*, const char*> rows[] = {
      {"", ""},
      {"*/*", ""},
      {"image/*", ""},
      {"text/*;q=1", ""},
      {"image/heic", " heic"},
      {"image/heif", " heic"},
      {"IMAGE/HEIF", " heic"},
      {"image/webp, image/heic;q=0.5", " heic"},
      {"image/heic;q=0", ""},
      {"image/heic;Q=0.", ""},
      {"image/heic; q=0.000", ""},
      {"image/heic;q=0.001", " heic"},
      {"image/heic;q=0, image/heif", " heic"},
      {"image/heics", ""},
      {"image/heic image/heif", ""},
      {"text/html,application/xhtml+xml,*/*;q=0.8", " html"},
      {"application/json, text/html;level=1;q=0", ""},
      {" text/html\t;q=1", " html"},
      {"Text/HTML, image/heic", " html heic"},
      {",,;;,", ""},
  };
  for (const auto& [accept, expected] : rows) {
    for (const std::string target : {"thumb/a.heic", "original/a.heic", "list/a"}) {
      const bool isThumb = target[0] == 't';
      Variables variables = Get("/" + target + (isThumb ? "?size=small" : ""));
      variables["HTTP_ACCEPT"] = accept;
      EXPECT_EQ(Outcome(variables), target + (isThumb ? " small 0 3" : "") + expected) << accept;
    }
  }
}

}  // namespace
}  // namespace tavithumb::apps::web
