// SPDX-License-Identifier: GPL-3.0-or-later
#include "thumbs/full_disk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "system/file_descriptor.h"

namespace tavithumb::apps {
namespace {

struct Format {
  std::string_view start;
  std::string_view end;
};
constexpr Format formats[] = {{"\xFF\xD8", "\xFF\xD9"}, {"\x89PNG", "IEND\xAE\x42\x60\x82"}, {"GIF8", ";"}};

// Fewer if the file is shorter.
std::string Bytes(const FileDescriptor& file, std::size_t count, off_t place) {
  std::string bytes(count, '\0');
  const ssize_t got = pread(file.Number(), bytes.data(), count, std::max<off_t>(place, 0));
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  return bytes;
}

}  // namespace

bool IsDiskFull(const std::string& path) {
  constexpr unsigned long leastRoom = 1048576;
  struct statvfs volume = {};
  if (statvfs(file::Dirname(path).c_str(), &volume) != 0) return false;
  return volume.f_bavail * volume.f_frsize < leastRoom || (volume.f_files != 0 && volume.f_favail == 0);
}

bool IsCutOff(const std::string& path) {
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat record = {};
  if (!file.IsOpen() || fstat(file.Number(), &record) != 0) return false;
  for (const Format& format : formats) {
    if (Bytes(file, format.start.size(), 0) != format.start) continue;
    return Bytes(file, format.end.size(), record.st_size - static_cast<off_t>(format.end.size())) != format.end;
  }
  return record.st_size == 0;
}

}  // namespace tavithumb::apps
