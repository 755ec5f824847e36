// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace tavithumb::test {

// One call of a platform function: its name and its arguments as text, numbers in decimal, an argument vector (or
// list) appended to the others without its terminating null pointer.
using PlatformCall = std::vector<std::string>;

// The platform's four libraries for tests: every call is recorded in order, nothing is run, and each result can be
// set. One at a time; without one, a platform call aborts the test program.
class RecordingPlatform {
 public:
  // EA entries are at `eaRoot`/<source's base name>/<EA name>; nothing is created.
  explicit RecordingPlatform(std::string eaRoot = "/ea");
  ~RecordingPlatform();
  RecordingPlatform(const RecordingPlatform&) = delete;
  RecordingPlatform& operator=(const RecordingPlatform&) = delete;

  static RecordingPlatform& Current();

  std::vector<PlatformCall> calls;
  // The calls of one function.
  std::vector<PlatformCall> Calls(const std::string& function) const;

  std::string eaRoot;
  bool hasEAPath = true;        // false: TAVIEAPath and TAVIEADirPath fail
  int makeEADirResult = 0;      // TAVIEAMKDir
  bool makeEADirOnDisk = true;  // TAVIEAMKDir creates the directory if its result is 0
  int fsType = 1;               // TAVIGetFSType; -1 with errno below
  int fsTypeErrno = 0;
  int remoteFSType = 2;
  int imageFSType = 3;
  int fileCopyResult = 0;

  // TLIBCExecv and TLIBCExecl (with `argv` complete, argument 0 included); default: 0.
  std::function<int(const std::string& path, const std::vector<std::string>& argv)> run;
  // TLIBCTakesNamesLiterally; default: yes.
  bool takesNamesLiterally = true;
  // TLIBCPopenv; default: an empty stream. Opened streams are closed by TLIBCPclose.
  std::function<std::FILE*(const std::string& path, const std::vector<std::string>& argv)> open;
  // Both overloads of HTTPFileOutputer::Output; default: 0. The overload with a stream is recorded without reading the
  // stream's content.
  int outputResult = 0;
  // Called at each Output, to look at standard output at that moment.
  std::function<void()> onOutput;

  // The streams that were returned and those that were closed again.
  std::vector<std::FILE*> opened;
  std::vector<std::FILE*> closed;
};

// A stream that contains `content`.
std::FILE* StreamOf(const std::string& content);

}  // namespace tavithumb::test
