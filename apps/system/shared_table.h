// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace tavithumb::apps {

// A table of a fixed size in memory that this process shares with those forked later. A new record may replace another.
// Any process may die at any moment; a record that one of them had half written is not found.
class SharedTable {
 public:
  using Key = std::array<std::uint64_t, 8>;
  using Value = std::array<std::uint32_t, 16>;

  // Throws std::system_error.
  explicit SharedTable(std::size_t slots);
  ~SharedTable();
  SharedTable(const SharedTable&) = delete;
  SharedTable& operator=(const SharedTable&) = delete;

  std::optional<Value> Find(const Key& key) const;
  void Store(const Key& key, const Value& value);

 private:
  struct Slot;

  Slot& SlotOf(const Key& key) const;

  std::size_t count_;
  Slot* slots_;
};

}  // namespace tavithumb::apps
