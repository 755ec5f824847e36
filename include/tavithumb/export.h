// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/// Marks what the shared library shows; everything else stays hidden inside it.
#define TAVITHUMB_API __attribute__((visibility("default")))
