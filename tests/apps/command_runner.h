// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <preload.h>
#include <sys/wait.h>
#include <temp_dir.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tavithumb::test {

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
  int code;
  pid_t process;
};

inline std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
  return stream << "code " << outcome.code << "\nstdout:\n" << outcome.out << "stderr:\n" << outcome.err;
}

class CommandRunner {
 public:
  // Why the command can't run as another user here; "" if it can.
  static std::string WhyNotAs(uid_t user) {
    if (geteuid() != 0) return "needs root";
    const pid_t child = fork();
    if (child == 0) {
      Become(user);
      _exit(access(TAVITHUMB_COMMAND, X_OK) == 0 ? 0 : 1);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0 ? "" : "needs a build folder that other users can reach";
  }

  // Runs the command until it exits.
  Outcome operator()(const std::vector<std::string>& arguments, const Start& start = {}) const {
    return Await(Begin(arguments, start));
  }

  // The same in two steps; one at a time.
  pid_t Begin(std::vector<std::string> arguments, const Start& start = {}) const {
    arguments.insert(arguments.begin(), "tavithumb");
    const pid_t child = fork();
    if (child == 0) Exec(arguments, start);
    return child;
  }
  std::string ErrorsSoFar() const { return ReadFile(files_ / "err"); }
  Outcome Await(pid_t child) const {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return {ReadFile(files_ / "out"), ReadFile(files_ / "err"), WIFEXITED(status) ? WEXITSTATUS(status) : -1, child};
  }

 private:
  static int Create(const std::string& path) { return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600); }

  static void Become(uid_t user) {
    if (user == 0) return;
    if (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0) _exit(99);
  }

  int OpenOutput(const Start& start) const {
    if (start.outputDescriptor != -1) return start.outputDescriptor;
    return start.output.empty() ? Create(files_ / "out") : open(start.output.c_str(), O_WRONLY);
  }

  [[noreturn]] void Exec(const std::vector<std::string>& arguments, const Start& start) const {
    dup2(open(start.input.c_str(), O_RDONLY), STDIN_FILENO);
    dup2(start.terminal == -1 ? OpenOutput(start) : start.terminal, STDOUT_FILENO);
    dup2(start.terminal == -1 ? Create(files_ / "err") : start.terminal, STDERR_FILENO);
    if (start.closesOutput) close(STDOUT_FILENO);
    for (const std::string& variable : start.environment) putenv(const_cast<char*>(variable.c_str()));
    std::vector<char*> words;
    for (const std::string& word : arguments) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    if (chdir(start.folder.c_str()) != 0) _exit(98);
    Become(start.user);
    execv(TAVITHUMB_COMMAND, words.data());
    _exit(97);
  }

  TempDir files_;
};

// Where the platform's stand-ins store the thumbnails of `source`.
inline std::string EntryOf(const std::string& source, const std::string& entry) {
  const std::size_t slash = source.rfind('/');
  return source.substr(0, slash) + "/.tavi_ea" + source.substr(slash) + "/" + entry;
}

// The objects of JSON output, one per line, without the milliseconds, which are checked to be a number.
inline std::vector<nlohmann::json> ObjectsOf(const std::string& output) {
  std::vector<nlohmann::json> objects;
  for (std::size_t begin = 0; begin < output.size();) {
    const std::size_t end = output.find('\n', begin);
    if (end == std::string::npos) throw std::runtime_error("no line end: " + output);
    nlohmann::json object = nlohmann::json::parse(output.substr(begin, end - begin));
    if (object.contains("milliseconds")) {
      EXPECT_GE(object.at("milliseconds").get<double>(), 0);
      object.erase("milliseconds");
    }
    objects.push_back(std::move(object));
    begin = end + 1;
  }
  return objects;
}

}  // namespace tavithumb::test
