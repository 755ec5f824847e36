// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/scgi.h"

#include <gtest/gtest.h>

#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

std::string Netstring(const std::string& content) {
  return std::to_string(content.size()) + ":" + content + ",";
}

// Strings, each terminated by a NUL.
std::string Block(const std::vector<std::string>& texts) {
  std::string block;
  for (const std::string& text : texts) block += text + '\0';
  return block;
}

bool IsMalformed(const std::string& text) {
  try {
    ParseScgi(text);
    return false;
  } catch (const HttpError& error) {
    EXPECT_EQ(error.Code(), kBadRequest);
    EXPECT_STREQ(error.what(), "the web server's request is not valid SCGI");
    return true;
  }
}

TEST(Scgi, IsParsedIntoItsVariables) {
  const Variables expected = {{"CONTENT_LENGTH", "0"}, {"SCGI", "1"}, {"EMPTY", ""}, {"QUERY_STRING", "a=b:c,d"}};
  EXPECT_EQ(ParseScgi(Netstring(Block({"CONTENT_LENGTH", "0", "SCGI", "1", "EMPTY", "", "QUERY_STRING", "a=b:c,d"}))),
            expected);
  EXPECT_EQ(ParseScgi("0:,"), Variables());
}

TEST(Scgi, IsRejectedIfItIsMalformed) {
  const std::string good = Block({"A", "1"});
  for (const std::string& text : {std::string(),
                                  std::string(":"),
                                  std::string(":,"),
                                  std::string("4"),
                                  std::string("x:,"),
                                  std::string("-4:,"),
                                  "4:" + good,
                                  "3:" + good + ",",
                                  "5:" + good + ",",
                                  "4:" + good + ";",
                                  "4:" + good + ",,",
                                  " 4:" + good + ",",
                                  Netstring("A"),
                                  Netstring(Block({"A"})),
                                  Netstring(Block({"A", "1", "B"})),
                                  Netstring(Block({"", "1"})),
                                  Netstring(Block({"A", "1", "A", "2"})),
                                  Netstring(good + "B"),
                                  std::string("99999:,"),
                                  std::string("999999999999999999999:,"),
                                  std::string("65537:,")}) {
    EXPECT_TRUE(IsMalformed(text)) << text;
  }
}

TEST(Scgi, HasAKnownLengthAsEarlyAsPossible) {
  for (const char* start : {"", "1", "12", "12345"}) EXPECT_EQ(ScgiLength(start), std::nullopt) << start;
  const std::pair<const char*, std::size_t> rows[] = {
      {"0:", 3}, {"4:", 7}, {"12:abc", 16}, {"65536:", 65543}, {"00004:", 11}};
  for (const auto& [start, length] : rows) EXPECT_EQ(ScgiLength(start), length) << start;
  for (const char* start : {":", "a", "1a", "65537:", "123456", "99999:", "-", "G"}) {
    EXPECT_THROW(ScgiLength(start), HttpError) << start;
  }
}

TEST(Scgi, HasTheSameLengthHoweverMuchOfItHasArrived) {
  const std::string whole = Netstring(Block({"SCGI", "1", "REQUEST_METHOD", "GET"}));
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    SCOPED_TRACE(size);
    const std::string_view start = std::string_view(whole).substr(0, size);
    EXPECT_EQ(ScgiLength(start), size <= whole.find(':') ? std::nullopt : std::optional(whole.size()));
    EXPECT_EQ(size < whole.size(), IsMalformed(std::string(start)));
  }
  EXPECT_EQ(ScgiLength(whole + "body"), whole.size());
}

TEST(Scgi, HasNoMoreThan65536BytesOfHeaders) {
  const std::string longest = Netstring(Block({"A", std::string(65533, 'x')}));
  EXPECT_EQ(ParseScgi(longest).at("A").size(), 65533U);
  EXPECT_TRUE(IsMalformed(Netstring(Block({"A", std::string(65534, 'x')}))));
}

}  // namespace
}  // namespace tavithumb::apps::web
