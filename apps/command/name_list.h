// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "system/file_descriptor.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// Names read from a file or a pipe, each terminated by a separator, which may be missing after the last one.
class NameList {
 public:
  // "-" is standard input. Throws std::invalid_argument with a message for people if it can't be opened.
  NameList(const std::string& path, char separator);

  // Blocks until input is available, and appends its names to `names`. Returns a problem if the rest of the list can't
  // be read; the list has ended then.
  std::optional<Problem> Read(std::deque<std::string>* names);

  bool HasEnded() const { return hasEnded_; }
  int Descriptor() const { return file_.Number(); }
  const std::string& Name() const { return name_; }

 private:
  std::optional<Problem> Fail(const std::string& reason, const std::string& remedy);

  std::string name_;
  FileDescriptor file_;
  char separator_;
  std::string rest_;  // the start of an unfinished name
  bool hasEnded_ = false;
};

}  // namespace tavithumb::apps::command
