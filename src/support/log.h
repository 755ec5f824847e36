// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <syslog.h>

// The one form of the library's log lines: source, line, (function), "message". Consumers of the log match on the
// numbers, so they are written out and stay as they are when code moves:
//   syslog(LOG_ERR, TAVITHUMB_LOG("Failed to chmod '%s'"), "libtavithumb", 485, "SaveThumbToEA", path);
#define TAVITHUMB_LOG(message) "%s:%d (%s) \"" message "\""
