// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/// Marks what the shared library exports; everything else is hidden.
#define TAVITHUMB_API __attribute__((visibility("default")))

/// Hides a member of a class that is shown: no caller can reach it, so it may change with each release.
#define TAVITHUMB_LOCAL __attribute__((visibility("hidden")))
