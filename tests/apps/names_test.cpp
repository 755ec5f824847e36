// SPDX-License-Identifier: GPL-3.0-or-later
// Names with any bytes, given from any folder, to both subcommands.
#include <pictures.h>
#include <sys/stat.h>

#include <filesystem>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

using nlohmann::json;

struct Name {
  std::string bytes;
  std::string printable;  // on standard error
  std::string hex;        // in JSON, if the bytes are not UTF-8
  std::string text;       // in JSON; "" if it is the bytes
};

const std::vector<Name> oddNames = {
    {"with space.png", "with space.png", "", ""},
    {"new\nline.png", "new\\nline.png", "", ""},
    {"tab\tand\rreturn.png", "tab\\tand\\rreturn.png", "", ""},
    {"bell\x07 escape\x1b[31m.png", "bell\\x07 escape\\x1b[31m.png", "", ""},
    {"delete\x7f csi\xc2\x9b.png", "delete\\x7f csi\\xc2\\x9b.png", "", ""},
    {"back\\slash.png", "back\\\\slash.png", "", ""},
    {"quotes'\"`.png", "quotes'\"`.png", "", ""},
    {"$(date);&|<>.png", "$(date);&|<>.png", "", ""},
    {"-dash.png", "-dash.png", "", ""},
    {"--size.png", "--size.png", "", ""},
    {"[0].png", "[0].png", "", ""},
    {"pic[0].png", "pic[0].png", "", ""},
    {"star*?.png", "star*?.png", "", ""},
    {"jpg:colon.png", "jpg:colon.png", "", ""},
    {"@at.png", "@at.png", "", ""},
    {"\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80.png", "\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80.png", "", ""},
    {"latin\xfc.png", "latin\\xfc.png", "6c6174696efc2e706e67", "latin\xef\xbf\xbd.png"},
    {"cut\xe2\x82.png", "cut\\xe2\\x82.png", "637574e2822e706e67", "cut\xef\xbf\xbd.png"},
    {"overlong\xe0\x9f\xbf.png", "overlong\\xe0\\x9f\\xbf.png", "6f7665726c6f6e67e09fbf2e706e67",
     "overlong\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd.png"},
    {"surrogate\xed\xa0\x80.png", "surrogate\\xed\\xa0\\x80.png", "737572726f67617465eda0802e706e67",
     "surrogate\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd.png"},
    {"low\xf0\x8f\xbf\xbf.png", "low\\xf0\\x8f\\xbf\\xbf.png", "6c6f77f08fbfbf2e706e67",
     "low\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd.png"},
    {"high\xf4\x90\x80\x80.png", "high\\xf4\\x90\\x80\\x80.png", "68696768f49080802e706e67",
     "high\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd.png"},
};

std::string HexOf(const std::string& bytes) {
  std::string hex;
  char digits[3] = "";
  for (const char byte : bytes) {
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    hex += digits;
  }
  return hex;
}

class NamesOfAnyBytes : public testing::Test {
 protected:
  NamesOfAnyBytes() { MakePng(original, 400, 300); }

  void Copy(const std::string& name) const { std::filesystem::copy_file(original, folder / name); }

  // An object's expected pair of keys for a path.
  static void Expect(json* object, const std::string& key, const std::string& path, const std::string& text,
                     bool lossy) {
    (*object)[key] = text;
    if (lossy) (*object)[key + "_hex"] = HexOf(path);
  }

  const TempDir folder;
  const TempDir elsewhere;
  const std::string original = elsewhere / "original.png";
  const CommandRunner run;
};

TEST_F(NamesOfAnyBytes, GetAnswersWithTheirExactBytes) {
  for (const Name& name : oddNames) {
    SCOPED_TRACE(name.printable);
    Copy(name.bytes);
    const std::string source = folder / name.bytes;
    const std::string answer = EntryOf(source, "TAVIFILE_THUMB_M.png");
    for (const auto& [option, end] : {std::pair<std::string, char>("--size=medium", '\n'), {"-0", '\0'}}) {
      const Outcome outcome = run({"get", option, "--", name.bytes}, In(folder.Path()));
      EXPECT_EQ(outcome.code, 0);
      EXPECT_EQ(outcome.err, "");
      EXPECT_EQ(outcome.out, answer + end);
    }
    EXPECT_TRUE(Exists(answer));
  }
}

