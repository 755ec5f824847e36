// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <utility>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// Both ends of a new connection between two processes. It keeps the boundaries of messages. Throws std::system_error.
std::pair<FileDescriptor, FileDescriptor> OpenChannel();

// Sends an open file to the process at the other end. False if that has exited.
bool SendDescriptor(int channel, int descriptor);

// How long the next function waits.
void SetReceiveTimeout(int channel, std::chrono::milliseconds timeout);

// Waits for such a file; not open if none arrives in time (then errno is EAGAIN) or the other end has been closed.
FileDescriptor ReceiveDescriptor(int channel);

}  // namespace tavithumb::apps
