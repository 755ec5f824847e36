// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/file_rules.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <sys/syscall.h>
#include <temp_dir.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "system/file_descriptor.h"
#include "system/supervisor.h"

namespace fs = std::filesystem;

namespace tavithumb::apps {
namespace {

using Access = FileRules::Access;

bool CanOpen(const std::string& path, int flags) {
  return FileDescriptor(open(path.c_str(), flags | O_CLOEXEC, 0600)).IsOpen();
}

bool CanRead(const std::string& path) {
  return CanOpen(path, O_RDONLY);
}

// What the attempts, in a child under the rules, came to: '+' or '-' for each; "failed" if the child did.
std::string Outcomes(const FileRules& rules, const std::vector<std::function<bool()>>& attempts) {
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return "no pipe";
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  static_cast<void>(std::fflush(stdout));  // else a sanitizer writes it again at the end of the child
  Supervisor supervisor;
  ChildProcess child;
  child.channel = writing.Number();
  child.prepare = [&] { rules.Enter(); };
  child.work = [&] {
    for (const auto& attempt : attempts) static_cast<void>(write(child.channel, attempt() ? "+" : "-", 1));
  };
  supervisor.Start(child);
  writing = FileDescriptor();
  for (;; supervisor.Wait()) {
    const std::vector<EndedChild> ended = supervisor.Collect();
    if (ended.empty()) continue;
    std::string outcomes(attempts.size() + 1, '\0');
    const ssize_t count = read(reading.Number(), outcomes.data(), outcomes.size());
    return ended.front().status == 0 && count >= 0 ? outcomes.substr(0, static_cast<std::size_t>(count)) : "failed";
  }
}

class Files : public testing::Test {
 protected:
  void SetUp() override {
    if (syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) < 1) {
      GTEST_SKIP() << "needs a kernel with Landlock";
    }
    for (const char* name : {"allowed/a", "allowed/b", "other/a"}) test::WriteFile(folder_ / name, "content");
    fs::create_symlink(other_, folder_ / "allowed/link");
  }

  // Reads, links to the outside, writes, creates, moves and removes.
  std::string OutcomesWith(Access access) const {
    FileRules rules;
    rules.Allow(folder_ / "allowed", access);
    rules.AllowSystem();
    return Outcomes(rules, {[&] { return CanRead(allowed_); }, [&] { return CanRead(folder_ / "allowed/link"); },
                            [&] { return CanRead(other_); }, [&] { return CanOpen(allowed_, O_WRONLY); },
                            [&] { return CanOpen(folder_ / "allowed/new", O_WRONLY | O_CREAT); },
                            [&] { return rename(allowed_.c_str(), (folder_ / "allowed/c").c_str()) == 0; },
                            [&] { return unlink((folder_ / "allowed/b").c_str()) == 0; },
                            [&] { return unlink(other_.c_str()) == 0; }});
  }

  const test::TempDir folder_;
  const std::string allowed_ = folder_ / "allowed/a";
  const std::string other_ = folder_ / "other/a";
};

TEST_F(Files, CanBeAccessedAsFarAsTheRulesAllowIt) {
  EXPECT_EQ(OutcomesWith(Access::kRead), "+-------");
  EXPECT_EQ(OutcomesWith(Access::kRun), "+-------");
  EXPECT_EQ(OutcomesWith(Access::kUse), "+--+----");
  EXPECT_EQ(OutcomesWith(Access::kStore), "+--++++-");
  EXPECT_EQ(test::ReadFile(other_), "content");
}

TEST_F(Files, CanBeAllowedOneByOne) {
  FileRules rules;
  rules.Allow(allowed_, Access::kStore);
  rules.Allow(folder_ / "missing", Access::kStore);
  EXPECT_EQ(Outcomes(rules, {[&] { return CanOpen(allowed_, O_RDWR); }, [&] { return CanRead(folder_ / "allowed/b"); },
                             [&] { return unlink(allowed_.c_str()) == 0; }, [] { return CanRead("/etc/passwd"); }}),
            "+---");
}

TEST_F(Files, OfTheSystemCanBeReadAndRun) {
  FileRules rules;
  rules.AllowSystem();
  EXPECT_EQ(Outcomes(rules, {[] { return CanRead("/etc/passwd"); }, [] { return CanRead("/proc/self/maps"); },
                             [] { return CanOpen("/dev/null", O_RDWR); },
                             [] { return CanOpen("/etc/passwd", O_WRONLY); }, [&] { return CanRead(allowed_); }}),
            "+++--");
}

}  // namespace
}  // namespace tavithumb::apps
