// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// The C contracts with their functions marked as what these libraries show; the rest stays hidden inside them.
#pragma GCC visibility push(default)
#include <tavi/core.h>
#include <tavi/fileop.h>
#include <tavi/sdk.h>
#pragma GCC visibility pop
