// SPDX-License-Identifier: GPL-3.0-or-later
// Command lines that are rejected, and why.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "command/cli/command_line.h"

namespace tavithumb::apps::command {
namespace {

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

std::string MessageOf(const std::vector<std::string>& arguments) {
  try {
    RunCommandLine(arguments, {GetSubcommand(), InfoSubcommand(), MakeSubcommand(), WatchSubcommand(),
                               RenderSubcommand(), AddSubcommand(), ListSubcommand(), CleanSubcommand()});
  } catch (const UsageError& error) {
    return error.what();
  }
  return "it ran";
}

void ExpectRefusals(const std::vector<Refusal>& refusals) {
  for (const Refusal& refusal : refusals) {
    EXPECT_EQ(MessageOf(refusal.arguments), refusal.message) << testing::PrintToString(refusal.arguments);
  }
}

TEST(Refusals, OfOptionsThatAreMissingUnknownOrDontFitTogether) {
  ExpectRefusals({
      {{}, "A subcommand is required; see 'tavithumb --help'"},
      {{"--sizes", "small"}, "A subcommand is required; see 'tavithumb --help'"},
      {{"makes", "a.jpg"}, "'makes' is not a subcommand (did you mean 'make'?); see 'tavithumb --help'"},
      {{"a.jpg"}, "'a.jpg' is not a subcommand; see 'tavithumb --help'"},
      {{""}, "'' is not a subcommand; see 'tavithumb --help'"},
      {{"get", "--sise", "big", "a.jpg"},
       "'--sise' is not an option (did you mean '--size'?); see 'tavithumb get --help'"},
      {{"make", "--size=big", "a.jpg"},
       "'--size=big' is not an option (did you mean '--sizes'?); see 'tavithumb make --help'"},
      {{"get", "--sise"}, "'--sise' is not an option (did you mean '--size'?); see 'tavithumb get --help'"},
      {{"get", "--size", "meduim", "a.jpg"},
       "'meduim' is not a valid size (did you mean 'medium'?): use small, medium, big, large, xlarge, original, "
       "WIDTHxHEIGHT or SIDE, with sides of 1 to 65535 pixels; see 'tavithumb get --help'"},
      {{"get", "--size", "Small", "a.jpg"},
       "'Small' is not a valid size (did you mean 'small'?): use small, medium, big, large, xlarge, original, "
       "WIDTHxHEIGHT or SIDE, with sides of 1 to 65535 pixels; see 'tavithumb get --help'"},
      {{"make", "--sizes", "small, big", "a.jpg"},
       "' big' is not a valid size for --sizes (did you mean 'big'?): use small, medium, big, large or xlarge; see "
       "'tavithumb make --help'"},
      {{"make", "--sizes", "small,bg", "a.jpg"},
       "'bg' is not a valid size for --sizes (did you mean 'big'?): use small, medium, big, large or xlarge; see "
       "'tavithumb make --help'"},
      {{"add", "--size", "largee", "a.jpg", "b.jpg"},
       "'largee' is not a size to store a thumbnail as (did you mean 'large'?): use small, medium, big, large or "
       "xlarge, or all; see 'tavithumb add --help'"},
      {{"get"}, "FILE or --files-from is required; see 'tavithumb get --help'"},
      {{"get", "--"}, "FILE or --files-from is required; see 'tavithumb get --help'"},
      {{"get", "--json"}, "FILE or --files-from is required; see 'tavithumb get --help'"},
      {{"info"}, "FILE is required; see 'tavithumb info --help'"},
      {{"get", "--bogus", "a.jpg"}, "The following argument was not expected: --bogus; see 'tavithumb get --help'"},
      {{"get", "--bo\ngus", "a.jpg"}, "The following argument was not expected: --bo\ngus; see 'tavithumb get --help'"},
      {{"info", "-x", "a.jpg"}, "The following argument was not expected: -x; see 'tavithumb info --help'"},
      {{"get", "a.jpg", "--size"}, "--size: 1 required SIZE missing; see 'tavithumb get --help'"},
      {{"get", "--json", "-0", "a.jpg"},
       "--json and -0 exclude each other without --files-from; see 'tavithumb get --help'"},
      {{"get", "--files-from", "/no/such/list"},
       "'/no/such/list' cannot be read: No such file or directory; see 'tavithumb get --help'"},
      {{"make", "-q", "-v", "a"}, "--verbose and --quiet exclude each other; see 'tavithumb make --help'"},
      {{"make", "-v", "--json", "a"}, "--verbose and --json exclude each other; see 'tavithumb make --help'"},
      {{"make", "--newer-than", "yesterday", "a"},
       "'yesterday' is neither a date nor a file (No such file or directory): use YYYY-MM-DD, 'YYYY-MM-DD HH:MM' or a "
       "FILE; see 'tavithumb make --help'"},
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
      {{"clean"}, "PATH or --store is required; see 'tavithumb clean --help'"},
      {{"clean", "--force", "a"}, "The following argument was not expected: --force; see 'tavithumb clean --help'"},
      {{"add"}, "SOURCE is required; see 'tavithumb add --help'"},
      {{"add", "a.jpg", "b.jpg"}, "--size is required; see 'tavithumb add --help'"},
      {{"add", "--size", "big", "a.jpg"}, "'a.jpg' is not followed by a THUMBNAIL; see 'tavithumb add --help'"},
      {{"add", "--size", "big", "a.jpg", "b.jpg", "c\n.jpg"},
       "'c\n.jpg' is not followed by a THUMBNAIL; see 'tavithumb add --help'"},
  });
}

TEST(Refusals, OfAPictureThatCannotBeWritten) {
  const std::string help = "; see 'tavithumb render --help'";
  ExpectRefusals({
      {{"render"}, "FILE is required" + help},
      {{"render", "a.jpg"}, "render needs two names: FILE, and OUT to write" + help},
      {{"render", "a.jpg", "b.jpg", "c.jpg"}, "render needs two names: FILE, and OUT to write" + help},
      {{"render", "a.jpg", "b.gif"},
       "'b.gif' does not name a format that can be written: use .jpg, .png or .webp, or add --format" + help},
      {{"render", "a.jpg", "b."},
       "'b.' does not name a format that can be written: use .jpg, .png or .webp, or add --format" + help},
      {{"render", "--format", "gif", "a.jpg", "-"},
       "'gif' is not a format that can be written: use jpeg, png or webp" + help},
      {{"render", "--format", "wepb", "a.jpg", "-"},
       "'wepb' is not a format that can be written (did you mean 'webp'?): use jpeg, png or webp" + help},
      {{"render", "--size", "original", "--avatar", "a.jpg", "b.jpg"},
       "--avatar needs a box to fill: use another size than original" + help},
      {{"render", "--uri", "file:///a.jpg", "a.jpg", "b.jpg"},
       "--uri needs a PNG: name a .png file, or add --format png" + help},
      {{"render", "--uri", "a.jpg", "a.jpg", "b.png"},
       "'a.jpg' is not a URI: use one such as file:///photos/a%20b.jpg" + help},
      {{"render", "--uri", "file:///a b.jpg", "a.jpg", "b.png"},
       "'file:///a b.jpg' is not a URI: use one such as file:///photos/a%20b.jpg" + help},
      {{"render", "--uri", "file:///\xc3\xbc.jpg", "a.jpg", "b.png"},
       "'file:///\xc3\xbc.jpg' is not a URI: use one such as file:///photos/a%20b.jpg" + help},
  });
}

TEST(Refusals, OfASizeThatIsNotStored) {
  std::vector<Refusal> refusals;
  for (const char* size : {"original", "9", "9x9", "", "huge"}) {
    refusals.push_back({{"add", "--size", size, "a.jpg", "b.jpg"},
                        "'" + std::string(size) + "' is not a size to store a thumbnail as: use small, medium, big, " +
                            "large or xlarge, or all; see 'tavithumb add --help'"});
  }
  ExpectRefusals(refusals);
}

TEST(Refusals, OfABadTime) {
  std::vector<Refusal> refusals;
  for (const char* time : {"", "0", "-1", "1.5", "now", "1e9", "99999999999999999999", " 1"}) {
    refusals.push_back({{"add", "--size", "big", "--mtime", time, "a.jpg", "b.jpg"},
                        "'" + std::string(time) + "' is not a valid time: use whole seconds since 1970, such as " +
                            "1700000000; see 'tavithumb add --help'"});
  }
  ExpectRefusals(refusals);
}

TEST(Refusals, OfABadSize) {
  std::vector<Refusal> refusals;
  for (const char* size :
       {"",     "huge",    "0",       "-1",    "65536", "4294967297", "1x", "x1", "0x1", "1x0",  "-1x1",
        "1x-1", "1x65536", "65536x1", "1x1x1", "1X1",   "1.5",        "+1", " 1", "1 ",  "0x10", "1e3"}) {
    refusals.push_back({{"get", "--size", size, "a.jpg"}, NoSize(size)});
  }
  ExpectRefusals(refusals);
}

TEST(Refusals, OfABadNumberOfTurns) {
  std::vector<Refusal> refusals;
  for (const char* turns : {"", "x", "1.5", "1x", "2147483648", "-2147483649", "0x1", " 1", "+1"}) {
    refusals.push_back({{"get", "--rotate", turns, "a.jpg"}, NoTurns(turns)});
  }
  ExpectRefusals(refusals);
}

TEST(Refusals, OfABadListOfSizes) {
  std::vector<Refusal> refusals;
  for (const char* sizes : {"", "original", "120x120", "small,", ",small", "small;big"}) {
    const std::string list = sizes;
    const std::string wrong = list == "small," || list == ",small" ? "" : list;
    refusals.push_back({{"make", "--sizes", list, "a.jpg"},
                        "'" + wrong +
                            "' is not a valid size for --sizes: use small, medium, big, large or xlarge; see " +
                            "'tavithumb make --help'"});
  }
  ExpectRefusals(refusals);
}

TEST(Refusals, OfABadNumberOfJobs) {
  std::vector<Refusal> refusals;
  for (const char* jobs : {"", "0", "257", "-1", "+1", "1.5", "two", "18446744073709551616"}) {
    refusals.push_back({{"make", "--jobs", jobs, "a.jpg"},
                        std::string("'") + jobs +
                            "' is not a valid number for --jobs: use 1 to 256; see 'tavithumb make " + "--help'"});
  }
  ExpectRefusals(refusals);
}

TEST(Refusals, OfABadQuality) {
  std::vector<Refusal> refusals;
  for (const char* subcommand : {"get", "make", "render"}) {
    for (const char* quality : {"", "0", "101", "-1", "best"}) {
      refusals.push_back({{subcommand, "--quality", quality, "a.jpg", "b.jpg"},
                          std::string("'") + quality + "' is not a valid quality: use 1 to 100; see 'tavithumb " +
                              subcommand + " --help'"});
    }
  }
  ExpectRefusals(refusals);
}

TEST(Refusals, OfABadLimit) {
  std::vector<Refusal> refusals;
  for (const char* limit : {"", "0", "1000000001", "-1"}) {
    refusals.push_back({{"make", "--limit", limit, "a.jpg"},
                        std::string("'") + limit + "' is not a valid number for --limit: use 1 to 1000000000; see " +
                            "'tavithumb make --help'"});
  }
  ExpectRefusals(refusals);
}

}  // namespace
}  // namespace tavithumb::apps::command
