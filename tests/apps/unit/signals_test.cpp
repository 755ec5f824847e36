// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/signals.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <vector>

namespace tavithumb::apps {
namespace {

bool IsReadable(const Signals& signals) {
  pollfd entry = {signals.Descriptor(), POLLIN, 0};
  return poll(&entry, 1, 0) == 1;
}

std::vector<int> AllOf(const Signals& signals) {
  std::vector<int> numbers;
  while (const std::optional<int> number = signals.Receive()) numbers.push_back(*number);
  return numbers;
}

TEST(Signals, AreQueuedInsteadOfDelivered) {
  const Signals signals({SIGUSR1, SIGUSR2});
  EXPECT_FALSE(IsReadable(signals));
  static_cast<void>(raise(SIGUSR1));
  static_cast<void>(raise(SIGUSR2));
  EXPECT_TRUE(IsReadable(signals));
  EXPECT_EQ(AllOf(signals), (std::vector<int>{SIGUSR1, SIGUSR2}));
  EXPECT_FALSE(IsReadable(signals));
}

TEST(Signals, ThatTheCallerIgnoresStayIgnored) {
  static_cast<void>(std::signal(SIGUSR1, SIG_IGN));
  const Signals signals({SIGUSR1, SIGUSR2});
  static_cast<void>(raise(SIGUSR1));
  static_cast<void>(raise(SIGUSR2));
  EXPECT_EQ(AllOf(signals), std::vector<int>{SIGUSR2});
  static_cast<void>(std::signal(SIGUSR1, SIG_DFL));
}

TEST(Signals, AreBlockedAsLongAsTheyAreWatched) {
  sigset_t during, after;
  {
    const Signals signals({SIGUSR1});
    pthread_sigmask(SIG_BLOCK, nullptr, &during);
  }
  pthread_sigmask(SIG_BLOCK, nullptr, &after);
  EXPECT_EQ(sigismember(&during, SIGUSR1), 1);
  EXPECT_EQ(sigismember(&after, SIGUSR1), 0);
}

TEST(Signals, StayBlockedIfTheProcessEndsBecauseOfOne) {
  {
    Signals signals({SIGUSR1});
    signals.StayBlocked();
    static_cast<void>(raise(SIGUSR1));
    EXPECT_EQ(AllOf(signals), std::vector<int>{SIGUSR1});
  }
  static_cast<void>(raise(SIGUSR1));
  sigset_t numbers;
  sigemptyset(&numbers);
  sigaddset(&numbers, SIGUSR1);
  const timespec noTime = {};
  EXPECT_EQ(sigtimedwait(&numbers, nullptr, &noTime), SIGUSR1) << "pending";
  pthread_sigmask(SIG_UNBLOCK, &numbers, nullptr);
}

}  // namespace
}  // namespace tavithumb::apps
