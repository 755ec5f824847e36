// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/text.h"

#include <unistr.h>
#include <uniwidth.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace tavithumb::apps {
namespace {

constexpr char lowerHexDigits[] = "0123456789abcdef";
constexpr char upperHexDigits[] = "0123456789ABCDEF";

const std::uint8_t* Bytes(std::string_view text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

// A UTF-8 character, or a single byte that is not part of one.
struct Character {
  std::string_view bytes;
  ucs4_t code;
  bool isUtf8;

  // A terminal always shows a byte that is not UTF-8 as one replacement character.
  std::size_t Columns() const { return isUtf8 ? static_cast<std::size_t>(std::max(uc_width(code, "UTF-8"), 0)) : 1; }
};

// `text` must not be empty.
Character FirstCharacter(std::string_view text) {
  ucs4_t code = 0;
  const int length = u8_mbtoucr(&code, Bytes(text), text.size());
  if (length <= 0) return {text.substr(0, 1), 0, false};
  return {text.substr(0, static_cast<std::size_t>(length)), code, true};
}

std::vector<Character> CharactersOf(std::string_view text) {
  std::vector<Character> characters;
  while (!text.empty()) {
    characters.push_back(FirstCharacter(text));
    text.remove_prefix(characters.back().bytes.size());
  }
  return characters;
}

// Whether the character is not UTF-8, controls a terminal, or is the backslash that marks escapes.
bool NeedsEscape(const Character& character) {
  return !character.isUtf8 || character.code < 0x20 || (character.code >= 0x7F && character.code < 0xA0) ||
         character.code == '\\';
}

std::string Escaped(std::string_view bytes) {
  if (bytes == "\n") return "\\n";
  if (bytes == "\t") return "\\t";
  if (bytes == "\r") return "\\r";
  if (bytes == "\\") return "\\\\";
  std::string escaped;
  for (const char& byte : bytes) escaped += "\\x" + Hex({&byte, 1});
  return escaped;
}

}  // namespace

bool IsUtf8(std::string_view text) {
  return u8_check(Bytes(text), text.size()) == nullptr;
}

std::string Hex(std::string_view bytes) {
  std::string hex;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    hex += {lowerHexDigits[value >> 4], lowerHexDigits[value & 15]};
  }
  return hex;
}

std::string Printable(const std::string& name) {
  std::string printable;
  for (const Character& character : CharactersOf(name)) {
    printable += NeedsEscape(character) ? Escaped(character.bytes) : std::string(character.bytes);
  }
  return printable;
}

std::string TailWithin(const std::string& text, std::size_t columns) {
  constexpr std::string_view ellipsis = "...";
  const std::vector<Character> characters = CharactersOf(text);
  std::size_t width = 0;
  for (const Character& character : characters) width += character.Columns();
  if (width <= columns) return text;
  if (columns <= ellipsis.size()) return "";
  std::size_t dropped = 0;
  for (auto character = characters.begin(); width > columns - ellipsis.size(); ++character) {
    width -= character->Columns();
    dropped += character->bytes.size();
  }
  return std::string(ellipsis) + text.substr(dropped);
}

std::string ByteText(std::uint64_t bytes) {
  if (bytes < 1000) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  auto size = static_cast<double>(bytes) / 1000;
  const char* unit = "kMGTPE";
  // What would be printed as 1000 is one of the next unit.
  while (size >= 999.5) {
    size /= 1000;
    ++unit;
  }
  std::array<char, 32> text = {};
  static_cast<void>(std::snprintf(text.data(), text.size(), size < 9.95 ? "%.1f %cB" : "%.0f %cB", size, *unit));
  return text.data();
}

std::string DurationText(double seconds) {
  const long whole = std::lround(seconds);
  if (whole < 100) return std::to_string(whole) + " s";
  if (whole < 6000) return std::to_string((whole + 30) / 60) + " min";
  return std::to_string((whole + 1800) / 3600) + " h";
}

// FNV-1a
std::string Fingerprint(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char byte : text) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  std::array<char, 17> digits = {};
  static_cast<void>(std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(hash)));
  return digits.data();
}

std::string UrlEncoded(std::string_view name) {
  std::string encoded;
  for (const char byte : name) {
    const bool isAlphanumeric =
        (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
    if (isAlphanumeric || std::string_view("-._~").find(byte) != std::string_view::npos) {
      encoded += byte;
    } else {
      const auto value = static_cast<unsigned char>(byte);
      encoded += {'%', upperHexDigits[value >> 4], upperHexDigits[value & 15]};
    }
  }
  return encoded;
}

std::string UrlEncodedPath(const std::string& path) {
  std::string encoded;
  for (std::size_t start = 0; start < path.size();) {
    const std::size_t end = std::min(path.find('/', start + 1), path.size());
    encoded += "/" + UrlEncoded(path.substr(start + 1, end - start - 1));
    start = end;
  }
  return encoded;
}

std::string Join(const std::vector<std::string>& words, std::string_view separator) {
  std::string joined;
  for (const std::string& word : words) {
    if (!joined.empty()) joined += separator;
    joined += word;
  }
  return joined;
}

}  // namespace tavithumb::apps
