// SPDX-License-Identifier: GPL-3.0-or-later
// Requests of all types while misbehaving tools replace the real ones: the result is a documented one.
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tavithumb/error.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "jobs.h"
#include "private_tmp.h"
#include "process.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience(120);
constexpr long kMemoryAllowed = 65536;  // KiB, of the caller
constexpr std::initializer_list<const char*> kTools = {"djpeg", "jpegtran", "dcraw", "convert"};

enum class Expected { failure, success, anything };

// How a tool behaves: a script, "" for none; REAL is the real tool's path, SIZE what it prints.
struct Behaviour {
  const char* name;
  std::string script;
  mode_t mode = 0755;
  Expected expected = Expected::failure;
  // It exits with 0, and its output is not a picture.
  bool liesAboutOutput = false;
  bool hangs = false;
};

const std::string kShell = "#!/bin/sh\n";
// The output file of a tool.
const std::string kFindOutput =
    "for output; do [ \"$last\" = -outfile ] && break; last=$output; done\n"
    "case $0 in *dcraw | *jpegtran) output=/dev/stdout ;; esac\n";

const std::vector<Behaviour> kBehaviours = {
    {"are missing", ""},
    {"are not executable", kShell + "exit 0\n", 0644},
    {"are no programs", "exit 0\n"},
    {"fail", kShell + "exit 3\n"},
    {"crash", kShell + "kill -SEGV $$\n"},
    {"crash after they wrote garbage", kShell + kFindOutput + "echo garbage >\"$output\"\nkill -SEGV $$\n"},
    {"hang", kShell + "exec sleep 1000\n", 0755, Expected::failure, false, true},
    {"write nothing and exit with 0", kShell + "exit 0\n", 0755, Expected::anything},
    {"write garbage and exit with 0", kShell + kFindOutput + "echo garbage >\"$output\"\n", 0755, Expected::anything,
     true},
    {"print SIZE bytes, then do their work", kShell + "head -c SIZE /dev/zero\nexec REAL \"$@\"\n", 0755,
     Expected::success},
    {"leave a grandchild, and do their work", kShell + "sleep 2 &\nexec REAL \"$@\"\n", 0755, Expected::success},
};

struct Report {
  bool isDone;
  char answer[PATH_MAX];
  char exception[200];
  long memory;  // KiB
  bool leavesChild;
  std::size_t descriptorsBefore;
  std::size_t descriptorsAfter;
};

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t place = text.find(what);
  return place == std::string::npos ? text : text.replace(place, what.size(), by);
}

void Need(bool done, const char* what) {
  if (done) return;
  std::perror(what);
  std::abort();
}

// In a process with mounts of its own: a /usr/bin with the misbehaving tools, and what scripts need.
void InstallTools(const Behaviour& behaviour, const std::string& real, const std::string& size) {
  Need(unshare(CLONE_NEWNS) == 0, "unshare");
  std::map<std::string, std::string> programs;
  fs::create_directories(real);
  fs::create_directories(real + ".named");
  for (const std::string tool : kTools) {  // ImageMagick 7 is one program: its name selects the tool
    programs[tool] = real + ".named/" + tool;
    std::error_code isThere;
    fs::create_symlink(real + "/" + fs::canonical("/usr/bin/" + tool).filename().string(), programs[tool], isThere);
  }
  Need(mount("/usr/bin", real.c_str(), nullptr, MS_BIND, nullptr) == 0, "mount real tools");
  Need(mount("tools", "/usr/bin", "tmpfs", 0, nullptr) == 0, "mount tools");
  for (const std::string name : {"sh", "sleep", "head", "mv"})
    fs::create_symlink(real + "/" + name, "/usr/bin/" + name);
  if (behaviour.script.empty()) return;
  for (const auto& [tool, program] : programs) {
    test::WriteFile("/usr/bin/" + tool, Replaced(Replaced(behaviour.script, "REAL", program), "SIZE", size));
    Need(chmod(("/usr/bin/" + tool).c_str(), behaviour.mode) == 0, "chmod");
  }
}

void Serve(const Kind& kind, const std::string& source, Report* report) {
  BeSilent();
  report->descriptorsBefore = OpenDescriptors();
  try {
    std::snprintf(report->answer, sizeof report->answer, "%s", kind.ask(source).c_str());
  } catch (const std::exception& exception) {
    std::snprintf(report->exception, sizeof report->exception, "%s", exception.what());
  }
  report->descriptorsAfter = OpenDescriptors();
  report->leavesChild = HasChildren();
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  report->memory = usage.ru_maxrss;
  report->isDone = true;
}

std::vector<pid_t> ChildrenOf(pid_t process) {
  const std::string id = std::to_string(process);
  std::istringstream text(test::ReadFile("/proc/" + id + "/task/" + id + "/children"));
  std::vector<pid_t> children;
  for (pid_t child = 0; text >> child;) children.push_back(child);
  return children;
}

struct Ending {
  bool inTime = false;
  int status = 0;
  unsigned toolsEnded = 0;
};

// Waits for the process. Hanging tools are killed from outside, as by a deadline of the surrounding program.
Ending Await(pid_t process, bool endTools) {
  Ending ending;
  for (const auto end = Clock::now() + kPatience; Clock::now() < end;) {
    if (waitpid(process, &ending.status, WNOHANG) == process) {
      ending.inTime = true;
      return ending;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(endTools ? 200 : 2));
    for (const pid_t tool : endTools ? ChildrenOf(process) : std::vector<pid_t>()) {
      kill(tool, SIGKILL);
      ++ending.toolsEnded;
    }
  }
  kill(process, SIGKILL);
  waitpid(process, &ending.status, 0);
  return ending;
}