TEST_F(NamesOfAnyBytes, AreValidTextInJson) {
  for (const Name& name : oddNames) {
    SCOPED_TRACE(name.printable);
    Copy(name.bytes);
    const std::string source = folder / name.bytes;
    const bool lossy = !name.hex.empty();
    EXPECT_EQ(lossy ? HexOf(name.bytes) : "", name.hex);
    const std::string text = folder / (lossy ? name.text : name.bytes);

    json answer = {
        {"output_type", "Brovix"}, {"mime_type", "image/png"}, {"delete", false}, {"made", true}, {"error", nullptr}};
    Expect(&answer, "source", source, text, lossy);
    Expect(&answer, "answer", EntryOf(source, "TAVIFILE_THUMB_M.png"), EntryOf(text, "TAVIFILE_THUMB_M.png"), lossy);
    const Outcome get = run({"get", "--json", "--", name.bytes}, In(folder.Path()));
    EXPECT_EQ(get.code, 0);
    EXPECT_EQ(ObjectsOf(get.out), std::vector<json>{answer});

    json facts = {
        {"kind", "image"}, {"mime_type", "image/png"}, {"width", 400},  {"height", 300},      {"orientation", 1},
        {"rotation", 0},   {"mirror", false},          {"heic", false}, {"preview", nullptr}, {"error", nullptr}};
    for (const char* unknown : {"colour_space", "taken", "camera_make", "camera_model", "lens", "exposure", "place"}) {
      facts[unknown] = nullptr;
    }
    Expect(&facts, "source", source, text, lossy);
    const Outcome info = run({"info", "--json", "--", name.bytes}, In(folder.Path()));
    EXPECT_EQ(info.code, 0);
    EXPECT_EQ(ObjectsOf(info.out), std::vector<json>{facts});

    std::filesystem::remove(source);
    json problem = {{"error", "it does not exist"}};
    Expect(&problem, "source", source, text, lossy);
    const Outcome gone = run({"get", "--json", "--", name.bytes}, In(folder.Path()));
    EXPECT_EQ(gone.code, 1);
    EXPECT_EQ(ObjectsOf(gone.out), std::vector<json>{problem});
  }
}

TEST_F(NamesOfAnyBytes, AreOneLineOnStandardError) {
  for (const Name& name : oddNames) {
    for (const char* subcommand : {"get", "info"}) {
      const Outcome outcome = run({subcommand, "--", name.bytes}, In(folder.Path()));
      EXPECT_EQ(outcome.code, 1);
      EXPECT_EQ(outcome.out, "");
      EXPECT_EQ(outcome.err, "tavithumb: " + name.printable + ": it does not exist; check its name\n");
    }
  }
}

TEST_F(NamesOfAnyBytes, ArePrintableInTheTable) {
  Copy("new\nline.png");
  const Outcome outcome = run({"info", "new\nline.png"}, In(folder.Path()));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(
      outcome.out,
      "KIND   TYPE       SIZE     LENGTH  ORIENTATION  ROTATION  MIRROR  HEIC  PREVIEW  COLOUR  TAKEN  CAMERA  FILE\n"
      "image  image/png  400x300  -       1            0         no      no    -        -       -      -       "
      "new\\nline.png\n");
}

TEST_F(NamesOfAnyBytes, AreRejectedPlainlyIfImageMagickReadsThemAsAPattern) {
  for (const char* name : {"100%d.png", "100%03d.png", "%x.png", "%o.png", "100%%.png", "%[x].png"}) {
    Copy(name);
    const Outcome outcome = run({"get", "--library", name}, In(folder.Path()));
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "tavithumb: " + std::string(name) +
                  ": it could not be converted because ImageMagick reads the '%' in its path as a pattern; "
                  "rename it, or work on a copy\n");
  }
  for (const char* name : {"100%.png", "%20.png", "%s.png", "%-d.png"}) {
    Copy(name);
    const Outcome outcome = run({"get", "--library", name}, In(folder.Path()));
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, EntryOf(folder / name, "TAVIFILE_THUMB_M.png") + "\n");
    EXPECT_EQ(outcome.err, "");
  }
}

TEST_F(NamesOfAnyBytes, MeanNothingToTheMaker) {
  for (const char* name : {"100%d.png", "%[x].png", "b[1].png", "?1.png", "{b1,c}.png", "plain.png"}) {
    Copy(name);
    const Outcome outcome = run({"get", folder / name});
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_EQ(outcome.out, EntryOf(folder / name, "TAVIFILE_THUMB_M.png") + "\n");
  }
}

