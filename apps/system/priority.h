// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace tavithumb::apps {

// Has this process and what it starts use only the processor time and the disk that others leave. It stays as it is
// where the system does not allow that.
void RunWhenIdle();

}  // namespace tavithumb::apps
