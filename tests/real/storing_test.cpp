// SPDX-License-Identifier: GPL-3.0-or-later
// What is stored, for whom, for how long, and where if the volume cannot store entries.
#include <grp.h>
#include <tavithumb/error.h>

#include "real_support.h"

namespace tavithumb::test {
namespace {

constexpr uid_t kSomeUser = 12345;
constexpr gid_t kSomeGroup = 23456;

class Storing : public RealTest {
 protected:
  std::string Png(const std::string& name) const {
    MakePng(Source(name), 300, 200);
    return Dated(Source(name));
  }

  // A source in a folder of another user.
  std::string PngOfSomeUser() const {
    const std::string source = Png("a.png");
    EXPECT_EQ(chown(directory_.Path().c_str(), kSomeUser, kSomeGroup), 0);
    return source;
  }
};

TEST_F(Storing, AStoredThumbnailAnswersTheNextRequestUnchanged) {
  const std::string source = Png("a.png");
  const Answer first = Ask(source, "small");
  const struct stat before = StatOf(first.path);
  const Answer second = Ask(source, "small");
  const struct stat after = StatOf(first.path);
  ExpectAnswer(second, first.path, "Brovix", "image/png");
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(before.st_ctim.tv_sec, after.st_ctim.tv_sec);
  EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec);
}

TEST_F(Storing, WithoutTheLookupItIsRegenerated) {
  const std::string source = Png("a.png");
  const Answer first = Ask(source, "small", 0);
  WriteFile(first.path, "marked");
  ExpectAnswer(Ask(source, "small", 0), first.path, "Brovix", "image/png");
  ExpectPicture(first.path, "PNG", 120, 80);
}

TEST_F(Storing, AThumbnailOlderThanItsSourceIsRegenerated) {
  const std::string source = Png("a.png");
  const Answer first = Ask(source, "small");
  WriteFile(first.path, "marked");
  SetTimes(first.path, 0, kSourceTime - 1);
  ExpectAnswer(Ask(source, "small"), first.path, "Brovix", "image/png");
  ExpectStoredFor(source, first.path);
  ExpectPicture(first.path, "PNG", 120, 80);
}

TEST_F(Storing, AStaleAvatarIsRegenerated) {
  const std::string source = Png("a.png");
  const Answer first = Ask(source, "small", Thumb::OPT_AVATAR);
  WriteFile(first.path, "marked");
  SetTimes(first.path, 0, kSourceTime);
  ExpectAnswer(Ask(source, "small", Thumb::OPT_AVATAR), first.path, "Brovix", "image/png");
  EXPECT_EQ(ReadFile(first.path), "marked");
  SetTimes(first.path, 0, kSourceTime - 1);
  ExpectAnswer(Ask(source, "small", Thumb::OPT_AVATAR), first.path, "Brovix", "image/png");
  ExpectPicture(first.path, "PNG", 120, 120);
}

TEST_F(Storing, TheJobKeepsTheModeOfTheLastSuccess) {
  const std::string source = Png("a.png");
  Thumb job(source, kBrovix, false);
  job.CalcOutputFile("small");
  job.SetOption(Thumb::OPT_BROVIX_EA | Thumb::OPT_NO_CONVERT);
  // The result of an earlier step is returned: here the lookup emptied it.
  EXPECT_EQ(job.CalcOutputFile("medium"), "");
  EXPECT_EQ(job.GetOutputType(), "Brovix");
  EXPECT_EQ(job.CalcOutputFile("original"), source);
  EXPECT_EQ(job.GetOutputType(), "Original");
  // With the mode "Original" kept, the source is the answer although nothing was checked this time.
  job.SetOption(Thumb::OPT_NO_CONVERT);
  EXPECT_EQ(job.CalcOutputFile("medium"), source);
}

TEST_F(Storing, AFailedRequestReturnsTheResultOfAnEarlierOne) {
  const std::string source = Png("a.png");
  Thumb job(source, kBrovix, false);
  const std::string made = job.CalcOutputFile("small");
  job.SetOption(Thumb::OPT_NO_CONVERT);
  EXPECT_EQ(job.CalcOutputFile(), "");
  EXPECT_EQ(job.CalcOutputFile("medium"), made);
}

TEST_F(Storing, ASourceInAnEADirectoryGetsNoThumbnail) {
  const std::string folder = directory_ / ".tavi_ea/a.png";
  std::filesystem::create_directories(folder);
  MakePng(folder + "/TAVIFILE_THUMB_XL.png", 300, 200);
  ExpectAnswer(Ask(folder + "/TAVIFILE_THUMB_XL.png", "small"), "", "", "image/png");
  EXPECT_EQ(Names(folder), std::vector<std::string>{"TAVIFILE_THUMB_XL.png"});
}

TEST_F(Storing, AFileInPlaceOfTheEADirectoryLeavesTheAnswerEmpty) {
  const std::string source = Png("a.png");
  WriteFile(directory_ / ".tavi_ea", "in the way");
  ExpectAnswer(Ask(source, "small"), "", "", "image/png");
  EXPECT_EQ(ReadFile(directory_ / ".tavi_ea"), "in the way");
}

// Each in a folder of its own: convert takes a name with "*" or "?" for a pattern if other names match it.
TEST_F(Storing, NamesWithAnyBytesWork) {
  for (const std::string name :
       {"-b.png", "a b.png", "[1].png", "a*?.png", "a'b\"c.png", "two\nlines.png", "\xE4.png"}) {
    SCOPED_TRACE(name);
    const std::string folder = directory_ / std::to_string(std::hash<std::string>()(name));
    std::filesystem::create_directory(folder);
    const std::string source = folder + "/" + name;
    std::filesystem::copy_file(upright_, source);
    const Answer answer = Ask(Dated(source), "small");
    ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_S.png"), "Brovix", "image/png");
    EXPECT_EQ(EAEntries(source), std::vector<std::string>{"TAVIFILE_THUMB_S.png"});
  }
}

TEST_F(Storing, AnotherUserAndGroupGetTheirIdsBackAndAThumbnailOfRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string source = PngOfSomeUser();
  InChild([&] {
    ASSERT_EQ(setgroups(0, nullptr), 0);
    ASSERT_EQ(setegid(kSomeGroup), 0);
    ASSERT_EQ(seteuid(kSomeUser), 0);
    const Answer answer = Ask(source, "small");
    uid_t ids[3];
    gid_t groups[3];
    getresuid(&ids[0], &ids[1], &ids[2]);
    getresgid(&groups[0], &groups[1], &groups[2]);
    EXPECT_EQ(ids[0], 0u);
    EXPECT_EQ(ids[1], kSomeUser);
    EXPECT_EQ(ids[2], 0u);
    EXPECT_EQ(groups[0], 0u);
    EXPECT_EQ(groups[1], kSomeGroup);
    EXPECT_EQ(groups[2], 0u);
    ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_S.png"), "Brovix", "image/png");
  });
  ExpectStoredFor(source, EAEntry(source, "TAVIFILE_THUMB_S.png"));
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_S.png"), "PNG", 120, 80);
  // The directory belongs to the folder's owner.
  EXPECT_EQ(StatOf(EAEntry(source, "")).st_uid, kSomeUser);
  EXPECT_EQ(StatOf(EAEntry(source, "")).st_gid, kSomeGroup);
}

TEST_F(Storing, ARootUserOfAnotherGroupGetsThatGroupBack) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string source = Png("a.png");
  InChild([&] {
    ASSERT_EQ(setegid(kSomeGroup), 0);
    Ask(source, "small");
    EXPECT_EQ(geteuid(), 0u);
    EXPECT_EQ(getegid(), kSomeGroup);
  });
  ExpectStoredFor(source, EAEntry(source, "TAVIFILE_THUMB_S.png"));
}

