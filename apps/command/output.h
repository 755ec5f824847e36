// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::command {

// Writes to standard output at once. Throws std::system_error when not all of it could be written.
void WriteOut(const std::string& text);

// Writes "tavithumb: <message>" and a line end to standard error.
void WriteError(const std::string& message);

}  // namespace tavithumb::command
