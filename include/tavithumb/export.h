// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/// Exports a symbol from the shared library; all others are hidden.
#define TAVITHUMB_API __attribute__((visibility("default")))

/// Hides a member of an exported class: callers can't link to it, so any release may change it.
#define TAVITHUMB_LOCAL __attribute__((visibility("hidden")))
