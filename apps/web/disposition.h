// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace tavithumb::apps::web {

// The header line that has clients store the answer under `name` and never show it: the exact name for those that read
// RFC 8187, and one that is safe in quotes for all others.
std::string AttachmentLine(const std::string& name);

}  // namespace tavithumb::apps::web
