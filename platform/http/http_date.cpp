// SPDX-License-Identifier: GPL-3.0-or-later
#include "http/http_date.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tavi {
namespace {

constexpr std::array<std::string_view, 7> kDays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                   "Thursday", "Friday", "Saturday"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::int64_t kSecondsPerDay = 86400;

// The years 1 to 9999, which fit the formats.
constexpr std::int64_t kFirstMoment = -62135596800;
constexpr std::int64_t kLastMoment = 253402300799;

struct Date {
  std::int64_t year;
  int month;  // 1 to 12
  int day;    // 1 to 31
};

// Days since the epoch, counted in years that begin in March, so that a leap day is the last of its year.
std::int64_t DaysOf(const Date& date) {
  const std::int64_t year = date.month > 2 ? date.year : date.year - 1;
  const std::int64_t monthFromMarch = (date.month + 9) % 12;
  const std::int64_t leapDays = year / 4 - year / 100 + year / 400;
  return year * 365 + leapDays + (153 * monthFromMarch + 2) / 5 + date.day - 1 - 719468;
}

// The date of a day since the epoch, in the year 1 or later.
Date DateOf(std::int64_t days) {
  std::int64_t year = 1970 + days / 366;
  while (DaysOf({year + 1, 1, 1}) <= days) ++year;
  while (DaysOf({year, 1, 1}) > days) --year;
  int month = 12;
  while (DaysOf({year, month, 1}) > days) --month;
  return {year, month, static_cast<int>(days - DaysOf({year, month, 1})) + 1};
}

bool Exists(const Date& date) {
  if (date.day < 1 || date.day > 31) return false;
  const Date same = DateOf(DaysOf(date));
  return same.month == date.month && same.day == date.day;
}

// Parses one date, from left to right. After the first mismatch it stays failed.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  bool Take(std::string_view expected) {
    if (rest_.substr(0, expected.size()) != expected) return Fail();
    rest_.remove_prefix(expected.size());
    return true;
  }

  int TakeNumber(std::size_t digits) {
    int number = 0;
    for (std::size_t i = 0; i < digits; ++i) {
      if (i >= rest_.size() || rest_[i] < '0' || rest_[i] > '9') return Fail();
      number = number * 10 + (rest_[i] - '0');
    }
    rest_.remove_prefix(digits);
    return number;
  }

  // A number of two digits, the first of which may be a space.
  int TakePadded() {
    if (rest_.empty() || rest_.front() != ' ') return TakeNumber(2);
    rest_.remove_prefix(1);
    return TakeNumber(1);
  }

  int TakeMonth() {
    const auto* const month = std::find(kMonths.begin(), kMonths.end(), rest_.substr(0, 3));
    if (month == kMonths.end()) return Fail();
    rest_.remove_prefix(3);
    return static_cast<int>(month - kMonths.begin()) + 1;
  }

  // Seconds of the day; a leap second counts as the one before.
  int TakeTime() {
    const int hour = TakeNumber(2);
    Take(":");
    const int minute = TakeNumber(2);
    Take(":");
    const int second = TakeNumber(2);
    if (hour > 23 || minute > 59 || second > 60) return Fail();
    return hour * 3600 + minute * 60 + std::min(second, 59);
  }

  bool IsAtEnd() const { return !failed_ && rest_.empty(); }

 private:
  bool Fail() {
    failed_ = true;
    rest_ = {};
    return false;
  }

  std::string_view rest_;
  bool failed_ = false;
};

std::optional<std::int64_t> Moment(const Reader& reader, const Date& date, int secondOfDay) {
  if (!reader.IsAtEnd() || !Exists(date)) return std::nullopt;
  return DaysOf(date) * kSecondsPerDay + secondOfDay;
}

// "06 Nov 1994 08:49:37 GMT"
std::optional<std::int64_t> ParseFixed(Reader reader) {
  Date date = {};
  date.day = reader.TakeNumber(2);
  reader.Take(" ");
  date.month = reader.TakeMonth();
  reader.Take(" ");
  date.year = reader.TakeNumber(4);
  reader.Take(" ");
  const int second = reader.TakeTime();
  reader.Take(" GMT");
  return Moment(reader, date, second);
}

// "06-Nov-94 08:49:37 GMT"
std::optional<std::int64_t> ParseRfc850(Reader reader, std::int64_t now) {
  Date date = {};
  date.day = reader.TakeNumber(2);
  reader.Take("-");
  date.month = reader.TakeMonth();
  reader.Take("-");
  const std::int64_t thisYear = DateOf(now / kSecondsPerDay).year;
  date.year = thisYear - thisYear % 100 + reader.TakeNumber(2);
  if (date.year > thisYear + 50) date.year -= 100;
  reader.Take(" ");
  const int second = reader.TakeTime();
  reader.Take(" GMT");
  return Moment(reader, date, second);
}

// "Nov  6 08:49:37 1994"
std::optional<std::int64_t> ParseAsctime(Reader reader) {
  Date date = {};
  date.month = reader.TakeMonth();
  reader.Take(" ");
  date.day = reader.TakePadded();
  reader.Take(" ");
  const int second = reader.TakeTime();
  reader.Take(" ");
  date.year = reader.TakeNumber(4);
  return Moment(reader, date, second);
}

}  // namespace

std::string FormatHttpDate(std::int64_t seconds) {
  const std::int64_t moment = std::clamp(seconds, kFirstMoment, kLastMoment);
  std::int64_t days = moment / kSecondsPerDay, second = moment % kSecondsPerDay;
  if (second < 0) {
    --days;
    second += kSecondsPerDay;
  }
  const Date date = DateOf(days);
  const auto weekday = static_cast<std::size_t>(((days + 4) % 7 + 7) % 7);
  std::array<char, 64> text;
  const int length = std::snprintf(
      text.data(), text.size(), "%.3s, %02d %s %04lld %02d:%02d:%02d GMT", kDays[weekday].data(), date.day,
      kMonths[static_cast<std::size_t>(date.month) - 1].data(), static_cast<long long>(date.year),
      static_cast<int>(second / 3600), static_cast<int>(second / 60 % 60), static_cast<int>(second % 60));
  return {text.data(), static_cast<std::size_t>(length)};
}

std::optional<std::int64_t> ParseHttpDate(std::string_view text, std::int64_t now) {
  for (const std::string_view day : kDays) {
    Reader fixed(text), rfc850(text), asctime(text);
    if (fixed.Take(day.substr(0, 3)) && fixed.Take(", ")) return ParseFixed(fixed);
    if (rfc850.Take(day) && rfc850.Take(", ")) return ParseRfc850(rfc850, now);
    if (asctime.Take(day.substr(0, 3)) && asctime.Take(" ")) return ParseAsctime(asctime);
  }
  return std::nullopt;
}

}  // namespace tavi
