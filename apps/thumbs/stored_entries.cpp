// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/stored_entries.h"

#include <tavithumb/util.h>

#include <regex>
#include <vector>

#include "thumbs/sizes.h"

namespace tavithumb::apps {
namespace {

constexpr char extension[] = "\\.(?:gif|png|jpg)";
constexpr char turns[] = "(?:_r(-?[1-3]))?";
constexpr char letter[] = "(S|M|B|XL)";

std::string Box() {
  const std::string side = "(?:0|[1-9][0-9]{0,9})";
  return side + "x" + side;
}

// The pattern of each consumer's names. The groups are size and quarter turns.
struct Scheme {
  std::string consumer;
  std::regex pattern;
};

std::vector<Scheme> MakeSchemes() {
  return {
      {"Brovix", std::regex("TAVIFILE_THUMB_(S|M|B|XL|" + Box() + ")" + turns + extension)},
      {"Albumex", std::regex(std::string("TAVIPHOTO_THUMB_") + letter + "()" + extension)},
      {"Albumex old", std::regex(std::string("TAVIPHOTO:THUMB_") + letter + "()" + extension)},
      {"avatar", std::regex("TAVIAVATAR_(" + Box() + ")" + turns + extension)},
      {"Cinevo", std::regex("()()TAVIVIDEO_VIDEO_SCREENSHOT\\.jpg")},
  };
}

// A box is its own name.
std::string SizeOf(const std::string& text) {
  const std::string sizes = SizesWithLetter(text);
  return sizes.empty() ? text : sizes;
}

std::optional<EntryName> ParseFinalName(const std::string& name) {
  static const std::vector<Scheme> schemes = MakeSchemes();
  std::smatch groups;
  for (const Scheme& scheme : schemes) {
    if (!std::regex_match(name, groups, scheme.pattern)) continue;
    return EntryName{scheme.consumer, SizeOf(groups[1]), groups[2].length() == 0 ? 0 : std::stoi(groups[2]), false};
  }
  return std::nullopt;
}

// What the platform leaves when its process is killed ends with six random characters.
bool IsUnfinished(const std::string& name, const std::string& prefix) {
  constexpr char characters[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return name.size() == prefix.size() + 6 && name.compare(0, prefix.size(), prefix) == 0 &&
         name.find_first_not_of(characters, prefix.size()) == std::string::npos;
}

}  // namespace

// A work file becomes a Brovix thumbnail or an avatar.
std::optional<EntryName> ParseEntryName(const std::string& name) {
  const std::optional<file::TemporaryEntry> temporary = file::ParseTemporaryEntry(name);
  if (IsUnfinished(name, ".tavi_copy.")) return EntryName{"Brovix", "", 0, true};
  if (!temporary) return ParseFinalName(name);
  if (temporary->entry.empty()) return EntryName{"Brovix", "", temporary->quarterTurns, true};
  std::optional<EntryName> entry = ParseFinalName(temporary->entry);
  if (entry) entry->isTemporary = true;
  return entry;
}

bool IsUnfinishedEADirectory(const std::string& name) {
  return IsUnfinished(name, ".tavi_mkdir.");
}

bool IsScratchFolder(const std::string& path) {
  static const std::regex pattern("/tmp/tavithumb-(?:make|web)\\.[A-Za-z0-9]{6}");
  return std::regex_match(path, pattern);
}

}  // namespace tavithumb::apps
