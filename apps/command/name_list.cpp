// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/name_list.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace tavithumb::apps::command {
namespace {

constexpr std::size_t maxNameLength = 65536;

FileDescriptor Open(const std::string& path) {
  FileDescriptor file(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)
                                  : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.IsOpen()) return file;
  throw std::invalid_argument("'" + path + "' cannot be read: " + std::generic_category().message(errno));
}

}  // namespace

NameList::NameList(const std::string& path, char separator)
    : name_(path == "-" ? "standard input" : path), file_(Open(path)), separator_(separator) {}

std::optional<Problem> NameList::Read(std::deque<std::string>* names) {
  std::array<char, maxNameLength> block = {};
  const ssize_t got = read(file_.Number(), block.data(), block.size());
  if (got == -1) {
    if (errno == EINTR || errno == EAGAIN) return std::nullopt;
    return Fail(std::generic_category().message(errno), "pass the names in another way");
  }
  rest_.append(block.data(), static_cast<std::size_t>(got));
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = rest_.find(separator_, begin)) != std::string::npos; begin = end + 1) {
    names->push_back(rest_.substr(begin, end - begin));
  }
  rest_.erase(0, begin);
  if (rest_.size() > maxNameLength) {
    return Fail("it contains a name of more than 65536 bytes", "add -0 if its names end with NUL bytes");
  }
  if (got != 0) return std::nullopt;
  hasEnded_ = true;
  if (!rest_.empty()) names->push_back(std::exchange(rest_, ""));
  return std::nullopt;
}

std::optional<Problem> NameList::Fail(const std::string& reason, const std::string& remedy) {
  hasEnded_ = true;
  return Problem{Problem::Kind::kDamaged, reason, remedy};
}

}  // namespace tavithumb::apps::command
