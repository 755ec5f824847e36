// SPDX-License-Identifier: GPL-3.0-or-later
// The command line itself: what it rejects, and what its help explains.
#include <gmock/gmock.h>
#include <matching.h>
#include <pictures.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

using testing::HasSubstr;

struct Refusal {
  std::vector<std::string> arguments;
  std::string message;
};

TEST(Usage, IsRejectedWithOneLineAndCode2) {
  const std::vector<Refusal> refusals = {
      {{}, "A subcommand is required; see 'tavithumb --help'"},
      {{"get", "--bo\ngus", "a.jpg"},
       "The following argument was not expected: --bo\\ngus; see 'tavithumb get --help'"},
      {{"make", "--files-from", "/no/such/list"},
       "'/no/such/list' cannot be read: No such file or directory; see 'tavithumb make --help'"},
      {{"add", "--size", "big", "a.jpg", "b.jpg", "c\n.jpg"},
       "'c\\n.jpg' is not followed by a THUMBNAIL; see 'tavithumb add --help'"},
  };
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
       {"Usage: tavithumb [OPTIONS] SUBCOMMAND\n", "get ", "info ", "make ", "render ", "add ", "list ", "clean ",
        "--version", "Exit codes:", "2    bad usage"}},
      {{"get", "--help"},
       {"Usage: tavithumb get [OPTIONS] [FILE...]\n",
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
        "--files-from LIST",
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
      {{"get", "-h"}, {"Usage: tavithumb get [OPTIONS] [FILE...]\n"}},
      {{"make", "--help"},
       {"Usage: tavithumb make [OPTIONS] [PATH...]\n", "--sizes LIST", "--jobs N", "--older", "--limit N", "--dry-run",
        "--json", "--files-from FILE", "-0 ", "Examples:", "Exit codes: 0 ", "130 interrupted"}},
      {{"info", "--help"},
       {"Usage: tavithumb info [OPTIONS] FILE...\n", "--json", "orientation (1 to 8", "Examples:", "Exit codes: 0 "}},
      {{"render", "--help"},
       {"Usage: tavithumb render [OPTIONS] FILE OUT\n", "-s,--size SIZE", "--rotate QUARTERS", "--avatar",
        "--format FORMAT", "--quality N", "--uri URI", "Examples:", "Exit codes: 0 "}},
      {{"add", "--help"},
       {"Usage: tavithumb add [OPTIONS] SOURCE THUMBNAIL [SOURCE THUMBNAIL...]\n", "--size NAME", "--check-type",
        "--mtime SECONDS", "Examples:", "Exit codes: 0 "}},
      {{"list", "--help"},
       {"Usage: tavithumb list [OPTIONS] SOURCE...\n", "--json", "stale", "Examples:", "Exit codes: 0 "}},
      {{"clean", "--help"},
       {"Usage: tavithumb clean [OPTIONS] [PATH...]\n", "--dry-run", "--json", "--store DIR", "--keep SIZE",
        "Examples:", "Exit codes: 0 "}},
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

// The calls in help.txt, each with what it prints.
std::vector<std::pair<std::string, std::string>> Helps() {
  std::vector<std::pair<std::string, std::string>> helps;
  std::istringstream lines(ReadFile(HELP_FILE));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("$ tavithumb ", 0) == 0) {
      helps.emplace_back(line.substr(line.find(' ', 2) + 1), "");
    } else if (!helps.empty()) {
      helps.back().second += line + "\n";
    }
  }
  return helps;
}

TEST(Usage, IsExplainedWordForWordAsInTheFile) {
  ASSERT_EQ(Helps().size(), 9u);
  for (const auto& [call, text] : Helps()) {
    std::istringstream words(call);
    const Outcome outcome = CommandRunner()({std::istream_iterator<std::string>(words), {}});
    EXPECT_EQ(outcome.code, 0) << call;
    EXPECT_EQ(outcome.out, text) << call;
    EXPECT_EQ(outcome.err, "") << call;
  }
}

TEST(Usage, PrintsTheVersionsOfTheProgramAndOfWhatItUses) {
  const Outcome outcome = CommandRunner()({"--version"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_TRUE(HasMatch(outcome.out, "^tavithumb [0-9]+\\.[0-9]+\\.[0-9]+\n  libjpeg-turbo +[0-9]+\\.[0-9]"))
      << outcome.out;
  for (const char* name : {"zlib", "libdeflate", "libtiff", "giflib", "libwebp", "libjxl", "libraw", "lcms2", "libheif",
                           "Exiv2", "djpeg", "jpegtran", "convert", "dcraw"}) {
    EXPECT_TRUE(HasMatch(outcome.out, "\n  " + std::string(name) + " +[0-9]+(\\.[0-9]+)+(-[0-9]+)?\n"))
        << name << outcome.out;
  }
  for (const char* name : {"ffmpegthumbnailer", "ffmpeg"}) {
    EXPECT_TRUE(HasMatch(outcome.out, "\n  " + std::string(name) + " +([0-9]+(\\.[0-9]+)+(-[0-9]+)?|not found)\n"))
        << name << outcome.out;
  }
  for (const char* name : {"HEIC", "AVIF"}) {
    EXPECT_TRUE(HasMatch(outcome.out, "\n  " + std::string(name) + " decoder +[^ ]")) << outcome.out;
  }
}

}  // namespace
}  // namespace tavithumb::test
