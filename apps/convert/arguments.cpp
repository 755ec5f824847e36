// SPDX-License-Identifier: GPL-3.0-or-later
#include "convert/arguments.h"

#include <algorithm>
#include <string_view>

#include "convert/system_convert.h"
#include "system/numbers.h"

namespace tavithumb::apps::convert {
namespace {

using Words = std::vector<std::string>;

// Reads one argument after the other.
class Reader {
 public:
  explicit Reader(const Words& arguments) : arguments_(arguments) {}

  // The next argument; "" behind the last one.
  std::string_view Next() { return at_ < arguments_.size() ? arguments_[at_++] : std::string_view(); }
  // Whether the next arguments are these, and then skips them.
  bool Skip(const Words& words) {
    if (arguments_.size() - at_ < words.size()) return false;
    const auto next = arguments_.begin() + static_cast<Words::difference_type>(at_);
    if (!std::equal(words.begin(), words.end(), next)) return false;
    at_ += words.size();
    return true;
  }
  bool IsAtEnd() const { return at_ == arguments_.size(); }

 private:
  const Words& arguments_;
  std::size_t at_ = 0;
};

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// In other names, convert looks for formats, numbers of frames and wildcards.
bool IsLiteral(std::string_view path) {
  return (path.substr(0, 1) == "/" || path.substr(0, 2) == "./") &&
         path.find_first_of("%*?[]{}") == std::string_view::npos;
}

// A path that is followed by the number of the frame.
std::optional<std::string> ParseSource(std::string_view argument) {
  constexpr std::string_view kFrame = "[0]";
  if (!EndsWith(argument, kFrame)) return std::nullopt;
  argument.remove_suffix(kFrame.size());
  if (!IsLiteral(argument)) return std::nullopt;
  return std::string(argument);
}

// convert chooses the format by the extension.
std::optional<maker::Type> ParseDestination(std::string_view argument) {
  if (!IsLiteral(argument)) return std::nullopt;
  if (EndsWith(argument, ".jpg")) return maker::Type::kJpeg;
  if (EndsWith(argument, ".png")) return maker::Type::kPng;
  return std::nullopt;
}

// The parts of `text` between the separators.
std::vector<std::string_view> Split(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> parts;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    end = text.find_first_of(separators);
    parts.push_back(text.substr(0, end));
    if (end != std::string_view::npos) text.remove_prefix(end + 1);
  }
  return parts;
}

// "320x240"
std::optional<maker::Size> ParseSize(std::string_view text) {
  const std::vector<std::string_view> sides = Split(text, "x");
  if (sides.size() != 2) return std::nullopt;
  const std::optional<int> width = ParseNumber<int>(sides[0]);
  const std::optional<int> height = ParseNumber<int>(sides[1]);
  if (!width || !height || *width <= 0 || *height <= 0) return std::nullopt;
  return maker::Size{*width, *height};
}

// "+40+0"
std::optional<Offset> ParseOffset(std::string_view text) {
  const std::vector<std::string_view> parts = Split(text, "+");
  if (parts.size() != 3 || !parts[0].empty()) return std::nullopt;
  const std::optional<std::uint32_t> left = ParseNumber<std::uint32_t>(parts[1]);
  const std::optional<std::uint32_t> top = ParseNumber<std::uint32_t>(parts[2]);
  if (!left || !top) return std::nullopt;
  return Offset{*left, *top};
}

// "-thumbnail 320x240" or "-crop 320x240+40+0"
bool ParseGeometry(Reader* reader, Conversion* conversion) {
  const std::string_view option = reader->Next();
  const std::string_view geometry = reader->Next();
  const std::size_t end = option == "-crop" ? std::min(geometry.find('+'), geometry.size()) : geometry.size();
  if (option != "-crop" && option != "-thumbnail") return false;
  const std::optional<maker::Size> size = ParseSize(geometry.substr(0, end));
  if (!size) return false;
  conversion->size = *size;
  if (option == "-thumbnail") return true;
  conversion->crop = ParseOffset(geometry.substr(end));
  return conversion->crop.has_value();
}

// "-rotate 90": quarter turns clockwise, 0 to 3.
std::optional<int> ParseTurns(Reader* reader) {
  if (!reader->Skip({"-rotate"})) return std::nullopt;
  const std::optional<int> degrees = ParseNumber<int>(reader->Next());
  if (!degrees || *degrees % 90 != 0) return std::nullopt;
  return (*degrees / 90 % 4 + 4) % 4;
}

// To turn and then to mirror is the same as to mirror and then to turn the other way.
maker::Orientation OrientationOf(int storedTurns, bool isMirrored, int usersTurns) {
  return {(isMirrored ? 4 - storedTurns + usersTurns : storedTurns + usersTurns) % 4, isMirrored};
}

bool ParseOrientation(Reader* reader, maker::Orientation* orientation) {
  const std::optional<int> storedTurns = ParseTurns(reader);
  if (!storedTurns) return false;
  const bool isMirrored = reader->Skip({"-flop"});
  const std::optional<int> usersTurns = ParseTurns(reader);
  if (!usersTurns) return false;
  *orientation = OrientationOf(*storedTurns, isMirrored, *usersTurns);
  return true;
}

}  // namespace

std::optional<Conversion> ParseArguments(const std::vector<std::string>& arguments) {
  Reader reader(arguments);
  if (!reader.Skip({kSystemConvert, "-strip", "-colorspace", "sRGB"})) return std::nullopt;
  const std::optional<std::string> source = ParseSource(reader.Next());
  Conversion conversion;
  if (!source || !ParseGeometry(&reader, &conversion)) return std::nullopt;
  if (!ParseOrientation(&reader, &conversion.orientation)) return std::nullopt;
  conversion.source = *source;
  conversion.destination = reader.Next();
  const std::optional<maker::Type> type = ParseDestination(conversion.destination);
  if (!type || !reader.IsAtEnd()) return std::nullopt;
  conversion.type = *type;
  return conversion;
}

}  // namespace tavithumb::apps::convert
