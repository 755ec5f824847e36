// SPDX-License-Identifier: GPL-3.0-or-later
// Makes every system call of a request of each type fail, one after the other, once and from then on, and each of its
// allocations. The result must be a documented one each time.
#include <dlfcn.h>
#include <fcntl.h>
#include <gnu/libc-version.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <syslog.h>
#include <tavithumb/error.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include "failing_malloc.h"
#include "injector.h"
#include "jobs.h"
#include "private_tmp.h"
#include "process.h"
#include "temp_dir.h"

namespace fs = std::filesystem;

namespace {

// What a request's process is doing, for its parent to see; null in the parent itself.
struct Doings {
  volatile bool losesIds;
  volatile bool looksForAccount;
};
Doings* doings = nullptr;

using GetAccount = int (*)(const char*, passwd*, char*, std::size_t, passwd**);
const auto getTrueAccount = reinterpret_cast<GetAccount>(dlsym(RTLD_NEXT, "getpwnam_r"));

}  // namespace

// Replaces the C library's, which aborts the process if its own memory runs out here.
extern "C" __attribute__((visibility("default"))) int getpwnam_r(const char* name, passwd* entry, char* buffer,
                                                                 std::size_t size, passwd** found) {
  if (doings != nullptr) doings->looksForAccount = true;
  const int result = getTrueAccount(name, entry, buffer, size, found);
  if (doings != nullptr) doings->looksForAccount = false;
  return result;
}

// Replaces the C library's: nothing is written to the system's log, and a save that fails to switch its user back is
// noticed.
extern "C" __attribute__((visibility("default"))) void syslog(int priority, const char* /*format*/, ...) {
  if (doings != nullptr && priority == (LOG_AUTH | LOG_CRIT)) doings->losesIds = true;
}
extern "C" __attribute__((visibility("default"))) void __syslog_chk(int priority, int, const char* /*format*/, ...) {
  if (doings != nullptr && priority == (LOG_AUTH | LOG_CRIT)) doings->losesIds = true;
}

