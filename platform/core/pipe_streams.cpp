// SPDX-License-Identifier: GPL-3.0-or-later
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "common/c_boundary.h"
#include "common/descriptor.h"
#include "core/aside.h"
#include "core/pipe.h"
#include "core/spawn.h"
#include "exported.h"

namespace tavi {
namespace {

// The child at the other end of each stream.
class Children {
 public:
  using Entries = std::map<FILE*, pid_t>;

  // Takes over this one entry, which replaces an earlier one of its stream. Allocates no memory.
  void Add(Entries&& entry) {
    const std::lock_guard<std::mutex> lock(mutex_);
    children_.erase(entry.begin()->first);
    children_.merge(entry);
  }

  // Removes and returns the child of a stream; -1 if the stream is not one of ours.
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

// Closing preserves errno.
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

int Close(FILE* stream) {
  const pid_t child = OpenChildren().Take(stream);
  if (child == -1) {
    errno = EINVAL;
    return -1;
  }
  (void)std::fclose(stream);
  return WaitFor(child);
}

pid_t Start(const char* path, const char* const* argv, const Redirection& redirection) {
  return CallerIgnoresChildren() ? SpawnAside(path, argv, &redirection) : Spawn(path, argv, &redirection);
}

FILE* Open(const char* path, bool reads, const char* const* argv) {
  Pipe pipe;
  if (!OpenPipe(&pipe)) return nullptr;
  Stream stream = MakeStream(std::move(reads ? pipe.readEnd : pipe.writeEnd), reads ? "r" : "w");
  if (!stream) return nullptr;

  const Redirection redirection =
      reads ? Redirection{pipe.writeEnd.Get(), STDOUT_FILENO} : Redirection{pipe.readEnd.Get(), STDIN_FILENO};
  // Memory is allocated first: a child that could not be recorded would never be waited for.
  Children& children = OpenChildren();
  Children::Entries entry{{stream.get(), -1}};
  const pid_t child = Start(path, argv, redirection);
  if (child == -1) return nullptr;
  entry.begin()->second = child;
  children.Add(std::move(entry));
  return stream.release();
}

}  // namespace
}  // namespace tavi

FILE* TLIBCPopenv(const char* path, const char* mode, const char* const* argv) {
  const bool reads = std::strcmp(mode, "r") == 0;
  if (!reads && std::strcmp(mode, "w") != 0) {
    errno = EINVAL;
    return nullptr;
  }
  return tavi::AtCBoundary<FILE*>(nullptr, [=] { return tavi::Open(path, reads, argv); });
}

// Also -1 if the caller has started to ignore SIGCHLD since it opened the stream: the system then keeps no status.
int TLIBCPclose(FILE* stream) {
  return tavi::AtCBoundary(-1, [=] { return tavi::Close(stream); });
}
