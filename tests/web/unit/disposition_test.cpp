// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/disposition.h"

#include <gtest/gtest.h>

namespace tavithumb::apps::web {
namespace {

TEST(AttachmentLine, HasTheExactNameAndOneThatIsSafeInQuotes) {
  const std::pair<const char*, const char*> rows[] = {
      {"a.jpg", "filename=\"a.jpg\"; filename*=UTF-8''a.jpg"},
      {"a b.jpg", "filename=\"a b.jpg\"; filename*=UTF-8''a%20b.jpg"},
      {"\"a\\b\".jpg", "filename=\"_a_b_.jpg\"; filename*=UTF-8''%22a%5Cb%22.jpg"},
      {"50%41.jpg", "filename=\"50_41.jpg\"; filename*=UTF-8''50%2541.jpg"},
      {"a\r\nSet-Cookie: x\x7f.jpg",
       "filename=\"a__Set-Cookie: x_.jpg\"; filename*=UTF-8''a%0D%0ASet-Cookie%3A%20x%7F.jpg"},
      {"Z\xc3\xbcrich.jpg", "filename=\"Z_rich.jpg\"; filename*=UTF-8''Z%C3%BCrich.jpg"},
      {"\xe6\x9d\xb1\xe4\xba\xac.jpg", "filename=\"__.jpg\"; filename*=UTF-8''%E6%9D%B1%E4%BA%AC.jpg"},
      {"it's;*=.jpg", "filename=\"it's;*=.jpg\"; filename*=UTF-8''it%27s%3B%2A%3D.jpg"},
      {"\xff.jpg", "filename=\"_.jpg\""},
  };
  for (const auto& [name, expected] : rows) {
    EXPECT_EQ(AttachmentLine(name), std::string("Content-Disposition: attachment; ") + expected + "\r\n") << name;
  }
}

}  // namespace
}  // namespace tavithumb::apps::web
