// SPDX-License-Identifier: GPL-3.0-or-later
// The policy for ImageMagick when the command runs it.
#include <pictures.h>

#include <cstdlib>
#include <filesystem>

#include "command_runner.h"
#include "thumbs/imagemagick_policy.h"

namespace tavithumb::test {
namespace {

class CommandPolicy : public testing::Test {
 protected:
  CommandPolicy() {
    for (const char* name : {"lenient", "empty"}) std::filesystem::create_directory(folder / name);
    WriteFile(folder / "lenient/policy.xml", "<policymap/>\n");
    RunTool({"/usr/bin/convert", "-size", "200x150", "plasma:", "jp2:" + picture});
  }
  ~CommandPolicy() override { unsetenv("MAGICK_CONFIGURE_PATH"); }

  Outcome Under(const std::string& policy, const std::vector<std::string>& arguments) const {
    Start start = In(folder.Path());
    start.environment = {"MAGICK_CONFIGURE_PATH=" + policy};
    return run(arguments, start);
  }

  const TempDir folder;
  const CommandRunner run;
  // Named like a photo, and of a type that ImageMagick reads unless the policy forbids it.
  const std::string picture = folder / "picture.jpg";
  const std::string entry = folder / ".tavi_ea/picture.jpg/TAVIFILE_THUMB_S.jpg";
  const std::string refusal = "tavithumb: " + picture +
                              ": it could not be converted; check that it opens in another program and that the disk "
                              "has space\n";
};

TEST_F(CommandPolicy, IsTheProgramsOwn) {
  for (const Outcome& outcome : {run({"get", "--library", "--size", "small", picture}),
                                 Under("", {"get", "--library", "--size", "small", picture})}) {
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, refusal);
  }
  EXPECT_EQ(run({"make", "--library", "--sizes", "small", picture}).code, 1);
  EXPECT_FALSE(Exists(entry));
}

TEST_F(CommandPolicy, IsTheOneInTheEnvironment) {
  for (const std::string& policy : {folder / "lenient", std::string("lenient")}) {
    const Outcome outcome = Under(policy, {"get", "--library", "--size", "small", picture});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.out, entry + "\n");
    EXPECT_EQ(outcome.err, "");
    std::filesystem::remove_all(folder / ".tavi_ea");
    EXPECT_EQ(Under(policy, {"make", "--library", "--sizes", "small", picture}).code, 0);
    EXPECT_TRUE(Exists(entry));
    std::filesystem::remove_all(folder / ".tavi_ea");
  }
}

TEST_F(CommandPolicy, IsNeverMissing) {
  for (const std::string& policy : {folder / "empty", folder / "missing", folder / "lenient/policy.xml"}) {
    const Outcome outcome = Under(policy, {"get", "--library", "--size", "small", picture});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "tavithumb: '" + policy +
                               "' contains no policy.xml for ImageMagick; reinstall tavithumb, or set "
                               "$MAGICK_CONFIGURE_PATH to a folder that does\n");
  }
  EXPECT_FALSE(Exists(entry));
}

TEST_F(CommandPolicy, IsNextToTheFolderOfTheProgram) {
  unsetenv("MAGICK_CONFIGURE_PATH");
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(apps::DefaultPolicyFolder(), program.parent_path().parent_path().string() + "/share/tavithumb/imagemagick");
  EXPECT_EQ(apps::FindPolicy(apps::DefaultPolicyFolder()),
            std::filesystem::canonical(apps::DefaultPolicyFolder()).string());
}

TEST_F(CommandPolicy, IsFoundBehindLinks) {
  std::filesystem::create_directory_symlink("lenient", folder / "link");
  EXPECT_EQ(apps::FindPolicy(folder / "link"), std::filesystem::canonical(folder / "lenient").string());
  EXPECT_EQ(apps::FindPolicy(folder / "empty"), "");
  EXPECT_EQ(apps::FindPolicy(folder / "missing"), "");
}

}  // namespace
}  // namespace tavithumb::test
