// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "thumbs/request.h"

namespace tavithumb::apps::command {

// What is asked of `get` about one file.
struct Query {
  std::string name;  // as typed
  std::string path;  // absolute
  Size size;
  int quarterTurns;
};

// The file of this name, in the size and rotation of `request`. Throws std::invalid_argument with a message for people
// if it can't be a name.
Query QueryFor(const std::string& name, const Request& request);

// The file that a line of JSON names: {"file": NAME, "size": SIZE, "rotate": QUARTERS}; the last two default to those
// of `request`. Throws std::invalid_argument with a message for people.
Query ParseQuery(const std::string& line, const Request& request);

// Throws std::invalid_argument with a message for people if the options of `request` need a named size, and it has
// none.
void CheckSize(const Request& request);

// The query as bytes, for another process.
std::string Serialise(const Query& query);
Query ParseSerialised(const std::string& bytes);

}  // namespace tavithumb::apps::command
