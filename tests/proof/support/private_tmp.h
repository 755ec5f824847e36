// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavithumb::proof {

// Gives this process and its children a /tmp and a /var/tmp of their own, empty, in memory, and removed with them.
// Exits with 77, the reason on standard error, if the system doesn't allow it.
void EnterPrivateTmp();

}  // namespace tavithumb::proof
