// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/text.h"

namespace tavithumb::apps {
namespace {

constexpr char hexDigits[] = "0123456789abcdef";

// What one lead byte of UTF-8 asks for: the length of the sequence and the range of its second byte, which keeps out
// overlong forms, surrogates and numbers beyond U+10FFFF.
struct Sequence {
  std::size_t length;
  int secondFrom;
  int secondTo;
};

Sequence SequenceOf(int lead) {
  if (lead < 0x80) return {1, 0, 0};
  if (lead >= 0xC2 && lead <= 0xDF) return {2, 0x80, 0xBF};
  if (lead >= 0xE0 && lead <= 0xEF) return {3, lead == 0xE0 ? 0xA0 : 0x80, lead == 0xED ? 0x9F : 0xBF};
  if (lead >= 0xF0 && lead <= 0xF4) return {4, lead == 0xF0 ? 0x90 : 0x80, lead == 0xF4 ? 0x8F : 0xBF};
  return {0, 0, 0};
}

// The bytes of the UTF-8 character that `text` begins with, 0 when it begins with none.
std::size_t CharacterLength(std::string_view text) {
  const Sequence sequence = SequenceOf(static_cast<unsigned char>(text.front()));
  if (text.size() < sequence.length) return 0;
  for (std::size_t i = 1; i < sequence.length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const int from = i == 1 ? sequence.secondFrom : 0x80;
    const int to = i == 1 ? sequence.secondTo : 0xBF;
    if (byte < from || byte > to) return 0;
  }
  return sequence.length;
}

// A terminal would act on it, or the backslash that marks the others: U+0000 to U+001F, U+007F to U+009F.
bool IsEscaped(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first < 0x20 || first == 0x7F || first == '\\';
  return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
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
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string Hex(std::string_view bytes) {
  std::string hex;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    hex += {hexDigits[value >> 4], hexDigits[value & 15]};
  }
  return hex;
}

std::string Printable(const std::string& name) {
  std::string printable;
  std::string_view rest = name;
  while (!rest.empty()) {
    const std::size_t length = CharacterLength(rest);
    const std::string_view character = rest.substr(0, length == 0 ? 1 : length);
    printable += length == 0 || IsEscaped(character) ? Escaped(character) : std::string(character);
    rest.remove_prefix(character.size());
  }
  return printable;
}

}  // namespace tavithumb::apps
