// SPDX-License-Identifier: GPL-3.0-or-later
#include "recording_platform.h"

#include <http_file_outputer.h>
#include <sys/stat.h>
#include <tavi/core.h>
#include <tavi/fileop.h>
#include <tavi/sdk.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace tavithumb::test {
namespace {

RecordingPlatform* current = nullptr;

std::vector<std::string> Strings(const char* const* argv) {
  std::vector<std::string> strings;
  for (; *argv != nullptr; ++argv) strings.emplace_back(*argv);
  return strings;
}

void Record(PlatformCall call, const std::vector<std::string>& more = {}) {
  call.insert(call.end(), more.begin(), more.end());
  RecordingPlatform::Current().calls.push_back(std::move(call));
}

int Fill(const std::string& text, char* buffer, size_t size) {
  if (text.size() >= size) return -1;
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return 0;
}

std::string BaseName(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

RecordingPlatform::RecordingPlatform(std::string root) : eaRoot(std::move(root)) {
  current = this;
}
RecordingPlatform::~RecordingPlatform() {
  current = nullptr;
}

RecordingPlatform& RecordingPlatform::Current() {
  if (current == nullptr) std::abort();
  return *current;
}

std::vector<PlatformCall> RecordingPlatform::Calls(const std::string& function) const {
  std::vector<PlatformCall> found;
  for (const PlatformCall& call : calls) {
    if (call.front() == function) found.push_back(call);
  }
  return found;
}

std::FILE* StreamOf(const std::string& content) {
  std::FILE* stream = std::tmpfile();
  std::fwrite(content.data(), 1, content.size(), stream);
  std::rewind(stream);
  return stream;
}

extern "C" {
int TAVIEAPath(int first, const char* source, const char* eaName, char* buffer, size_t size, int last) {
  Record({"TAVIEAPath", std::to_string(first), source, eaName, std::to_string(size), std::to_string(last)});
  if (!current->hasEAPath) return -1;
  return Fill(current->eaRoot + "/" + BaseName(source) + "/" + eaName, buffer, size);
}

int TAVIEADirPath(int first, const char* source, char* buffer, size_t size) {
  Record({"TAVIEADirPath", std::to_string(first), source, std::to_string(size)});
  if (!current->hasEAPath) return -1;
  return Fill(current->eaRoot + "/" + BaseName(source), buffer, size);
}

int TAVIEAMKDir(int first, const char* eaDir) {
  Record({"TAVIEAMKDir", std::to_string(first), eaDir});
  if (current->makeEADirResult == 0 && current->makeEADirOnDisk) std::filesystem::create_directories(eaDir);
  return current->makeEADirResult;
}

int TAVIGetFSType(const char* path, int second) {
  Record({"TAVIGetFSType", path, std::to_string(second)});
  if (current->fsType == -1) errno = current->fsTypeErrno;
  return current->fsType;
}

int TAVIFSIsRemoteFS(int type) {
  Record({"TAVIFSIsRemoteFS", std::to_string(type)});
  return type == current->remoteFSType ? 1 : 0;
}

int TAVIFSIsImageFS(int type) {
  Record({"TAVIFSIsImageFS", std::to_string(type)});
  return type == current->imageFSType ? 1 : 0;
}

int TLIBCExecv(const char* path, const char* const* argv, int wait) {
  const std::vector<std::string> arguments = Strings(argv);
  Record({"TLIBCExecv", path, std::to_string(wait)}, arguments);
  return current->run ? current->run(path, arguments) : 0;
}

int TLIBCTakesNamesLiterally(const char* path, const char* const* argv) {
  Record({"TLIBCTakesNamesLiterally", path}, Strings(argv));
  return current->takesNamesLiterally ? 1 : 0;
}

int TLIBCExecl(const char* path, int flags, ...) {
  std::vector<std::string> arguments{path};
  va_list list;
  va_start(list, flags);
  for (const char* argument = va_arg(list, const char*); argument != nullptr; argument = va_arg(list, const char*)) {
    arguments.emplace_back(argument);
  }
  va_end(list);
  Record({"TLIBCExecl", std::to_string(flags)}, arguments);
  return current->run ? current->run(path, arguments) : 0;
}

FILE* TLIBCPopenv(const char* path, const char* mode, const char* const* argv) {
  const std::vector<std::string> arguments = Strings(argv);
  Record({"TLIBCPopenv", path, mode}, arguments);
  std::FILE* stream = current->open ? current->open(path, arguments) : StreamOf("");
  if (stream != nullptr) current->opened.push_back(stream);
  return stream;
}

int TLIBCPclose(FILE* stream) {
  Record({"TLIBCPclose"});
  current->closed.push_back(stream);
  return std::fclose(stream);
}

int TAVIFileCopy(const char* source, const char* destination, const void* options) {
  PlatformCall call{"TAVIFileCopy", source, destination};
  std::uint32_t words[15];
  std::memcpy(words, options, sizeof words);
  for (const std::uint32_t word : words) call.push_back(std::to_string(word));
  Record(std::move(call));
  return current->fileCopyResult;
}
}

}  // namespace tavithumb::test

int HTTPFileOutputer::Output(const char* path, const char* mimeType) {
  using tavithumb::test::RecordingPlatform;
  RecordingPlatform& platform = RecordingPlatform::Current();
  platform.calls.push_back({"HTTPFileOutputer::Output(path)", path, mimeType});
  if (platform.onOutput) platform.onOutput();
  return platform.outputResult;
}

int HTTPFileOutputer::Output(std::FILE* stream, const char* fileName, const char* mimeType) {
  using tavithumb::test::RecordingPlatform;
  RecordingPlatform& platform = RecordingPlatform::Current();
  platform.calls.push_back(
      {"HTTPFileOutputer::Output(stream)", stream == nullptr ? "null" : "open", fileName, mimeType});
  if (platform.onOutput) platform.onOutput();
  return platform.outputResult;
}
