// SPDX-License-Identifier: GPL-3.0-or-later
#include "command_runner.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace tavithumb::test {
namespace {

int Create(const std::string& path) {
  return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
}

void Become(uid_t user) {
  if (user == 0) return;
  if (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0) _exit(99);
}

int StatusOf(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

}  // namespace

std::string CommandRunner::WhyNotAs(uid_t user) {
  if (geteuid() != 0) return "needs root";
  const pid_t child = fork();
  if (child == 0) {
    Become(user);
    _exit(access(TAVITHUMB_COMMAND, X_OK) == 0 ? 0 : 1);
  }
  return StatusOf(child) == 0 ? "" : "needs a build folder that other users can reach";
}

Outcome CommandRunner::operator()(const std::vector<std::string>& arguments, const Start& start) const {
  return Await(Begin(arguments, start));
}

pid_t CommandRunner::Begin(std::vector<std::string> arguments, const Start& start) const {
  arguments.insert(arguments.begin(), "tavithumb");
  std::filesystem::remove(files_ / "err");  // what an earlier one has written is not its own
  const pid_t child = fork();
  if (child == 0) Exec(arguments, start);
  return child;
}

std::string CommandRunner::ErrorsSoFar() const {
  return ReadFile(files_ / "err");
}

Outcome CommandRunner::Await(pid_t child) const {
  const int status = StatusOf(child);
  return {ReadFile(files_ / "out"), ReadFile(files_ / "err"),
          WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), child};
}

int CommandRunner::OpenOutput(const Start& start) const {
  if (start.outputDescriptor != -1) return start.outputDescriptor;
  return start.output.empty() ? Create(files_ / "out") : open(start.output.c_str(), O_WRONLY);
}

void CommandRunner::Exec(const std::vector<std::string>& arguments, const Start& start) const {
  dup2(open(start.input.c_str(), O_RDONLY), STDIN_FILENO);
  dup2(start.terminal == -1 ? OpenOutput(start) : start.terminal, STDOUT_FILENO);
  dup2(start.terminal == -1 ? Create(files_ / "err") : start.terminal, STDERR_FILENO);
  if (start.closesOutput) close(STDOUT_FILENO);
  setenv("XDG_STATE_HOME", (files_ / "state").c_str(), 1);
  for (const std::string& variable : start.environment) putenv(const_cast<char*>(variable.c_str()));
  std::vector<char*> words;
  for (const std::string& word : arguments) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  if (chdir(start.folder.c_str()) != 0) _exit(98);
  Become(start.user);
  execv(TAVITHUMB_COMMAND, words.data());
  _exit(97);
}

std::vector<nlohmann::json> ObjectsOf(const std::string& output) {
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

nlohmann::json AnswerOfGet(const CommandRunner& run, const std::vector<std::string>& options, const std::string& source,
                           const Start& start) {
  std::vector<std::string> arguments = {"get", "--json"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  arguments.push_back(source);
  const Outcome outcome = run(arguments, start);
  EXPECT_EQ(outcome.code, 0) << outcome;
  EXPECT_EQ(outcome.err, "");
  return ObjectsOf(outcome.out).at(0);
}

}  // namespace tavithumb::test
