// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>

#include "system/clock.h"

namespace tavithumb::apps::command {

// What a source of names has found so far.
struct FoundNames {
  std::size_t count = 0;
  double expectedWork = 0;  // the sum of their ExpectedMilliseconds()
  bool isAll = false;       // no more will be found
};

// Where a run gets the names of its files from, step by step, so that work can start with the first one.
class NameSource {
 public:
  NameSource() = default;
  virtual ~NameSource() = default;
  NameSource(const NameSource&) = delete;
  NameSource& operator=(const NameSource&) = delete;

  // Removes and returns the next file in the queue, if any.
  virtual std::optional<std::string> Next() = 0;
  // Whether all have been found and taken from the queue.
  virtual bool HasEnded() const = 0;
  virtual FoundNames Found() const = 0;

  // How many files were passed over so far: photos that the filter leaves out as "excluded", others by their extension
  // in lower case, "" for none.
  virtual const std::map<std::string, std::size_t>& PassedOver() const = 0;
  // Whether there was a video that is not taken.
  virtual bool HasSkippedVideos() const = 0;

  // Call Step() if CanStep() is true, when Descriptor() is readable, and at NextEvent(). Descriptor() is -1 while there
  // is nothing to wait for.
  virtual bool CanStep() const = 0;
  virtual int Descriptor() const = 0;
  virtual Clock::time_point NextEvent() const { return noDeadline; }
  virtual void Step() = 0;
};

}  // namespace tavithumb::apps::command
