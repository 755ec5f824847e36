// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>

#include "maker/maker.h"
#include "thumbs/request.h"

namespace tavithumb::apps::command {

struct RenderStyle {
  Request request;
  maker::Type type = maker::Type::kJpeg;
  std::optional<std::string> uri;  // of the file, in a PNG as file managers keep it
};

// `tavithumb render`: makes one picture of `file` and writes it to the file `out`, or standard output for "-". Stores
// nothing. True if it was written; otherwise `out` stays as it was, if it is a regular file in a folder that can be
// written to.
bool Render(const std::string& file, const std::string& out, const RenderStyle& style);

}  // namespace tavithumb::apps::command
