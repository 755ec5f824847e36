// SPDX-License-Identifier: GPL-3.0-or-later
#include "tavithumb/util.h"

#include <libgen.h>
#include <sys/stat.h>
#include <tavi/core.h>
#include <tavi/fileop.h>
#include <tavi/sdk.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

#include "support/error_text.h"
#include "support/log.h"

namespace tavithumb::file {
namespace {

// The size of path buffers for the platform's functions.
constexpr std::size_t kPathBufferSize = 4096;

// A volume that cannot store EA entries although it is neither remote nor an image.
constexpr int kRefusedFSType = 12;

// As in the C locale, whatever the locale of the process.
char Lower(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

bool IsDirectory(const char* path) {
  struct stat64 record = {};
  return stat64(path, &record) == 0 && S_ISDIR(record.st_mode);
}

}  // namespace

std::string GetFileExt(const std::string& path) {
  std::string lower = path;
  std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
  const std::size_t dot = lower.rfind('.');
  return dot == std::string::npos ? lower : lower.substr(dot + 1);
}

std::string GetEAPath(const std::string& sourcePath, const std::string& eaName) {
  char path[kPathBufferSize] = {};
  if (TAVIEAPath(0, sourcePath.c_str(), eaName.c_str(), path, sizeof path, 0) < 0) {
    syslog(LOG_ERR, TAVITHUMB_LOG("Get EA path for %s failed"), "util", 50, "GetEAPath", eaName.c_str());
    return "";
  }
  return path;
}

bool MakeEADir(const std::string& sourcePath) {
  char directory[kPathBufferSize] = {};
  if (TAVIEADirPath(0, sourcePath.c_str(), directory, sizeof directory) != 0) return false;
  return IsDirectory(directory) || TAVIEAMKDir(1, directory) == 0;
}

bool IsDestSupportEAWrite(const std::string& destinationPath) {
  const int type = TAVIGetFSType(destinationPath.c_str(), 0);
  if (type == -1) {
    const int error = errno;
    syslog(LOG_ERR, TAVITHUMB_LOG("failed to statfs %s, reason=[(%d)%s]"), "util", 97, "IsDestSupportEAWrite",
           destinationPath.c_str(), error, ErrorText(error).c_str());
    return true;
  }
  if (TAVIFSIsRemoteFS(type) != 0) return false;
  return type != kRefusedFSType && TAVIFSIsImageFS(type) == 0;
}

bool SDKMoveFile(const std::string& sourcePath, const std::string& destinationPath) {
  std::array<std::uint32_t, 15> options = {};
  options[1] = 1;  // move, not copy
  if (TAVIFileCopy(sourcePath.c_str(), destinationPath.c_str(), options.data()) == 0) return true;
  syslog(LOG_ERR, TAVITHUMB_LOG("TAVIFileCopy failed"), "util", 112, "SDKMoveFile");
  return false;
}

std::string Dirname(const std::string& path) {
  char buffer[kPathBufferSize] = {};
  path.copy(buffer, sizeof buffer - 1);
  return dirname(buffer);  // NOLINT(concurrency-mt-unsafe): uses only this buffer
}

}  // namespace tavithumb::file
