// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>

namespace tavithumb::apps {

// Makes `content` the content of the file at `path`. A regular file is replaced as a whole by a new one with its mode,
// or stays as it was. Written in place are an empty file, which whoever has made it may have open, a device, a pipe,
// what a link leads to, and a file in a folder where no other can be created. Throws std::system_error.
void ReplaceFile(const std::string& path, std::string_view content);

}  // namespace tavithumb::apps
