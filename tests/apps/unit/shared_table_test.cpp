// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/shared_table.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tavithumb::test {
namespace {

using apps::SharedTable;

TEST(SharedTable, FindsWhatWasStoredUnderTheWholeKey) {
  SharedTable table(64);
  const SharedTable::Key key = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(table.Find(key), std::nullopt);
  table.Store(key, {10, 20});
  EXPECT_EQ(table.Find(key), (SharedTable::Value{10, 20}));
  table.Store(key, {30});
  EXPECT_EQ(table.Find(key), SharedTable::Value{30});
  for (std::size_t i = 0; i < key.size(); ++i) {
    SharedTable::Key other = key;
    ++other[i];
    EXPECT_EQ(table.Find(other), std::nullopt) << i;
  }
}

TEST(SharedTable, ReplacesOlderRecordsWhenItIsFull) {
  SharedTable table(1);
  table.Store({1}, {1});
  table.Store({2}, {2});
  EXPECT_EQ(table.Find({1}), std::nullopt);
  EXPECT_EQ(table.Find({2}), SharedTable::Value{2});
}

TEST(SharedTable, IsSharedWithForkedProcesses) {
  SharedTable table(64);
  const pid_t child = fork();
  if (child == 0) {
    table.Store({5}, {50});
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  EXPECT_EQ(table.Find({5}), SharedTable::Value{50});
}

// Each of two processes stores values that are alike in all their words.
TEST(SharedTable, NeverReturnsAMixtureOfTwoRecords) {
  SharedTable table(1);
  const pid_t child = fork();
  const auto store = [&table](std::uint32_t number) {
    SharedTable::Value value;
    value.fill(number);
    table.Store({1}, value);
  };
  for (std::uint32_t i = 0; i < 200000; ++i) {
    store(child == 0 ? 2 * i : 2 * i + 1);
    const SharedTable::Value found = table.Find({1}).value_or(SharedTable::Value{});
    SharedTable::Value same;
    same.fill(found.front());
    if (found != same && child == 0) _exit(1);
    ASSERT_EQ(found, same);
  }
  if (child == 0) _exit(0);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace tavithumb::test
