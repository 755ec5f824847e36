// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/shared_table.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace tavithumb::apps {
namespace {

struct Record {
  SharedTable::Key key;
  SharedTable::Value value;
};

using Words = std::array<std::uint32_t, sizeof(Record) / sizeof(std::uint32_t)>;

}  // namespace

// A sequence lock: the version is odd while somebody writes, and another one afterwards.
struct SharedTable::Slot {
  std::atomic<std::uint32_t> version;
  std::array<std::atomic<std::uint32_t>, std::tuple_size_v<Words>> words;
};

SharedTable::SharedTable(std::size_t slots) : count_(slots) {
  void* const memory = mmap(nullptr, count_ * sizeof(Slot), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "shared memory");
  slots_ = static_cast<Slot*>(memory);  // zeros, which are valid empty slots
}

SharedTable::~SharedTable() {
  munmap(slots_, count_ * sizeof(Slot));
}

SharedTable::Slot& SharedTable::SlotOf(const Key& key) const {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const std::uint64_t word : key) hash = (hash ^ word) * 0x9e3779b97f4a7c15;
  return slots_[(hash >> 32) % count_];
}

std::optional<SharedTable::Value> SharedTable::Find(const Key& key) const {
  const Slot& slot = SlotOf(key);
  const std::uint32_t version = slot.version.load(std::memory_order_acquire);
  Words words;
  for (std::size_t i = 0; i < words.size(); ++i) words[i] = slot.words[i].load(std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_acquire);
  if (version % 2 != 0 || slot.version.load(std::memory_order_relaxed) != version) return std::nullopt;
  Record record;
  std::memcpy(&record, words.data(), sizeof record);
  if (record.key != key) return std::nullopt;
  return record.value;
}

// A slot that is being written is left alone, for good if its writer has died.
void SharedTable::Store(const Key& key, const Value& value) {
  Slot& slot = SlotOf(key);
  std::uint32_t version = slot.version.load(std::memory_order_relaxed);
  if (version % 2 != 0 || !slot.version.compare_exchange_strong(version, version + 1, std::memory_order_acquire))
    return;
  std::atomic_thread_fence(std::memory_order_release);
  const Record record = {key, value};
  Words words;
  std::memcpy(words.data(), &record, sizeof record);
  for (std::size_t i = 0; i < words.size(); ++i) slot.words[i].store(words[i], std::memory_order_relaxed);
  slot.version.store(version + 2, std::memory_order_release);
}

}  // namespace tavithumb::apps