TEST_F(NamesOfAnyBytes, AreRejectedPlainlyIfImageMagickConfusesThemWithOtherFiles) {
  const std::string reason =
      ": it could not be converted because ImageMagick may read other files in its place; rename it, or work on a copy "
      "in "
      "another "
      "folder\n";
  for (const char* name : {"b1.png", "plain.png"}) Copy(name);
  WriteFile(folder / "plain.png[0]", (folder / "b1.png") + " -write " + (folder / "elsewhere.png"));
  for (const char* name : {"b[1].png", "?1.png", "{b1,c}.png", "plain.png"}) {
    if (!Exists(folder / name)) Copy(name);
    const Outcome outcome = run({"get", "--library", folder / name});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "tavithumb: " + (folder / name) + reason);
  }
  EXPECT_FALSE(Exists(folder / "elsewhere.png"));
  Copy("free[1].png");
  EXPECT_EQ(run({"get", "--library", folder / "free[1].png"}).out,
            EntryOf(folder / "free[1].png", "TAVIFILE_THUMB_M.png") + "\n");
}

TEST_F(NamesOfAnyBytes, WithAPercentPatternDoNotAffectOtherTools) {
  const std::string jpeg = folder / "100%d.jpg";
  RunTool({"/usr/bin/convert", "-size", "400x300", "-seed", "1", "plasma:red-blue", "-quality", "100",
           "jpg:" + (folder / "noise.jpg")});
  std::filesystem::rename(folder / "noise.jpg", jpeg);
  const Outcome outcome = run({"get", "--size=small", jpeg});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, EntryOf(jpeg, "TAVIFILE_THUMB_S.jpg") + "\n");
  EXPECT_EQ(outcome.err, "");
}

// Words that a command line parser may interpret.
TEST_F(NamesOfAnyBytes, MayLookLikePartsOfTheCommandLine) {
  for (const char* word :
       {"get", "info", "{}", "[]", "[a.png,b.png]", "[[0]]", "\"quoted\"", "'quoted'", "%%", "", "-1"}) {
    const Outcome outcome = run({"get", word, "missing.png"}, In(folder.Path()));
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "tavithumb: " + std::string(word) + ": it does not exist; check its name\n" +
                               "tavithumb: missing.png: it does not exist; check its name\n");
  }
  for (const char* word : {"--", "-0", "--json", "--help", "++"}) {
    const Outcome outcome = run({"get", "missing.png", "--", word}, In(folder.Path()));
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.err, "tavithumb: missing.png: it does not exist; check its name\ntavithumb: " +
                               std::string(word) + ": it does not exist; check its name\n");
  }
}

struct Spelling {
  std::string folder;
  std::string name;
  std::string source;  // the absolute path, below the test's folder
};

TEST_F(NamesOfAnyBytes, BecomeAbsoluteAndAreOtherwiseUnchanged) {
  namespace fs = std::filesystem;
  fs::create_directories(folder / "deep/er");
  fs::create_directory_symlink(folder / "deep/er", folder / "link");
  Copy("a.png");
  Copy("deep/a.png");
  const std::vector<Spelling> rows = {
      {"", "a.png", "/a.png"},
      {"", "./a.png", "/./a.png"},
      {"", "deep/../a.png", "/deep/../a.png"},
      {"/deep", "../a.png", "/deep/../a.png"},
      {"/deep", "a.png", "/deep/a.png"},
      // After a link, ".." is the parent of its target, so the path must not be simplified as text.
      {"", "link/../a.png", "/link/../a.png"},
      {"/deep/er", folder / "a.png", "/a.png"},
  };
  for (const Spelling& row : rows) {
    SCOPED_TRACE(row.folder + " " + row.name);
    const Outcome outcome = run({"get", "--size=original", row.name}, In(folder.Path() + row.folder));
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, folder.Path() + row.source + "\n");
    EXPECT_EQ(outcome.err, "");
  }
}

TEST_F(NamesOfAnyBytes, WorkInTheRootFolder) {
  const std::string relative = original.substr(1);
  const Outcome outcome = run({"get", "--size=original", relative}, In("/"));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, original + "\n");
}

}  // namespace
}  // namespace tavithumb::test