bool UsesTools(const Kind& kind) {
  return std::strcmp(kind.name, "preview") != 0 && std::strcmp(kind.name, "ready thumbnail") != 0;
}

struct Tally {
  unsigned requests = 0;
  unsigned wrong = 0;
  unsigned answers = 0;
  unsigned brokenAnswers = 0;
  long memory = 0;
  unsigned toolsEnded = 0;
};

class Proof {
 public:
  explicit Proof(bool isFull) : isFull_(isFull), size_(isFull ? "1073741824" : "16777216") {
    void* const memory = mmap(nullptr, sizeof *report_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    report_ = new (memory) Report();
    for (const Kind& kind : Kinds()) sources_.emplace_back(folder_ / kind.name, kind);
  }

  bool RunAll() {
    bool holds = true;
    for (std::size_t i = 0; i < kBehaviours.size(); ++i) {
      Tally tally;
      for (std::size_t j = 0; j < sources_.size(); ++j) {
        if (isFull_ || (i + j) % 4 == 0) Run(kBehaviours[i], Kinds()[j], sources_[j], &tally);
      }
      Print(kBehaviours[i], tally);
      holds = holds && tally.wrong == 0;
    }
    return holds;
  }

 private:
  void Run(const Behaviour& behaviour, const Kind& kind, const Source& source, Tally* tally) {
    source.Reset();
    for (const std::string& path : test::TemporaryFiles()) fs::remove(path);
    std::memset(static_cast<void*>(report_), 0, sizeof *report_);
    std::fflush(nullptr);
    const pid_t process = fork();
    if (process == 0) {
      InstallTools(behaviour, folder_ / "real", size_);
      Serve(kind, source.Path(), report_);
      _exit(0);
    }
    const Ending ending = Await(process, behaviour.hangs);
    Judge(behaviour, kind, source, ending, tally);
  }

  void Judge(const Behaviour& behaviour, const Kind& kind, const Source& source, const Ending& ending, Tally* tally) {
    ++tally->requests;
    tally->toolsEnded += ending.toolsEnded;
    tally->memory = std::max(tally->memory, report_->memory);
    if (report_->answer[0] != '\0') {
      ++tally->answers;
      if (!pictures_.Holds(report_->answer)) ++tally->brokenAnswers;
    }
    const std::string flaw = Flaw(behaviour, kind, source, ending);
    if (flaw.empty()) return;
    ++tally->wrong;
    std::fprintf(stderr, "%s, tools that %s: %s\n", kind.name, behaviour.name, flaw.c_str());
  }

  std::string Flaw(const Behaviour& behaviour, const Kind& kind, const Source& source, const Ending& ending) {
    if (!ending.inTime) return "it hangs";
    if (!WIFEXITED(ending.status)) return "it died of signal " + std::to_string(WTERMSIG(ending.status));
    if (report_->exception[0] != '\0') return std::string("it throws: ") + report_->exception;
    if (!kind.leavesPipe && report_->leavesChild) return "a child is left";
    if (!kind.leavesPipe && report_->descriptorsAfter != report_->descriptorsBefore) return "a descriptor is left";
    if (!PROOF_IS_SANITIZED && report_->memory > kMemoryAllowed)
      return "it takes " + std::to_string(report_->memory) + " KiB";
    if (!source.IsUntouched()) return "the source was changed";
    const std::string wrong = WrongAnswer(behaviour, kind, source);
    if (!wrong.empty()) return wrong;
    return behaviour.liesAboutOutput ? "" : FlawInEADirectory(source, kind, pictures_);
  }

  // What the exit status alone shows. Nothing checks the data in a pipe, and dcraw's output is the picture.
  std::string WrongAnswer(const Behaviour& behaviour, const Kind& kind, const Source& source) {
    const std::string answer = report_->answer;
    const bool isWhole = !answer.empty() && pictures_.Holds(answer);
    if (!UsesTools(kind)) return isWhole ? "" : "no whole answer without any tool: " + answer;
    if (kind.leavesPipe || behaviour.expected == Expected::anything) return "";
    const bool isNone = answer.empty() || answer == source.Path();  // small JPEGs are served unchanged
    if (behaviour.expected == Expected::failure) return isNone ? "" : "an answer: " + answer;
    const bool isRaw = std::strcmp(kind.name, "raw") == 0;
    return isWhole || (isRaw && answer.empty()) ? "" : "no whole answer: " + answer;
  }

  void Print(const Behaviour& behaviour, const Tally& tally) const {
    std::printf(
        "tools that %s: outcomes not documented\t%u (%u answers, %u of them broken; at most %ld MiB in the caller",
        Replaced(behaviour.name, "SIZE", size_).c_str(), tally.wrong, tally.answers, tally.brokenAnswers,
        tally.memory / 1024);
    if (behaviour.hangs) std::printf("; it waited until %u tools were ended", tally.toolsEnded);
    std::printf(")\t%u requests\n", tally.requests);
  }

  const bool isFull_;
  const std::string size_;
  const test::TempDir folder_;
  std::vector<Source> sources_;
  Report* report_;
  WholePictures pictures_;
};

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  using namespace tavithumb::proof;
  EnterPrivateTmp();
  return Proof(argc > 1 && std::strcmp(argv[1], "full") == 0).RunAll() ? 0 : 1;
}
