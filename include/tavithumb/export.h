// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/// Marks what the shared library exports; everything else is hidden.
#define TAVITHUMB_API __attribute__((visibility("default")))
