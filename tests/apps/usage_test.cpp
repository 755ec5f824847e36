// SPDX-License-Identifier: GPL-3.0-or-later
// The command line itself: what it rejects, and what its help explains.
#include <gmock/gmock.h>
#include <pictures.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

using testing::HasSubstr;

struct Refusal {
  std::vector<std::string> arguments;
  std::string message;
};

std::string NoSize(const std::string& text) {
  return "'" + text +
         "' is not a valid size: use small, medium, big, large, xlarge, original, WIDTHxHEIGHT or SIDE, with " +
         "sides of 1 to 65535 pixels; see 'tavithumb get --help'";
}

std::string NoTurns(const std::string& text) {
  return "'" + text + "' is not a number of quarter turns: use a whole number such as 1 or -1; see 'tavithumb get " +
         "--help'";
}

TEST(Usage, IsRejectedWithOneLineAndCode2) {
  std::vector<Refusal> refusals = {
      {{}, "A subcommand is required; see 'tavithumb --help'"},
      {{"makes", "a.jpg"}, "A subcommand is required; see 'tavithumb --help'"},
      {{"get"}, "FILE is required; see 'tavithumb get --help'"},
      {{"get", "--"}, "FILE is required; see 'tavithumb get --help'"},
      {{"get", "--json"}, "FILE is required; see 'tavithumb get --help'"},
      {{"info"}, "FILE is required; see 'tavithumb info --help'"},
      {{"get", "--bogus", "a.jpg"}, "The following argument was not expected: --bogus; see 'tavithumb get --help'"},
      {{"get", "--bo\ngus", "a.jpg"},
       "The following argument was not expected: --bo\\ngus; see 'tavithumb get --help'"},
      {{"info", "-x", "a.jpg"}, "The following argument was not expected: -x; see 'tavithumb info --help'"},
      {{"get", "a.jpg", "--size"}, "--size: 1 required SIZE missing; see 'tavithumb get --help'"},
      {{"get", "--json", "-0", "a.jpg"}, "--json and -0 exclude each other; see 'tavithumb get --help'"},
      {{"make"}, "PATH or --files-from is required; see 'tavithumb make --help'"},
      {{"make", "-0", "a.jpg"}, "-0 needs --files-from; see 'tavithumb make --help'"},
      {{"make", "--files-from", "/no/such/list"},
       "'/no/such/list' cannot be read: No such file or directory; see 'tavithumb make --help'"},
      {{"make", "--files-from", "", "a.jpg"},
       "'' cannot be read: No such file or directory; see 'tavithumb make --help'"},
      {{"make", "--sizes", "small,small", "a.jpg"}, "--sizes names 'small' twice; see 'tavithumb make --help'"},
      {{"get", "--albumex", "--size", "9", "a.jpg"},
       "--albumex needs a named size: Albumex stores no others; see 'tavithumb get --help'"},
      {{"get", "--fallback-smaller", "--size", "9x9", "a.jpg"},
       "--fallback-smaller needs a named size: other sizes have no smaller ones; see 'tavithumb get --help'"},
      {{"list"}, "SOURCE is required; see 'tavithumb list --help'"},
      {{"clean"}, "PATH is required; see 'tavithumb clean --help'"},
      {{"clean", "--force", "a"}, "The following argument was not expected: --force; see 'tavithumb clean --help'"},
      {{"add"}, "SOURCE is required; see 'tavithumb add --help'"},
      {{"add", "a.jpg", "b.jpg"}, "--size is required; see 'tavithumb add --help'"},
      {{"add", "--size", "big", "a.jpg"}, "'a.jpg' is not followed by a THUMBNAIL; see 'tavithumb add --help'"},
      {{"add", "--size", "big", "a.jpg", "b.jpg", "c\n.jpg"},
       "'c\\n.jpg' is not followed by a THUMBNAIL; see 'tavithumb add --help'"},
  };
  for (const char* size : {"original", "9", "9x9", "", "huge", "Small"}) {
    refusals.push_back({{"add", "--size", size, "a.jpg", "b.jpg"},
                        "'" + std::string(size) + "' is not a size to store a thumbnail as: use small, medium, big, " +
                            "large or xlarge; see 'tavithumb add --help'"});
  }
  for (const char* time : {"", "0", "-1", "1.5", "now", "1e9", "99999999999999999999", " 1"}) {
    refusals.push_back({{"add", "--size", "big", "--mtime", time, "a.jpg", "b.jpg"},
                        "'" + std::string(time) + "' is not a valid time: use whole seconds since 1970, such as " +
                            "1700000000; see 'tavithumb add --help'"});
  }
  for (const char* size :
       {"",     "huge",    "Small",   "0",     "-1",  "65536", "4294967297", "1x", "x1", "0x1",  "1x0", "-1x1",
        "1x-1", "1x65536", "65536x1", "1x1x1", "1X1", "1.5",   "+1",         " 1", "1 ", "0x10", "1e3"}) {
    refusals.push_back({{"get", "--size", size, "a.jpg"}, NoSize(size)});
  }
  for (const char* turns : {"", "x", "1.5", "1x", "2147483648", "-2147483649", "0x1", " 1", "+1"}) {
    refusals.push_back({{"get", "--rotate", turns, "a.jpg"}, NoTurns(turns)});
  }
  for (const char* sizes : {"", "original", "120x120", "small,", ",small", "Small", "small;big", "small, big"}) {
    const std::string list = sizes;
    const std::string wrong = list == "small," || list == ",small" ? "" : list == "small, big" ? " big" : list;
    refusals.push_back({{"make", "--sizes", list, "a.jpg"},
                        "'" + wrong +
                            "' is not a valid size for --sizes: use small, medium, big, large or xlarge; see " +
                            "'tavithumb make --help'"});
  }
  for (const char* jobs : {"", "0", "257", "-1", "+1", "1.5", "two", "18446744073709551616"}) {
    refusals.push_back({{"make", "--jobs", jobs, "a.jpg"},
                        std::string("'") + jobs +
                            "' is not a valid number for --jobs: use 1 to 256; see 'tavithumb make " + "--help'"});
  }
  for (const char* limit : {"", "0", "1000000001", "-1"}) {
    refusals.push_back({{"make", "--limit", limit, "a.jpg"},
                        std::string("'") + limit + "' is not a valid number for --limit: use 1 to 1000000000; see " +
                            "'tavithumb make --help'"});
  }
  const CommandRunner run;
  for (const Refusal& refusal : refusals) {
    const Outcome outcome = run(refusal.arguments);
    SCOPED_TRACE(testing::PrintToString(refusal.arguments));
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "tavithumb: " + refusal.message + "\n");
  }
}

