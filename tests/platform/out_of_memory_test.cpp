// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tavi/core.h>
#include <tavi/fileop.h>
#include <tavi/sdk.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include "children.h"
#include "failing_allocations.h"
#include "fuse_server.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

// Fails each allocation of `call` once, which must make it return false with ENOMEM, and finally none, which must make
// it return true. Calls `cleanUp` after each failure.
void CheckEachAllocation(
    const std::function<bool()>& call, const std::function<void()>& cleanUp = [] {}) {
  bool result = false;
  int reason = 0, calls = 0, good = 0, wrong = 0;
  const int failed = FailEachAllocation([&] {
    errno = 0;
    result = call();
    reason = errno;
    ++calls;
    if (result) ++good;
    if (!result && reason != ENOMEM) ++wrong;
    if (!result) cleanUp();
  });
  EXPECT_TRUE(result) << std::strerror(reason);
  EXPECT_GT(failed, 0) << "it makes no allocation";
  EXPECT_EQ(calls, failed + 1);
  EXPECT_EQ(good, 1) << "of the calls in which an allocation failed, some succeeded";
  EXPECT_EQ(wrong, 0);
}

TEST(OutOfMemory, RunningAProgramFails) {
  const Arguments argv(Child("exit_with"), {"0"});
  CheckEachAllocation([&] { return TLIBCExecv(argv.Path(), argv.Vector(), 1) == 0; });
  CheckEachAllocation([&] { return TLIBCExecl(argv.Path(), 0, "0", "2", "3", nullptr) == 0; });
  CheckInProcess([&] {
    signal(SIGCHLD, SIG_IGN);
    if (TLIBCExecv(argv.Path(), argv.Vector(), 1) == -1 && errno == EINVAL) return;  // an emulator
    CheckEachAllocation([&] { return TLIBCExecv(argv.Path(), argv.Vector(), 1) == 0; });
  });
}

TEST(OutOfMemory, OpeningAStreamFails) {
  const Arguments argv(Child("exit_with"), {"0"});
  const auto openAndClose = [&] {
    FILE* const stream = TLIBCPopenv(argv.Path(), "r", argv.Vector());
    return stream != nullptr && TLIBCPclose(stream) == 0;
  };
  const std::vector<std::string> before = Names("/proc/self/fd");
  CheckEachAllocation(openAndClose);
  CheckInProcess([&] {
    signal(SIGCHLD, SIG_IGN);
    if (!openAndClose()) return;  // an emulator
    CheckEachAllocation(openAndClose);
  });
  EXPECT_EQ(Names("/proc/self/fd"), before);
}

TEST(OutOfMemory, CopyingFailsAndLeavesNothing) {
  TempDir folder;
  fs::create_directory(folder / "copies");
  const std::string source = folder / "source", copy = folder / "copies/copy";
  WriteFile(source, "content");
  CheckEachAllocation([&] { return TAVIFileCopy(source.c_str(), copy.c_str(), nullptr) == 0; },
                      [&] { EXPECT_EQ(Names(folder / "copies"), std::vector<std::string>{}); });
  EXPECT_EQ(ReadFile(copy), "content");
  EXPECT_EQ(Names(folder / "copies"), std::vector<std::string>{"copy"});
}

TEST(OutOfMemory, MakingAnEADirectoryFailsAndLeavesNothingUnfinished) {
  TempDir folder;
  const std::string directory = folder / ".tavi_ea/a.jpg";
  CheckEachAllocation([&] { return TAVIEAMKDir(1, directory.c_str()) == 0; }, [&] { fs::remove(folder / ".tavi_ea"); });
  EXPECT_EQ(Names(folder.Path()), std::vector<std::string>{".tavi_ea"});
  EXPECT_EQ(Names(folder / ".tavi_ea"), std::vector<std::string>{"a.jpg"});
}

TEST(OutOfMemory, EAPathsFail) {
  TempDir folder;
  const std::string source = folder / "a.jpg";
  char buffer[4096];
  CheckEachAllocation([&] { return TAVIEAPath(0, source.c_str(), "THUMB", buffer, sizeof buffer, 0) == 0; });
  CheckEachAllocation([&] { return TAVIEADirPath(0, source.c_str(), buffer, sizeof buffer) == 0; });
}

TEST(OutOfMemory, ClassifyingAVolumeFails) {
  CheckWithMounts([]() -> std::string {
    const TempDir folder;
    const FuseServer server(folder.Path(), "fuse.sshfs", "host:/");
    if (!server.IsMounted()) return "needs FUSE";
    CheckEachAllocation([&] {
      const int type = TAVIGetFSType(folder.Path().c_str(), 0);
      EXPECT_TRUE(type == -1 || TAVIFSIsRemoteFS(type) != 0) << type;
      return type != -1;
    });
    return "";
  });
}

}  // namespace
}  // namespace tavithumb::test
