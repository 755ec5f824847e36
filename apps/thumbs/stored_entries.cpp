// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/stored_entries.h"

#include <regex>
#include <vector>

#include "thumbs/sizes.h"

namespace tavithumb::apps {
namespace {

constexpr char extension[] = "\\.(?:gif|png|jpg)";
constexpr char turns[] = "(?:_r(-?[1-3]))?";
constexpr char letter[] = "(S|M|B|XL)";
// "_<process id>_<seconds>" of the library's own temporary names, "_<seconds>" of djpeg's.
constexpr char mark[] = "(_[0-9]+(?:_[0-9]+)?)?";

std::string Box() {
  const std::string side = "(?:0|[1-9][0-9]{0,9})";
  return side + "x" + side;
}

std::string BrovixTemporary() {
  return std::string("TAVIFILETMP_THUMB") + turns + extension;
}

// How each consumer's names are made. The groups are size, turns and the mark of a temporary name.
struct Scheme {
  std::string consumer;
  bool isTemporary;
  std::regex pattern;
};

// What begins with "tavithumb_" is made of a raw photo on a volume that takes no entries.
std::vector<Scheme> MakeSchemes() {
  const std::string end = std::string(extension) + mark;
  return {
      {"Brovix", false, std::regex("TAVIFILE_THUMB_(S|M|B|XL|" + Box() + ")" + turns + end)},
      {"Brovix", true, std::regex("()" + BrovixTemporary() + mark)},
      {"Brovix", true, std::regex("()tavithumb_" + BrovixTemporary() + "_[0-9]+_[0-9]+(_[0-9]+_[0-9]+)")},
      {"Albumex", false, std::regex(std::string("TAVIPHOTO_THUMB_") + letter + "()" + end)},
      {"Albumex old", false, std::regex(std::string("TAVIPHOTO:THUMB_") + letter + "()" + end)},
      {"avatar", false, std::regex("TAVIAVATAR_(" + Box() + ")" + turns + end)},
      {"Cinevo", false, std::regex(std::string("()()TAVIVIDEO_VIDEO_SCREENSHOT\\.jpg") + mark)},
  };
}

// A box stands for itself.
std::string SizeOf(const std::string& text) {
  const std::string sizes = SizesWithLetter(text);
  return sizes.empty() ? text : sizes;
}

}  // namespace

std::optional<EntryName> ParseEntryName(const std::string& name) {
  static const std::vector<Scheme> schemes = MakeSchemes();
  std::smatch groups;
  for (const Scheme& scheme : schemes) {
    if (!std::regex_match(name, groups, scheme.pattern)) continue;
    return EntryName{scheme.consumer, SizeOf(groups[1]), groups[2].length() == 0 ? 0 : std::stoi(groups[2]),
                     scheme.isTemporary || groups[3].length() != 0};
  }
  return std::nullopt;
}

// The parts are an extracted preview, what is made on a volume that takes no entries, and the frames of an animation.
bool IsTemporaryFile(const std::string& path) {
  static const std::regex pattern(
      "/tmp/thumb\\.[0-9]+\\.[0-9]+\\.[0-9]+\\.[a-z]+"
      "|/var/tmp/tavithumb_" +
      BrovixTemporary() +
      "_[0-9]+_[0-9]+(?:_[0-9]+)?"
      "|/var/tmp/convert_thumbnail__[0-9]+[^/]+");
  return std::regex_match(path, pattern);
}

bool IsScratchFolder(const std::string& path) {
  static const std::regex pattern("/tmp/tavithumb-(?:make|web)\\.[A-Za-z0-9]{6}");
  return std::regex_match(path, pattern);
}

}  // namespace tavithumb::apps
