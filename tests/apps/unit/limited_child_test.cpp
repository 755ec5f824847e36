// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/limited_child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <temp_dir.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <string>

#include "system/descriptors.h"
#include "system/file_descriptor.h"

namespace tavithumb::apps {
namespace {

using namespace std::chrono_literals;

constexpr ChildLimits limits = {60, 1000, 3600s};

int SignalOf(int status) {
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

TEST(LimitedChildren, TellHowTheirWorkEnded) {
  EXPECT_EQ(RunLimited(limits, -1, [](int) {}), 0);
  EXPECT_EQ(WEXITSTATUS(RunLimited(limits, -1, [](int) { throw std::runtime_error("work"); })), 1);
  EXPECT_EQ(SignalOf(RunLimited(limits, -1, [](int) { raise(SIGKILL); })), SIGKILL);
  EXPECT_EQ(SignalOf(RunLimited({60, 1000, 0s}, -1, [](int) { pause(); })), SIGTERM);
}

TEST(LimitedChildren, PassOnWhatTheyWriteToTheirChannel) {
  std::array<int, 2> ends = {};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const FileDescriptor reading(ends[0]);
  const FileDescriptor writing(ends[1]);
  EXPECT_EQ(RunLimited(limits, writing.Number(), [](int channel) { WriteAll(channel, "word", 4); }), 0);
  std::string word(10, ' ');
  word.resize(static_cast<std::size_t>(read(reading.Number(), word.data(), word.size())));
  EXPECT_EQ(word, "word");
}

TEST(LimitedChildren, HaveTheLimitsOfFilesAndProcessorTimeAndNoCores) {
  const test::TempDir folder;
  const std::string path = folder / "file";
  const auto fill = [&](int) {
    const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string bytes(1001, 'x');
    WriteAll(file.Number(), bytes.data(), bytes.size());
  };
  EXPECT_EQ(SignalOf(RunLimited(limits, -1, fill)), SIGXFSZ);
  EXPECT_EQ(test::ReadFile(path).size(), 1000U);
  EXPECT_EQ(RunLimited({7, 1000, 3600s}, -1,
                       [](int) {
                         rlimit time = {};
                         rlimit core = {};
                         getrlimit(RLIMIT_CPU, &time);
                         getrlimit(RLIMIT_CORE, &core);
                         if (time.rlim_cur != 7 || core.rlim_cur != 0) throw std::runtime_error("limits");
                       }),
            0);
}

}  // namespace
}  // namespace tavithumb::apps
