// SPDX-License-Identifier: GPL-3.0-or-later
// What each subcommand is given for a command line.
#include <gtest/gtest.h>
#include <tavithumb/libtavithumb.h>
#include <temp_dir.h>

#include <algorithm>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "command/cli/command_line.h"

namespace tavithumb::apps::command {
namespace {

using Strings = std::vector<std::string>;

struct Get {
  Strings files;
  std::optional<NameList> list;
  Request request;
  GetFormat format;
};

Get ParseGet(const Strings& options) {
  std::optional<Get> parsed;
  Strings arguments = {"get"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  const auto get = [&](const Strings& files, std::optional<NameList> list, const Request& request, GetFormat format) {
    parsed.emplace(Get{files, std::move(list), request, format});
    return true;
  };
  EXPECT_EQ(RunCommandLine(arguments, {GetSubcommand(get)}), kDone);
  return std::move(parsed.value());
}

TEST(Options, OfGetHaveDefaults) {
  const Get get = ParseGet({"a.jpg"});
  EXPECT_EQ(get.files, Strings{"a.jpg"});
  EXPECT_FALSE(get.list);
  EXPECT_EQ(get.request.size.name, "medium");
  EXPECT_EQ(get.request.quarterTurns, 0);
  EXPECT_EQ(get.request.options, Thumb::OPT_BROVIX_EA);
  EXPECT_FALSE(get.request.acceptHeic);
  EXPECT_FALSE(get.request.byLibrary);
  EXPECT_EQ(get.request.quality, 80);
  EXPECT_EQ(get.format, GetFormat::kLines);
}

TEST(Options, OfGetSelectWhatIsLookedUp) {
  const std::pair<const char*, int> rows[] = {
      {"--albumex", Thumb::OPT_BROVIX_EA | Thumb::OPT_ALBUMEX_EA},
      {"--no-brovix", 0},
      {"--no-convert", Thumb::OPT_BROVIX_EA | Thumb::OPT_NO_CONVERT},
      {"--keep-animation", Thumb::OPT_BROVIX_EA | Thumb::OPT_ENABLE_GIF},
      {"--avatar", Thumb::OPT_BROVIX_EA | Thumb::OPT_AVATAR},
      {"--fallback-smaller", Thumb::OPT_BROVIX_EA | Thumb::OPT_FALLBACK_SMALLER},
  };
  for (const auto& [flag, options] : rows) EXPECT_EQ(ParseGet({flag, "a.jpg"}).request.options, options) << flag;
  EXPECT_TRUE(ParseGet({"--accept-heic", "a.jpg"}).request.acceptHeic);
}

TEST(Options, OfGetSayHowThumbnailsAreMade) {
  EXPECT_TRUE(ParseGet({"--library", "a.jpg"}).request.byLibrary);
  EXPECT_EQ(ParseGet({"--quality", "1", "a.jpg"}).request.quality, 1);
  EXPECT_EQ(ParseGet({"--quality", "100", "a.jpg"}).request.quality, 100);
}

struct SizeRow {
  std::string text;
  std::string name;
  std::uint32_t width;
  std::uint32_t height;
};

TEST(Options, OfGetAcceptEveryFormOfSize) {
  const SizeRow rows[] = {
      {"small", "small", 0, 0},   {"medium", "medium", 0, 0},     {"big", "big", 0, 0}, {"large", "large", 0, 0},
      {"xlarge", "xlarge", 0, 0}, {"original", "original", 0, 0}, {"1", "", 1, 1},      {"65535", "", 65535, 65535},
      {"1x65535", "", 1, 65535},  {"080x060", "", 80, 60},
  };
  for (const SizeRow& row : rows) {
    const Size size = ParseGet({"--size", row.text, "a.jpg"}).request.size;
    EXPECT_EQ(size.name, row.name) << row.text;
    EXPECT_EQ(size.box.width, row.width) << row.text;
    EXPECT_EQ(size.box.height, row.height) << row.text;
  }
}

TEST(Options, OfGetAcceptQuarterTurns) {
  const std::pair<const char*, int> rows[] = {{"0", 0},  {"1", 1},  {"2", 2},          {"3", 3},
                                              {"4", 0},  {"7", 3},  {"-1", 3},         {"-2", 2},
                                              {"-3", 1}, {"-4", 0}, {"2147483647", 3}, {"-2147483648", 0}};
  for (const auto& [text, turns] : rows) {
    EXPECT_EQ(ParseGet({"--rotate", text, "a.jpg"}).request.quarterTurns, turns) << text;
  }
}

TEST(Options, OfGetSelectTheFormat) {
  EXPECT_EQ(ParseGet({"--json", "a.jpg"}).format, GetFormat::kJson);
  EXPECT_EQ(ParseGet({"-0", "a.jpg"}).format, GetFormat::kNulEnded);
}

TEST(Options, OfGetNameAListWhoseNamesMayEndWithNulBytesInJsonToo) {
  const test::TempDir folder;
  test::WriteFile(folder / "list", std::string("a\nb\0c", 5));
  Get get = ParseGet({"--json", "-0", "--files-from", folder / "list"});
  EXPECT_EQ(get.files, Strings{});
  EXPECT_EQ(get.format, GetFormat::kJson);
  std::deque<std::string> names;
  EXPECT_FALSE(get.list.value().Read(&names));
  EXPECT_EQ(names, std::deque<std::string>{"a\nb"});
}

TEST(Options, LeaveNamesUnchanged) {
  const Strings odd = {"get", "{}", "[]", "[a.png,b.png]", "[[0]]", "\"quoted\"", "'quoted'", "%%", "", "-1", "\xff"};
  EXPECT_EQ(ParseGet(odd).files, odd);
  const Strings dashed = {"--", "-0", "--json", "--help", "++"};
  Strings arguments = {"a.jpg", "--"};
  arguments.insert(arguments.end(), dashed.begin(), dashed.end());
  Strings files = dashed;
  files.insert(files.begin(), "a.jpg");
  EXPECT_EQ(ParseGet(arguments).files, files);
}

MakeRequest ParseMake(const Strings& options) {
  std::optional<MakeRequest> parsed;
  Strings arguments = {"make"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  const auto make = [&](MakeRequest request) {
    parsed = std::move(request);
    return RunOutcome::kAllWell;
  };
  EXPECT_EQ(RunCommandLine(arguments, {MakeSubcommand(make)}), kDone);
  return std::move(parsed.value());
}

TEST(Options, OfMakeHaveDefaults) {
  const MakeRequest request = ParseMake({"a", "b"});
  EXPECT_EQ(request.names, (Strings{"a", "b"}));
  EXPECT_FALSE(request.list);
  EXPECT_EQ(request.order.sizes, (Strings{"small", "medium", "big", "large", "xlarge"}));
  EXPECT_FALSE(request.order.onlyOlder);
  EXPECT_FALSE(request.order.isDryRun);
  EXPECT_FALSE(request.order.byLibrary);
  EXPECT_EQ(request.order.quality, 80);
  EXPECT_EQ(request.jobs, std::clamp(std::thread::hardware_concurrency(), 1u, 256u));
  EXPECT_EQ(request.limit, std::nullopt);
  EXPECT_FALSE(request.output.json);
  EXPECT_FALSE(request.output.isQuiet);
  EXPECT_FALSE(request.output.isVerbose);
}

TEST(Options, OfWatchAreThoseOfMakeThatFitFolders) {
  std::optional<WatchRequest> parsed;
  const auto watch = [&parsed](const WatchRequest& request) {
    parsed = request;
    return RunOutcome::kInterrupted;
  };
  EXPECT_EQ(RunCommandLine({"watch", "-q", "-s", "big", "--jobs", "3", "--quality", "70", "--no-videos", "--exclude",
                            "*.gif", "--eager", "--library", "--one-file-system", "--json", "a", "b"},
                           {WatchSubcommand(watch)}),
            kDone);
  EXPECT_EQ(parsed->folders, (Strings{"a", "b"}));
  EXPECT_EQ(parsed->order.sizes, Strings{"big"});
  EXPECT_EQ(parsed->order.quality, 70);
  EXPECT_TRUE(parsed->order.isEager);
  EXPECT_TRUE(parsed->order.byLibrary);
  EXPECT_FALSE(parsed->order.isDryRun);
  EXPECT_EQ(parsed->jobs, 3u);
  EXPECT_EQ(parsed->filter.excluded, Strings{"*.gif"});
  EXPECT_TRUE(parsed->filter.staysOnFileSystem);
  EXPECT_FALSE(parsed->filter.takesVideos);
  EXPECT_TRUE(parsed->output.isQuiet);
  EXPECT_TRUE(parsed->output.json);
  EXPECT_EQ(RunCommandLine({"watch", "a"}, {WatchSubcommand(watch)}), kDone);
  EXPECT_TRUE(parsed->filter.takesVideos);
  EXPECT_FALSE(parsed->order.isEager);
  EXPECT_EQ(parsed->jobs, std::clamp(std::thread::hardware_concurrency(), 1u, 256u));
}

TEST(Options, HaveTheLettersThatPeopleExpect) {
  EXPECT_EQ(ParseGet({"-s", "small", "a.jpg"}).request.size.name, "small");
  const MakeRequest quiet = ParseMake({"-s", "big", "-nq", "a"});
  EXPECT_EQ(quiet.order.sizes, Strings{"big"});
  EXPECT_TRUE(quiet.order.isDryRun);
  EXPECT_TRUE(quiet.output.isQuiet);
  EXPECT_TRUE(ParseMake({"-v", "a"}).output.isVerbose);
  EXPECT_TRUE(ParseMake({"--quiet", "--json", "a"}).output.isQuiet);
}

TEST(Options, LeaveOutFilesByPatternsThatAreTakenAsTheyAre) {
  const MakeRequest request =
      ParseMake({"--exclude", "[a,b]*", "--exclude={}", "--one-file-system", "--newer-than", "2026-11-23", "a", "b"});
  EXPECT_EQ(request.names, (Strings{"a", "b"}));
  EXPECT_EQ(request.filter.excluded, (Strings{"[a,b]*", "{}"}));
  EXPECT_TRUE(request.filter.staysOnFileSystem);
  EXPECT_EQ(request.filter.since.value().tv_sec, ParseMoment("2026-11-23").tv_sec);
  const MakeRequest all = ParseMake({"a"});
  EXPECT_EQ(all.filter.excluded, Strings{});
  EXPECT_FALSE(all.filter.staysOnFileSystem);
  EXPECT_FALSE(all.filter.since);
}

TEST(Options, OfMakeReplaceTheDefaults) {
  const test::TempDir folder;
  test::WriteFile(folder / "list", "a");
  const MakeRequest request =
      ParseMake({"--sizes", "big,small", "--jobs", "256", "--older", "--limit", "1000000000", "--dry-run", "--library",
                 "--quality", "95", "--json", "-0", "--files-from", folder / "list"});
  EXPECT_EQ(request.names, Strings{});
  ASSERT_TRUE(request.list);
  EXPECT_EQ(request.list->Name(), folder / "list");
  EXPECT_EQ(request.order.sizes, (Strings{"big", "small"}));
  EXPECT_TRUE(request.order.onlyOlder);
  EXPECT_TRUE(request.order.isDryRun);
  EXPECT_TRUE(request.order.byLibrary);
  EXPECT_EQ(request.order.quality, 95);
  EXPECT_EQ(request.jobs, 256u);
  EXPECT_EQ(request.limit, 1000000000u);
  EXPECT_TRUE(request.output.json);
}

TEST(Options, OfMakeSayHowNamesEnd) {
  const test::TempDir folder;
  test::WriteFile(folder / "list", std::string("a\nb\0c", 5));
  for (const auto& [options, count] : {std::pair<Strings, std::size_t>({}, 2), {{"-0"}, 2}}) {
    Strings arguments = {"--files-from", folder / "list"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    MakeRequest request = ParseMake(arguments);
    std::deque<std::string> names;
    while (!request.list->HasEnded()) static_cast<void>(request.list->Read(&names));
    ASSERT_EQ(names.size(), count);
    EXPECT_EQ(names.front(), options.empty() ? "a" : "a\nb");
  }
}

struct Rendering {
  std::string file;
  std::string out;
  RenderStyle style;
};

Rendering ParseRender(const Strings& options) {
  std::optional<Rendering> parsed;
  Strings arguments = {"render"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  const auto render = [&](const std::string& file, const std::string& out, const RenderStyle& style) {
    parsed = Rendering{file, out, style};
    return true;
  };
  EXPECT_EQ(RunCommandLine(arguments, {RenderSubcommand(render)}), kDone);
  return parsed.value();
}

TEST(Options, OfRenderHaveDefaults) {
  const Rendering rendering = ParseRender({"[a,b].heic", "-"});
  EXPECT_EQ(rendering.file, "[a,b].heic");
  EXPECT_EQ(rendering.out, "-");
  EXPECT_EQ(rendering.style.request.size.name, "medium");
  EXPECT_EQ(rendering.style.request.quarterTurns, 0);
  EXPECT_EQ(rendering.style.request.options, 0);
  EXPECT_EQ(rendering.style.request.quality, 80);
  EXPECT_EQ(rendering.style.type, maker::Type::kJpeg);
  EXPECT_EQ(rendering.style.uri, std::nullopt);
}

TEST(Options, OfRenderDescribeThePicture) {
  const Rendering rendering = ParseRender({"-s", "20x30", "--rotate", "-1", "--avatar", "--quality", "7", "--format",
                                           "png", "--uri", "file:///a", "--", "-a", "-b.jpg"});
  EXPECT_EQ(rendering.file, "-a");
  EXPECT_EQ(rendering.out, "-b.jpg");
  EXPECT_EQ(rendering.style.request.size.box.width, 20U);
  EXPECT_EQ(rendering.style.request.size.box.height, 30U);
  EXPECT_EQ(rendering.style.request.quarterTurns, 3);
  EXPECT_EQ(rendering.style.request.options, Thumb::OPT_AVATAR);
  EXPECT_EQ(rendering.style.request.quality, 7);
  EXPECT_EQ(rendering.style.type, maker::Type::kPng);
  EXPECT_EQ(rendering.style.uri, "file:///a");
}

TEST(Options, OfRenderTakeAllPixelsForOriginal) {
  const Size size = ParseRender({"--size", "original", "a", "b.jpg"}).style.request.size;
  EXPECT_EQ(size.name, "");
  EXPECT_EQ(size.box.width, 65535U);
  EXPECT_EQ(size.box.height, 65535U);
}

TEST(Options, OfRenderGoByTheNameOfTheOutput) {
  using maker::Type;
  const std::pair<const char*, Type> rows[] = {
      {"a.jpg", Type::kJpeg},   {"a.JPEG", Type::kJpeg}, {"a.PNG", Type::kPng},       {"a.webp", Type::kWebp},
      {"x.gif/a", Type::kJpeg}, {"-", Type::kJpeg},      {"/dev/stdout", Type::kJpeg}};
  for (const auto& [out, type] : rows) EXPECT_EQ(ParseRender({"a", out}).style.type, type) << out;
  EXPECT_EQ(ParseRender({"--format", "webp", "a", "a.png"}).style.type, Type::kWebp);
  EXPECT_EQ(ParseRender({"--format", "jpeg", "a", "a.gif"}).style.type, Type::kJpeg);
}

TEST(Options, OfAddPairSourcesWithThumbnails) {
  std::vector<Pair> pairs;
  std::vector<AddStyle> styles;
  const auto add = [&](const std::vector<Pair>& parsed, const AddStyle& style) {
    pairs = parsed;
    styles.push_back(style);
    return true;
  };
  const std::vector<Subcommand> subcommands = {AddSubcommand(add)};
  EXPECT_EQ(RunCommandLine({"add", "--size", "big", "a", "1", "b", "2"}, subcommands), kDone);
  EXPECT_EQ(pairs, (std::vector<Pair>{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(styles.back().size, "big");
  EXPECT_EQ(styles.back().mtime, 0);
  EXPECT_FALSE(styles.back().checkType);
  EXPECT_EQ(RunCommandLine({"add", "--check-type", "--mtime", "1", "--size", "small", "a", "1"}, {AddSubcommand(add)}),
            kDone);
  EXPECT_EQ(styles.back().size, "small");
  EXPECT_EQ(styles.back().mtime, 1);
  EXPECT_TRUE(styles.back().checkType);
}

TEST(Options, OfCleanReportOnlyOnRequest) {
  Strings cleaned;
  std::vector<RemovalStyle> styles;
  const auto clean = [&](const Strings& paths, const RemovalStyle& style) {
    cleaned = paths;
    styles.push_back(style);
    return true;
  };
  EXPECT_EQ(RunCommandLine({"clean", "a", "b"}, {CleanSubcommand(clean)}), kDone);
  EXPECT_EQ(cleaned, (Strings{"a", "b"}));
  EXPECT_FALSE(styles.back().isDryRun);
  EXPECT_FALSE(styles.back().json);
  EXPECT_EQ(RunCommandLine({"clean", "--dry-run", "a"}, {CleanSubcommand(clean)}), kDone);
  EXPECT_TRUE(styles.back().isDryRun);
  EXPECT_FALSE(styles.back().json);
  EXPECT_EQ(RunCommandLine({"clean", "--json", "a"}, {CleanSubcommand(clean)}), kDone);
  EXPECT_FALSE(styles.back().isDryRun);
  EXPECT_TRUE(styles.back().json);
}

TEST(Options, OfInfoAndListSelectTheFormat) {
  for (const bool json : {false, true}) {
    Strings seen;
    bool wantsJson = !json;
    const auto look = [&](const Strings& files, bool isJson) {
      seen = files;
      wantsJson = isJson;
      return true;
    };
    for (const char* name : {"info", "list"}) {
      Strings arguments = {name, "a", "b"};
      if (json) arguments.emplace_back("--json");
      EXPECT_EQ(RunCommandLine(arguments, {InfoSubcommand(look), ListSubcommand(look)}), kDone);
      EXPECT_EQ(seen, (Strings{"a", "b"}));
      EXPECT_EQ(wantsJson, json);
    }
  }
}

TEST(ExitCodes, SayHowTheRunEnded) {
  const auto fail = [](const auto&... /*arguments*/) { return false; };
  EXPECT_EQ(RunCommandLine({"get", "a"}, {GetSubcommand(fail)}), kSomeFailed);
  EXPECT_EQ(RunCommandLine({"info", "a"}, {InfoSubcommand(fail)}), kSomeFailed);
  EXPECT_EQ(RunCommandLine({"list", "a"}, {ListSubcommand(fail)}), kSomeFailed);
  EXPECT_EQ(RunCommandLine({"clean", "a"}, {CleanSubcommand(fail)}), kSomeFailed);
  EXPECT_EQ(RunCommandLine({"add", "--size", "big", "a", "b"}, {AddSubcommand(fail)}), kSomeFailed);
  EXPECT_EQ(RunCommandLine({"render", "a", "b.jpg"}, {RenderSubcommand(fail)}), kSomeFailed);
  const std::pair<RunOutcome, ExitCode> rows[] = {
      {RunOutcome::kAllWell, kDone}, {RunOutcome::kSomeFailed, kSomeFailed}, {RunOutcome::kInterrupted, kInterrupted}};
  for (const auto& [outcome, code] : rows) {
    const auto make = [end = outcome](const MakeRequest& /*request*/) { return end; };
    EXPECT_EQ(RunCommandLine({"make", "a"}, {MakeSubcommand(make)}), code);
    const auto watch = [end = outcome](const WatchRequest& /*request*/) { return end; };
    const ExitCode watchCode = outcome == RunOutcome::kInterrupted ? kDone : kSomeFailed;
    EXPECT_EQ(RunCommandLine({"watch", "a"}, {WatchSubcommand(watch)}), watchCode);
  }
}

}  // namespace
}  // namespace tavithumb::apps::command
