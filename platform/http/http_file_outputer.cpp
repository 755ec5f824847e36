// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <http_file_outputer.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string>

#include "common/descriptor.h"
#include "common/transfer.h"
#include "http/sigpipe_guard.h"

namespace tavi {
namespace {

// What the caller has printed goes first. A pipe that can take data takes a whole buffer of it at once, so that no
// signal can cut the flush short, which would lose the rest.
bool FlushPrinted() {
  AwaitWritable(fileno(stdout));
  return std::fflush(stdout) == 0;
}

bool Write(const char* data, std::size_t size) {
  return WriteAll(fileno(stdout), data, size);
}

bool WriteHeaders(const std::string& headers) {
  const std::string block = headers + "\r\n";
  return Write(block.data(), block.size());
}

std::string ContentType(const char* mimeType) {
  return std::string("Content-Type: ") + mimeType + "\r\n";
}

// Exactly as many bytes as were announced: a file that shrinks on the way is a failure.
bool WriteContent(int file, std::uint64_t length) {
  std::array<char, kTransferSize> data;
  while (length > 0) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(length, data.size()));
    const ssize_t got = ReadSome(file, data.data(), wanted);
    if (got <= 0 || !Write(data.data(), static_cast<std::size_t>(got))) return false;
    length -= static_cast<std::uint64_t>(got);
  }
  return true;
}

bool OutputFile(const char* path, const char* mimeType) {
  const Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat facts;
  if (!file.IsOpen() || fstat(file.Get(), &facts) != 0 || !S_ISREG(facts.st_mode)) return false;
  const auto length = static_cast<std::uint64_t>(facts.st_size);
  return WriteHeaders(ContentType(mimeType) + "Content-Length: " + std::to_string(length) + "\r\n") &&
         WriteContent(file.Get(), length);
}

// A read that a signal cut short is no read error.
bool ReadFailed(std::FILE* stream) {
  if (!std::ferror(stream)) return false;
  if (errno != EINTR) return true;
  std::clearerr(stream);
  return false;
}

bool OutputStream(std::FILE* stream, const char* mimeType) {
  if (stream == nullptr || !WriteHeaders(ContentType(mimeType))) return false;
  std::array<char, kTransferSize> data;
  while (!std::feof(stream)) {
    errno = 0;
    const std::size_t got = std::fread(data.data(), 1, data.size(), stream);
    if (ReadFailed(stream) || !Write(data.data(), got)) return false;
  }
  return true;
}

// What a failure leaves unwritten is dropped: written at the process's end it would raise SIGPIPE after all.
template <typename Response>
int Deliver(const Response& response) {
  const SigPipeGuard guard;
  if (FlushPrinted() && response()) return 0;
  __fpurge(stdout);
  return -1;
}

}  // namespace
}  // namespace tavi

int HTTPFileOutputer::Output(const char* path, const char* mimeType) {
  return tavi::Deliver([=] { return tavi::OutputFile(path, mimeType); });
}

int HTTPFileOutputer::Output(std::FILE* stream, const char*, const char* mimeType) {
  return tavi::Deliver([=] { return tavi::OutputStream(stream, mimeType); });
}