TEST_F(Storing, AUserWhoCannotBecomeRootGetsAThumbnailOfTheirOwn) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string source = PngOfSomeUser();
  InChild([&] {
    ASSERT_EQ(setgroups(0, nullptr), 0);
    ASSERT_EQ(setresgid(kSomeGroup, kSomeGroup, kSomeGroup), 0);
    ASSERT_EQ(setresuid(kSomeUser, kSomeUser, kSomeUser), 0);
    const Answer answer = Ask(source, "small");
    EXPECT_EQ(geteuid(), kSomeUser);
    EXPECT_EQ(getegid(), kSomeGroup);
    ExpectAnswer(answer, EAEntry(source, "TAVIFILE_THUMB_S.png"), "Brovix", "image/png");
    ExpectAnswer(Ask(source, "small"), answer.path, "Brovix", "image/png");
  });
  const struct stat record = StatOf(EAEntry(source, "TAVIFILE_THUMB_S.png"));
  EXPECT_EQ(record.st_mode, mode_t{S_IFREG | 0777});
  EXPECT_EQ(record.st_uid, kSomeUser);
  EXPECT_EQ(record.st_gid, kSomeGroup);
  EXPECT_GT(record.st_mtime, kSourceTime);
  ExpectPicture(EAEntry(source, "TAVIFILE_THUMB_S.png"), "PNG", 120, 80);
}

TEST_F(Storing, AUserWhoMayNotWriteNextToTheSourceGetsNothing) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string source = Png("a.png");
  EXPECT_EQ(chmod(directory_.Path().c_str(), 0755), 0);
  InChild([&] {
    ASSERT_EQ(setresuid(kSomeUser, kSomeUser, kSomeUser), 0);
    ExpectAnswer(Ask(source, "small"), "", "", "image/png");
  });
  EXPECT_FALSE(Exists(directory_ / ".tavi_ea"));
}

TEST_F(Storing, ASourceThatCannotBeReadOrIsMissingIsRejected) {
  try {
    Thumb job(directory_ / "missing.png", 0, false);
    FAIL() << "no error";
  } catch (const Error& error) {
    EXPECT_EQ(error.Code(), 601);
    EXPECT_EQ(std::string(error.what()), "(E601) Can't stat " + (directory_ / "missing.png"));
  }
  if (geteuid() != 0) GTEST_SKIP() << "the rest needs root";
  const std::string source = PngOfSomeUser();
  EXPECT_EQ(chmod(source.c_str(), 0), 0);
  InChild([&] {
    ASSERT_EQ(setresuid(kSomeUser, kSomeUser, kSomeUser), 0);
    try {
      Ask(source, "small");
      ADD_FAILURE() << "no error";
    } catch (const Error& error) {
      EXPECT_EQ(error.Code(), 603);
    }
  });
}

}  // namespace
}  // namespace tavithumb::test
