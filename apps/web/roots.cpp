// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/roots.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <stdexcept>

#include "thumbs/ea_folder.h"
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

FileDescriptor OpenBeneath(int folder, const std::string& path) {
  open_how how = {};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  long opened;
  do {  // EAGAIN: a folder was renamed meanwhile, which the kernel can't tell from an escape
    opened = syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how);
  } while (opened == -1 && (errno == EAGAIN || errno == EINTR));
  return FileDescriptor(static_cast<int>(opened));
}

// The path of an open file, without links; "" if it has none, or one longer than PATH_MAX.
std::string PathOf(const FileDescriptor& file) {
  const std::string link = "/proc/self/fd/" + std::to_string(file.Number());
  std::array<char, PATH_MAX> path = {};
  const ssize_t length = readlink(link.c_str(), path.data(), path.size());
  if (length <= 0 || static_cast<std::size_t>(length) == path.size()) return "";
  return {path.data(), static_cast<std::size_t>(length)};
}

std::string Joined(const std::vector<std::string>& path, std::size_t first) {
  std::string joined = ".";
  for (std::size_t i = first; i < path.size(); ++i) joined += "/" + path[i];
  return joined;
}

HttpError ErrorOfOpen() {
  if (errno == EACCES) return {kForbidden, "permission denied"};
  if (errno == ENOSYS) return {kInternalServerError, "the kernel is too old to look up files safely"};
  return NotFound();
}

}  // namespace

bool Found::IsAt(const std::string& name) const {
  struct stat there = {};
  return lstat(name.c_str(), &there) == 0 && there.st_dev == record.st_dev && there.st_ino == record.st_ino;
}

Root ParseRoot(const std::string& text) {
  const std::size_t equals = text.find('=');
  const bool isNamed = equals != text.npos && text.find('/') > equals;
  const std::string name = isNamed ? text.substr(0, equals) : "";
  const std::string folder = isNamed ? text.substr(equals + 1) : text;
  if (isNamed && (name.empty() || name.front() == '.')) {
    throw std::invalid_argument("'" + text + "': the name of a root must not be empty or start with a dot");
  }
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(folder, error);
  if (error || !std::filesystem::is_directory(real, error)) {
    throw std::invalid_argument("'" + folder + "' is not a folder that can be served; name one that exists");
  }
  return {name, real};
}

bool Roots::IsShown(const std::string& name) const {
  return name != EAFolderName() && (showsHidden_ || name.front() != '.');
}

const Root& Roots::RootOf(const std::vector<std::string>& path) const {
  if (!AreNamed()) return roots_.front();
  const auto root = std::find_if(roots_.begin(), roots_.end(),
                                 [&](const Root& each) { return !path.empty() && each.name == path.front(); });
  if (root == roots_.end()) throw NotFound();
  return *root;
}

Found Roots::Find(const std::vector<std::string>& path) const {
  const Root& root = RootOf(path);
  if (!std::all_of(path.begin(), path.end(), [this](const std::string& name) { return IsShown(name); })) {
    throw NotFound();
  }
  const FileDescriptor folder(open(root.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder.IsOpen()) throw NotFound();
  Found found = {OpenBeneath(folder.Number(), Joined(path, AreNamed() ? 1 : 0)), {}, ""};
  if (!found.descriptor.IsOpen() || fstat(found.descriptor.Number(), &found.record) != 0) throw ErrorOfOpen();
  found.path = PathOf(found.descriptor);
  if (found.path.empty() || !found.IsAt(found.path)) throw NotFound();

  // A link may lead to a hidden folder.
  for (const auto& part : std::filesystem::path(found.path).lexically_relative(PathOf(folder))) {
    if (part != "." && !IsShown(part)) throw NotFound();
  }
  return found;
}

}  // namespace tavithumb::apps::web
