// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/facts_in_bounds.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <vector>

namespace tavithumb::apps {
namespace {

constexpr std::size_t kMebibyte = 1048576;

// Zeros that are in memory of their own.
void Take(std::size_t size) {
  std::vector<char> taken(size);
  ASSERT_EQ(taken.at(size / 2), 0);
}

TEST(FactsInBounds, MayTakeAsMuchMemoryWhateverIsInUse) {
  const std::vector<char> used(200 * kMebibyte);
  EXPECT_NO_THROW(ReadInBounds([] { Take(32 * kMebibyte); }));
}

TEST(FactsInBounds, ThatNeedMoreAreRefused) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "AddressSanitizer ends a process that can't allocate";
#endif
  EXPECT_THROW(ReadInBounds([] { Take(64 * kMebibyte); }), FactsTooLarge);
}

TEST(FactsInBounds, LeaveNoLimitBehind) {
  rlimit before = {}, after = {};
  getrlimit(RLIMIT_DATA, &before);
  ReadInBounds([] {});
  getrlimit(RLIMIT_DATA, &after);
  EXPECT_EQ(after.rlim_cur, before.rlim_cur);
  EXPECT_EQ(after.rlim_max, before.rlim_max);
}

}  // namespace
}  // namespace tavithumb::apps
