// SPDX-License-Identifier: GPL-3.0-or-later
#include "command/name_list.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <temp_dir.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

namespace tavithumb::apps::command {
namespace {

using Names = std::vector<std::string>;

class NameLists : public testing::Test {
 protected:
  // The names in a file of that content, and the problem, if there was one.
  Names Read(const std::string& content, char separator = '\n') {
    test::WriteFile(file, content);
    NameList list(file, separator);
    std::deque<std::string> names;
    problem = {};
    while (!list.HasEnded()) {
      if (std::optional<Problem> found = list.Read(&names)) problem = found;
    }
    return {names.begin(), names.end()};
  }

  const test::TempDir folder;
  const std::string file = folder / "list";
  std::optional<Problem> problem;
};

TEST_F(NameLists, HaveANameOnEachLine) {
  EXPECT_EQ(Read(""), Names{});
  EXPECT_EQ(Read("\n\n"), (Names{"", ""}));
  EXPECT_EQ(Read("a"), Names{"a"});
  EXPECT_EQ(Read("a\n"), Names{"a"});
  EXPECT_EQ(Read("\na b\n\n\xff\t\nc"), (Names{"", "a b", "", "\xff\t", "c"}));
  EXPECT_FALSE(problem);
}

TEST_F(NameLists, MayBeSeparatedByNulBytes) {
  EXPECT_EQ(Read(std::string("a\nb\0\0c", 6), '\0'), (Names{"a\nb", "", "c"}));
}

TEST_F(NameLists, MayBeLongerThanABlock) {
  Names names;
  std::string content;
  for (int i = 0; i < 20000; ++i) {
    names.push_back("a rather long name " + std::to_string(i));
    content += names.back() + "\n";
  }
  EXPECT_EQ(Read(content), names);
}

TEST_F(NameLists, AreAbandonedAtANameThatIsTooLong) {
  const std::string longest(65536, 'x');
  EXPECT_EQ(Read("a\n" + longest + "\nb"), (Names{"a", longest, "b"}));
  EXPECT_EQ(Read(longest), Names{longest});
  EXPECT_FALSE(problem);
  EXPECT_EQ(Read(longest + "x"), Names{});
  EXPECT_TRUE(problem);
  EXPECT_EQ(Read("a\n" + std::string(200000, 'x') + "\nb"), Names{"a"});
  ASSERT_TRUE(problem);
  EXPECT_NE(problem->reason.find("65536"), std::string::npos) << problem->reason;
  EXPECT_NE(problem->remedy.find("-0"), std::string::npos) << problem->remedy;
}

TEST_F(NameLists, ReportAReadError) {
  NameList list(folder.Path(), '\n');
  std::deque<std::string> names;
  const std::optional<Problem> error = list.Read(&names);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->reason, "Is a directory");
  EXPECT_TRUE(list.HasEnded());
  EXPECT_TRUE(names.empty());
}

TEST_F(NameLists, ArriveAsTheyAreWritten) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const int before = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  dup2(ends[0], STDIN_FILENO);
  NameList list("-", '\n');
  dup2(before, STDIN_FILENO);
  close(before);
  close(ends[0]);
  EXPECT_EQ(list.Name(), "standard input");
  std::deque<std::string> names;
  for (const char* text : {"a\nb", "c\nd"}) {
    ASSERT_EQ(write(ends[1], text, 3), 3);
    EXPECT_FALSE(list.Read(&names));
    EXPECT_FALSE(list.HasEnded());
  }
  EXPECT_EQ(names, (std::deque<std::string>{"a", "bc"}));
  close(ends[1]);
  EXPECT_FALSE(list.Read(&names));
  EXPECT_TRUE(list.HasEnded());
  EXPECT_EQ(names, (std::deque<std::string>{"a", "bc", "d"}));
}

TEST_F(NameLists, MustBeReadable) {
  EXPECT_THROW(NameList(folder / "missing", '\n'), std::invalid_argument);
}

}  // namespace
}  // namespace tavithumb::apps::command
