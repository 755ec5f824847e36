// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/stored_entries.h"

#include <map>
#include <regex>

namespace tavithumb::apps {
namespace {

const std::string turns = "(?:_r(-?[1-3]))?";
const std::string extension = "\\.(?:gif|png|jpg)";
// "_<process id>_<seconds>" of the library's own temporary names, "_<seconds>" of djpeg's.
const std::string temporary = "(_[0-9]+(?:_[0-9]+)?)?";
const std::string letter = "(S|M|B|XL)";
const std::string box = "(?:0|[1-9][0-9]{0,9})x(?:0|[1-9][0-9]{0,9})";
const std::string brovixTemporary = "TAVIFILETMP_THUMB" + turns + extension;

// How each consumer's names are made. The groups are size, turns and the mark of a temporary name.
struct Scheme {
  std::string consumer;
  bool isTemporary;
  std::regex pattern;
};

const std::array schemes = {
    Scheme{"Brovix", false, std::regex("TAVIFILE_THUMB_(S|M|B|XL|" + box + ")" + turns + extension + temporary)},
    Scheme{"Brovix", true, std::regex("()" + brovixTemporary + temporary)},
    // What is made of a raw photo on a volume that takes no entries.
    Scheme{"Brovix", true, std::regex("()tavithumb_" + brovixTemporary + "_[0-9]+_[0-9]+(_[0-9]+_[0-9]+)")},
    Scheme{"Albumex", false, std::regex("TAVIPHOTO_THUMB_" + letter + "()" + extension + temporary)},
    Scheme{"Albumex old", false, std::regex("TAVIPHOTO:THUMB_" + letter + "()" + extension + temporary)},
    Scheme{"avatar", false, std::regex("TAVIAVATAR_(" + box + ")" + turns + extension + temporary)},
    Scheme{"Cinevo", false, std::regex("()()TAVIVIDEO_VIDEO_SCREENSHOT\\.jpg" + temporary)},
};

std::string SizeOf(const std::string& text) {
  static const std::map<std::string, std::string> names = {
      {"S", "small"}, {"M", "medium"}, {"B", "big"}, {"XL", "large/xlarge"}};
  const auto name = names.find(text);
  return name == names.end() ? text : name->second;
}

}  // namespace

std::optional<EntryName> ParseEntryName(const std::string& name) {
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
      brovixTemporary +
      "_[0-9]+_[0-9]+(?:_[0-9]+)?"
      "|/var/tmp/convert_thumbnail__[0-9]+[^/]+");
  return std::regex_match(path, pattern);
}

bool IsScratchFolder(const std::string& path) {
  static const std::regex pattern("/tmp/tavithumb-web\\.[A-Za-z0-9]{6}");
  return std::regex_match(path, pattern);
}

}  // namespace tavithumb::apps
