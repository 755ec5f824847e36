// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// The C contracts, with their functions exported; all other symbols of these libraries are hidden.
#pragma GCC visibility push(default)
#include <tavi/core.h>
#include <tavi/fileop.h>
#include <tavi/sdk.h>
#pragma GCC visibility pop
