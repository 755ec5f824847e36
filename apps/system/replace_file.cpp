// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <system_error>

#include "system/descriptors.h"
#include "system/file_descriptor.h"

namespace tavithumb::apps {
namespace {

[[noreturn]] void Fail(int error) {
  throw std::system_error(error, std::generic_category());
}

void WriteInPlace(const std::string& path, std::string_view content) {
  const FileDescriptor file(open(path.c_str(), O_WRONLY | O_TRUNC | O_NOCTTY | O_CLOEXEC));
  if (!file.IsOpen() || !WriteAll(file.Number(), content.data(), content.size())) Fail(errno);
}

// In a folder where no file can be created.
bool IsForbidden(int error) {
  return error == EACCES || error == EPERM || error == EROFS;
}

// The mode of a file that doesn't exist yet.
mode_t NewMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// A new file next to the one that it replaces. Removed unless it has been moved there.
class Replacement {
 public:
  explicit Replacement(const std::string& path)
      : path_(path.substr(0, path.rfind('/') + 1) + ".tavithumb-XXXXXX"), file_(mkostemp(path_.data(), O_CLOEXEC)) {}
  ~Replacement() {
    if (file_.IsOpen() && !isMoved_) unlink(path_.c_str());
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  bool IsOpen() const { return file_.IsOpen(); }

  // Throws std::system_error. On some volumes files have no mode of their own.
  void Write(std::string_view content, mode_t mode) const {
    if (!WriteAll(file_.Number(), content.data(), content.size())) Fail(errno);
    static_cast<void>(fchmod(file_.Number(), mode));
  }

  // False, with errno set, if it can't be.
  bool MoveTo(const std::string& path) {
    isMoved_ = std::rename(path_.c_str(), path.c_str()) == 0;
    return isMoved_;
  }

 private:
  std::string path_;
  FileDescriptor file_;
  bool isMoved_ = false;
};

}  // namespace

void ReplaceFile(const std::string& path, std::string_view content) {
  struct stat record = {};
  const bool exists = lstat(path.c_str(), &record) == 0;
  const bool hasContent = exists && S_ISREG(record.st_mode) && record.st_size > 0;
  if (exists && !hasContent) return WriteInPlace(path, content);
  Replacement replacement(path);
  if (!replacement.IsOpen()) {
    if (!exists || !IsForbidden(errno)) Fail(errno);
    return WriteInPlace(path, content);
  }
  replacement.Write(content, exists ? record.st_mode & 0777 : NewMode());
  if (replacement.MoveTo(path)) return;
  if (!exists || errno != EBUSY) Fail(errno);
  WriteInPlace(path, content);  // another file may not take the place of a mounted one
}

}  // namespace tavithumb::apps
