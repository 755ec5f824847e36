// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/sendfile.h"

#include <gtest/gtest.h>

#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

TEST(ReadSendfile, ReadsWhatTheServerAnnounces) {
  EXPECT_EQ(ReadSendfile("", {{"TAVITHUMB_SENDFILE", "X-Sendfile"}}).header, "");
  EXPECT_EQ(ReadSendfile(kSendfile, {{"TAVITHUMB_SENDFILE", "X-Sendfile"}}).header, "X-Sendfile");
  const Sendfile redirect = ReadSendfile(kAccelRedirect, {{"TAVITHUMB_SENDFILE", "X-Accel-Redirect /a/b"}});
  EXPECT_EQ(redirect.header, "X-Accel-Redirect");
  EXPECT_EQ(redirect.prefix, "/a/b");
}

TEST(ReadSendfile, ThrowsIfItIsNotAnnounced) {
  for (const char* announced : {"", "X-Accel-Redirect /a", "X-Sendfiles", "x-sendfile", " X-Sendfile"}) {
    try {
      ReadSendfile(kSendfile, {{"TAVITHUMB_SENDFILE", announced}});
      ADD_FAILURE() << announced;
    } catch (const HttpError& error) {
      EXPECT_EQ(error.Code(), kInternalServerError);
      EXPECT_STREQ(error.what(), "the web server does not announce X-Sendfile");
    }
  }
}

TEST(SendfileLine, NamesAFileBelowARoot) {
  const Roots named({{"my photos", "/srv/photos"}, {"films", "/srv/films"}}, false);
  const Roots single({{"", "/srv/photos"}}, false);
  const Roots whole({{"", "/"}}, false);
  struct {
    std::string header;
    const Roots& roots;
    std::string path;
    std::string line;
  } const rows[] = {
      {kSendfile, named, "/srv/photos/a b/c.jpg", "X-Sendfile: /srv/photos/a%20b/c.jpg\r\n"},
      {kSendfile, whole, "/a.jpg", "X-Sendfile: /a.jpg\r\n"},
      {kAccelRedirect, named, "/srv/photos/a b/c.jpg", "X-Accel-Redirect: /files/my%20photos/a%20b/c.jpg\r\n"},
      {kAccelRedirect, named, "/srv/films/.tavi_ea/x", "X-Accel-Redirect: /files/films/.tavi_ea/x\r\n"},
      {kAccelRedirect, single, "/srv/photos/c.jpg", "X-Accel-Redirect: /files/c.jpg\r\n"},
      {kAccelRedirect, whole, "/srv/c.jpg", "X-Accel-Redirect: /files/srv/c.jpg\r\n"},
      {kAccelRedirect, single, "/srv/photos/two\r\nlines", "X-Accel-Redirect: /files/two%0D%0Alines\r\n"},
      {kAccelRedirect, single, "/srv/photos2/c.jpg", ""},
      {kSendfile, single, "/tmp/thumb.1", ""},
      {kAccelRedirect, single, "/srv/photos/.tavi_store/c.jpg", ""},
      {kAccelRedirect, single, "/srv/photos/a/.tavi_store/c.jpg", "X-Accel-Redirect: /files/a/.tavi_store/c.jpg\r\n"},
      {"", single, "/srv/photos/c.jpg", ""},
      {kAccelRedirect, single, "/srv/photos/\xE4.jpg", "X-Accel-Redirect: /files/%E4.jpg\r\n"},
  };
  for (const auto& row : rows) EXPECT_EQ(SendfileLine({row.header, "/files"}, row.roots, row.path), row.line);
}

}  // namespace
}  // namespace tavithumb::apps::web
