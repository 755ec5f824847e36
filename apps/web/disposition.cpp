// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/disposition.h"

#include "system/text.h"
#include "web/target.h"

namespace tavithumb::apps::web {
namespace {

// Clients decode '%' in quotes, or don't.
bool IsSafe(char letter) {
  return letter >= ' ' && letter <= '~' && std::string_view("\"\\%/").find(letter) == std::string_view::npos;
}

std::string Ascii(const std::string& name) {
  std::string ascii;
  for (const char letter : name) {
    const bool isContinuation = (static_cast<unsigned char>(letter) & 0xC0) == 0x80;
    if (!isContinuation) ascii += IsSafe(letter) ? letter : '_';
  }
  return ascii;
}

}  // namespace

std::string AttachmentLine(const std::string& name) {
  const std::string quoted = "Content-Disposition: attachment; filename=\"" + Ascii(name) + "\"";
  return quoted + (IsUtf8(name) ? "; filename*=UTF-8''" + UrlEncoded(name) : "") + "\r\n";
}

}  // namespace tavithumb::apps::web
