// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/query.h"

#include <tavithumb/libtavithumb.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "system/paths.h"

namespace tavithumb::apps::command {
namespace {

using nlohmann::json;

std::string TextOf(const std::string& key, const json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (key != "file" && value.is_number_integer()) return value.dump();
  throw std::invalid_argument("the value of \"" + key + "\" is not a string" + (key == "file" ? "" : " or a number"));
}

void Set(const std::string& key, const std::string& text, Request* request) {
  if (key == "size") {
    request->size = ParseSize(text);
  } else if (key == "rotate") {
    request->quarterTurns = ParseQuarterTurns(text);
  } else if (key != "file") {
    throw std::invalid_argument("\"" + key + "\" is not a key: use \"file\", \"size\" and \"rotate\"");
  }
}

}  // namespace

Query QueryFor(const std::string& name, const Request& request) {
  if (name.find('\0') != std::string::npos) throw std::invalid_argument("a name can't contain a NUL byte");
  return {name, AbsolutePath(name), request.size, request.quarterTurns};
}

Query ParseQuery(const std::string& line, const Request& request) {
  const json object = json::parse(line, nullptr, false);
  if (!object.is_object()) throw std::invalid_argument("it is not a JSON object; a name that starts with { needs ./");
  if (!object.contains("file")) throw std::invalid_argument("it has no \"file\"");
  Request sized = request;
  for (const auto& [key, value] : object.items()) Set(key, TextOf(key, value), &sized);
  CheckSize(sized);
  return QueryFor(object["file"].get<std::string>(), sized);
}

void CheckSize(const Request& request) {
  if (!request.size.IsBox()) return;
  if ((request.options & Thumb::OPT_ALBUMEX_EA) != 0) {
    throw std::invalid_argument("--albumex needs a named size: Albumex stores no others");
  }
  if ((request.options & Thumb::OPT_FALLBACK_SMALLER) != 0) {
    throw std::invalid_argument("--fallback-smaller needs a named size: other sizes have no smaller ones");
  }
}

// Unlike JSON, MessagePack leaves the bytes of names unchanged.
std::string Serialise(const Query& query) {
  const json values = {query.name,        query.path, query.size.name, query.size.box.width, query.size.box.height,
                       query.quarterTurns};
  std::string bytes;
  json::to_msgpack(values, bytes);
  return bytes;
}

Query ParseSerialised(const std::string& bytes) {
  const json values = json::from_msgpack(bytes);
  return {values[0].get<std::string>(),
          values[1].get<std::string>(),
          {values[2].get<std::string>(), {values[3].get<std::uint32_t>(), values[4].get<std::uint32_t>()}},
          values[5].get<int>()};
}

}  // namespace tavithumb::apps::command