namespace tavithumb::proof {
namespace {

constexpr uid_t kUser = 12345;
constexpr gid_t kGroup = 23456;

const std::vector<Call> kCalls = {
    {"open", {"open", "openat"}, {ENOSPC, EIO, EDQUOT, EROFS, EMFILE, ESTALE, EPERM, EACCES, ENOMEM}, {EINTR}},
    {"read", {"read", "pread64", "readv"}, {EIO, ESTALE}, {EINTR}},
    {"rename", {"rename", "renameat", "renameat2"}, {ENOSPC, EIO, EDQUOT, EROFS, ESTALE, EPERM, EACCES, EXDEV}, {}},
    {"unlink", {"unlink", "unlinkat"}, {EIO, EROFS, ESTALE, EPERM, EACCES}, {}},
    {"chmod", {"chmod", "fchmod", "fchmodat"}, {EIO, EROFS, EPERM}, {}},
    {"chown", {"chown", "fchown", "fchownat", "lchown"}, {EIO, EDQUOT, EROFS, EPERM}, {}},
    {"utime", {"utime", "utimes", "utimensat", "futimesat"}, {EIO, EROFS, EPERM, EACCES}, {}},
    {"stat", {"stat", "lstat", "fstat", "newfstatat", "statx"}, {EIO, ESTALE, EACCES, ENOMEM}, {}},
    {"statfs", {"statfs", "fstatfs"}, {EIO, ESTALE, ENOMEM}, {EINTR}},
    {"access", {"access", "faccessat", "faccessat2"}, {EIO, EROFS, ESTALE, EACCES}, {}},
    {"mkdir", {"mkdir", "mkdirat"}, {ENOSPC, EIO, EDQUOT, EROFS, EPERM, EACCES}, {}},
    {"spawn", {"clone", "clone3", "vfork", "fork"}, {EAGAIN, ENOMEM}, {}},
    {"wait", {"wait4", "waitid"}, {}, {EINTR}},
    {"setresuid", {"setresuid"}, {EPERM, EAGAIN}, {}},
    {"setresgid", {"setresgid"}, {EPERM}, {}},
#if !PROOF_IS_SANITIZED
    {"write", {"write", "pwrite64", "writev"}, {ENOSPC, EIO, EDQUOT}, {EINTR}},
    {"pipe", {"pipe", "pipe2"}, {EMFILE}, {}},
    {"mmap", {"mmap", "brk", "mremap"}, {ENOMEM}, {}},
#endif
};

enum Result { kNone, kAnswer, kNothing, kError, kNoMemory, kOther };

// The result of a request, as reported by its process.
struct Report {
  Doings doings;
  Result result;
  int code;
  char text[PATH_MAX];
  bool idsKept;
  std::size_t descriptorsBefore;
  std::size_t descriptorsAfter;
  bool hasChildren;
  unsigned allocations;
};

void Tell(Report* report, Result result, const char* text, int code = 0) {
  report->result = result;
  report->code = code;
  std::snprintf(report->text, sizeof report->text, "%s", text);
}

void Request(const Kind& kind, const std::string& source, Report* report, volatile bool* armed) {
  *armed = true;
  try {
    const std::string path = kind.ask(source);
    *armed = false;
    StopFailingAllocations();
    Tell(report, path.empty() ? kNothing : kAnswer, path.c_str());
  } catch (const Error& error) {
    Tell(report, kError, error.what(), error.Code());
  } catch (const std::bad_alloc&) {
    Tell(report, kNoMemory, "");
  } catch (const std::exception& exception) {
    Tell(report, kOther, exception.what());
  }
  *armed = false;
}

// libheif does not close its folder of plugins if memory runs out while it reads it.
std::size_t OpenFoldersOfPlugins() {
  const std::vector<std::string> names = test::Names("/proc/self/fd");
  return static_cast<std::size_t>(std::count_if(names.begin(), names.end(), [](const std::string& name) {
    std::error_code ignored;
    const fs::path file = fs::read_symlink("/proc/self/fd/" + name, ignored);
    return file.filename() == "plugins" && file.parent_path().filename() == "libheif";
  }));
}

// The child process: a caller that runs as another user and may become root again, as services do.
void Serve(const Kind& kind, const Source& source, const std::string& body, unsigned failing, bool forEver,
           Report* report, volatile bool* armed) {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  doings = &report->doings;
  Redirect({STDOUT_FILENO}, body);
  Redirect({STDERR_FILENO}, body + ".errors");
  if (setegid(kGroup) != 0 || seteuid(kUser) != 0) abort();
  report->descriptorsBefore = OpenDescriptors();
  StartFailingAllocations(failing, forEver);
  Request(kind, source.Path(), report, armed);
  report->allocations = StopFailingAllocations();
  report->idsKept = geteuid() == kUser && getegid() == kGroup;
  report->descriptorsAfter = OpenDescriptors() - OpenFoldersOfPlugins();
  report->hasChildren = HasChildren();
}

// All runs of one type.
class Campaign {
 public:
  Campaign(const Kind& kind, const std::string& folder, Injector* injector, Report* report)
      : kind_(kind),
        source_(folder + "/" + kind.name, kind),
        body_(folder + "/body"),
        injector_(injector),
        report_(report) {}

  Ending Run(const Fault& fault, unsigned failingAllocation = 0, bool forEver = false) {
    source_.Reset();
    source_.GiveTo(kUser, kGroup);
    std::memset(static_cast<void*>(report_), 0, sizeof *report_);
    for (const std::string& path : {body_, body_ + ".errors"}) fs::remove(path);
    return injector_->Run(
        fault, [&](volatile bool* armed) { Serve(kind_, source_, body_, failingAllocation, forEver, report_, armed); });
  }

  // The C library aborts a process whose memory runs out during its first lookup of an account, or while it notes what
  // ends with a thread.
  bool DiedInCLibrary(const Ending& ending) const {
    return WIFSIGNALED(ending.status) &&
           (report_->doings.looksForAccount || Errors().find("failed to register TLS destructor") != std::string::npos);
  }

