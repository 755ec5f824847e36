// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "common/descriptor.h"

namespace tavi {

// Both ends are close-on-exec and never standard descriptors.
struct Pipe {
  Descriptor readEnd;
  Descriptor writeEnd;
};

// If the caller has closed a standard descriptor, an end of a new pipe gets its number and has to be moved.
inline Descriptor AboveStandard(Descriptor end) {
  if (end.Get() > STDERR_FILENO) return end;
  return Descriptor(fcntl(end.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

inline bool OpenPipe(Pipe* pipe) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  Descriptor readEnd(ends[0]), writeEnd(ends[1]);
  pipe->readEnd = AboveStandard(std::move(readEnd));
  pipe->writeEnd = AboveStandard(std::move(writeEnd));
  return pipe->readEnd.IsOpen() && pipe->writeEnd.IsOpen();
}

}  // namespace tavi
