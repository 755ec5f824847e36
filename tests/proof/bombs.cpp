// SPDX-License-Identifier: GPL-3.0-or-later
// Gives bombs to a process that has loaded the library, to the command, and to the web program: all of them reject a
// file or finish within the limits of docs/serving.md, and the process with the library stays small, whatever its tools
// use. Only Exiv2 can make it large, with blocks that it reads as a whole; the programs limit what it may read.
// bombs quick|full PROGRAMS
#include <fcntl.h>
#include <sys/wait.h>
#include <tavithumb/libtavithumb.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bomb_files.h"
#include "private_tmp.h"
#include "program.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace tavithumb::proof {
namespace {

// The same as in the web program.
constexpr Limits kLimits = {20, TOOL_MEMORY, 1024};
constexpr unsigned kMostCallerMiB = 64;
constexpr int kDeadline = 30;
// Added to a deadline for a loaded machine.
constexpr double kPatience = 60;

unsigned PeakMiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return static_cast<unsigned>(std::stoul(line.substr(6)) / 1024);
  }
  throw std::runtime_error("no VmHWM");
}

// The peak memory of a process that asks the library for a thumbnail. Throws if it did not survive.
unsigned PeakOfCaller(const std::string& source) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("pipe");
  const pid_t child = fork();
  if (child == 0) {
    Enter(kLimits);
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    try {
      Thumb(source, Thumb::OPT_BROVIX_EA | Thumb::OPT_ENABLE_GIF, false).CalcOutputFile("small");
    } catch (const std::exception&) {
    }
    const unsigned peak = PeakMiB();
    _exit(write(ends[1], &peak, sizeof peak) == sizeof peak ? 0 : 1);
  }
  close(ends[1]);
  unsigned peak = 0;
  const bool survived = read(ends[0], &peak, sizeof peak) == sizeof peak;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (!survived) throw std::runtime_error("the caller died");
  return peak;
}

// "" if the command has answered, or has printed one line with the reason.
std::string FlawOfCommand(const Run& run) {
  const bool answered = run.code == 0 && run.err.empty() && std::count(run.out.begin(), run.out.end(), '\n') == 1;
  const bool refused = run.code == 1 && run.out.empty() && std::count(run.err.begin(), run.err.end(), '\n') == 1 &&
                       run.err.rfind("tavithumb: ", 0) == 0;
  return answered || refused ? "" : "the command ended with " + std::to_string(run.code) + ": " + run.out + run.err;
}

// "" if it has written a picture and nothing else, or has printed one line with the reason.
std::string FlawOfRendering(const Run& run, const std::string& out) {
  const bool answered = run.code == 0 && run.out.empty() && run.err.empty() && test::Exists(out);
  const bool refused = run.code == 1 && run.out.empty() && std::count(run.err.begin(), run.err.end(), '\n') == 1 &&
                       run.err.rfind("tavithumb: ", 0) == 0 && !test::Exists(out);
  return answered || refused ? "" : "render ended with " + std::to_string(run.code) + ": " + run.out + run.err;
}

// It reports that the file failed, or makes its thumbnails, within the limits of one file.
std::string FlawOfBatch(const Run& run) {
  if (run.code != 0 && run.code != 1) return "make ended with " + std::to_string(run.code) + ": " + run.err;
  return run.seconds > kDeadline + kPatience ? "make took " + std::to_string(run.seconds) + " s" : "";
}

// The status of a response; 0 if there is none.
int StatusOf(const std::string& response) {
  if (response.rfind("Status: ", 0) == 0) return std::atoi(response.c_str() + std::strlen("Status: "));
  return response.empty() ? 0 : 200;
}

std::string FlawOfWebProgram(const Run& run) {
  const int status = StatusOf(run.out);
  const std::vector<int> documented = {200, 422, 500, 503, 504};
  if (std::count(documented.begin(), documented.end(), status) != 1) {
    return "the web program's status is " + std::to_string(status) + ": " + run.err;
  }
  if (run.seconds > kDeadline + kPatience) return "the web program took " + std::to_string(run.seconds) + " s";
  std::fprintf(stderr, "    web: %d after %.1f s\n", status, run.seconds);
  return "";
}

// Files that no program may leave behind. A convert that is killed leaves its own in /tmp if its caller has not given
// it another folder.
std::string Leftovers() {
  std::string left;
  for (const std::string& path : test::TemporaryFiles()) left += path + " ";
  for (const std::string& name : test::Names("/tmp")) {
    if (name.rfind("tavithumb-web.", 0) == 0) left += name + " ";
  }
  return left;
}

class Proof {
 public:
  explicit Proof(std::string programs) : programs_(std::move(programs)) {}

