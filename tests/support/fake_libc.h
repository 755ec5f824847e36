// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <pwd.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <utime.h>

#include <cstdio>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace tavithumb::test {

// While it lives, the C library calls of the code under test go through the functions that are set here; the others
// reach the real C library. A failing call sets errno and returns what the real one would. One at a time.
// Calls made inside shared libraries (Exiv2, libheif, libstdc++) are not seen.
class FakeLibc {
 public:
  FakeLibc();
  ~FakeLibc();
  FakeLibc(const FakeLibc&) = delete;
  FakeLibc& operator=(const FakeLibc&) = delete;

  static FakeLibc* Current();

  std::function<int(const char* path, int mode)> access;
  std::function<int(const char* from, const char* to)> rename;
  std::function<int(const char* path, mode_t mode)> chmod;
  std::function<int(const char* path, uid_t user, gid_t group)> chown;
  std::function<int(const char* path, const utimbuf* times)> utime;
  std::function<int(const char* path, struct stat64* record)> stat64;
  std::function<int(const char* path)> unlink;
  std::function<int(const char* name, passwd* entry, char* buffer, size_t size, passwd** result)> getpwnam_r;
  std::function<int(uid_t real, uid_t effective, uid_t saved)> setresuid;
  std::function<int(gid_t real, gid_t effective, gid_t saved)> setresgid;
  std::function<uid_t()> geteuid;
  std::function<gid_t()> getegid;
  std::function<long(int name)> sysconf;
  std::function<time_t()> time;
  std::function<pid_t()> getpid;
  std::function<int()> rand;
  std::function<std::FILE*(const char* path, const char* mode)> fopen;
  std::function<ssize_t(int descriptor, void* data, size_t size)> read;
  std::function<ssize_t(int descriptor, const void* data, size_t size)> write;
};

// The real calls, for functions above that only watch or change some calls.
int RealRename(const char* from, const char* to);
int RealUnlink(const char* path);
int RealStat64(const char* path, struct stat64* record);
int RealUtime(const char* path, const utimbuf* times);
ssize_t RealRead(int descriptor, void* data, size_t size);

// One line of the system log.
struct LogLine {
  int priority;  // LOG_ERR, LOG_AUTH | LOG_ERR, ...
  std::string text;
};
bool operator==(const LogLine& a, const LogLine& b);
std::ostream& operator<<(std::ostream& out, const LogLine& line);

// While it lives, the system log messages of the code under test are collected here instead. One at a time.
class CapturedLog {
 public:
  CapturedLog();
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  std::vector<LogLine> lines;

  // Only the texts; the caller asserts that each is at LOG_ERR where it matters.
  std::vector<std::string> Texts() const;
};

}  // namespace tavithumb::test
