// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/roots.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <temp_dir.h>

#include <filesystem>
#include <stdexcept>

#include "ordinary_user.h"
#include "web/http_error.h"

namespace fs = std::filesystem;

namespace tavithumb::apps::web {
namespace {

using Path = std::vector<std::string>;

constexpr char kNothing[] = "404 there is nothing here";
constexpr char kDenied[] = "403 permission denied";

// Where something is found, or the status and the reason if it is not.
std::string Find(const Roots& roots, const Path& path) {
  try {
    const Found found = roots.Find(path);
    struct stat opened = {};
    struct stat named = {};
    EXPECT_EQ(fstat(found.descriptor.Number(), &opened), 0);
    EXPECT_EQ(lstat(found.path.c_str(), &named), 0);
    EXPECT_EQ(found.record.st_ino, opened.st_ino);
    EXPECT_EQ(found.record.st_ino, named.st_ino);
    EXPECT_EQ(found.record.st_mode, named.st_mode);
    return found.path;
  } catch (const HttpError& error) {
    return std::to_string(error.Code()) + " " + error.what();
  }
}

// A folder that is served, next to one that is not.
class RootsFind : public testing::Test {
 protected:
  RootsFind() {
    for (const char* name : {"shown/a.jpg", "shown/sub/b.jpg", "shown/.hidden/c.jpg", "shown/.tavi_ea/a.jpg/thumb",
                             "shown/sub/.tavi_ea/b.jpg/thumb", "shown2/secret.jpg"}) {
      test::WriteFile(folder_ / name, name);
    }
    chmod(folder_.Path().c_str(), 0755);
  }

  std::string Shown(const std::string& name) const { return folder_ / ("shown/" + name); }
  void Link(const std::string& target, const std::string& name) const { fs::create_symlink(target, Shown(name)); }
  Roots Only(bool showsHidden = false) const { return {{ParseRoot(folder_ / "shown")}, showsHidden}; }

