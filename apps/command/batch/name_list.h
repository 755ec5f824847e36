// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "system/file_descriptor.h"
#include "thumbs/reasons.h"

namespace tavithumb::apps::command {

// Names that come from a file or a pipe, each with a separator behind it, which the last may lack. Empty ones are none.
class NameList {
 public:
  // "-" is standard input. Throws std::invalid_argument with a sentence for people when it can't be opened.
  NameList(const std::string& path, char separator);

  // Waits until there is something to read, and adds the names in it to `names`; or comes to the end, and tells why
  // when it had to.
  std::optional<Problem> Read(std::deque<std::string>* names);

  bool HasEnded() const { return hasEnded_; }
  int Descriptor() const { return file_.Number(); }
  const std::string& Name() const { return name_; }

 private:
  std::optional<Problem> Break(const std::string& reason, const std::string& remedy);
  void TakeName(std::string name, std::deque<std::string>* names);

  std::string name_;
  FileDescriptor file_;
  char separator_;
  std::string rest_;  // the beginning of a name
  bool hasEnded_ = false;
};

}  // namespace tavithumb::apps::command