struct Accepted {
  std::string size;
  std::string entry;  // "" if the source is served unchanged
};

TEST(Usage, AcceptsEveryFormOfSize) {
  const TempDir folder;
  const std::string source = folder / "a.png";
  MakePng(source, 200, 100);
  const std::vector<Accepted> rows = {
      {"small", "TAVIFILE_THUMB_S.png"},
      {"medium", ""},
      {"big", ""},
      {"large", ""},
      {"xlarge", ""},
      {"original", ""},
      {"1", "TAVIFILE_THUMB_1x1.png"},
      {"65535", ""},
      {"1x65535", "TAVIFILE_THUMB_1x100.png"},
      {"65535x1", "TAVIFILE_THUMB_200x1.png"},
      {"080x060", "TAVIFILE_THUMB_80x60.png"},
  };
  const CommandRunner run;
  for (const Accepted& row : rows) {
    SCOPED_TRACE(row.size);
    const Outcome outcome = run({"get", "--size", row.size, source});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, (row.entry.empty() ? source : EntryOf(source, row.entry)) + "\n");
    EXPECT_EQ(outcome.err, "");
  }
}

struct Help {
  std::vector<std::string> arguments;
  std::vector<std::string> told;
};

TEST(Usage, IsExplainedByHelp) {
  const std::vector<Help> rows = {
      {{"--help"},
       {"Usage: tavithumb [OPTIONS] SUBCOMMAND\n", "get ", "info ", "make ", "add ", "list ", "clean ", "--version",
        "Exit codes:", "2    bad usage"}},
      {{"get", "--help"},
       {"Usage: tavithumb get [OPTIONS] FILE...\n",
        "--size SIZE",
        "--rotate QUARTERS",
        "--avatar",
        "--keep-animation",
        "--no-convert",
        "--fallback-smaller",
        "--albumex",
        "--no-brovix",
        "--accept-heic",
        "--json",
        "-0 ",
        "small      120 x 120\n",
        "medium     360 x 360\n",
        "big        640 x 640\n",
        "large      1280 x 1280",
        "xlarge     1280 x 1280\n",
        "original   FILE itself",
        "800x600",
        "256",
        "Examples:",
        "Exit codes: 0 ",
        "after '--'"}},
      {{"get", "-h"}, {"Usage: tavithumb get [OPTIONS] FILE...\n"}},
      {{"make", "--help"},
       {"Usage: tavithumb make [OPTIONS] [PATH...]\n", "--sizes LIST", "--jobs N", "--older", "--limit N", "--dry-run",
        "--json", "--files-from FILE", "-0 ", "Examples:", "Exit codes: 0 ", "130 interrupted"}},
      {{"info", "--help"},
       {"Usage: tavithumb info [OPTIONS] FILE...\n", "--json", "orientation (1 to 8", "Examples:", "Exit codes: 0 "}},
      {{"add", "--help"},
       {"Usage: tavithumb add [OPTIONS] SOURCE THUMBNAIL [SOURCE THUMBNAIL...]\n", "--size NAME", "--check-type",
        "--mtime SECONDS", "Examples:", "Exit codes: 0 "}},
      {{"list", "--help"},
       {"Usage: tavithumb list [OPTIONS] SOURCE...\n", "--json", "stale", "Examples:", "Exit codes: 0 "}},
      {{"clean", "--help"},
       {"Usage: tavithumb clean [OPTIONS] PATH...\n", "--dry-run", "--json", "Examples:", "Exit codes: 0 "}},
  };
  const CommandRunner run;
  for (const Help& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    const Outcome outcome = run(row.arguments);
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.err, "");
    for (const std::string& text : row.told) EXPECT_THAT(outcome.out, HasSubstr(text));
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 120u) << line;
  }
}

TEST(Usage, PrintsTheVersion) {
  const Outcome outcome = CommandRunner()({"--version"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(std::regex_match(outcome.out, std::regex("tavithumb [0-9]+\\.[0-9]+\\.[0-9]+\n"))) << outcome.out;
}

}  // namespace
}  // namespace tavithumb::test
