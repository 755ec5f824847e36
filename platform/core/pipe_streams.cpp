// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "common/descriptor.h"
#include "core/spawn.h"
#include "exported.h"

namespace tavi {
namespace {

// Which child is at the other end of which stream.
class Children {
 public:
  using Entries = std::map<FILE*, pid_t>;

  // Takes the one entry over, in the place of an earlier one of its stream. Needs no memory.
  void Add(Entries&& entry) {
    const std::lock_guard<std::mutex> lock(mutex_);
    children_.erase(entry.begin()->first);
    children_.merge(entry);
  }

  // The child of a stream, which is forgotten; -1 when the stream is none of ours.
  pid_t Take(FILE* stream) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = children_.find(stream);
    if (entry == children_.end()) return -1;
    const pid_t child = entry->second;
    children_.erase(entry);
    return child;
  }

 private:
  std::mutex mutex_;
  Entries children_;
};

// Never destroyed: streams may be closed as late as by the caller's static objects.
Children& OpenChildren() {
  static Children& children = *new Children;
  return children;
}

struct Pipe {
  Descriptor readEnd;
  Descriptor writeEnd;
};

// Where the caller has closed a standard descriptor, the ends of a new pipe land there: they move out of the way.
Descriptor AboveStandard(Descriptor end) {
  if (end.Get() > STDERR_FILENO) return end;
  return Descriptor(fcntl(end.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

bool OpenPipe(Pipe* pipe) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  Descriptor readEnd(ends[0]), writeEnd(ends[1]);
  pipe->readEnd = AboveStandard(std::move(readEnd));
  pipe->writeEnd = AboveStandard(std::move(writeEnd));
  return pipe->readEnd.IsOpen() && pipe->writeEnd.IsOpen();
}

// Closing leaves errno alone.
struct CloseStream {
  void operator()(FILE* stream) const {
    const int reason = errno;
    (void)std::fclose(stream);
    errno = reason;
  }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

Stream MakeStream(Descriptor end, const char* mode) {
  Stream stream(fdopen(end.Get(), mode));
  if (stream) end.Release();
  return stream;
}

}  // namespace
}  // namespace tavi

FILE* TLIBCPopenv(const char* path, const char* mode, const char* const* argv) {
  const bool reads = std::strcmp(mode, "r") == 0;
  if (!reads && std::strcmp(mode, "w") != 0) {
    errno = EINVAL;
    return nullptr;
  }
  tavi::Pipe pipe;
  if (!tavi::OpenPipe(&pipe)) return nullptr;
  tavi::Stream stream = tavi::MakeStream(std::move(reads ? pipe.readEnd : pipe.writeEnd), mode);
  if (!stream) return nullptr;

  const tavi::Redirection redirection = reads ? tavi::Redirection{pipe.writeEnd.Get(), STDOUT_FILENO}
                                              : tavi::Redirection{pipe.readEnd.Get(), STDIN_FILENO};
  // All memory is taken before: a child that could not be entered would be nobody's.
  tavi::Children& children = tavi::OpenChildren();
  tavi::Children::Entries entry{{stream.get(), -1}};
  const pid_t child = tavi::Spawn(path, argv, &redirection);
  if (child == -1) return nullptr;
  entry.begin()->second = child;
  children.Add(std::move(entry));
  return stream.release();
}

// -1 also in a caller that ignores SIGCHLD, where the system keeps no status of the program at the other end.
int TLIBCPclose(FILE* stream) {
  const pid_t child = tavi::OpenChildren().Take(stream);
  if (child == -1) {
    errno = EINVAL;
    return -1;
  }
  (void)std::fclose(stream);
  return tavi::WaitFor(child);
}
