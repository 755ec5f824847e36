// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/become.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <vector>

#include "system/file_descriptor.h"
#include "system/paths.h"

namespace tavithumb::apps {
namespace {

constexpr char here[] = "./";

[[noreturn]] void Fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void Check(int result, const char* call) {
  if (result != 0) Fail(call);
}

// The group of a user without an account. Not that of the folder: its owner need not be a member of it.
constexpr gid_t noGroup = 65534;

struct Account {
  std::string name;
  gid_t group;
  bool exists;
};

Account AccountOf(uid_t user) {
  std::vector<char> buffer(65536);
  passwd entry = {};
  passwd* found = nullptr;
  if (getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
    return {std::to_string(user), noGroup, false};
  }
  return {entry.pw_name, entry.pw_gid, true};
}

void TakeGroups(const Account& account) {
  if (account.exists) {
    Check(initgroups(account.name.c_str(), account.group), "initgroups");
  } else {
    Check(setgroups(0, nullptr), "setgroups");
  }
  Check(setresgid(account.group, account.group, account.group), "setresgid");
}

void TakeUser(uid_t user) {
  Check(setresuid(user, user, user), "setresuid");
  // Some settings let a process keep its capabilities.
  if (setresuid(0, 0, 0) != 0) return;
  errno = EPERM;
  Fail("setresuid");
}

// What tools need, and what a request says about its answer.
bool IsKept(std::string_view variable) {
  constexpr std::array<std::string_view, 10> kept = {"PATH=",          "TZ=",
                                                     "LANG=",          "LC_",
                                                     "MAGICK_",        "TMPDIR=",
                                                     "HTTP_IF",        "HTTP_RANGE=",
                                                     "REQUEST_METHOD", "GATEWAY_INTERFACE="};
  for (const std::string_view name : kept) {
    if (variable.substr(0, name.size()) == name) return true;
  }
  return false;
}

// The user can read the environment of the tools.
void ForgetEnvironment() {
  std::vector<std::string> kept;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (IsKept(*variable)) kept.emplace_back(*variable);
  }
  clearenv();  // NOLINT(concurrency-mt-unsafe): there is one thread
  for (const std::string& variable : kept) {
    const std::size_t end = variable.find('=');
    setenv(variable.substr(0, end).c_str(), variable.c_str() + end + 1, 1);  // NOLINT(concurrency-mt-unsafe)
  }
}

// A process can type into its controlling terminal, whoever started it there. The one that a session began with would
// hang up on all others.
void LeaveTerminal() {
  if (getsid(0) == getpid()) return;
  const FileDescriptor terminal(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (terminal.IsOpen()) ioctl(terminal.Number(), TIOCNOTTY);
}

std::string FolderOf(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/') + 1);
  return folder.empty() ? here : folder;
}

}  // namespace

bool IsRoot() {
  return geteuid() == 0;
}

uid_t FolderOwnerOf(const std::string& path) {
  struct stat record = {};
  Check(stat(FolderOf(path).c_str(), &record), "stat");
  return record.st_uid;
}

std::string UserName(uid_t user) {
  return AccountOf(user).name;
}

void Become(uid_t user) {
  if (user == 0) return;
  // The system forgets with the ids that this process is to die with its parent.
  int signal = 0;
  prctl(PR_GET_PDEATHSIG, &signal);
  LeaveTerminal();
  ForgetEnvironment();
  TakeGroups(AccountOf(user));
  TakeUser(user);
  prctl(PR_SET_PDEATHSIG, signal);
}

void BecomeOwnerOf(const std::string& path) {
  if (IsRoot()) Become(FolderOwnerOf(path));
}

std::string EnterFolderOf(const std::string& path) {
  const FileDescriptor folder(open(FolderOf(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat record = {};
  if (!folder.IsOpen()) Fail("open");
  Check(fstat(folder.Number(), &record), "fstat");
  if (record.st_uid != geteuid()) {
    errno = EPERM;
    Fail("it belongs to another user");
  }
  Check(fchdir(folder.Number()), "fchdir");
  return here + BaseName(path);
}

std::string PathFromOutside(const std::string& found, const std::string& path) {
  return found.compare(0, 2, here) == 0 ? FolderOf(path) + found.substr(2) : found;
}

}  // namespace tavithumb::apps
