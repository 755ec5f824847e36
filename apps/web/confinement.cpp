// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/confinement.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <tavithumb/util.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "thumbs/imagemagick_policy.h"
#include "thumbs/temporary_files.h"

namespace tavithumb::apps::web {
namespace {

constexpr std::uint64_t reading = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t running = reading | LANDLOCK_ACCESS_FS_EXECUTE;
constexpr std::uint64_t storing = reading | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_MAKE_REG |
                                  LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
                                  LANDLOCK_ACCESS_FS_REMOVE_DIR;
constexpr std::uint64_t everything = running | storing | LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                                     LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK |
                                     LANDLOCK_ACCESS_FS_MAKE_SYM;

// The folders of the tools, their libraries and their settings.
constexpr std::array systemFolders = {"/usr", "/bin", "/lib", "/lib32", "/lib64", "/etc", "/opt", "/var/packages"};

// The right to move files between folders. Landlock's first version lacks it, and always denies such moves.
std::uint64_t MoveRight() {
  const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  return version >= 2 ? LANDLOCK_ACCESS_FS_REFER : 0;
}

void Allow(const FileDescriptor& rules, const std::string& folder, std::uint64_t rights) {
  const FileDescriptor opened(open(folder.c_str(), O_PATH | O_CLOEXEC));
  if (!opened.IsOpen()) return;
  landlock_path_beneath_attr rule = {};
  rule.allowed_access = rights;
  rule.parent_fd = opened.Number();
  syscall(SYS_landlock_add_rule, rules.Number(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0);
}

FileDescriptor MakeRules(const Roots& roots, const std::string& policyFolder) {
  const std::uint64_t moving = MoveRight();
  landlock_ruleset_attr attributes = {};
  attributes.handled_access_fs = everything | moving;
  FileDescriptor rules(static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0)));
  if (!rules.IsOpen()) return rules;
  for (const Root& root : roots.All()) Allow(rules, root.folder, storing | moving);
  for (const char* folder : file::TEMPORARY_FOLDERS) Allow(rules, folder, storing | moving);
  for (const char* folder : systemFolders) Allow(rules, folder, running);
  Allow(rules, policyFolder, reading);
  Allow(rules, "/proc", reading);
  Allow(rules, "/dev", LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE);
  return rules;
}

void Limit(__rlimit_resource resource, rlim_t maximum) {
  rlimit limit = {};
  if (maximum == 0 || getrlimit(resource, &limit) != 0 || limit.rlim_max < maximum) return;
  limit.rlim_cur = limit.rlim_max = maximum;
  setrlimit(resource, &limit);
}

}  // namespace

Confinement::Confinement(const Roots& roots, const ToolLimits& limits, const std::string& policyFolder)
    : limits_(limits), policyFolder_(policyFolder), rules_(MakeRules(roots, policyFolder)) {}

void Confinement::Enter() const {
  constexpr rlim_t mebibyte = 1048576;
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
  Limit(RLIMIT_CPU, limits_.cpuSeconds);
  Limit(RLIMIT_AS, limits_.memoryMiB * mebibyte);
  Limit(RLIMIT_FSIZE, limits_.fileSizeMiB * mebibyte);
  Limit(RLIMIT_NOFILE, limits_.openFiles);
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));  // writing beyond the limit fails instead
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  if (rules_.IsOpen() && syscall(SYS_landlock_restrict_self, rules_.Number(), 0) != 0) {
    throw std::system_error(errno, std::generic_category(), "Landlock");
  }
}

void Confinement::SetEnvironment(const Variables& variables) const {
  clearenv();
  setenv("PATH", "/usr/bin:/bin", 1);
  UsePolicy(policyFolder_);
  // ImageMagick's own limit also counts time spent waiting.
  if (limits_.cpuSeconds != 0) setenv("MAGICK_TIME_LIMIT", std::to_string(limits_.cpuSeconds).c_str(), 1);
  setenv("GATEWAY_INTERFACE", "CGI/1.1", 1);
  for (const char* name : {"REQUEST_METHOD", "HTTP_IF_MATCH", "HTTP_IF_UNMODIFIED_SINCE", "HTTP_IF_NONE_MATCH",
                           "HTTP_IF_MODIFIED_SINCE", "HTTP_IF_RANGE", "HTTP_RANGE"}) {
    const auto variable = variables.find(name);
    if (variable != variables.end()) setenv(name, variable->second.c_str(), 1);
  }
}

ScratchFolder::ScratchFolder(RequestState* state) : state_(state) {
  const std::string path = MakeScratchFolder("/tmp/tavithumb-web.XXXXXX");
  state_->scratch[path.copy(state_->scratch.data(), state_->scratch.size() - 1)] = '\0';
  UseScratchFolder(path);
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(state_->scratch.data(), ignored);
  state_->scratch.front() = '\0';
}

void RemoveLeftovers(pid_t worker, const RequestState& state) {
  std::error_code ignored;
  if (state.scratch.front() != '\0') std::filesystem::remove_all(state.scratch.data(), ignored);
  RemovePreviews(worker);
}

}  // namespace tavithumb::apps::web
