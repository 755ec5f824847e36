// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tavithumb::proof {

// A type of system call, with all its names, and how it fails. `temporary` failures happen once, never indefinitely.
struct Call {
  const char* name;
  std::vector<const char*> systemCalls;
  std::vector<int> errors;
  std::vector<int> temporary;
};

// The `first`-th to `last`-th call of a type fail, counted from 1.
struct Fault {
  std::size_t call = 0;
  int error = 0;
  unsigned first = 0;
  unsigned last = 0;
};

struct Ending {
  bool inTime = true;
  int status = -1;               // of waitpid
  std::vector<unsigned> counts;  // calls of each type
};

// Runs `body` in a child process whose own system calls, not those of the programs that it runs, are counted, and fail
// in the kernel itself. `body` sets the flag that it is given while this applies.
class Injector {
 public:
  explicit Injector(std::vector<Call> calls);

  Ending Run(const Fault& fault, const std::function<void(volatile bool* armed)>& body);
  const std::vector<Call>& Calls() const { return calls_; }

 private:
  std::vector<Call> calls_;
};

}  // namespace tavithumb::proof
