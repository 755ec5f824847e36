// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <http_file_outputer.h>
#include <stdio_ext.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <string>

#include "common/descriptor.h"
#include "common/transfer.h"
#include "http/conditions.h"
#include "http/http_date.h"
#include "http/sigpipe_guard.h"

namespace tavi {
namespace {

// The caller's own output goes first. A pipe that is ready accepts a whole buffer at once, so no signal can interrupt
// the flush, which would lose the rest.
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

std::string Header(const char* name, const std::string& value) {
  return name + (": " + value + "\r\n");
}

// Sends exactly as many bytes as announced: a file that shrinks meanwhile is a failure. The kernel copies them if this
// output and the file's volume support it.
bool WriteContent(int file, std::uint64_t length) {
  constexpr std::uint64_t most = 1 << 30;
  while (length > 0) {
    const ssize_t sent = sendfile(fileno(stdout), file, nullptr, static_cast<std::size_t>(std::min(length, most)));
    if (sent > 0) {
      length -= static_cast<std::uint64_t>(sent);
    } else if (sent == -1 && errno == EAGAIN) {
      AwaitWritable(fileno(stdout));
    } else if (sent == -1 && (errno == EINVAL || errno == ENOSYS)) {
      return CopyBytes(file, fileno(stdout), length) == static_cast<std::int64_t>(length);
    } else if (sent == 0 || errno != EINTR) {
      return false;
    }
  }
  return true;
}

std::string Hex(std::uint64_t number) {
  std::array<char, 17> text;
  return {text.data(), static_cast<std::size_t>(
                           std::snprintf(text.data(), text.size(), "%llx", static_cast<unsigned long long>(number)))};
}

// The modification time for clients: that of the last change when the file's own is in the future.
std::int64_t ModifiedAt(const struct stat& facts, std::int64_t now) {
  return facts.st_mtim.tv_sec <= now ? facts.st_mtim.tv_sec : std::min<std::int64_t>(facts.st_ctim.tv_sec, now);
}

// Numbers from which the inode can't be read: clients need not know it, and it helps those who attack file handles.
std::string Mixed(std::initializer_list<std::uint64_t> numbers) {
  std::uint64_t mixed = 0xcbf29ce484222325;
  for (const std::uint64_t number : numbers) {
    mixed = (mixed ^ number) * 0x9e3779b97f4a7c15;
    mixed ^= mixed >> 32;
  }
  return Hex(mixed);
}

// Different files and contents have different tags, even if the modification time is reset after a change.
FileVersion VersionOf(const struct stat& facts, std::int64_t now) {
  const auto number = [](auto value) { return static_cast<std::uint64_t>(value); };
  const std::string etag =
      "\"" + Hex(number(facts.st_size)) + "-" +
      Mixed({number(facts.st_dev), number(facts.st_ino), number(facts.st_mtim.tv_sec), number(facts.st_mtim.tv_nsec),
             number(facts.st_ctim.tv_sec), number(facts.st_ctim.tv_nsec)}) +
      "\"";
  return {etag, ModifiedAt(facts, now), facts.st_ctim.tv_sec, static_cast<std::uint64_t>(facts.st_size)};
}

std::string Validators(const FileVersion& version) {
  return Header("Last-Modified", FormatHttpDate(version.modified)) + Header("ETag", version.etag);
}

std::string Content(const char* mimeType, std::uint64_t length) {
  return Header("Content-Type", mimeType) + Header("Content-Length", std::to_string(length));
}

// One line for people instead of the content; "" if the content is sent.
std::string Explanation(Outcome outcome) {
  if (outcome == Outcome::kAnother) return "the file has changed\n";
  if (outcome == Outcome::kUnsatisfiable) return "the requested range is outside the file\n";
  return "";
}

// Errors must not be cached, whatever the caller has printed about caching.
std::string ErrorHeaders(const char* status, Outcome outcome) {
  return Header("Status", status) + Header("Cache-Control", "no-store") +
         Content("text/plain; charset=utf-8", Explanation(outcome).size());
}

std::string FileHeaders(const Decision& decision, const FileVersion& version, const char* mimeType) {
  const std::string size = std::to_string(version.size);
  const std::string validators = Validators(version), about = validators + Header("Accept-Ranges", "bytes");
  switch (decision.outcome) {
    case Outcome::kNotModified:
      return Header("Status", "304 Not Modified") + validators;
    case Outcome::kAnother:
      return ErrorHeaders("412 Precondition Failed", decision.outcome);
    case Outcome::kUnsatisfiable:
      return ErrorHeaders("416 Range Not Satisfiable", decision.outcome) + Header("Content-Range", "bytes */" + size);
    case Outcome::kPart:
      return Header("Status", "206 Partial Content") + Content(mimeType, decision.length) +
             Header("Content-Range", "bytes " + std::to_string(decision.first) + "-" +
                                         std::to_string(decision.first + decision.length - 1) + "/" + size) +
             about;
    case Outcome::kWhole:
      break;
  }
  return Content(mimeType, decision.length) + about;
}

bool OutputFile(const FileRequest& request, const char* path, const char* mimeType) {
  const Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat facts;
  if (!file.IsOpen() || fstat(file.Get(), &facts) != 0 || !S_ISREG(facts.st_mode)) return false;
  const std::int64_t now = std::time(nullptr);
  const FileVersion version = VersionOf(facts, now);
  const Decision decision = Decide(request, version, now);
  if (!request.isCgi) {
    return WriteHeaders(Content(mimeType, decision.length)) && WriteContent(file.Get(), decision.length);
  }
  if (!WriteHeaders(FileHeaders(decision, version, mimeType))) return false;
  if (request.method == "HEAD") return true;
  const std::string explanation = Explanation(decision.outcome);
  return Write(explanation.data(), explanation.size()) &&
         lseek(file.Get(), static_cast<off_t>(decision.first), SEEK_SET) != -1 &&
         WriteContent(file.Get(), decision.length);
}

// A read that a signal interrupted is not an error.
bool ReadFailed(std::FILE* stream) {
  if (!std::ferror(stream)) return false;
  if (errno != EINTR) return true;
  std::clearerr(stream);
  return false;
}

bool OutputStream(const FileRequest& request, std::FILE* stream, const char* mimeType) {
  if (stream == nullptr) return false;
  const std::string type = Header("Content-Type", mimeType);
  if (!WriteHeaders(request.isCgi ? type + Header("Accept-Ranges", "none") : type)) return false;
  if (request.isCgi && request.method == "HEAD") return true;
  std::array<char, kTransferSize> data;
  while (!std::feof(stream)) {
    errno = 0;
    const std::size_t got = std::fread(data.data(), 1, data.size(), stream);
    if (ReadFailed(stream) || !Write(data.data(), got)) return false;
  }
  return true;
}

// A type with a line break would inject headers.
bool IsOneLine(const char* text) {
  return std::strpbrk(text, "\r\n") == nullptr;
}

// Unwritten output is discarded after a failure: flushing it when the process exits would raise SIGPIPE after all.
template <typename Response>
int Deliver(const char* mimeType, const Response& response) {
  const SigPipeGuard guard;
  if (FlushPrinted() && IsOneLine(mimeType) && response(RequestOfEnvironment())) return 0;
  __fpurge(stdout);
  return -1;
}

}  // namespace
}  // namespace tavi

int HTTPFileOutputer::Output(const char* path, const char* mimeType) {
  return tavi::Deliver(mimeType,
                       [=](const tavi::FileRequest& request) { return tavi::OutputFile(request, path, mimeType); });
}

int HTTPFileOutputer::Output(std::FILE* stream, const char*, const char* mimeType) {
  return tavi::Deliver(mimeType,
                       [=](const tavi::FileRequest& request) { return tavi::OutputStream(request, stream, mimeType); });
}
