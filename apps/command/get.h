// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "command/name_list.h"
#include "thumbs/request.h"

namespace tavithumb::apps::command {

enum class GetFormat { kLines, kNulEnded, kJson };

// `tavithumb get`: writes an answer for each file, in order, those of `list` last and as soon as each has been read.
// With a list, a file without an answer gets an empty one, and in JSON, a line of the list may be an object that
// ParseQuery() reads. True if every file got an answer.
bool Get(const std::vector<std::string>& files, std::optional<NameList> list, const Request& request, GetFormat format);

}  // namespace tavithumb::apps::command
