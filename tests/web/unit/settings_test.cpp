// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/settings.h"

#include <gtest/gtest.h>
#include <temp_dir.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace tavithumb::apps::web {
namespace {

// The whole settings in lines: roots, address and flag, numbers, limits, policy.
std::string Describe(const Settings& settings) {
  std::string text;
  for (const Root& root : settings.roots) text += root.name + "=" + root.folder + " ";
  text += "\n" + settings.scgiAddress + (settings.showsHidden ? " hidden" : "") +
          (settings.sendfile.empty() ? "" : " " + settings.sendfile) + (settings.byLibrary ? " library" : "") +
          (settings.quality == 80 ? "\n" : " " + std::to_string(settings.quality) + "\n");
  text += std::to_string(settings.children) + " " + std::to_string(settings.senders) + " " +
          std::to_string(settings.waiting) + " " + std::to_string(settings.deadlineSeconds) + "\n";
  const ToolLimits& limits = settings.limits;
  text += std::to_string(limits.cpuSeconds) + " " + std::to_string(limits.memoryMiB) + " " +
          std::to_string(limits.fileSizeMiB) + " " + std::to_string(limits.openFiles) + "\n";
  if (!settings.store.folder.empty()) text += settings.store.folder + (settings.store.isForAll ? " for all " : " ");
  if (settings.storeSize.number != 10) text += std::to_string(static_cast<int>(settings.storeSize.number)) + "\n";
  return text + settings.policyFolder;
}

// What the arguments mean, or the error.
std::string Read(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "tavithumb-web");
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  try {
    const std::optional<Settings> settings = ReadSettings(static_cast<int>(arguments.size()), pointers.data());
    return settings ? Describe(*settings) : "nothing";
  } catch (const std::invalid_argument& error) {
    return std::string("wrong: ") + error.what();
  }
}

class SettingsRead : public testing::Test {
 protected:
  SettingsRead() {
    unsetenv("TAVITHUMB_WEB_CONFIG");
    unsetenv("MAGICK_CONFIGURE_PATH");
    test::WriteFile(folder_ / "policy/policy.xml", "<policymap/>");
    for (const char* name : {"photos", "films"}) std::filesystem::create_directory(folder_ / name);
  }
  ~SettingsRead() override {
    unsetenv("TAVITHUMB_WEB_CONFIG");
    unsetenv("MAGICK_CONFIGURE_PATH");
  }

  // The arguments after a root and a policy.
  std::vector<std::string> With(std::vector<std::string> more) const {
    more.insert(more.begin(), {"--root", folder_ / "photos", "--policy", folder_ / "policy"});
    return more;
  }

  // What they mean: the texts are lines of Describe().
  std::string Expected(const std::string& address, const std::string& numbers, const std::string& limits) const {
    return "=" + (folder_ / "photos") + " \n" + address + "\n" + numbers + "\n" + limits + "\n" + (folder_ / "policy");
  }

  std::string Children() const { return std::to_string(2 * std::max(1U, std::thread::hardware_concurrency())); }

  test::TempDir folder_;
};

TEST_F(SettingsRead, AreTheDefaultsUnlessSetOtherwise) {
  const std::string numbers = Children() + " 256 64 30";
  const std::string limits = "20 1536 1024 256";
  EXPECT_EQ(Read(With({})), Expected("", numbers, limits));
  EXPECT_EQ(Read(With({"--scgi", "/run/s", "--hidden"})), Expected("/run/s hidden", numbers, limits));
  for (const char* header : {"X-Accel-Redirect", "X-Sendfile"}) {
    EXPECT_EQ(Read(With({"--sendfile", header})), Expected(std::string(" ") + header, numbers, limits));
  }
  EXPECT_EQ(Read(With({"--library", "--quality", "100"})), Expected(" library 100", numbers, limits));
  EXPECT_EQ(Read(With({"--store", "/s", "--store-all", "--store-size", "5%"})),
            Expected("", numbers, limits + "\n/s for all 5"));
  EXPECT_EQ(Read(With({"--store", "/s", "--store-size", "3K"})), Expected("", numbers, limits + "\n/s 3072"));
  EXPECT_EQ(Read(With({"--children", "0"})), Expected("", numbers, limits));
  EXPECT_EQ(Read(With({"--children", "3", "--senders", "0", "--waiting", "0", "--deadline", "86400"})),
            Expected("", "3 0 0 86400", limits));
  EXPECT_EQ(Read(With({"--tool-cpu", "1", "--tool-memory", "2", "--tool-file-size", "3", "--tool-files", "4"})),
            Expected("", numbers, "1 2 3 4"));
  EXPECT_EQ(Read(With({"--tool-cpu", "0", "--tool-memory=0"})), Expected("", numbers, "0 0 1024 256"));
  EXPECT_EQ(Read(With({"--waiting", "1", "--waiting", "2"})), Expected("", Children() + " 256 2 30", limits));
}

TEST_F(SettingsRead, AllowSeveralRootsWithNames) {
  const std::string outcome = Read({"--policy", folder_ / "policy", "--root", "p=" + (folder_ / "photos"), "--root",
                                    "f=" + (folder_ / "films/../films/")});
  EXPECT_EQ(outcome.substr(0, outcome.find('\n')), "p=" + (folder_ / "photos") + " f=" + (folder_ / "films") + " ");
}

