// SPDX-License-Identifier: GPL-3.0-or-later
#include "fileop/copy_data.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "common/transfer.h"
#include "common/xattr.h"

namespace tavi {
namespace {

bool MoveTo(int from, int to, off_t position) {
  return lseek(from, position, SEEK_SET) != -1 && lseek(to, position, SEEK_SET) != -1;
}

// From `start` to `end`, or to the end of a file that has become shorter.
bool CopyExtent(int from, int to, off_t start, off_t end) {
  return MoveTo(from, to, start) && CopyBytes(from, to, static_cast<std::uint64_t>(end - start)) != -1;
}

// From `start` to the current end of the file.
bool CopyRest(int from, int to, off_t start) {
  return MoveTo(from, to, start) && CopyBytes(from, to, std::numeric_limits<std::int64_t>::max()) != -1;
}

}  // namespace

bool CopyData(int from, int to, off_t size) {
  off_t start = 0, end = 0;
  while ((start = lseek(from, end, SEEK_DATA)) != -1) {
    const off_t hole = lseek(from, start, SEEK_HOLE);
    if (hole == -1) break;
    if (!CopyExtent(from, to, start, hole)) return false;
    end = hole;
  }
  if (errno == EINVAL) return CopyRest(from, to, end);  // a volume that doesn't report holes, such as /proc
  const off_t known = std::max(end, size);
  return errno == ENXIO && ftruncate(to, known) == 0 && CopyRest(from, to, known);
}

void CopyUserAttributes(int from, int to) {
  const std::string prefix = "user.";
  for (const std::string& name : ListXattrs(from)) {
    if (name.compare(0, prefix.size(), prefix) != 0) continue;
    const std::optional<std::string> value = GetXattr(from, name.c_str());
    if (value) SetXattr(to, name.c_str(), *value);
  }
}

}  // namespace tavi
