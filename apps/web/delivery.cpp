// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/delivery.h"

#include <fcntl.h>
#include <http_file_outputer.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>

#include "system/file_descriptor.h"
#include "system/memory_file.h"
#include "system/text.h"
#include "thumbs/answer.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::web {
namespace {

constexpr char thumbHeaders[] = "X-Content-Type-Options: nosniff\r\nVary: Accept\r\n";
constexpr char originalHeaders[] = "X-Content-Type-Options: nosniff\r\n";
constexpr char caching[] = "Cache-Control: private, max-age=300, must-revalidate\r\n";
constexpr char policy[] =
    "Content-Security-Policy: default-src 'none'; img-src 'self'; style-src 'self'; base-uri 'none'; form-action "
    "'none'; frame-ancestors 'none'\r\n";

void Print(const std::string& text) {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout));
}

// What fits into the buffers of any connection is sent at once; the rest as fast as the client reads.
void AnnounceUnlessShort(std::uintmax_t bytes, const Delivery& delivery) {
  constexpr std::uintmax_t shortest = 32768;
  if (bytes > shortest) delivery.turn.startSending();
}

std::uintmax_t SizeOf(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::file_size(path, ignored);
}

void Begin(const std::string& headers, const Delivery& delivery) {
  delivery.turn.state->hasAnswered = true;
  Print(headers);
}

void LogUnless(bool isSent, const Delivery& delivery) {
  if (!isSent) syslog(LOG_INFO, "%s: aborted", delivery.turn.state->request.data());
}

// The library rotates an Albumex thumbnail while it sends it.
bool IsRotatedMeanwhile(const Thumb& job) {
  return job.GetOutputTypeCode() == Thumb::OUTPUT_ALBUMEX && (job.GetInfo().GetUserRotate() & 3) != 0;
}

// What `write` prints to standard output, the buffer of stdout included, as far as the file has room for it.
std::string CapturedIn(const MemoryFile& file, const std::function<void()>& write) {
  const FileDescriptor before(dup(STDOUT_FILENO));
  const FileDescriptor captured(open(file.Path().c_str(), O_RDWR | O_CLOEXEC));
  static_cast<void>(std::fflush(stdout));
  dup2(captured.Number(), STDOUT_FILENO);
  write();
  static_cast<void>(std::fflush(stdout));
  dup2(before.Number(), STDOUT_FILENO);
  std::ifstream content(file.Path(), std::ios::binary);
  return {std::istreambuf_iterator<char>(content), std::istreambuf_iterator<char>()};
}

// Whether the outputer refuses a range or a condition of the client's: it forbids to cache that, in a line of its own.
bool IsRefused(const std::string& path, const std::string& mimeType) {
  constexpr const char* reasons[] = {"HTTP_RANGE", "HTTP_IF_MATCH", "HTTP_IF_UNMODIFIED_SINCE"};
  if (std::none_of(std::begin(reasons), std::end(reasons), std::getenv)) return false;
  constexpr std::size_t mostOfHeaders = 4096;
  const std::string beginning = CapturedIn(MemoryFile::OfFixedSize(mostOfHeaders),
                                           [&] { HTTPFileOutputer().Output(path.c_str(), mimeType.c_str()); });
  return beginning.substr(0, beginning.find("\r\n\r\n")).find("\r\nCache-Control:") != std::string::npos;
}

void Send(const std::string& path, const std::string& mimeType, const Delivery& delivery) {
  if (!IsRefused(path, mimeType)) Print(caching);
  AnnounceUnlessShort(SizeOf(path), delivery);
  LogUnless(HTTPFileOutputer().Output(path.c_str(), mimeType.c_str()) == 0, delivery);
}

// The library's own delivery, whose first line lets everybody cache the answer.
void SendRotated(const std::string& mimeType, const Delivery& delivery, Thumb* job) {
  bool isSent = false;
  const std::string answer = CapturedIn(MemoryFile({}), [&] { isSent = job->HttpOutputFile(mimeType); });
  Print(caching + answer.substr(std::min(answer.size(), answer.find('\n') + 1)));
  LogUnless(isSent, delivery);
}