  test::TempDir folder_;
};

TEST_F(RootsFind, FindsFilesBelow) {
  const std::pair<Path, std::string> rows[] = {
      {{"a.jpg"}, Shown("a.jpg")}, {{"sub"}, Shown("sub")}, {{"sub", "b.jpg"}, Shown("sub/b.jpg")}};
  for (const auto& [path, expected] : rows) EXPECT_EQ(Find(Only(), path), expected);
  EXPECT_EQ(Find(Only(), {}), folder_ / "shown");
}

TEST_F(RootsFind, FindsNothingElse) {
  for (const Path& path : {Path{"missing"}, Path{"a.jpg", "b.jpg"}, Path{"..", "shown2", "secret.jpg"}, Path{".."},
                           Path{"sub", "..", "..", "shown2"}, Path{folder_ / "shown2"}}) {
    EXPECT_EQ(Find(Only(), path), kNothing) << testing::PrintToString(path);
    EXPECT_EQ(Find(Only(true), path), kNothing) << testing::PrintToString(path);
  }
}

TEST_F(RootsFind, FollowsLinksThatStayInside) {
  Link("sub/b.jpg", "file");
  Link("sub", "folder");
  Link("file", "twice");
  Link("../a.jpg", "sub/up");
  Link("sub/../sub/./b.jpg", "around");
  const std::pair<Path, std::string> rows[] = {
      {{"file"}, Shown("sub/b.jpg")},  {{"folder", "b.jpg"}, Shown("sub/b.jpg")}, {{"folder"}, Shown("sub")},
      {{"twice"}, Shown("sub/b.jpg")}, {{"sub", "up"}, Shown("a.jpg")},           {{"around"}, Shown("sub/b.jpg")}};
  for (const auto& [path, expected] : rows) EXPECT_EQ(Find(Only(), path), expected) << path.back();
}

TEST_F(RootsFind, FollowsNoLinkThatLeadsOutside) {
  const std::pair<const char*, std::string> links[] = {
      {"up", ".."},
      {"beside", "../shown2"},
      {"file", "../shown2/secret.jpg"},
      {"back", "../shown/a.jpg"},
      {"deep", "sub/../../shown2/secret.jpg"},
      {"absolute", folder_ / "shown2/secret.jpg"},
      {"absolute inside", Shown("a.jpg")},
      {"system", "/"},
      {"process", "/proc/self/root"},
      {"dangling", "missing"},
      {"loop", "loop"},
  };
  for (const auto& [name, target] : links) {
    Link(target, name);
    EXPECT_EQ(Find(Only(), {name}), kNothing) << name;
  }
  EXPECT_EQ(Find(Only(), {"beside", "secret.jpg"}), kNothing);
  EXPECT_EQ(Find(Only(), {"system", "etc", "passwd"}), kNothing);
}

TEST_F(RootsFind, ServesHiddenNamesOnlyIfConfigured) {
  Link(".hidden", "to hidden");
  Link("a.jpg", ".link");
  const std::pair<Path, std::string> rows[] = {{{".hidden"}, Shown(".hidden")},
                                               {{".hidden", "c.jpg"}, Shown(".hidden/c.jpg")},
                                               {{"to hidden"}, Shown(".hidden")},
                                               {{"to hidden", "c.jpg"}, Shown(".hidden/c.jpg")},
                                               {{".link"}, Shown("a.jpg")}};
  for (const auto& [path, shown] : rows) {
    EXPECT_EQ(Find(Only(), path), kNothing) << testing::PrintToString(path);
    EXPECT_EQ(Find(Only(true), path), shown) << testing::PrintToString(path);
  }
}

TEST_F(RootsFind, NeverServesThumbnailFolders) {
  Link(".tavi_ea", "folder");
  Link(".tavi_ea/a.jpg/thumb", "thumb");
  Link("sub/.tavi_ea/b.jpg", "deep");
  for (const Path& path : {Path{".tavi_ea"}, Path{".tavi_ea", "a.jpg", "thumb"}, Path{"sub", ".tavi_ea"},
                           Path{"folder"}, Path{"folder", "a.jpg", "thumb"}, Path{"thumb"}, Path{"deep", "thumb"}}) {
    EXPECT_EQ(Find(Only(), path), kNothing) << testing::PrintToString(path);
    EXPECT_EQ(Find(Only(true), path), kNothing) << testing::PrintToString(path);
  }
}

TEST_F(RootsFind, ServesARootBelowAHiddenFolder) {
  const Roots roots({ParseRoot(Shown(".hidden"))}, false);
  EXPECT_EQ(Find(roots, {"c.jpg"}), Shown(".hidden/c.jpg"));
}

TEST_F(RootsFind, ReportsWhatCannotBeRead) {
  test::WriteFile(Shown("closed/c.jpg"), "");
  Link("closed/c.jpg", "link");
  chmod(Shown("closed").c_str(), 0);
  test::CheckAsOrdinaryUser([&] {
    EXPECT_EQ(Find(Only(), {"closed"}), Shown("closed"));
    for (const Path& path : {Path{"closed", "c.jpg"}, Path{"closed", "missing"}, Path{"link"}}) {
      EXPECT_EQ(Find(Only(), path), kDenied) << testing::PrintToString(path);
    }
  });
  chmod(Shown("closed").c_str(), 0700);
}

TEST_F(RootsFind, AcceptsNamesOf255Bytes) {
  const std::string longest(255, 'x');
  test::WriteFile(Shown(longest), "");
  EXPECT_EQ(Find(Only(), {longest}), Shown(longest));
  EXPECT_EQ(Find(Only(), {longest + "x"}), kNothing);
}

// Nested folders, so deep that a path of 4095 bytes reaches only the last but one.
TEST_F(RootsFind, AcceptsPathsOf4095Bytes) {
  Path path;
  fs::path deepest = Shown("");
  const auto enter = [&](std::size_t length) {
    path.emplace_back(length, 'd');
    deepest /= path.back();
  };
  while (deepest.native().size() < 3800) enter(200);
  enter(4095 - deepest.native().size() - 1);
  fs::create_directories(deepest);
  ASSERT_EQ(deepest.native().size(), 4095U);
  EXPECT_EQ(Find(Only(), path), deepest);

  const FileDescriptor last(open(deepest.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(mkdirat(last.Number(), "x", 0755), 0);
  path.emplace_back("x");
  EXPECT_EQ(Find(Only(), path), kNothing) << "the path from the root is short enough, the absolute one is not";
  path.insert(path.end(), 2000, "x");
  EXPECT_EQ(Find(Only(), path), kNothing);
  ASSERT_EQ(unlinkat(last.Number(), "x", AT_REMOVEDIR), 0);
}

TEST_F(RootsFind, LooksUpTheNameAgainEachTime) {
  const Roots roots = Only();
  EXPECT_EQ(Find(roots, {"a.jpg"}), Shown("a.jpg"));
  fs::remove(Shown("a.jpg"));
  EXPECT_EQ(Find(roots, {"a.jpg"}), kNothing);
  fs::remove_all(folder_ / "shown");
  EXPECT_EQ(Find(roots, {}), kNothing);
  EXPECT_EQ(Find(roots, {"sub"}), kNothing);
}

TEST_F(RootsFind, KeepsWhatItHasFoundWhateverHappensToTheName) {
  const Found found = Only().Find({"a.jpg"});
  fs::rename(Shown("sub/b.jpg"), Shown("a.jpg"));
  struct stat now = {};
  ASSERT_EQ(fstat(found.descriptor.Number(), &now), 0);
  EXPECT_EQ(now.st_ino, found.record.st_ino);
  EXPECT_EQ(now.st_nlink, 0U);
}

TEST_F(RootsFind, StartsWithTheNameOfARootIfTheyHaveNames) {
  const Roots roots({ParseRoot("one=" + (folder_ / "shown")), ParseRoot("two=" + (folder_ / "shown2"))}, false);
  const std::pair<Path, std::string> rows[] = {{{"one"}, folder_ / "shown"},
                                               {{"one", "sub", "b.jpg"}, Shown("sub/b.jpg")},
                                               {{"two", "secret.jpg"}, folder_ / "shown2/secret.jpg"},
                                               {{}, kNothing},
                                               {{"three"}, kNothing},
                                               {{"a.jpg"}, kNothing},
                                               {{"one", "secret.jpg"}, kNothing},
                                               {{"one", "two"}, kNothing}};
  for (const auto& [path, expected] : rows) EXPECT_EQ(Find(roots, path), expected) << testing::PrintToString(path);
  EXPECT_TRUE(roots.AreNamed());
  EXPECT_FALSE(Only().AreNamed());
}

TEST_F(RootsFind, StartsInAFolderWithoutLinks) {
  fs::create_directory_symlink("shown", folder_ / "link");
  const std::pair<std::string, std::pair<std::string, std::string>> rows[] = {
      {folder_ / "shown", {"", folder_ / "shown"}},
      {folder_ / "shown/", {"", folder_ / "shown"}},
      {folder_ / "shown2/../link/.", {"", folder_ / "shown"}},
      {"photos=" + (folder_ / "link"), {"photos", folder_ / "shown"}},
      {"my photos=" + (folder_ / "shown"), {"my photos", folder_ / "shown"}},
      {"/", {"", "/"}},
  };
  for (const auto& [text, expected] : rows) {
    const Root root = ParseRoot(text);
    EXPECT_EQ(std::make_pair(root.name, root.folder), expected) << text;
  }
  fs::create_directory(folder_ / "a=b");
  EXPECT_EQ(ParseRoot(folder_ / "a=b").folder, folder_ / "a=b") << "a slash before the '=' makes no name";
}

TEST_F(RootsFind, NeedsAFolderAndAValidName) {
  const std::string noFolder = "' is not a folder that can be served; name one that exists";
  const std::string noName = "': the name of a root must not be empty or start with a dot";
  const std::string file = Shown("a.jpg");
  const std::pair<std::string, std::string> rows[] = {
      {"", "'" + noFolder},
      {"photos=", "'" + noFolder},
      {file, "'" + file + noFolder},
      {"photos=" + file, "'" + file + noFolder},
      {folder_ / "missing", "'" + (folder_ / "missing") + noFolder},
      {"=/", "'=/" + noName},
      {".=/", "'.=/" + noName},
      {".tavi_ea=/", "'.tavi_ea=/" + noName},
  };
  for (const auto& [text, message] : rows) {
    try {
      ParseRoot(text);
      ADD_FAILURE() << text;
    } catch (const std::invalid_argument& error) {
      EXPECT_EQ(error.what(), message);
    }
  }
}

}  // namespace
}  // namespace tavithumb::apps::web
