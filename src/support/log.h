// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <syslog.h>

// The format of the library's log lines: source, line, (function), "message". Consumers of the log match on the
// line numbers, so they are literals and don't change when code moves:
//   syslog(LOG_ERR, TAVITHUMB_LOG("Failed to chmod '%s'"), "libtavithumb", 485, "SaveThumbToEA", path);
#define TAVITHUMB_LOG(message) "%s:%d (%s) \"" message "\""