// Root works from inside the folder of the source.
std::string PathForServer(const std::string& path) {
  return path.front() == '/' ? path : std::filesystem::absolute(path).lexically_normal().string();
}

void SendLasting(const std::string& path, const std::string& mimeType, const Delivery& delivery) {
  const std::string line = SendfileLine(delivery.sendfile, delivery.service.roots, PathForServer(path));
  if (line.empty()) return Send(path, mimeType, delivery);
  Print(caching + ("Content-Type: " + mimeType + "\r\n") + line + "\r\n");
}

// Removed first: nothing is left if this process is stopped while it sends.
void SendAndRemove(const std::string& path, const std::string& mimeType, const Delivery& delivery) {
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  unlink(path.c_str());
  Send("/proc/self/fd/" + std::to_string(file.Number()), mimeType, delivery);
}

// Tells the log and the client why a thumbnail will be made again by the next request.
std::string NotStoredLine(const RequestState& state, const Thumb& job) {
  const std::optional<Problem> problem = IsTemporary(job) ? WhyNothingIsStored(job.GetInfo().GetPath()) : std::nullopt;
  if (!problem) return "";
  syslog(LOG_NOTICE, "%s: not stored: %s; %s", state.request.data(), problem->reason.c_str(), problem->remedy.c_str());
  return "Tavithumb-Not-Stored: " + problem->reason + "\r\n";
}

// Web servers that compress a list add something to its tag.
bool HasSame(const std::string& fingerprint) {
  const char* const condition = std::getenv("HTTP_IF_NONE_MATCH");
  return condition != nullptr && std::string(condition).find(fingerprint) != std::string::npos;
}

}  // namespace

void DeliverThumb(const Delivery& delivery, Lifetime lifetime, Thumb* job) {
  const std::string mimeType = AnswerMimeType(*job);
  Begin(thumbHeaders + NotStoredLine(*delivery.turn.state, *job), delivery);
  if (IsRotatedMeanwhile(*job)) return SendRotated(mimeType, delivery, job);
  if (lifetime == Lifetime::kLong) return SendLasting(job->GetOutputFile(), mimeType, delivery);
  SendAndRemove(job->GetOutputFile(), mimeType, delivery);
}

void DeliverFromMemory(const maker::Thumbnail& thumbnail, const Delivery& delivery) {
  const MemoryFile file(thumbnail.bytes);
  Begin(thumbHeaders, delivery);
  Send(file.Path(), maker::MimeTypeOf(thumbnail.type), delivery);
}

void DeliverFile(const std::string& path, const std::string& mimeType, const std::string& headers,
                 const Delivery& delivery) {
  Begin(originalHeaders + headers, delivery);
  SendLasting(path, mimeType, delivery);
}

void DeliverJson(const Target& target, const std::string& body, const Delivery& delivery) {
  Begin("Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
            "\r\nCache-Control: private, no-cache\r\nX-Content-Type-Options: nosniff\r\n\r\n",
        delivery);
  if (target.isHead) return;
  AnnounceUnlessShort(body.size(), delivery);
  Print(body);
}

void DeliverList(const Target& target, const Listing& listing, const Delivery& delivery) {
  const std::string body = target.wantsHtml ? ListAsHtml(listing, target.prefix) : ListAsJson(listing);
  const std::string fingerprint = Fingerprint(body);
  const std::string validators = "ETag: \"" + fingerprint +
                                 "\"\r\nCache-Control: private, no-cache\r\nVary: Accept\r\n"
                                 "X-Content-Type-Options: nosniff\r\n";
  if (HasSame(fingerprint)) return Begin("Status: 304 Not Modified\r\n" + validators + "\r\n", delivery);
  Begin(target.wantsHtml ? "Content-Type: text/html; charset=utf-8\r\n" + std::string(policy)
                         : "Content-Type: application/json\r\n",
        delivery);
  Print("Content-Length: " + std::to_string(body.size()) + "\r\n" + validators + "\r\n");
  if (target.isHead) return;
  AnnounceUnlessShort(body.size(), delivery);
  Print(body);
}

}  // namespace tavithumb::apps::web
