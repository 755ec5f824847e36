// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/batch/failed_files.h"

#include <gtest/gtest.h>
#include <temp_dir.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace tavithumb::apps::command {
namespace {

class FailedFilesTest : public testing::Test {
 protected:
  static FailedFiles::Version Version(std::uint64_t number) { return {1, 2, 3, 4, number}; }

  const test::TempDir folder;
  const std::string path = folder / "a/b/failed";
};

TEST_F(FailedFilesTest, AreKnownToLaterRunsAndToThoseAtTheSameTime) {
  FailedFiles one(path, false), other(path, false);
  one.Add(Version(1));
  other.Add(Version(2));
  one.Add(Version(1));
  EXPECT_TRUE(one.Has(Version(1)));
  EXPECT_FALSE(one.Has(Version(2)));
  const FailedFiles later(path, false);
  EXPECT_TRUE(later.Has(Version(1)));
  EXPECT_TRUE(later.Has(Version(2)));
  EXPECT_FALSE(later.Has(Version(3)));
  EXPECT_EQ(std::filesystem::file_size(path), 80u);
}

TEST_F(FailedFilesTest, AreForgottenOnRequest) {
  FailedFiles(path, false).Add(Version(1));
  EXPECT_FALSE(FailedFiles(path, true).Has(Version(1)));
  EXPECT_FALSE(FailedFiles(path, false).Has(Version(1)));
}

TEST_F(FailedFilesTest, AreForgottenWhenARecordWasCutOff) {
  FailedFiles(path, false).Add(Version(1));
  std::filesystem::resize_file(path, 39);
  FailedFiles cut(path, false);
  cut.Add(Version(2));
  const FailedFiles later(path, false);
  EXPECT_FALSE(later.Has(Version(1)));
  EXPECT_TRUE(later.Has(Version(2)));
}

TEST_F(FailedFilesTest, AreForgottenWhenThereAreTooMany) {
  std::filesystem::create_directories(folder / "a/b");
  std::string records;
  for (std::uint64_t i = 0; i <= 100000; ++i) {
    const FailedFiles::Version version = Version(i);
    records.append(reinterpret_cast<const char*>(version.data()), sizeof version);
  }
  test::WriteFile(path, records.substr(40));
  EXPECT_TRUE(FailedFiles(path, false).Has(Version(100000)));
  test::WriteFile(path, records);
  EXPECT_FALSE(FailedFiles(path, false).Has(Version(100000)));
  EXPECT_EQ(std::filesystem::file_size(path), 0u);
}

TEST_F(FailedFilesTest, AreKnownToTheirRunOnlyWhereThereIsNoPlaceForRecords) {
  std::filesystem::create_symlink("/etc/hostname", folder / "link");
  for (const std::string& place : {std::string(), std::string("/dev/null/failed"), folder / "link"}) {
    FailedFiles files(place, true);
    files.Add(Version(1));
    EXPECT_TRUE(files.Has(Version(1)));
    EXPECT_FALSE(FailedFiles(place, false).Has(Version(1)));
  }
}

TEST_F(FailedFilesTest, AreVersionsOfFilesAndWaysToMakeThem) {
  test::WriteFile(folder / "a", "one");
  const auto before = FailedFiles::VersionOf(folder / "a", false);
  EXPECT_EQ(FailedFiles::VersionOf(folder / "a", false), before);
  EXPECT_NE(FailedFiles::VersionOf(folder / "a", true), before);
  test::WriteFile(folder / "a", "three");
  EXPECT_NE(FailedFiles::VersionOf(folder / "a", false), before);
  EXPECT_EQ(FailedFiles::VersionOf(folder / "missing", false), std::nullopt);
}

// What a test changes in the environment is restored.
class Variables {
 public:
  ~Variables() {
    for (const auto& [name, value] : before_) value ? setenv(name, value->c_str(), 1) : unsetenv(name);
  }
  void Set(const char* name, const char* value) {
    const char* const old = std::getenv(name);
    before_.emplace(before_.begin(), name, old == nullptr ? std::nullopt : std::optional<std::string>(old));
    value == nullptr ? unsetenv(name) : setenv(name, value, 1);
  }

 private:
  std::vector<std::pair<const char*, std::optional<std::string>>> before_;
};

TEST_F(FailedFilesTest, AreRecordedInTheStateOfTheServiceElseOfTheUser) {
  Variables variables;
  variables.Set("STATE_DIRECTORY", nullptr);
  variables.Set("XDG_STATE_HOME", nullptr);
  variables.Set("HOME", folder.Path().c_str());
  const std::string inHome = FailedFiles::UsualPath(), place = folder / ".local/state/tavithumb/";
  EXPECT_EQ(inHome.substr(0, place.size()), place);
  const std::string name = inHome.substr(place.size());
  EXPECT_EQ(name.substr(0, 7), "failed-");
  variables.Set("XDG_STATE_HOME", "/state");
  EXPECT_EQ(FailedFiles::UsualPath(), "/state/tavithumb/" + name);
  variables.Set("STATE_DIRECTORY", "/service");
  EXPECT_EQ(FailedFiles::UsualPath(), "/service/" + name);
}

TEST_F(FailedFilesTest, AreNotRecordedInTheHomeOfAnother) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(chown(folder.Path().c_str(), 65534, 65534), 0);
  Variables variables;
  variables.Set("STATE_DIRECTORY", nullptr);
  variables.Set("XDG_STATE_HOME", nullptr);
  variables.Set("HOME", folder.Path().c_str());
  EXPECT_EQ(FailedFiles::UsualPath(), "");
}

}  // namespace
}  // namespace tavithumb::apps::command
