// SPDX-License-Identifier: GPL-3.0-or-later
#include "job/run_as.h"

#include <pwd.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "support/error_text.h"

namespace _________ {  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
namespace {

constexpr uid_t kKeepUser = static_cast<uid_t>(-1);
constexpr gid_t kKeepGroup = static_cast<gid_t>(-1);
constexpr long kFallbackBufferSize = 16384;

struct Ids {
  uid_t user;
  gid_t group;
};

// Changes the effective ids of the process. If it is neither root nor the target, it becomes root in between, because
// only root may change the group.
bool SwitchTo(const Ids& target) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (user == target.user && group == target.group) return true;
  if (user != 0 && user != target.user && setresuid(kKeepUser, 0, kKeepUser) < 0) return false;
  if (group != target.group && target.group != kKeepGroup && setresgid(kKeepGroup, target.group, kKeepGroup) != 0) {
    return false;
  }
  return user == target.user || target.user == kKeepUser || setresuid(kKeepUser, target.user, kKeepUser) == 0;
}

struct FreeDeleter {
  void operator()(char* memory) const { std::free(memory); }
};

// Looks up the ids of a user; failures are logged.
bool FindIds(const char* user, const char* file, int line, Ids* ids) {
  const long configured = sysconf(_SC_GETPW_R_SIZE_MAX);
  const long size = configured == -1 ? kFallbackBufferSize : configured;
  const std::unique_ptr<char, FreeDeleter> buffer(static_cast<char*>(std::malloc(static_cast<std::size_t>(size))));
  if (buffer == nullptr) {
    syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: malloc(%ld) [%s]", file, line, size, tavithumb::ErrorText(errno).c_str());
    return false;
  }
  passwd entry = {};
  passwd* found = nullptr;
  const int error = getpwnam_r(user, &entry, buffer.get(), static_cast<std::size_t>(size), &found);
  if (found == nullptr) {
    syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: getpwnam(%s) [%s]", file, line, user,
           error == 0 ? "Name not found" : tavithumb::ErrorText(error).c_str());
    return false;
  }
  *ids = {entry.pw_uid, entry.pw_gid};
  return true;
}

}  // namespace

__::__(const char* user, const char* file, int line, const char* name)
    : savedUser_(geteuid()), savedGroup_(getegid()), file_(file), line_(line), name_(name), entered_(Enter(user)) {
  if (!entered_) syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: %s(\"%s\")", file_, line_, name_, user);
}

__::~__() {
  if (SwitchTo({savedUser_, savedGroup_})) return;
  syslog(LOG_AUTH | LOG_CRIT, "%s:%d ERROR: ~%s(%d, %d)", file_, line_, name_, static_cast<int>(savedUser_),
         static_cast<int>(savedGroup_));
}

bool __::Enter(const char* user) const {
  Ids ids = {};
  return FindIds(user, file_, line_, &ids) && SwitchTo(ids);
}

}  // namespace _________