  // A description of the failure, "" if there is none.
  std::string Flaw(const Ending& ending) {
    if (!ending.inTime) return "it hangs";
    if (!WIFEXITED(ending.status)) return "it died of signal " + std::to_string(WTERMSIG(ending.status));
    if (WEXITSTATUS(ending.status) != 0) return "it ended with " + std::to_string(WEXITSTATUS(ending.status));
    if (report_->result == kOther) return std::string("it throws: ") + report_->text;
    if (report_->result == kError && report_->code != 601 && report_->code != 603) return report_->text;
    if (report_->result == kAnswer && !pictures_.Holds(report_->text))
      return std::string("no whole answer: ") + report_->text;
    if (report_->result == kAnswer && kind_.delivers && !IsDelivered()) return "the answer was not delivered whole";
    if (!report_->idsKept && !report_->doings.losesIds) return "the effective ids are others, and no log line says so";
    if (!kind_.leavesPipe && report_->descriptorsAfter != report_->descriptorsBefore) return "a descriptor stays open";
    if (report_->descriptorsAfter > report_->descriptorsBefore + 1) return "descriptors stay open";
    if (!kind_.leavesPipe && report_->hasChildren) return "a child is not reaped";
    return FlawOnDisk();
  }

  std::string FlawOnDisk() {
    if (!source_.IsUntouched()) return "the source was changed";
    return FlawInEADirectory(source_, kind_, pictures_);
  }

  // The output of the request and its tools on standard error.
  std::string Errors() const { return test::ReadFile(body_ + ".errors"); }

  // Files in /tmp and /var/tmp must have one of the documented names; they are counted and removed.
  std::string TakeTemporaryFiles(std::size_t* count) const {
    const std::vector<std::string> known = test::TemporaryFiles();
    *count += known.size() + CountTemporaryEntries(source_);
    for (const std::string& path : known) fs::remove(path);
    std::string strangers;
    for (const std::string& path : StrangeTemporaryFiles()) strangers += " " + path;
    return strangers.empty() ? "" : "left:" + strangers;
  }

 private:
  // A complete picture follows the headers.
  bool IsDelivered() {
    const std::string response = test::ReadFile(body_);
    const std::size_t end = response.find("\r\n\r\n");
    if (end == std::string::npos) return false;
    test::WriteFile(body_ + ".content", response.substr(end + 4));
    return pictures_.Holds(body_ + ".content");
  }

