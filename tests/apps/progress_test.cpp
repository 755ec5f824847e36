// SPDX-License-Identifier: GPL-3.0-or-later
// What `tavithumb make` shows while it runs, on a terminal and without one.
#include <fcntl.h>
#include <pictures.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <thread>

#include "batch.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

using Strings = std::vector<std::string>;

constexpr char kErase[] = "\033[K";

class ProgressLine : public Batch {
 protected:
  void SetUp() override {
    ASSERT_EQ(openpty(&master_, &terminal_, nullptr, nullptr, nullptr), 0);
    fcntl(master_, F_SETFD, FD_CLOEXEC);
    fcntl(terminal_, F_SETFD, FD_CLOEXEC);
  }

  void TearDown() override {
    if (master_ != -1) close(master_);
    if (terminal_ != -1) close(terminal_);
  }

  void Resize(unsigned short columns) const {
    const winsize size = {24, columns, 0, 0};
    ioctl(terminal_, TIOCSWINSZ, &size);
  }

  // All output of the command on the terminal while two pictures wait for `act` to be called.
  std::string Show(const Strings& environment, const std::function<void(pid_t)>& act) {
    Start start = ProbedStart();
    start.terminal = terminal_;
    start.environment.insert(start.environment.end(), environment.begin(), environment.end());
    const pid_t process = run.Begin({"make", "--library", "--sizes", "small", "--jobs", "1", folder.Path()}, start);
    close(std::exchange(terminal_, -1));
    std::thread reader([this] {
      std::array<char, 4096> block;
      for (ssize_t got = 0; (got = read(master_, block.data(), block.size())) > 0;) {
        const std::lock_guard<std::mutex> lock(mutex_);
        shown_.append(block.data(), static_cast<std::size_t>(got));
      }
    });
    AwaitNoted("waits", 1);
    act(process);
    WriteFile(gate, "");
    run.Await(process);
    reader.join();
    return shown_;
  }

  void AwaitShown(const std::string& text) {
    while (true) {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (shown_.find(text) != std::string::npos) return;
    }
  }

  // The successive texts of the progress line.
  static Strings Drawn(const std::string& shown) {
    Strings drawn;
    for (std::size_t begin = shown.find('\r'); begin != std::string::npos; begin = shown.find('\r', begin + 1)) {
      const std::size_t end = shown.find(kErase, begin);
      const std::string line = shown.substr(begin + 1, end - begin - 1);
      if (end != std::string::npos && line.find('\n') == std::string::npos) drawn.push_back(line);
    }
    return drawn;
  }

  int master_ = -1;
  int terminal_ = -1;
  std::mutex mutex_;
  std::string shown_;
};

TEST_F(ProgressLine, ShowsTheProgressAndTheCurrentFileOnATerminal) {
  MakePng(folder / "wait-1.png", 200, 100);
  const std::string current = folder / "wait-1.png";
  Resize(200);
  const std::string shown = Show({"TERM=xterm"}, [&](pid_t) { AwaitShown("wait-1.png"); });
  const Strings drawn = Drawn(shown);
  ASSERT_GE(drawn.size(), 2u);
  EXPECT_EQ(drawn.front(), "0/1  " + current);
  EXPECT_EQ(drawn.back(), "");  // erased before the summary
  EXPECT_EQ(shown.substr(0, 1), "\r");
  EXPECT_NE(shown.find(std::string("\r") + kErase + "files  "), std::string::npos) << shown;
}

TEST_F(ProgressLine, FollowsTheSizeOfTheTerminal) {
  MakePng(folder / "wait-a-long-name.png", 200, 100);
  Resize(200);
  const std::string shown = Show({"TERM=xterm", "PROBE_SPEED=1"}, [&](pid_t process) {
    AwaitShown("wait-a-long-name.png");
    const winsize size = {24, 20, 0, 0};
    ioctl(master_, TIOCSWINSZ, &size);
    kill(process, SIGWINCH);
    AwaitShown("...");
  });
  const Strings drawn = Drawn(shown);
  EXPECT_NE(std::find(drawn.begin(), drawn.end(), "0/1  ...ng-name.png"), drawn.end()) << shown;
}

TEST_F(ProgressLine, IsRedrawnBelowAnError) {
  WriteFile(folder / "broken.png", "");
  MakePng(folder / "wait-1.png", 200, 100);
  MakePng(folder / "wait-2.png", 200, 100);
  Resize(200);
  const std::string shown = Show({"TERM=xterm"}, [&](pid_t) { AwaitShown("wait-"); });
  const std::string problem = "tavithumb: " + (folder / "broken.png") + ": it is damaged; get a fresh copy of it";
  const std::size_t said = shown.find(problem);
  ASSERT_NE(said, std::string::npos) << shown;
  EXPECT_TRUE(said == 0 || shown[said - 1] == '\r') << shown;
  const std::string behind = shown.substr(said + problem.size(), 5);
  EXPECT_TRUE(behind == std::string(kErase) + "\r\n" || behind.substr(0, 2) == "\r\n") << shown;
}

// The line has no colours, with or without these variables.
TEST_F(ProgressLine, HasNoColours) {
  MakePng(folder / "wait-1.png", 200, 100);
  for (const char* setting : {"NO_COLOR=1", "NO_COLOR="}) {
    SCOPED_TRACE(setting);
    if (master_ == -1) SetUp();
    fs::remove(gate);
    fs::remove(noted);
    fs::remove_all(EntryOf(folder / "wait-1.png", ""));
    shown_.clear();
    const std::string shown = Show({"TERM=xterm", setting}, [&](pid_t) { AwaitShown("wait-1.png"); });
    EXPECT_FALSE(HasMatch(shown, "\033\\[[0-9;]*m")) << shown;
    close(std::exchange(master_, -1));
  }
}

TEST_F(ProgressLine, SendsNothingSpecialToADumbTerminal) {
  MakePng(folder / "wait-1.png", 200, 100);
  const std::string shown = Show({"TERM=dumb", "PROBE_SPEED=60"}, [&](pid_t) { AwaitShown("0/1"); });
  EXPECT_EQ(shown.find('\033'), std::string::npos);
  EXPECT_EQ(shown.substr(0, 16), "tavithumb: 0/1\r\n");  // the terminal's own line ends
}

TEST_F(ProgressLine, IsAnOccasionalLineWithoutATerminal) {
  MakePng(folder / "wait-1.png", 200, 100);
  Start start = ProbedStart();
  start.environment.emplace_back("PROBE_SPEED=60");  // a file may take five seconds
  const CommandRunner command;
  const pid_t process = command.Begin({"make", "--library", "--sizes", "small", folder.Path()}, start);
  while (command.ErrorsSoFar().empty()) usleep(1000);
  WriteFile(gate, "");
  const Outcome outcome = command.Await(process);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(Matches(outcome.err, "(tavithumb: 0/1\n)+(tavithumb: 1/1  [0-9.]+/s  0 s left\n)*")) << outcome.err;
}

}  // namespace
}  // namespace tavithumb::test
