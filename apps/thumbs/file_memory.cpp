// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/file_memory.h"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <type_traits>

#include "thumbs/known_facts.h"
#include "thumbs/source_lock.h"

namespace tavithumb::apps {
namespace {

constexpr std::size_t slots = 16384;

enum class Subject : std::uint64_t { kLibrarysFacts = 1, kFacts, kContent, kCompleteness };

// Nothing if the file is missing, or so new that it may still change unnoticed.
std::optional<SharedTable::Key> KeyOf(Subject subject, const std::string& path) {
  struct stat file = {};
  if (stat(path.c_str(), &file) != 0 || file.st_ctim.tv_sec + 2 > std::time(nullptr)) return std::nullopt;
  const auto number = [](auto value) { return static_cast<std::uint64_t>(value); };
  return SharedTable::Key{number(subject),
                          number(file.st_dev),
                          number(file.st_ino),
                          number(file.st_size),
                          number(file.st_mtim.tv_sec),
                          number(file.st_mtim.tv_nsec),
                          number(file.st_ctim.tv_sec),
                          number(file.st_ctim.tv_nsec)};
}

template <typename Known>
SharedTable::Value Packed(const Known& known) {
  static_assert(std::is_trivially_copyable_v<Known> && sizeof(Known) <= sizeof(SharedTable::Value));
  SharedTable::Value value = {};
  std::memcpy(value.data(), &known, sizeof known);
  return value;
}

template <typename Known>
Known Unpacked(const SharedTable::Value& value) {
  Known known;
  std::memcpy(static_cast<void*>(&known), value.data(), sizeof known);
  return known;
}

struct Facts {
  std::uint32_t width, height;
  std::int32_t quarterTurns;
  std::uint32_t isMirrored, isHeic;
  std::array<char, 40> mimeType;
};

struct Content {
  std::uint32_t isKnown;
  maker::Content content;
};

void SetFacts(const Facts& facts, Thumb* job) {
  ThumbInfo info = job->GetInfo();
  if (facts.isHeic != 0) {
    info.SetHeic();
  } else {
    info.SetMimeType({facts.mimeType.data(), strnlen(facts.mimeType.data(), facts.mimeType.size())});
  }
  info.SetPicture(facts.width, facts.height, facts.quarterTurns, facts.isMirrored != 0);
  job->SetFacts(info);
}

Facts FactsOf(const ThumbInfo& info) {
  Facts facts = {info.GetWidth(), info.GetHeight(), info.GetRotate(), info.GetFlop(), info.IsHeic(), {}};
  info.GetMimeType().copy(facts.mimeType.data(), facts.mimeType.size());
  return facts;
}

bool IsWorthRemembering(const ThumbInfo& info) {
  return info.IsGood() && info.GetMimeType().size() <= std::tuple_size_v<decltype(Facts::mimeType)>;
}

}  // namespace

FileMemory::FileMemory() : table_(slots) {}

void FileMemory::ReadFacts(bool byLibrary, Thumb* job) {
  const std::string& path = job->GetInfo().GetPath();
  const Subject subject = byLibrary ? Subject::kLibrarysFacts : Subject::kFacts;
  const std::optional<SharedTable::Key> key = KeyOf(subject, path);
  if (key) {
    if (const auto value = table_.Find(*key)) {
      return SetFacts(Unpacked<Facts>(*value), job);
    }
  }
  ReadKnownFacts(byLibrary, job);
  if (key && IsWorthRemembering(job->GetInfo()) && key == KeyOf(subject, path)) {
    table_.Store(*key, Packed(FactsOf(job->GetInfo())));
  }
}

std::optional<maker::Content> FileMemory::Examine(const std::string& path) {
  const std::optional<SharedTable::Key> key = KeyOf(Subject::kContent, path);
  if (key) {
    if (const auto value = table_.Find(*key)) {
      const auto known = Unpacked<Content>(*value);
      return known.isKnown != 0 ? std::optional<maker::Content>(known.content) : std::nullopt;
    }
  }
  const std::optional<maker::Content> content = maker::Examine(path);
  if (key && key == KeyOf(Subject::kContent, path)) {
    table_.Store(*key, Packed(Content{content.has_value(), content.value_or(maker::Content{})}));
  }
  return content;
}

bool FileMemory::IsComplete(const std::string& path, const std::string& source) {
  const std::optional<SharedTable::Key> key = KeyOf(Subject::kCompleteness, path);
  if (key && table_.Find(*key)) return true;
  if (IsBeingMade(source)) return false;
  if (key) table_.Store(*key, {});
  return true;
}

}  // namespace tavithumb::apps