TEST_F(SettingsRead, ComeFromAFileThatTheCommandLineOverrides) {
  test::WriteFile(folder_ / "web.conf",
                  "root = [\"" + (folder_ / "photos") + "\"]\npolicy = \"" + (folder_ / "policy") +
                      "\"\nscgi = \"/run/s\"\nhidden = true\nchildren = 3\nsenders = 2\nwaiting = 4\n"
                      "deadline = 5\ntool-cpu = 6\ntool-memory = 7\ntool-file-size = 8\n"
                      "tool-files = 9\n");
  const std::string expected = Expected("/run/s hidden", "3 2 4 5", "6 7 8 9");
  EXPECT_EQ(Read({"--config", folder_ / "web.conf"}), expected);
  setenv("TAVITHUMB_WEB_CONFIG", (folder_ / "web.conf").c_str(), 1);
  EXPECT_EQ(Read({}), expected);
  EXPECT_EQ(Read({"--waiting", "44", "--tool-files", "99"}), Expected("/run/s hidden", "3 2 44 5", "6 7 8 99"));
}

TEST_F(SettingsRead, PreferTheFileOnTheCommandLineToTheOneInTheEnvironment) {
  setenv("TAVITHUMB_WEB_CONFIG", (folder_ / "environment.conf").c_str(), 1);
  test::WriteFile(folder_ / "environment.conf", "waiting = 1\n");
  test::WriteFile(folder_ / "line.conf", "waiting = 2\n");
  EXPECT_EQ(Read(With({"--config", folder_ / "line.conf"})),
            Expected("", Children() + " 256 2 30", "20 1536 1024 256"));
}

TEST_F(SettingsRead, ReportWhatIsWrong) {
  const std::string photos = folder_ / "photos";
  const std::string policy = folder_ / "policy";
  test::WriteFile(folder_ / "unknown.conf", "colour = 1\n");
  test::WriteFile(folder_ / "number.conf", "waiting = \"many\"\n");
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"--policy", policy}, "--root is required"},
      {{"--policy", policy, "--root"}, "--root: 1 required [NAME=]DIR missing"},
      {With({"--root", photos}), "'" + photos + "' needs a name: NAME=" + photos},
      {{"--root", "a=" + photos, "--root", photos}, "'" + photos + "' needs a name: NAME=" + photos},
      {{"--root", "a=" + photos, "--root", "a=" + photos}, "'a' names two roots; rename one"},
      {With({"--deadline", "0"}), "--deadline: Value 0 not in range 1 to 86400"},
      {With({"--deadline", "86401"}), "--deadline: Value 86401 not in range 1 to 86400"},
      {With({"--deadline", "9s"}), "--deadline: Value 9s not in range 1 to 86400"},
      {With({"--sendfile", "sendfile"}), "--sendfile: 'sendfile' is neither X-Accel-Redirect nor X-Sendfile"},
      {With({"--store-size", "much"}), "'much' is not a valid size: use one such as 500M, 2G or 10%"},
      {With({"--children", "-1"}), "Could not convert: --children = -1"},
      {With({"--waiting", "-1"}), "Could not convert: --waiting = -1"},
      {With({"--tool-files", "-1"}), "Could not convert: --tool-files = -1"},
      {With({"--waiting", "many"}), "Could not convert: --waiting = many"},
      {With({"--tool-cpu", "1.5"}), "Could not convert: --tool-cpu = 1.5"},
      {With({"--policy", photos}), "'" + photos + "' contains no policy.xml; use --policy to name a folder that does"},
      {With({"--policy", folder_ / "missing"}),
       "'" + (folder_ / "missing") + "' contains no policy.xml; use --policy to name a folder that does"},
      {With({"--colour"}), "The following argument was not expected: --colour"},
      {With({"photos"}), "The following argument was not expected: photos"},
      {With({"--config", folder_ / "missing.conf"}), (folder_ / "missing.conf") + " was not readable (missing?)"},
      {With({"--config", folder_ / "unknown.conf"}), "INI was not able to parse colour"},
      {With({"--config", folder_ / "number.conf"}), "Could not convert: --waiting = many"},
  };
  for (const auto& [arguments, message] : rows) EXPECT_EQ(Read(arguments), "wrong: " + message);
}

TEST_F(SettingsRead, UseThePolicyOfTheEnvironmentUnlessTheyNameOne) {
  const std::string missing = folder_ / "missing";
  const std::string expected = Expected("", Children() + " 256 64 30", "20 1536 1024 256");
  setenv("MAGICK_CONFIGURE_PATH", missing.c_str(), 1);
  EXPECT_EQ(Read(With({})), expected);
  EXPECT_EQ(Read({"--root", folder_ / "photos"}),
            "wrong: '" + missing + "' contains no policy.xml; use --policy to name a folder that does");
  setenv("MAGICK_CONFIGURE_PATH", (folder_ / "policy").c_str(), 1);
  EXPECT_EQ(Read({"--root", folder_ / "photos"}), expected);
}

TEST_F(SettingsRead, ReportAnUnreadableFileInTheEnvironment) {
  setenv("TAVITHUMB_WEB_CONFIG", (folder_ / "missing.conf").c_str(), 1);
  EXPECT_EQ(Read(With({})), "wrong: cannot read '" + (folder_ / "missing.conf") + "', named by $TAVITHUMB_WEB_CONFIG");
}

TEST_F(SettingsRead, AreNoneForHelpAndVersion) {
  for (const char* option : {"--version", "--help", "-h"}) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Read({option}), "nothing") << option;
    EXPECT_NE(testing::internal::GetCapturedStdout().find("tavithumb-web"), std::string::npos) << option;
  }
}

}  // namespace
}  // namespace tavithumb::apps::web
