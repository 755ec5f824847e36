// SPDX-License-Identifier: GPL-3.0-or-later
// How often `tavithumb make` reads the facts of a source. It opens the source once for its lock and three times for
// the facts, besides the tools.
#include <pictures.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "batch.h"

namespace tavithumb::test {
namespace {

using Strings = std::vector<std::string>;

constexpr char kStrace[] = "/usr/bin/strace";

class Opens : public testing::Test {
 protected:
  void SetUp() override {
    if (access(kStrace, X_OK) != 0) GTEST_SKIP() << "needs strace";
    try {
      RunTool({kStrace, "-o", trace, "/bin/true"});
    } catch (const std::runtime_error&) {
      GTEST_SKIP() << "needs processes that may be traced";
    }
  }

  // LeakSanitizer does not work in a traced process.
  void Make(const Strings& arguments) const {
    Strings words = {kStrace,
                     "-f",
                     "-o",
                     trace,
                     "-e",
                     "trace=?open,openat,execve",
                     "-E",
                     "ASAN_OPTIONS=detect_leaks=0",
                     TAVITHUMB_COMMAND,
                     "make",
                     "--library"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    RunTool(words);
  }

  struct Count {
    std::size_t tools = 0;  // that were started
    std::size_t openedByThem = 0;
    std::size_t openedByOthers = 0;
  };
  // Each line begins with the process.
  Count Opened(const std::string& source) const {
    std::ifstream lines(trace);
    std::set<std::string> tools;
    Count count;
    for (std::string line; std::getline(lines, line);) {
      const std::string process = line.substr(0, line.find(' '));
      if (line.find(" execve(\"/usr/bin/") != line.npos) tools.insert(process);
      // From its folder, where root's workers are, it is "./NAME".
      const std::string name = source.substr(source.rfind('/') + 1) + '"';
      const bool names = line.find("/" + name) != line.npos || line.find('"' + name) != line.npos;
      // The EA directory of a source has the same name; an O_PATH descriptor is no reading.
      const bool reads = line.find("O_DIRECTORY") == line.npos && line.find("O_PATH") == line.npos;
      if (line.find(" open") == line.npos || !reads || !names) continue;
      ++(tools.count(process) != 0 ? count.openedByThem : count.openedByOthers);
    }
    count.tools = tools.size();
    return count;
  }

  const TempDir folder;
  const TempDir notes;
  const std::string trace = notes / "trace";
};

TEST_F(Opens, AreFourForAFileThatNeedsThreeSizes) {
  const std::string png = folder / "a.png";
  MakePng(png, 1300, 1300);
  Make({"--sizes", "small,medium,big", png});
  EXPECT_EQ(Names(EntryOf(png, "")), (Strings{"TAVIFILE_THUMB_B.png", "TAVIFILE_THUMB_M.png", "TAVIFILE_THUMB_S.png"}));
  const Count count = Opened(png);
  EXPECT_EQ(count.tools, 3u);
  EXPECT_GE(count.openedByThem, 3u);
  EXPECT_EQ(count.openedByOthers, 4u);
}

TEST_F(Opens, AreFourForAJpegWhosePreviewFitsNoSize) {
  const std::string jpeg = folder / "a.jpg";
  RunTool({"/usr/bin/convert", "-size", "3000x2000", "-seed", "1", "plasma:", "-quality", "100", jpeg});
  SetExif(jpeg, {{"Exif.Image.Orientation", "6"}});
  MakeJpeg(folder / "preview.jpg", 160, 120);
  SetPreview(jpeg, folder / "preview.jpg");
  Make({"--sizes", "medium,big,large", jpeg});
  EXPECT_EQ(Names(EntryOf(jpeg, "")),
            (Strings{"TAVIFILE_THUMB_B_r1.jpg", "TAVIFILE_THUMB_M_r1.jpg", "TAVIFILE_THUMB_XL_r1.jpg"}));
  EXPECT_EQ(Opened(jpeg).openedByOthers, 4u);
}

TEST_F(Opens, AreFourWhenEverythingIsStoredOrNothingIsMade) {
  const std::string png = folder / "a.png";
  MakePng(png, 1300, 1300);
  Make({"--dry-run", png});
  EXPECT_EQ(Opened(png).openedByOthers, 4u);
  Make({png});
  Make({png});
  const Count count = Opened(png);
  EXPECT_EQ(count.tools, 0u);
  EXPECT_EQ(count.openedByOthers, 4u);
}

class FactsOfABatch : public Batch {};

// By a file that needs no thumbnail of the second size.
TEST_F(FactsOfABatch, AreReadAgainWhenTheFileIsReplacedMeanwhile) {
  const std::string png = folder / "wait.png";
  MakePng(png, 1300, 1300);
  MakePng(folder / "other.png", 200, 100);
  const pid_t process = run.Begin({"make", "--library", "--sizes", "small,medium", "--json", png}, ProbedStart());
  AwaitNoted("waits", 1);
  std::filesystem::rename(folder / "other.png", png);
  WriteFile(gate, "");
  const Outcome outcome = run.Await(process);
  EXPECT_EQ(outcome.code, 0) << outcome;
  const nlohmann::json result = ObjectsOf(outcome.out).front();
  EXPECT_EQ(result.at("made"), Strings{"small"});
  EXPECT_EQ(result.at("not_needed"), Strings{"medium"});
}

}  // namespace
}  // namespace tavithumb::test
