// SPDX-License-Identifier: GPL-3.0-or-later
#include "fake_libc.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <ostream>

// The linker redirects each of these calls to here (-Wl,--wrap=NAME), see tests/CMakeLists.txt.
extern "C" {
int __real_access(const char*, int);
int __real_rename(const char*, const char*);
int __real_chmod(const char*, mode_t);
int __real_chown(const char*, uid_t, gid_t);
int __real_utime(const char*, const utimbuf*);
int __real_stat64(const char*, struct stat64*);
int __real_unlink(const char*);
int __real_getpwnam_r(const char*, passwd*, char*, size_t, passwd**);
int __real_setresuid(uid_t, uid_t, uid_t);
int __real_setresgid(gid_t, gid_t, gid_t);
uid_t __real_geteuid();
gid_t __real_getegid();
long __real_sysconf(int);
time_t __real_time(time_t*);
pid_t __real_getpid();
int __real_rand();
std::FILE* __real_fopen(const char*, const char*);
ssize_t __real_read(int, void*, size_t);
ssize_t __real_write(int, const void*, size_t);
}

namespace tavithumb::test {
namespace {

FakeLibc* currentLibc = nullptr;
CapturedLog* currentLog = nullptr;

template <typename Fake, typename Real, typename... Arguments>
auto Call(Fake FakeLibc::*fake, Real real, Arguments... arguments) {
  if (currentLibc != nullptr && currentLibc->*fake) return (currentLibc->*fake)(arguments...);
  return real(arguments...);
}

__attribute__((format(printf, 2, 0))) void Log(int priority, const char* format, va_list arguments) {
  if (currentLog == nullptr) return vsyslog(priority, format, arguments);
  char text[16384];
  std::vsnprintf(text, sizeof text, format, arguments);
  currentLog->lines.push_back({priority, text});
}

}  // namespace

FakeLibc::FakeLibc() {
  currentLibc = this;
}
FakeLibc::~FakeLibc() {
  currentLibc = nullptr;
}
FakeLibc* FakeLibc::Current() {
  return currentLibc;
}

int RealRename(const char* from, const char* to) {
  return __real_rename(from, to);
}
int RealUnlink(const char* path) {
  return __real_unlink(path);
}
int RealStat64(const char* path, struct stat64* record) {
  return __real_stat64(path, record);
}
int RealUtime(const char* path, const utimbuf* times) {
  return __real_utime(path, times);
}
ssize_t RealRead(int descriptor, void* data, size_t size) {
  return __real_read(descriptor, data, size);
}

bool operator==(const LogLine& a, const LogLine& b) {
  return a.priority == b.priority && a.text == b.text;
}
std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << "<" << line.priority << ">" << line.text;
}

CapturedLog::CapturedLog() {
  currentLog = this;
}
CapturedLog::~CapturedLog() {
  currentLog = nullptr;
}

std::vector<std::string> CapturedLog::Texts() const {
  std::vector<std::string> texts;
  for (const LogLine& line : lines) texts.push_back(line.text);
  return texts;
}

extern "C" {
int __wrap_access(const char* path, int mode) {
  return Call(&FakeLibc::access, __real_access, path, mode);
}
int __wrap_rename(const char* from, const char* to) {
  return Call(&FakeLibc::rename, __real_rename, from, to);
}
int __wrap_chmod(const char* path, mode_t mode) {
  return Call(&FakeLibc::chmod, __real_chmod, path, mode);
}
int __wrap_chown(const char* path, uid_t user, gid_t group) {
  return Call(&FakeLibc::chown, __real_chown, path, user, group);
}
int __wrap_utime(const char* path, const utimbuf* times) {
  return Call(&FakeLibc::utime, __real_utime, path, times);
}
int __wrap_stat64(const char* path, struct stat64* record) {
  return Call(&FakeLibc::stat64, __real_stat64, path, record);
}
int __wrap_unlink(const char* path) {
  return Call(&FakeLibc::unlink, __real_unlink, path);
}
int __wrap_getpwnam_r(const char* name, passwd* entry, char* buffer, size_t size, passwd** result) {
  return Call(&FakeLibc::getpwnam_r, __real_getpwnam_r, name, entry, buffer, size, result);
}
int __wrap_setresuid(uid_t real, uid_t effective, uid_t saved) {
  return Call(&FakeLibc::setresuid, __real_setresuid, real, effective, saved);
}
int __wrap_setresgid(gid_t real, gid_t effective, gid_t saved) {
  return Call(&FakeLibc::setresgid, __real_setresgid, real, effective, saved);
}
uid_t __wrap_geteuid() {
  return Call(&FakeLibc::geteuid, __real_geteuid);
}
gid_t __wrap_getegid() {
  return Call(&FakeLibc::getegid, __real_getegid);
}
long __wrap_sysconf(int name) {
  return Call(&FakeLibc::sysconf, __real_sysconf, name);
}
time_t __wrap_time(time_t* result) {
  const time_t now = currentLibc != nullptr && currentLibc->time ? currentLibc->time() : __real_time(nullptr);
  if (result != nullptr) *result = now;
  return now;
}
pid_t __wrap_getpid() {
  return Call(&FakeLibc::getpid, __real_getpid);
}
int __wrap_rand() {
  return Call(&FakeLibc::rand, __real_rand);
}
std::FILE* __wrap_fopen(const char* path, const char* mode) {
  return Call(&FakeLibc::fopen, __real_fopen, path, mode);
}
ssize_t __wrap_read(int descriptor, void* data, size_t size) {
  return Call(&FakeLibc::read, __real_read, descriptor, data, size);
}
ssize_t __wrap_write(int descriptor, const void* data, size_t size) {
  return Call(&FakeLibc::write, __real_write, descriptor, data, size);
}

__attribute__((format(printf, 2, 3))) void __wrap_syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Log(priority, format, arguments);
  va_end(arguments);
}
// What a call of syslog is compiled to in a hardened build.
__attribute__((format(printf, 3, 4))) void __wrap___syslog_chk(int priority, int /*flag*/, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Log(priority, format, arguments);
  va_end(arguments);
}
}

}  // namespace tavithumb::test
