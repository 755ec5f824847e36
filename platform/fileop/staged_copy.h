// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "common/descriptor.h"

namespace tavi {

// A path cut before its last name, which keeps slashes at its end. `folder` ends with a slash.
struct Location {
  explicit Location(const std::string& path);

  std::string folder;
  std::string name;
};

// A copy under a temporary name next to its destination, where destructors leave nothing but finished files. All
// functions return false with errno set when they fail.
class StagedCopy {
 public:
  explicit StagedCopy(const Location& destination);
  ~StagedCopy();
  StagedCopy(const StagedCopy&) = delete;
  StagedCopy& operator=(const StagedCopy&) = delete;

  // Copies data and attributes of the regular file `source`.
  bool Fill(const char* source);

  // Replaces the destination; when it fails, the destination is as it was.
  bool Publish();

  // The same, but until this object's end Withdraw() brings back what was there before. Elsewhere than on volumes that
  // exchange names or have hard links, there is no destination for a moment.
  bool PublishRevocably();
  void Withdraw();

 private:
  bool Create();
  bool RenameTo(const std::string& from, const std::string& to) const;
  void Remove(const std::string& name) const;
  bool Exchange();
  bool SetAside();

  Descriptor folder_;
  std::string name_;
  std::string staged_;
  std::string replaced_;  // the temporary name of what was there before; "" when nothing was
  Descriptor file_;
};

}  // namespace tavi
