// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "common/descriptor.h"

namespace tavi {

// A path split before its last name, which keeps trailing slashes. `folder` ends with a slash.
struct Location {
  explicit Location(const std::string& path);

  std::string folder;
  std::string name;
};

// A copy under a temporary name next to its destination; the destructor removes it unless it was published. All
// functions that return bool return false with errno set on failure.
class StagedCopy {
 public:
  explicit StagedCopy(const Location& destination);
  ~StagedCopy();
  StagedCopy(const StagedCopy&) = delete;
  StagedCopy& operator=(const StagedCopy&) = delete;

  // Copies data and attributes of the regular file `source`.
  bool Fill(const char* source);

  // Replaces the destination, which is unchanged after a failure.
  bool Publish();

  // The same, but until this object is destroyed Withdraw() restores the previous destination. On a volume that can
  // neither exchange names nor make hard links, the destination is briefly missing.
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
  std::string replaced_;  // temporary name of the previous destination; "" if there was none
  Descriptor file_;
};

}  // namespace tavi
