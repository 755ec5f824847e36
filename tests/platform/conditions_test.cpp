// SPDX-License-Identifier: GPL-3.0-or-later
#include "http/conditions.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace tavi {

bool operator==(const Decision& one, const Decision& other) {
  return one.outcome == other.outcome && one.first == other.first && one.length == other.length;
}

std::ostream& operator<<(std::ostream& stream, const Decision& decision) {
  const char* const names[] = {"whole", "part", "not modified", "another", "unsatisfiable"};
  return stream << names[static_cast<int>(decision.outcome)] << " " << decision.first << "+" << decision.length;
}

}  // namespace tavi

namespace tavithumb::test {
namespace {

using tavi::Decision;
using tavi::FileRequest;
using tavi::Outcome;

constexpr std::int64_t kNow = 1800000000;
constexpr std::int64_t kModified = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT
const tavi::FileVersion kVersion = {"\"tag\"", kModified, kModified + 1, 1000};

const Decision kWhole = {Outcome::kWhole, 0, 1000};
const Decision kNotModified = {Outcome::kNotModified, 0, 0};
const Decision kAnother = {Outcome::kAnother, 0, 0};
const Decision kUnsatisfiable = {Outcome::kUnsatisfiable, 0, 0};

Decision Part(std::uint64_t first, std::uint64_t length) {
  return {Outcome::kPart, first, length};
}

FileRequest Get() {
  FileRequest request = {};
  request.isCgi = true;
  request.method = "GET";
  return request;
}

Decision DecideRange(const std::string& range) {
  FileRequest request = Get();
  request.range = range;
  return tavi::Decide(request, kVersion, kNow);
}

TEST(Range, IsAPartOfTheFile) {
  const std::pair<const char*, Decision> rows[] = {
      {"bytes=0-0", Part(0, 1)},
      {"bytes=0-999", Part(0, 1000)},
      {"bytes=0-1000", Part(0, 1000)},
      {"bytes=999-", Part(999, 1)},
      {"bytes=10-19", Part(10, 10)},
      {"bytes=500-", Part(500, 500)},
      {"bytes=-1", Part(999, 1)},
      {"bytes=-1000", Part(0, 1000)},
      {"bytes=-1001", Part(0, 1000)},
      {"bytes=0-99999999999999999999999", Part(0, 1000)},
      {"bytes=-99999999999999999999999", Part(0, 1000)},
      {"bytes=0-18446744073709551615", Part(0, 1000)},
      {"Bytes=0-1", Part(0, 2)},
      {"BYTES=-1", Part(999, 1)},
  };
  for (const auto& [range, expected] : rows) EXPECT_EQ(DecideRange(range), expected) << range;
}

TEST(Range, CannotBeMetBehindTheFilesEnd) {
  for (const char* range : {"bytes=1000-", "bytes=1000-1000", "bytes=5000-6000", "bytes=-0",
                            "bytes=99999999999999999999999-", "bytes=18446744073709551615-"}) {
    EXPECT_EQ(DecideRange(range), kUnsatisfiable) << range;
  }
  FileRequest request = Get();
  for (const char* range : {"bytes=0-", "bytes=-1"}) {
    request.range = range;
    EXPECT_EQ(tavi::Decide(request, {"\"tag\"", 0, 1, 0}, kNow), kUnsatisfiable) << "of an empty file";
  }
}

TEST(Range, IsIgnoredWhenItIsNotUnderstood) {
  for (const char* range : {"", "bytes", "bytes=", "bytes=-", "bytes=a-b", "bytes=1-b", "bytes=a-1", "bytes=5-4",
                            "bytes=0-1,3-4", "bytes= 0-1", "bytes=0 -1", "bytes=0-1 ", "bytes=+1-2", "bytes=--1",
                            "bytes=0x1-2", "lines=0-1", "byte=0-1", "0-1"}) {
    EXPECT_EQ(DecideRange(range), kWhole) << range;
  }
}

TEST(Range, IsForGetAlone) {
  FileRequest request = Get();
  request.range = "bytes=0-1";
  for (const char* method : {"HEAD", "POST", ""}) {
    request.method = method;
    EXPECT_EQ(tavi::Decide(request, kVersion, kNow), kWhole) << method;
  }
}

TEST(IfRange, AllowsTheRangeOfTheVeryVersion) {
  const std::pair<const char*, Decision> rows[] = {
      {"\"tag\"", Part(0, 2)}, {"Sun, 06 Nov 1994 08:49:37 GMT", Part(0, 2)}, {"\"other\"", kWhole},
      {"W/\"tag\"", kWhole},   {"Sun, 06 Nov 1994 08:49:38 GMT", kWhole},     {"Sun, 06 Nov 1994 08:49:36 GMT", kWhole},
      {"nonsense", kWhole},
  };
  for (const auto& [ifRange, expected] : rows) {
    FileRequest request = Get();
    request.range = "bytes=0-1";
    request.ifRange = ifRange;
    EXPECT_EQ(tavi::Decide(request, kVersion, kNow), expected) << ifRange;
  }
}

TEST(IfRange, AllowsTheRangeByADateOnlyWhenNoSecondChangeCanHaveTheSameDate) {
  const struct {
    std::int64_t changed, now;
    bool allows;
  } rows[] = {
      {kModified + 1, kModified + 1, true}, {kModified + 1000, kNow, true},    {kModified, kNow, false},
      {kModified - 1, kNow, false},         {kModified + 1, kModified, false},
  };
  for (const auto& row : rows) {
    FileRequest request = Get();
    request.range = "bytes=0-1";
    request.ifRange = "Sun, 06 Nov 1994 08:49:37 GMT";
    const tavi::FileVersion version = {"\"tag\"", kModified, row.changed, 1000};
    EXPECT_EQ(tavi::Decide(request, version, row.now), row.allows ? Part(0, 2) : kWhole) << row.changed << row.now;
    request.ifRange = "\"tag\"";
    EXPECT_EQ(tavi::Decide(request, version, row.now), Part(0, 2)) << row.changed << row.now;
  }
}

TEST(IfNoneMatch, ComparesTagsWeakly) {
  const std::pair<const char*, Decision> rows[] = {
      {"\"tag\"", kNotModified},
      {"W/\"tag\"", kNotModified},
      {"*", kNotModified},
      {" * ", kWhole},
      {"\"a\", \"tag\"", kNotModified},
      {"\"a\",\"tag\",\"b\"", kNotModified},
      {"W/\"a\"\t, W/\"tag\"", kNotModified},
      {"\"a,\\\", \"tag\"", kNotModified},
      {"\"a\",, ,\"tag\"", kNotModified},
      {"\"tag\", \"a\"", kNotModified},
      {", \"tag\"", kNotModified},
      {" ,,\"a\",\"tag\"", kNotModified},
      {", \"a\"", kWhole},
      {", *", kWhole},
      {"\"a\"", kWhole},
      {"tag", kWhole},
      {"\"tag", kWhole},
      {"\"ta\"", kWhole},
      {"\"a\" \"tag\"", kWhole},
      {"\"a\"; \"tag\"", kWhole},
      {"w/\"tag\"", kWhole},
      {",", kWhole},
      {"\"tag\"x", kWhole},
      {"\"tag\" \"a\"", kWhole},
      {"\"tag\", x", kWhole},
      {"\"tag\" ,", kNotModified},
  };
  for (const auto& [tags, expected] : rows) {
    FileRequest request = Get();
    request.ifNoneMatch = tags;
    EXPECT_EQ(tavi::Decide(request, kVersion, kNow), expected) << tags;
    request.method = "HEAD";
    EXPECT_EQ(tavi::Decide(request, kVersion, kNow), expected) << tags << " for HEAD";
  }
}

TEST(IfMatch, ComparesTagsStrongly) {
  const std::pair<const char*, Decision> rows[] = {
      {"\"tag\"", kWhole},       {"*", kWhole},          {"\"a\", \"tag\"", kWhole},     {"W/\"a\", \"tag\"", kWhole},
      {"W/\"tag\"", kAnother},   {"\"a\"", kAnother},    {"\"a\", W/\"tag\"", kAnother}, {"tag", kAnother},
      {"W/W/\"tag\"", kAnother}, {"\"tag\"x", kAnother}, {"\"tag\", \"a", kAnother},
  };
  for (const auto& [tags, expected] : rows) {
    FileRequest request = Get();
    request.ifMatch = tags;
    EXPECT_EQ(tavi::Decide(request, kVersion, kNow), expected) << tags;
    request.method = "HEAD";
    EXPECT_EQ(tavi::Decide(request, kVersion, kNow), expected) << tags << " for HEAD";
  }
}

TEST(IfUnmodifiedSince, ComparesSeconds) {
  const std::pair<const char*, Decision> rows[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", kWhole},
      {"Sun, 06 Nov 1994 08:49:38 GMT", kWhole},
      {"Sun, 06 Nov 1994 08:49:36 GMT", kAnother},
      {"yesterday", kWhole},
  };
  for (const auto& [since, expected] : rows) {
    FileRequest request = Get();
    request.ifUnmodifiedSince = since;
    EXPECT_EQ(tavi::Decide(request, kVersion, kNow), expected) << since;
  }
}

TEST(IfModifiedSince, ComparesSeconds) {
  const std::pair<const char*, Decision> rows[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", kNotModified}, {"Sun, 06 Nov 1994 08:49:38 GMT", kNotModified},
      {"Sun, 06 Nov 1994 08:49:36 GMT", kWhole},       {"Sunday, 06-Nov-94 08:49:37 GMT", kNotModified},
      {"Sun Nov  6 08:49:37 1994", kNotModified},      {"yesterday", kWhole},
  };
  for (const auto& [since, expected] : rows) {
    FileRequest request = Get();
    request.ifModifiedSince = since;
    EXPECT_EQ(tavi::Decide(request, kVersion, kNow), expected) << since;
  }
}

TEST(Conditions, HaveTheirOrder) {
  FileRequest request = Get();
  request.ifNoneMatch = "\"other\"";
  request.ifModifiedSince = "Sun, 06 Nov 1994 08:49:37 GMT";
  EXPECT_EQ(tavi::Decide(request, kVersion, kNow), kWhole) << "dates are ignored next to tags";
  request.range = "bytes=0-1";
  EXPECT_EQ(tavi::Decide(request, kVersion, kNow), Part(0, 2));
  request.ifNoneMatch = "\"tag\"";
  EXPECT_EQ(tavi::Decide(request, kVersion, kNow), kNotModified) << "before any part";
  request.ifUnmodifiedSince = "Sun, 06 Nov 1994 08:49:36 GMT";
  EXPECT_EQ(tavi::Decide(request, kVersion, kNow), kAnother) << "before all others";
  request.ifMatch = "\"tag\"";
  EXPECT_EQ(tavi::Decide(request, kVersion, kNow), kNotModified) << "dates are ignored next to tags";
}

TEST(Conditions, AreForCgiAlone) {
  FileRequest request = Get();
  request.isCgi = false;
  request.ifMatch = "\"other\"";
  request.ifNoneMatch = "*";
  request.range = "bytes=0-1";
  EXPECT_EQ(tavi::Decide(request, kVersion, kNow), kWhole);
}

TEST(Conditions, AreForGetAndHeadAlone) {
  FileRequest request = Get();
  request.method = "POST";
  request.ifMatch = "\"other\"";
  request.ifNoneMatch = "*";
  EXPECT_EQ(tavi::Decide(request, kVersion, kNow), kWhole);
}

}  // namespace
}  // namespace tavithumb::test
