// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "system/file_descriptor.h"

namespace tavithumb::apps {

// Which files a process that reads what attackers may have written can still access. Created with the rules, entered by
// the process or by its children. On a kernel without Landlock nothing is restricted.
class FileRules {
 public:
  enum class Access {
    kRead,
    kRun,    // and read
    kUse,    // read and write, but create and remove nothing
    kStore,  // read, write, create, move and remove
  };

  FileRules();

  // Allows a file, or a folder with everything below; nothing if it does not exist.
  void Allow(const std::string& path, Access access) const;

  // Allows what every process needs: the system's programs, libraries and settings, its devices, and to read /proc.
  void AllowSystem() const;

  // From now on, this process and everything that it starts can access no other files, not even through links, and gain
  // no privileges. Throws std::system_error if a kernel with Landlock fails to enforce the rules.
  void Enter() const;

 private:
  FileDescriptor rules_;
};

}  // namespace tavithumb::apps
