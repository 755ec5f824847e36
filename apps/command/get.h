// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

#include "thumbs/request.h"

namespace tavithumb::apps::command {

enum class GetFormat { kLines, kNulEnded, kJson };

// `tavithumb get`: writes an answer for each file, in order. True if every file got one.
bool Get(const std::vector<std::string>& files, const Request& request, GetFormat format);

}  // namespace tavithumb::apps::command
