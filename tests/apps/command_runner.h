// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>
#include <preload.h>
#include <sys/types.h>
#include <temp_dir.h>

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace tavithumb::test {

// A user who owns nothing here.
constexpr uid_t kNobody = 65534;

// How the command is started, if not as usual.
struct Start {
  std::string folder = "/";
  std::string input = "/dev/null";
  std::string output;                    // instead of a file of the runner's: /dev/full
  int outputDescriptor = -1;             // the same, an open one
  int terminal = -1;                     // an open one that accepts all output
  bool closesOutput = false;             // no standard output at all
  uid_t user = 0;                        // not 0: runs as this user, for which the test must be root
  std::vector<std::string> environment;  // "NAME=value"
};

inline Start In(const std::string& folder) {
  Start start;
  start.folder = folder;
  return start;
}

inline Start As(uid_t user) {
  Start start;
  start.user = user;
  return start;
}

struct Outcome {
  std::string out;
  std::string err;
  int code;  // more than 128 for a signal, as shells report it
  pid_t process;
};

inline std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
  return stream << "code " << outcome.code << "\nstdout:\n" << outcome.out << "stderr:\n" << outcome.err;
}

class CommandRunner {
 public:
  // Why the command can't run as another user here; "" if it can.
  static std::string WhyNotAs(uid_t user);

  // Runs the command until it exits.
  Outcome operator()(const std::vector<std::string>& arguments, const Start& start = {}) const;

  // The same in two steps; one at a time.
  pid_t Begin(std::vector<std::string> arguments, const Start& start = {}) const;
  std::string ErrorsSoFar() const;
  Outcome Await(pid_t child) const;

 private:
  int OpenOutput(const Start& start) const;
  [[noreturn]] void Exec(const std::vector<std::string>& arguments, const Start& start) const;

  TempDir files_;
};

// Where the platform's stand-ins store the thumbnails of `source`.
inline std::string EntryOf(const std::string& source, const std::string& entry) {
  const std::size_t slash = source.rfind('/');
  return source.substr(0, slash) + "/.tavi_ea" + source.substr(slash) + "/" + entry;
}

// The name of a stored thumbnail of size medium.
constexpr char kMediumJpeg[] = "TAVIFILE_THUMB_M.jpg";

// The objects of JSON output, one per line, without the milliseconds, which are checked to be a number.
std::vector<nlohmann::json> ObjectsOf(const std::string& output);

// The answer of `tavithumb get --json OPTIONS... SOURCE`, which must succeed and print no errors.
nlohmann::json AnswerOfGet(const CommandRunner& run, const std::vector<std::string>& options, const std::string& source,
                           const Start& start);

}  // namespace tavithumb::test
