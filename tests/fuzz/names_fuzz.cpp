// SPDX-License-Identifier: GPL-3.0-or-later
// A file name, formatted for people and for JSON.
#include <nlohmann/json.hpp>

#include "fuzz.h"
#include "system/json_text.h"
#include "system/paths.h"
#include "system/text.h"

namespace apps = tavithumb::apps;

namespace {

std::string FromHex(std::string_view digits) {
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16));
  }
  return bytes;
}

// The bytes that Printable() has formatted.
std::string Unprintable(std::string_view text) {
  std::string bytes;
  while (!text.empty()) {
    const std::string_view escape = text.substr(0, 2);
    std::size_t length = 2;
    if (escape == "\\n") {
      bytes += '\n';
    } else if (escape == "\\t") {
      bytes += '\t';
    } else if (escape == "\\r") {
      bytes += '\r';
    } else if (escape == "\\\\") {
      bytes += '\\';
    } else if (escape == "\\x") {
      bytes += FromHex(text.substr(2, 2));
      length = 4;
    } else {
      bytes += text.front();
      length = 1;
    }
    text.remove_prefix(length);
  }
  return bytes;
}

void RequireOneHarmlessLine(const std::string& text) {
  for (const char byte : text) Require(static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F);
  // Throws if the text is not UTF-8.
  static_cast<void>(nlohmann::json(text).dump());
}

void RequireExactJson(const std::string& name) {
  nlohmann::ordered_json object;
  apps::SetName(&object, "key", name);
  const std::string line = apps::JsonLine(object);
  Require(line.find('\n') == line.size() - 1);
  const nlohmann::json parsed = nlohmann::json::parse(line);
  const bool hasHex = parsed.contains("key_hex");
  Require((hasHex ? FromHex(parsed.at("key_hex").get<std::string>()) : parsed.at("key").get<std::string>()) == name);
}

void RequireSamePlace(const std::string& name) {
  const std::string absolute = apps::AbsolutePath(name);
  Require(absolute.empty() == name.empty() && (name.empty() || absolute.front() == '/'));
  Require(absolute.size() >= name.size() && absolute.substr(absolute.size() - name.size()) == name);
  const std::string base = apps::BaseName(name);
  Require(base.find('/') == base.npos && name.substr(name.size() - base.size()) == base);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string name = TextOf(data, size);
  const std::string printable = apps::Printable(name);
  RequireOneHarmlessLine(printable);
  Require(Unprintable(printable) == name);
  RequireExactJson(name);
  RequireSamePlace(name);
  return 0;
}