  const Kind& kind_;
  const Source source_;
  const std::string body_;
  Injector* const injector_;
  Report* const report_;
  WholePictures pictures_;
};

struct Tally {
  unsigned runs = 0;
  unsigned wrong = 0;
  unsigned idsLost = 0;
  unsigned diedInCLibrary = 0;
  std::map<Result, unsigned> results;
};

class Proof {
 public:
  explicit Proof(bool isQuick)
      : everyNth_(isQuick ? 61 : 1), everyNthAllocation_(isQuick ? 211 : 1), injector_(kCalls) {
    void* const memory = mmap(nullptr, sizeof *report_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    report_ = new (memory) Report();
    fs::permissions(folder_.Path(), fs::perms(0755));
  }

  void RunAll(const Kind& kind) {
    Campaign campaign(kind, folder_.Path(), &injector_, report_);
    const Ending sound = campaign.Run({});
    const unsigned allocations = report_->allocations;
    const std::string flaw = campaign.Flaw(sound);
    if (!flaw.empty() || report_->result != kAnswer) {
      std::fprintf(stderr, "%s, nothing failing: %s %s\n", kind.name, flaw.c_str(), report_->text);
      failed_ = true;
      return;
    }
    for (std::size_t call = 0; call < kCalls.size(); ++call) FailCalls(&campaign, kind, call, sound.counts[call]);
    FailAllocations(&campaign, kind, allocations);
  }

  // The rows, and whether all passed.
  bool Print() const {
    for (const auto& [name, tally] : tallies_) {
      std::printf(
          "%s fails, each once and from then on: outcomes not documented\t%u (%u whole answers, %u none, "
          "%u exceptions)\t%u\n",
          name.c_str(), tally.wrong, Count(tally, kAnswer), Count(tally, kNothing),
          Count(tally, kError) + Count(tally, kNoMemory), tally.runs);
    }
    for (const auto& [name, tally] : tallies_) {
      if (tally.idsLost == 0) continue;
      std::printf("%s fails when a save gives root's rights back: ids stay root's, one line at LOG_CRIT\t%u\t%u\n",
                  name.c_str(), tally.idsLost, tally.runs);
    }
    for (const auto& [name, tally] : tallies_) {
      if (tally.diedInCLibrary == 0) continue;
      std::printf("%s fails inside glibc %s, which then ends the process itself\t%u\t%u\n", name.c_str(),
                  gnu_get_libc_version(), tally.diedInCLibrary, tally.runs);
    }
    std::printf("files left under temporary names by all of these\t%zu\t%u\n", leftovers_, runs_);
    return !failed_;
  }

 private:
  static unsigned Count(const Tally& tally, Result result) {
    const auto found = tally.results.find(result);
    return found == tally.results.end() ? 0 : found->second;
  }

  void FailCalls(Campaign* campaign, const Kind& kind, std::size_t call, unsigned count) {
    for (unsigned nth = 1; nth <= count; ++nth) {
      for (const int error : kCalls[call].errors) {
        FailCall(campaign, kind, {call, error, nth, nth});
        FailCall(campaign, kind, {call, error, nth, UINT_MAX});
      }
      for (const int error : kCalls[call].temporary) FailCall(campaign, kind, {call, error, nth, nth});
    }
  }

  void FailCall(Campaign* campaign, const Kind& kind, const Fault& fault) {
    if (next_++ % everyNth_ != 0) return;
    const Ending ending = campaign->Run(fault);
    Judge(campaign, ending, kCalls[fault.call].name,
          std::string(kind.name) + ", " + kCalls[fault.call].name + " " + std::to_string(fault.first) + " fails " +
              (fault.last == fault.first ? "once" : "from then on") + " with " + strerrorname_np(fault.error));
  }

  void FailAllocations(Campaign* campaign, const Kind& kind, unsigned count) {
    for (unsigned nth = 1; nth <= count; ++nth) {
      for (const bool forEver : {false, true}) {
        if (nextAllocation_++ % everyNthAllocation_ != 0) continue;
        const Ending ending = campaign->Run({}, nth, forEver);
        Judge(campaign, ending, "malloc",
              std::string(kind.name) + ", allocation " + std::to_string(nth) + " fails " +
                  (forEver ? "from then on" : "once"));
      }
    }
  }

  void Judge(Campaign* campaign, const Ending& ending, const std::string& name, const std::string& what) {
    Tally& tally = tallies_[name];
    ++tally.runs;
    ++runs_;
    std::string flaw;
    if (campaign->DiedInCLibrary(ending)) {
      ++tally.diedInCLibrary;
      flaw = campaign->FlawOnDisk();
    } else {
      ++tally.results[report_->result];
      flaw = campaign->Flaw(ending);
    }
    if (flaw.empty()) flaw = campaign->TakeTemporaryFiles(&leftovers_);
    if (!report_->idsKept && WIFEXITED(ending.status)) ++tally.idsLost;
    if (flaw.empty()) return;
    ++tally.wrong;
    failed_ = true;
    std::fprintf(stderr, "%s: %s\n%s", what.c_str(), flaw.c_str(), campaign->Errors().c_str());
  }

  const unsigned everyNth_;
  const unsigned everyNthAllocation_;
  unsigned next_ = 0;
  unsigned nextAllocation_ = 0;
  Injector injector_;
  Report* report_;
  const test::TempDir folder_;
  std::map<std::string, Tally> tallies_;
  std::size_t leftovers_ = 0;
  unsigned runs_ = 0;
  bool failed_ = false;
};

}  // namespace
}  // namespace tavithumb::proof

int main(int argc, char** argv) {
  using namespace tavithumb::proof;
  EnterPrivateTmp();
  Proof proof(argc < 2 || std::strcmp(argv[1], "full") != 0);
  for (const Kind& kind : Kinds()) {
    if (argc > 2 && std::strcmp(argv[2], kind.name) != 0) continue;
    proof.RunAll(kind);
  }
  return proof.Print() ? 0 : 1;
}
