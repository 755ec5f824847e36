// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "system/file_descriptor.h"

namespace tavithumb::apps::web {

using Clock = std::chrono::steady_clock;

// For poll(); the end of all time never comes.
int MillisecondsUntil(Clock::time_point moment);

// What a worker tells the process that started it, in memory that both share.
struct Progress {
  std::atomic<bool> hasAnswered;  // bytes of the response may have been written
  std::array<char, 512> request;  // for the log, ends with a NUL, as the next does
  std::array<char, 64> scratch;   // the folder of its tools' temporary files, as long as there is one

  void SetRequest(const std::string& text);
};

// What a worker is for.
struct Duties {
  // Before it reads anything, with all that the process that forked it has open. May throw: then it dies.
  std::function<void()> enter;
  // Answers one request on standard output, which is the connection, as standard input is; nothing else is open.
  std::function<void(Progress*)> answer;
  // In the process that forked it, after it has died without having come to an end.
  std::function<void(pid_t, const Progress&)> cleanUp;
};

// Answers each request in a process of its own, forked from this one, which is warm. The library writes on standard
// output, leaves a pipe open and changes the ids of its whole process; and a file that crashes a decoder ends that
// process alone. Whatever happens to it, its connection gets an answer.
class Workers {
 public:
  // `maximum` at once, each of them for `deadline` at most.
  Workers(std::size_t maximum, std::chrono::milliseconds deadline, Duties duties);
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  bool HasRoom() const { return workers_.size() < maximum_; }
  bool AreDone() const { return workers_.empty(); }
  void Start(FileDescriptor connection);

  // Ends those past their deadline, with all their tools, and lays to rest those that have ended: to be called after
  // SIGCHLD and when NextEvent() has come.
  void Tend();

  // When Tend() is due next; the end of all time when only SIGCHLD can make it so.
  Clock::time_point NextEvent() const;

  // Makes all of them past their deadline.
  void EndAll();

 private:
  enum class Stage { kRunning, kToldToEnd, kKilled };

  struct Worker {
    pid_t process;
    FileDescriptor connection;
    Progress* progress;
    Stage stage;
    Clock::time_point deadline;  // of this stage
    bool isAbandoned;            // told to end before its time
  };

  [[noreturn]] void Run(int connection, Progress* progress) const noexcept;
  bool Tend(Worker* worker, Clock::time_point now);
  static void PushOn(Worker* worker, Clock::time_point now);
  static void AnswerFor(Worker* worker);
  Progress* TakeProgress();

  std::size_t maximum_;
  std::chrono::milliseconds deadline_;
  Duties duties_;
  Progress* shared_;
  std::vector<Progress*> free_;
  std::list<Worker> workers_;
};

}  // namespace tavithumb::apps::web
