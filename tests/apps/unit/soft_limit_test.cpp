// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/soft_limit.h"

#include <gtest/gtest.h>

#include <csignal>
#include <ctime>

namespace tavithumb::apps {
namespace {

rlim_t Current(__rlimit_resource resource) {
  rlimit limit = {};
  getrlimit(resource, &limit);
  return limit.rlim_cur;
}

TEST(SoftLimits, HoldDuringTheirLifetime) {
  const rlim_t before = Current(RLIMIT_FSIZE);
  {
    const SoftLimit outer(RLIMIT_FSIZE, 5000);
    EXPECT_EQ(Current(RLIMIT_FSIZE), 5000u);
    {
      const SoftLimit inner(RLIMIT_FSIZE, 3000);
      EXPECT_EQ(Current(RLIMIT_FSIZE), 3000u);
    }
    EXPECT_EQ(Current(RLIMIT_FSIZE), 5000u);
  }
  EXPECT_EQ(Current(RLIMIT_FSIZE), before);
}

TEST(SoftLimits, AreNeverRaised) {
  const SoftLimit outer(RLIMIT_FSIZE, 3000);
  const SoftLimit inner(RLIMIT_FSIZE, 5000);
  EXPECT_EQ(Current(RLIMIT_FSIZE), 3000u);
}

TEST(SoftLimits, LeaveTheHardLimitAsItIs) {
  rlimit before = {};
  rlimit during = {};
  getrlimit(RLIMIT_FSIZE, &before);
  const SoftLimit files(RLIMIT_FSIZE, 3000);
  getrlimit(RLIMIT_FSIZE, &during);
  EXPECT_EQ(during.rlim_max, before.rlim_max);
}

void Burn(double seconds) {
  const std::clock_t end = std::clock() + static_cast<std::clock_t>(seconds * CLOCKS_PER_SEC);
  while (std::clock() < end) {
  }
}

// What was used before does not count.
TEST(SoftLimits, EndAProcessThatTakesMoreProcessorTime) {
  EXPECT_EXIT(
      {
        Burn(1.2);
        {
          const BoundedProcessorTime bounded(1);
          Burn(0.5);
        }
        Burn(0.5);  // without a limit
        const BoundedProcessorTime bounded(1);
        Burn(10);
      },
      testing::KilledBySignal(SIGXCPU), "");
}

}  // namespace
}  // namespace tavithumb::apps
