// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/request.h"

#include <tavithumb/libtavithumb.h>

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "system/numbers.h"
#include "system/suggestion.h"
#include "thumbs/sizes.h"

namespace tavithumb::apps {
namespace {

std::optional<std::uint32_t> ParseSide(std::string_view text) {
  const std::optional<std::uint16_t> side = ParseNumber<std::uint16_t>(text);
  if (!side || *side == 0) return std::nullopt;
  return *side;
}

std::vector<std::string> Names() {
  return {Thumb::size_vec.begin(), Thumb::size_vec.end()};
}

}  // namespace

Size ParseSize(const std::string& text) {
  if (Thumb::strThumbSizeMap_.count(text) != 0) return {text, {0, 0}};
  const std::size_t cross = text.find('x');
  const std::optional<std::uint32_t> width = ParseSide(text.substr(0, cross));
  const std::optional<std::uint32_t> height = cross == std::string::npos ? width : ParseSide(text.substr(cross + 1));
  if (width && height) return {"", {*width, *height}};
  throw std::invalid_argument("'" + text + "' is not a valid size" + Suggestion(text, Names()) + ": use " +
                              SizeChoices() + ", with sides of 1 to 65535 pixels");
}

int ParseQuarterTurns(const std::string& text) {
  if (const std::optional<int> turns = ParseNumber<int>(text)) return (*turns % 4 + 4) % 4;
  throw std::invalid_argument("'" + text + "' is not a number of quarter turns: use a whole number such as 1 or -1");
}

int ParseQuality(const std::string& text) {
  const std::optional<int> quality = ParseNumber<int>(text);
  if (quality && *quality >= 1 && *quality <= 100) return *quality;
  throw std::invalid_argument("'" + text + "' is not a valid quality: use 1 to 100");
}

long ParseTime(const std::string& text) {
  const std::optional<long> seconds = ParseNumber<long>(text);
  if (seconds && *seconds > 0) return *seconds;
  throw std::invalid_argument("'" + text + "' is not a valid time: use whole seconds since 1970, such as 1700000000");
}

}  // namespace tavithumb::apps
