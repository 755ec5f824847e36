// SPDX-License-Identifier: GPL-3.0-or-later
// Standard output that can't be written to.
#include <fcntl.h>
#include <pictures.h>
#include <unistd.h>

#include <csignal>

#include "command_runner.h"

namespace tavithumb::test {
namespace {

Start ToFullDisk() {
  Start start;
  start.output = "/dev/full";
  return start;
}

class BrokenOutput : public testing::Test {
 protected:
  BrokenOutput() {
    MakePng(source, 60, 40);
    WriteFile(list, source + "\n");
  }

  void ExpectRefusal(const Start& start, const std::string& reason) const {
    ExpectOfEach(start, 1, "tavithumb: standard output: " + reason + "\n");
  }

  void ExpectOfEach(const Start& start, int code, const std::string& errors) const {
    const std::vector<std::vector<std::string>> commands = {{"get", source},
                                                            {"get", "--json", source},
                                                            {"get", "-0", source},
                                                            {"get", "--files-from", list},
                                                            {"info", source},
                                                            {"info", "--json", source},
                                                            {"list", source},
                                                            {"list", "--json", source},
                                                            {"clean", "--dry-run", source},
                                                            {"clean", "--dry-run", "--json", source},
                                                            {"--help"},
                                                            {"get", "--help"},
                                                            {"--version"}};
    for (const std::vector<std::string>& command : commands) {
      SCOPED_TRACE(testing::PrintToString(command));
      const Outcome outcome = run(command, start);
      EXPECT_EQ(outcome.code, code);
      EXPECT_EQ(outcome.err, errors);
    }
  }

  const TempDir folder;
  const std::string source = folder / "a.png";
  const TempDir lists;
  const std::string list = lists / "list";
  const CommandRunner run;
};

TEST_F(BrokenOutput, ToAFullDiskIsAnError) {
  ExpectRefusal(ToFullDisk(), "No space left on device");
}

TEST_F(BrokenOutput, ToAPipeWithoutAReaderIsNotReportedAndHasTheCodeThatShellsExpect) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  Start start;
  start.outputDescriptor = ends[1];
  ExpectOfEach(start, 128 + SIGPIPE, "");
  close(ends[1]);
}

TEST_F(BrokenOutput, ToAClosedDescriptorIsAnErrorAndReachesNoOtherFile) {
  const std::string before = ReadFile(source);
  Start start;
  start.closesOutput = true;
  ExpectRefusal(start, "Bad file descriptor");
  EXPECT_EQ(ReadFile(source), before);
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{"a.png"});
}

TEST_F(BrokenOutput, StopsTheRun) {
  const Outcome outcome = run({"get", source, folder / "missing.png"}, ToFullDisk());
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "tavithumb: standard output: No space left on device\n");
}

}  // namespace
}  // namespace tavithumb::test