  // A description of the failure; "" if there is none.
  std::string Try(const Bomb& bomb) {
    const test::TempDir folder;
    const std::string source = folder / (std::string("bomb.") + bomb.extension);
    bomb.make(source);
    const unsigned peak = PeakOfCaller(source);
    std::fprintf(stderr, "%s: caller %u MiB\n", bomb.name, peak);
    Peak* const most = bomb.fillsExiv2 ? &byExiv2_ : &callers_;
    most->Take(peak);
    if (!bomb.fillsExiv2 && peak > kMostCallerMiB) return "the caller grew";
    fs::remove_all(folder / ".tavi_ea");
    const Run get = RunCommand({"get", "--size", "small", source});
    fs::remove_all(folder / ".tavi_ea");
    const Run byLibrary = RunCommand({"get", "--size", "small", "--library", source});
    fs::remove_all(folder / ".tavi_ea");
    const Run render = RunCommand({"render", "--size", "small", source, folder / "out.png"});
    const Run make = RunCommand({"make", "--eager", source});  // its time is measured
    makers_.Take(make.peakMiB);
    std::fprintf(stderr, "    make: %d with %u MiB after %.1f s\n", make.code, make.peakMiB, make.seconds);
    fs::remove_all(folder / ".tavi_ea");
    const Run web = RunWebProgram(source);
    std::string flaw = FlawOfCommand(get) + FlawOfCommand(byLibrary) + FlawOfRendering(render, folder / "out.png") +
                       FlawOfBatch(make) + FlawOfWebProgram(web);
    if (bomb.fillsExiv2) {
      flaw += FlawOfRefusal(get, 1) + FlawOfRefusal(web, 0) + FlawOfRefusal(RunCommand({"info", source}), 1) +
              FlawOfRefusal(byLibrary, 1) + FlawOfRefusal(make, 1) + FlawOfRefusal(render, 1);
    }
    return flaw + Leftovers();
  }

  void Print() const {
    std::printf("bombs: peak memory of the process that has loaded the library, MiB\t%u\t%u bombs\n", callers_.most,
                callers_.count);
    std::printf("the same where Exiv2 takes a block of 300 MB as a whole, MiB\t%u\t%u bombs\n", byExiv2_.most,
                byExiv2_.count);
    std::printf(
        "the command while it makes all sizes, and the tools that it falls back to: peak memory, MiB\t%u\t%u bombs\n",
        makers_.most, makers_.count);
    std::printf("programs that refuse such a block: peak memory, MiB\t%u\t%u runs\n", programPeaks_.most,
                programPeaks_.count);
  }

 private:
  struct Peak {
    unsigned most = 0, count = 0;
    void Take(unsigned peak) {
      most = std::max(most, peak);
      ++count;
    }
  };

  Run RunCommand(std::vector<std::string> words) const {
    words.insert(words.begin(), programs_ + "/tavithumb");
    return RunProgram(words, {}, kLimits);
  }

  Run RunWebProgram(const std::string& source) const {
    const fs::path path(source);
    return RunProgram({programs_ + "/tavithumb-web", "--tool-memory", std::to_string(TOOL_MEMORY), "--deadline",
                       std::to_string(kDeadline), "--root", path.parent_path()},
                      {"GATEWAY_INTERFACE=CGI/1.1", "REQUEST_METHOD=GET",
                       "REQUEST_URI=/thumb/" + path.filename().string() + "?size=small&animate=1"});
  }

  // "" if a program has rejected the source for its metadata, and has stayed small.
  std::string FlawOfRefusal(const Run& run, int code) {
    programPeaks_.Take(run.peakMiB);
    const bool saysWhy = (run.out + run.err).find("its metadata takes too much memory") != std::string::npos;
    if (run.code != code || !saysWhy) return "a program did not reject it: " + run.out + run.err;
    return run.peakMiB <= kMostCallerMiB ? "" : "a program grew to " + std::to_string(run.peakMiB) + " MiB";
  }

  const std::string programs_;
  Peak callers_, byExiv2_, makers_, programPeaks_;
};

bool Prove(bool isFull, const std::string& programs) {
  Proof proof(programs);
  unsigned bombs = 0, flaws = 0;
  for (const Bomb& bomb : Bombs()) {
    if (!isFull && !bomb.isQuick) continue;
    ++bombs;
    const std::string flaw = proof.Try(bomb);
    if (flaw.empty()) continue;
    ++flaws;
    std::fprintf(stderr, "%s: %s\n", bomb.name, flaw.c_str());
  }
  proof.Print();
  std::printf("bombs that the command or the web program neither answers nor refuses within its limits\t%u\t%u bombs\n",
              flaws, bombs);
  return flaws == 0;
}

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  if (TOOL_MEMORY == 0) {
    std::fprintf(stderr, "a sanitizer needs more address space than any limit leaves, and without one bombs go off\n");
    return 77;
  }
  tavithumb::proof::EnterPrivateTmp();
  return tavithumb::proof::Prove(std::strcmp(argv[1], "full") == 0, argv[2]) ? 0 : 1;
}
