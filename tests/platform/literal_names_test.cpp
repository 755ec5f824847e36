// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <tavi/core.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "children.h"

namespace tavithumb::test {
namespace {

// A program of that name that does nothing, in a folder of files that its arguments could match.
class NamesForConvert : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* file : {"a.jpg", "b1.jpg", "b[1].jpg", "c[0].png", "d.png", "d.png[0]", "x[0]*/a.jpg", "e*.gif"}) {
      WriteFile(folder_ / file, "");
    }
    std::filesystem::create_directory(folder_ / "bin");
    for (const char* program : {"convert", "djpeg"}) {
      std::filesystem::create_symlink(Child("echo_arguments"), folder_ / ("bin/" + std::string(program)));
    }
  }

  bool IsRun(const std::string& program, const std::string& argument, const char* option = "-strip") const {
    const std::string path = folder_ / ("bin/" + program);
    const char* argv[] = {path.c_str(), option, argument.c_str(), nullptr};
    errno = 0;
    const int result = TLIBCExecv(path.c_str(), argv, 1);
    EXPECT_EQ(result, errno == EPERM ? -1 : 0) << argument;
    EXPECT_EQ(TLIBCTakesNamesLiterally(path.c_str(), argv), result == 0 ? 1 : 0) << argument;
    return result == 0;
  }

  const TempDir folder_;
  const Report report_;
};

TEST_F(NamesForConvert, AreReadLiterallyByConvertOrItIsNotRun) {
  const struct {
    std::string name;
    bool isRun;
  } rows[] = {
      {"a.jpg", true},
      {"a.jpg[0]", true},
      {"missing.jpg[0]", true},
      {"c[0].png[0]", true},
      {"x[0]*/a.jpg[0]", true},
      {"x[0]*/new.jpg", true},
      {"50%.jpg", true},
      {"a%20b.jpg", true},
      {"100% sure.jpg", true},
      {"new[1].png", true},
      {"%", true},
      {"-a @b;'\"\n\xFF.jpg[0]", true},
      {"%d.jpg", false},
      {"%03x.jpg", false},
      {"%o", false},
      {"a%%b.jpg", false},
      {"%[fx:1].jpg", false},
      {"my%20dog.jpg", false},
      {"%d/a.jpg[0]", false},
      {"b[1].jpg[0]", false},
      {"b[1].jpg", false},
      {"c[0].png", false},
      {"d.png[0]", false},
      {"*.jpg[0]", false},
      {"{a,b1}.jpg[0]", false},
      {"?.jpg[0]", false},
      {"e*.gif", false},
      {"e*.gif[0]", true},
      {"[a-c].jpg[0]", false},
  };
  for (const auto& row : rows) EXPECT_EQ(IsRun("convert", folder_ / row.name), row.isRun) << row.name;
}

TEST_F(NamesForConvert, MustNotHaveAPercentSignForAnAnimation) {
  for (const char* option : {"-coalesce", "-layers"}) {
    for (const char* name : {"50%.gif", "100% fun/a.gif", "%", "a%%.gif", "%d.gif"}) {
      EXPECT_FALSE(IsRun("convert", folder_ / name, option)) << option << " " << name;
    }
    EXPECT_TRUE(IsRun("convert", folder_ / "a.gif", option)) << option;
  }
}

TEST_F(NamesForConvert, AreReadLiterallyByAllOtherPrograms) {
  for (const char* name : {"%d.jpg", "b[1].jpg", "*.jpg", "d.png[0]"}) EXPECT_TRUE(IsRun("djpeg", folder_ / name));
}

TEST_F(NamesForConvert, ThatAreOptionsOrSizesAreAllowed) {
  for (const char* text : {"-rotate", "120x120+10+20", "", "sRGB", "90"}) EXPECT_TRUE(IsRun("convert", text)) << text;
}

}  // namespace
}  // namespace tavithumb::test
