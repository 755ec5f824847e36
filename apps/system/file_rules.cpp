// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/file_rules.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace tavithumb::apps {
namespace {

constexpr std::uint64_t reading = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t running = reading | LANDLOCK_ACCESS_FS_EXECUTE;
constexpr std::uint64_t readingAndWriting = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE;
constexpr std::uint64_t storing = reading | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_MAKE_REG |
                                  LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
                                  LANDLOCK_ACCESS_FS_REMOVE_DIR;
constexpr std::uint64_t everything = running | storing | LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                                     LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK |
                                     LANDLOCK_ACCESS_FS_MAKE_SYM;
// Those that a rule for a file, not a folder, may have.
constexpr std::uint64_t ofFiles =
    LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_EXECUTE;

// The folders of programs, their libraries and their settings.
constexpr std::array systemFolders = {"/usr", "/bin", "/lib", "/lib32", "/lib64", "/etc", "/opt", "/var/packages"};

// The right to move files between folders. Landlock's first version lacks it, and always denies such moves.
std::uint64_t MoveRight() {
  const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  return version >= 2 ? LANDLOCK_ACCESS_FS_REFER : 0;
}

std::uint64_t RightsOf(FileRules::Access access) {
  switch (access) {
    case FileRules::Access::kRead:
      return reading;
    case FileRules::Access::kRun:
      return running;
    case FileRules::Access::kUse:
      return readingAndWriting;
    case FileRules::Access::kStore:
      break;
  }
  return storing | MoveRight();
}

}  // namespace

FileRules::FileRules() {
  landlock_ruleset_attr attributes = {};
  attributes.handled_access_fs = everything | MoveRight();
  rules_ = FileDescriptor(static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0)));
}

void FileRules::Allow(const std::string& path, Access access) const {
  const FileDescriptor opened(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat record = {};
  if (!rules_.IsOpen() || fstat(opened.Number(), &record) != 0) return;
  landlock_path_beneath_attr rule = {};
  rule.allowed_access = S_ISDIR(record.st_mode) ? RightsOf(access) : RightsOf(access) & ofFiles;
  rule.parent_fd = opened.Number();
  syscall(SYS_landlock_add_rule, rules_.Number(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0);
}

void FileRules::AllowSystem() const {
  for (const char* folder : systemFolders) Allow(folder, Access::kRun);
  Allow("/proc", Access::kRead);
  Allow("/dev", Access::kUse);
}

void FileRules::Enter() const {
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  if (rules_.IsOpen() && syscall(SYS_landlock_restrict_self, rules_.Number(), 0) != 0) {
    throw std::system_error(errno, std::generic_category(), "Landlock");
  }
}

}  // namespace tavithumb::apps
