// SPDX-License-Identifier: GPL-3.0-or-later
// Many requests in one process, of all types, valid and invalid; and many threads.
// many_jobs jobs|threads|ids quick|full
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <tavithumb/error.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "jobs.h"
#include "private_tmp.h"
#include "process.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace {

constexpr uid_t kUser = 12345;
constexpr uid_t kUnseen = static_cast<uid_t>(-1);

// A save that gives a thumbnail to root waits there until another thread has read its user.
std::atomic<bool> awaitsLook{false};
std::atomic<bool> isInSave{false};
std::atomic<uid_t> seen{kUnseen};

using Chown = int (*)(const char*, uid_t, gid_t);

}  // namespace

// Replaces the C library's.
extern "C" __attribute__((visibility("default"))) int chown(const char* path, uid_t user, gid_t group) {
  static const auto real = reinterpret_cast<Chown>(dlsym(RTLD_NEXT, "chown"));
  if (awaitsLook) {
    isInSave = true;
    while (seen == kUnseen) std::this_thread::yield();
  }
  return real(path, user, group);
}

namespace tavithumb::proof {
namespace {

constexpr unsigned kSettled = 1000;
constexpr long kGrowthAllowed = 1024;  // KiB
constexpr std::size_t kThreads = 8;
constexpr bool kKeepsFreedMemory = PROOF_IS_SANITIZED;

std::string Answer(const Kind& kind, const std::string& source) {
  try {
    return kind.ask(source);
  } catch (const Error&) {
    return "";
  }
}

// KiB.
long ResidentMemory() {
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Two jobs that make a new thumbnail; one that finds a stored one; and one whose source does not exist.
void RunJob(const Kind& kind, const Source& source, const std::string& broken, unsigned number) {
  const bool isBroken = number % 4 == 3;
  const bool isStored = number % 4 == 2 && kind.prepare == nullptr;
  if (!isBroken && !isStored) source.Reset();
  const bool isAnswered = !Answer(kind, isBroken ? broken : source.Path()).empty();
  Require(isAnswered != isBroken, (isBroken ? "an answer for a text: " : "no answer: ") + std::string(kind.name));
  for (const std::string& path : test::TemporaryFiles()) fs::remove(path);  // answers that the caller deletes
}

// The types that leave nothing open in their process.
std::vector<const Kind*> LastingKinds() {
  std::vector<const Kind*> kinds;
  for (const Kind& kind : Kinds()) {
    if (!kind.leavesPipe) kinds.push_back(&kind);
  }
  return kinds;
}

struct Growth {
  long settled = 0;
  long most = 0;
};

void RunJobs(unsigned jobs, std::FILE* rows) {
  const test::TempDir folder;
  const std::vector<const Kind*> kinds = LastingKinds();
  std::vector<Source> sources;
  for (const Kind* kind : kinds) sources.emplace_back(folder / kind->name, *kind);
  const std::string broken = folder / "broken.jpg";
  test::WriteFile(broken, "a text that is long enough for a picture");
  const std::size_t descriptors = OpenDescriptors();
  Growth growth;
  for (unsigned job = 0; job < jobs; ++job) {
    const std::size_t turn = job / 4 % kinds.size();
    RunJob(*kinds[turn], sources[turn], broken, job);
    Require(!HasChildren(), std::string("a child is left by ") + kinds[turn]->name);
    Require(OpenDescriptors() == descriptors, std::string("a descriptor is left by ") + kinds[turn]->name);
    if (job == kSettled) growth.settled = ResidentMemory();
    if (job >= kSettled) growth.most = std::max(growth.most, ResidentMemory());
  }
  const long grown = growth.most - growth.settled;
  Require(kKeepsFreedMemory || grown < kGrowthAllowed, "grown by " + std::to_string(grown) + " KiB");
  std::fprintf(rows, "mixed jobs in one process: children and descriptors left by any\t0\t%u jobs\n", jobs);
  if (jobs > kSettled) {
    std::fprintf(rows, "mixed jobs in one process: most resident memory, over that after %u jobs\t%ld KiB\t%u jobs\n",
                 kSettled, grown, jobs);
  }
}

void RunThreads(unsigned rounds, std::FILE* rows) {
  const test::TempDir folder;
  std::vector<Source> sources;
  for (std::size_t i = 0; i < kThreads; ++i) sources.emplace_back(folder / Kinds()[i].name, Kinds()[i]);
  std::atomic<unsigned> failures{0};
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      for (unsigned round = 0; round < rounds; ++round) {
        sources[i].Reset();
        if (Answer(Kinds()[i], sources[i].Path()).empty()) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  Require(failures == 0, std::to_string(failures) + " jobs without an answer");
  Require(!HasChildren(), "a child is left by threads");
  std::fprintf(rows, "%zu threads with a job each, of different kinds: jobs without an answer%s\t0\t%u rounds\n",
               kThreads,
#if defined(__SANITIZE_THREAD__)
               ", reports of ThreadSanitizer",
#else
               "",
#endif
               rounds);
}

// The user that another thread sees while this one saves.
void ShowIdsDuringSave(std::FILE* rows) {
  const test::TempDir folder;
  fs::permissions(folder.Path(), fs::perms(0755));
  const Source source(folder / "a", Kinds().front());
  source.Reset();
  source.GiveTo(kUser, 0);
  Require(seteuid(kUser) == 0, "seteuid");
  awaitsLook = true;
  std::thread other([] {
    while (!isInSave) std::this_thread::yield();
    seen = geteuid();
  });
  const std::string path = Answer(Kinds().front(), source.Path());
  awaitsLook = false;
  other.join();
  const uid_t after = geteuid();
  Require(seteuid(0) == 0, "seteuid");
  Require(!path.empty() && after == kUser, "the user is not given back");
  Require(seen == 0, "another thread sees user " + std::to_string(seen));
  std::fprintf(
      rows, "effective user that other threads of a process of user %u have during a save, as documented\t%u\t1 save\n",
      kUser, seen.load());
}

// Rows go to the current standard output; what jobs deliver is discarded.
std::FILE* OpenRows() {
  std::FILE* const rows = fdopen(dup(STDOUT_FILENO), "w");
  Redirect({STDOUT_FILENO}, "/dev/null");
  return rows;
}

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  using namespace tavithumb::proof;
  const bool isFull = std::strcmp(argv[2], "full") == 0;
  const std::string part = argv[1];
  EnterPrivateTmp();
  std::FILE* const rows = OpenRows();
  try {
    if (part == "jobs") RunJobs(isFull ? 10000 : 300, rows);
    if (part == "threads") RunThreads(isFull ? 1000 : 5, rows);
    if (part == "ids") ShowIdsDuringSave(rows);
    std::fclose(rows);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "many-jobs, %s: %s\n", argv[1], exception.what());
    return 1;
  }
  return 0;
}
