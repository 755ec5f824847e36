// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/text.h"

#include <gtest/gtest.h>

namespace tavithumb::apps {
namespace {

struct TextRow {
  std::string text;
  bool isUtf8;
  std::string printable;
};

const TextRow rows[] = {
    {"", true, ""},
    {"plain", true, "plain"},
    {"\xc3\xbc", true, "\xc3\xbc"},
    {"\xe2\x82\xac", true, "\xe2\x82\xac"},
    {"\xe5\xae\xb6", true, "\xe5\xae\xb6"},
    {"e\xcc\x81", true, "e\xcc\x81"},
    {"\xf0\x9f\x98\x80", true, "\xf0\x9f\x98\x80"},
    {"\xf4\x8f\xbf\xbf", true, "\xf4\x8f\xbf\xbf"},  // U+10FFFF
    {"\xee\x80\x80", true, "\xee\x80\x80"},          // U+E000, behind the surrogates
    {"\xed\x9f\xbf", true, "\xed\x9f\xbf"},          // U+D7FF, before them
    {"\xef\xbf\xbf", true, "\xef\xbf\xbf"},          // U+FFFF
    {"a\nb\tc\rd", true, "a\\nb\\tc\\rd"},
    {"back\\slash", true, "back\\\\slash"},
    {"\x1f \x7f~", true, "\\x1f \\x7f~"},
    {std::string("\0", 1), true, "\\x00"},
    {"\xc2\x80 \xc2\x9f \xc2\xa0", true, "\\xc2\\x80 \\xc2\\x9f \xc2\xa0"},
    {"\xff", false, "\\xff"},
    {"\x80", false, "\\x80"},
    {"\xc3", false, "\\xc3"},
    {"\xc3g", false, "\\xc3g"},
    {"\xe2\x82", false, "\\xe2\\x82"},
    {"\xe2\x82\xc3\xbc", false, "\\xe2\\x82\xc3\xbc"},
    {"\xf0\x9f\x98", false, "\\xf0\\x9f\\x98"},
    {"\xc0\xaf", false, "\\xc0\\xaf"},                    // overlong
    {"\xc1\xbf", false, "\\xc1\\xbf"},                    // overlong
    {"\xe0\x9f\xbf", false, "\\xe0\\x9f\\xbf"},           // overlong
    {"\xf0\x8f\xbf\xbf", false, "\\xf0\\x8f\\xbf\\xbf"},  // overlong
    {"\xed\xa0\x80", false, "\\xed\\xa0\\x80"},           // first surrogate
    {"\xed\xbf\xbf", false, "\\xed\\xbf\\xbf"},           // last surrogate
    {"\xf4\x90\x80\x80", false, "\\xf4\\x90\\x80\\x80"},  // beyond U+10FFFF
    {"\xf5\x80\x80\x80", false, "\\xf5\\x80\\x80\\x80"},
    {"\xf8\x88\x80\x80\x80", false, "\\xf8\\x88\\x80\\x80\\x80"},
};

TEST(Text, IsUtf8) {
  for (const TextRow& row : rows) EXPECT_EQ(IsUtf8(row.text), row.isUtf8) << row.printable;
}

TEST(Text, IsPrintableAsOneLineThatShowsEachByte) {
  for (const TextRow& row : rows) EXPECT_EQ(Printable(row.text), row.printable);
}

TEST(Text, HasTwoHexDigitsForEachByte) {
  EXPECT_EQ(Hex(""), "");
  EXPECT_EQ(Hex(std::string("\0\x0f\x80\xff", 4)), "000f80ff");
}

struct Tail {
  std::string text;
  std::size_t columns;
  std::string tail;
};

TEST(Text, IsCutInFrontToFitIntoColumns) {
  const std::string family = "\xe5\xae\xb6\xe6\x97\x8f";  // two wide characters
  const std::string accent = "e\xcc\x81";                 // one column
  const std::string smile = "\xf0\x9f\x98\x80";           // one wide character
  const std::string invalid = "\xff\xe2\x82";             // three replacement characters
  const Tail tails[] = {
      {"", 0, ""},
      {"", 4, ""},
      {"a", 0, ""},
      {"abcd", 4, "abcd"},
      {"abcde", 4, "...e"},
      {"abcde", 3, ""},
      {"abcde", 0, ""},
      {family, 4, family},
      {family + "a", 5, family + "a"},
      {family + "a", 4, "...a"},
      {"ab" + family, 5, "...\xe6\x97\x8f"},
      {"ab" + family, 4, "..."},  // half of a wide character does not fit
      {accent + accent, 2, accent + accent},
      {"abcd" + accent, 4, "..." + accent},
      {smile, 2, smile},
      {"abcd" + smile, 5, "..." + smile},
      {"abc" + smile, 5, "abc" + smile},
      {invalid, 3, invalid},
      {"ab" + invalid, 4, "...\x82"},
  };
  for (const Tail& row : tails) {
    EXPECT_EQ(TailWithin(row.text, row.columns), row.tail) << Printable(row.text) << " in " << row.columns;
  }
}

TEST(Text, HasTheSameFingerprintOnlyIfItIsTheSame) {
  EXPECT_EQ(Fingerprint(""), "cbf29ce484222325");
  EXPECT_EQ(Fingerprint("a"), "af63dc4c8601ec8c");
  EXPECT_EQ(Fingerprint("foobar"), "85944171f73967e8");
  EXPECT_NE(Fingerprint("ab"), Fingerprint("ba"));
}

TEST(Text, HasNumbersOfBytesForPeople) {
  const std::pair<std::uint64_t, std::string> numbers[] = {
      {0, "0 bytes"},        {1, "1 byte"},         {999, "999 bytes"},     {1000, "1.0 kB"},      {1449, "1.4 kB"},
      {9949, "9.9 kB"},      {9950, "10 kB"},       {999499, "999 kB"},     {999500, "1.0 MB"},    {1400000, "1.4 MB"},
      {999499999, "999 MB"}, {999500000, "1.0 GB"}, {2000000000, "2.0 GB"}, {UINT64_MAX, "18 EB"},
  };
  for (const auto& [bytes, text] : numbers) EXPECT_EQ(ByteText(bytes), text);
}

TEST(Text, JoinsWords) {
  EXPECT_EQ(Join({}, ", "), "");
  EXPECT_EQ(Join({"a"}, ", "), "a");
  EXPECT_EQ(Join({"a", "b", "c"}, ", "), "a, b, c");
}

TEST(UrlEncoded, EscapesEverythingWithAMeaningInAnAddress) {
  EXPECT_EQ(UrlEncoded("azAZ09-._~"), "azAZ09-._~");
  EXPECT_EQ(UrlEncoded("`{@[/:"), "%60%7B%40%5B%2F%3A") << "next to letters and digits";
  EXPECT_EQ(UrlEncoded(" %/?#&+\"<\xff\n"), "%20%25%2F%3F%23%26%2B%22%3C%FF%0A");
  EXPECT_EQ(UrlEncoded(std::string("\0", 1)), "%00");
}

TEST(UrlEncodedPath, KeepsTheSlashesBetweenNames) {
  EXPECT_EQ(UrlEncodedPath("/"), "/");
  EXPECT_EQ(UrlEncodedPath("/a b/c%.jpg"), "/a%20b/c%25.jpg");
  EXPECT_EQ(UrlEncodedPath("//a/"), "//a/");
}

}  // namespace
}  // namespace tavithumb::apps
