// SPDX-License-Identifier: GPL-3.0-or-later
// The program that the library runs instead of ImageMagick's convert, as the library runs it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pictures.h"
#include "preload.h"
#include "temp_dir.h"

namespace tavithumb::test {
namespace {

using Arguments = std::vector<std::string>;

constexpr char kConvert[] = "/usr/bin/convert";
constexpr double kSame = 0.02;
const Arguments kScale = {"-thumbnail", "120x80", "-rotate", "0", "-rotate", "0"};

Arguments Vector(const std::string& source, const Arguments& middle, const std::string& destination) {
  Arguments arguments = {kConvert, "-strip", "-colorspace", "sRGB", source + "[0]"};
  arguments.insert(arguments.end(), middle.begin(), middle.end());
  arguments.push_back(destination);
  return arguments;
}

std::vector<char*> Pointers(Arguments* texts) {
  std::vector<char*> pointers;
  for (std::string& text : *texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Starts a program, silently.
pid_t Start(const std::string& program, Arguments arguments, Arguments environment = {}, mode_t mask = 022) {
  const std::vector<char*> argv = Pointers(&arguments);
  const std::vector<char*> variables = Pointers(&environment);
  const pid_t child = fork();
  if (child != 0) return child;
  umask(mask);
  for (const int standard : {0, 1, 2}) dup2(open("/dev/null", O_RDWR), standard);
  execve(program.c_str(), argv.data(), variables.data());
  _exit(126);
}

// The exit code; -1 if a signal killed it.
int Await(pid_t process) {
  int status = -1;
  while (waitpid(process, &status, 0) == -1 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Listing(const Arguments& texts) {
  std::string listing;
  for (const std::string& text : texts) listing += text + '\0';
  return listing;
}

class AddOn : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directory(folder_ / "photos"); }

  std::string Photo(const std::string& name) const { return folder_ / ("photos/" + name); }
  std::string HandedOver() const { return folder_ / "handed-over"; }

  Arguments Environment() const {
    Arguments environment = Preloading(HAND_OVER_PROBE);
    environment.insert(environment.end(), {"HANDED_OVER=" + HandedOver(), "MAGICK_THREAD_LIMIT=1", "EMPTY="});
    return environment;
  }

  int Run(const Arguments& arguments, mode_t mask = 022) const {
    std::filesystem::remove(HandedOver());
    return Await(Start(TAVITHUMB_CONVERT, arguments, Environment(), mask));
  }

  // Runs it, and expects that it hands over everything unchanged and leaves what convert alone leaves.
  void ExpectHandedOver(const Arguments& arguments) const {
    const std::vector<std::string> before = Names(folder_ / "photos");
    const int code = Run(arguments);
    EXPECT_TRUE(ReadFile(HandedOver()) ==
                Listing({"unchanged", kConvert}) + Listing(arguments) + Listing(Environment()))
        << ReadFile(HandedOver());
    const std::vector<std::string> after = Names(folder_ / "photos");
    for (const std::string& name : after) {
      if (std::find(before.begin(), before.end(), name) == before.end()) std::filesystem::remove_all(Photo(name));
    }
    EXPECT_EQ(code, Await(Start(kConvert, arguments)));
    EXPECT_EQ(after, Names(folder_ / "photos"));
  }

  // Runs it, and expects that it makes what convert makes.
  void ExpectMade(const std::string& source, const Arguments& middle, const std::string& extension) const {
    const std::string made = Photo("made" + extension);
    const std::string expected = Photo("expected" + extension);
    std::filesystem::remove(made);
    EXPECT_EQ(Run(Vector(source, middle, made)), 0);
    EXPECT_FALSE(Exists(HandedOver()));
    ASSERT_EQ(Await(Start(kConvert, Vector(source, middle, expected))), 0);
    ASSERT_TRUE(Exists(made));
    const PictureFacts facts = Identify(made);
    const PictureFacts facit = Identify(expected);
    EXPECT_EQ(facts.format, facit.format);
    EXPECT_EQ(facts.width, facit.width);
    EXPECT_EQ(facts.height, facit.height);
    EXPECT_LT(Difference(made, expected), kSame);
  }

  mode_t ModeOf(const std::string& path) const {
    struct stat record = {};
    EXPECT_EQ(stat(path.c_str(), &record), 0) << path;
    return record.st_mode & 07777;
  }

  const TempDir folder_;
};

TEST_F(AddOn, MakesWhatConvertMakes) {
  MakePng(Photo("a.png"), 301, 200);
  for (const char* name : {"a.jpg", "a.bmp", "a.tif", "a.webp"}) RunTool({kConvert, Photo("a.png"), Photo(name)});
  MakeHeic(Photo("a.heic"), 301, 200, true);
  const Arguments middles[] = {
      kScale,
      {"-thumbnail", "120x80", "-rotate", "90", "-rotate", "0"},
      {"-thumbnail", "80x120", "-rotate", "0", "-rotate", "-90"},
      {"-thumbnail", "301x200", "-rotate", "180", "-flop", "-rotate", "0"},
      {"-thumbnail", "120x400", "-rotate", "90", "-flop", "-rotate", "0"},
      {"-thumbnail", "120x80", "-rotate", "270", "-flop", "-rotate", "270"},
      {"-crop", "100x90+100+55", "-rotate", "0", "-rotate", "0"},
      {"-crop", "100x90+7+110", "-rotate", "90", "-rotate", "0"},
      {"-crop", "100x90+201+1", "-rotate", "90", "-flop", "-rotate", "180"},
      {"-crop", "301x200+0+0", "-rotate", "0", "-flop", "-rotate", "90"},
  };
  for (const char* name : {"a.png", "a.jpg", "a.bmp", "a.tif", "a.webp", "a.heic"}) {
    for (const Arguments& middle : middles) {
      SCOPED_TRACE(testing::Message() << name << " " << testing::PrintToString(middle));
      ExpectMade(Photo(name), middle, std::string(name) == "a.png" ? ".png" : ".jpg");
    }
  }
}

// Neither convert nor the add-on looks at the orientation in a JPEG; both apply the one of HEIF, and then the
// arguments'.
TEST_F(AddOn, TreatsTheOrientationInAFileAsConvertDoes) {
  MakeJpeg(Photo("a.jpg"), 300, 200);
  SetExif(Photo("a.jpg"), {{"Exif.Image.Orientation", "6"}});
  const Arguments turned = {"-thumbnail", "60x90", "-rotate", "90", "-flop", "-rotate", "0"};
  ExpectMade(Photo("a.jpg"), turned, ".jpg");
  RunTool({"/usr/bin/heif-enc", Photo("a.jpg"), "-o", Photo("a.heic")});
  ExpectMade(Photo("a.heic"), turned, ".jpg");
}

TEST_F(AddOn, LeavesOtherSourcesToConvert) {
  WriteFile(Photo("garbage.jpg"), std::string(5000, 'x'));
  WriteFile(Photo("empty.jpg"), "");
  MakeGif(Photo("moving.gif"), 300, 200, 2);
  MakePng(Photo("a.png"), 300, 200);
  MakeJpeg(Photo("a.jpg"), 300, 200);
  for (const char* name : {"missing.jpg", "garbage.jpg", "empty.jpg", "moving.gif", "", "a.jpg/a.jpg"}) {
    SCOPED_TRACE(name);
    ExpectHandedOver(Vector(Photo(name), kScale, Photo("made.jpg")));
  }
  // The type that convert writes is not the one that the maker would.
  ExpectHandedOver(Vector(Photo("a.png"), kScale, Photo("made.jpg")));
  ExpectHandedOver(Vector(Photo("a.jpg"), kScale, Photo("made.png")));
}

// convert shows no part of a picture, except of a JPEG.
TEST_F(AddOn, LeavesPicturesThatAreCutOffToConvert) {
  MakePng(Photo("whole.png"), 300, 200);
  for (const char* name : {"cut.png", "cut.bmp", "cut.tif", "cut.webp", "cut.heic", "cut.jpg"}) {
    SCOPED_TRACE(name);
    RunTool({kConvert, Photo("whole.png"), Photo(name)});
    std::filesystem::resize_file(Photo(name), std::filesystem::file_size(Photo(name)) * 7 / 10);
    if (std::string(name) == "cut.jpg") {
      ExpectMade(Photo(name), kScale, ".jpg");
    } else {
      ExpectHandedOver(Vector(Photo(name), kScale, Photo(std::string(name) == "cut.png" ? "made.png" : "made.jpg")));
    }
  }
}

TEST_F(AddOn, LeavesEnlargingAndCropsBeyondThePictureToConvert) {
  MakePng(Photo("a.png"), 60, 40);
  const Arguments geometries[] = {
      {"-thumbnail", "120x80"}, {"-thumbnail", "61x400"},        {"-crop", "61x40+0+0"},       {"-crop", "60x40+0+1"},
      {"-crop", "30x20+31+0"},  {"-crop", "60x40+2147483647+0"}, {"-crop", "1x1+4294967295+0"}};
  for (Arguments middle : geometries) {
    SCOPED_TRACE(middle[1]);
    middle.insert(middle.end(), {"-rotate", "0", "-rotate", "0"});
    ExpectHandedOver(Vector(Photo("a.png"), middle, Photo("made.png")));
  }
  for (const char* size : {"60x40", "60x400", "400x40", "61x40"}) {
    SCOPED_TRACE(size);
    ExpectMade(Photo("a.png"), {"-thumbnail", size, "-rotate", "0", "-rotate", "0"}, ".png");
  }
}

TEST_F(AddOn, LeavesOtherArgumentsToConvert) {
  MakePng(Photo("a.png"), 300, 200);
  MakeGif(Photo("a.gif"), 300, 200, 2);
  ExpectHandedOver({kConvert, "-version"});
  ExpectHandedOver({kConvert, Photo("a.png"), "-resize", "50%", Photo("made.png")});
  ExpectHandedOver({kConvert, Photo("a.gif"), "-coalesce", Photo("made.gif")});
  ExpectHandedOver({kConvert, "-strip", "-colorspace", "sRGB", "-thumbnail", "120x80", "-rotate", "0", "-layers",
                    "optimize", Photo("a.gif"), "-rotate", "0", Photo("made.gif")});
  ExpectHandedOver({"convert", "-strip", "-colorspace", "sRGB", Photo("a.png[0]"), "-thumbnail", "120x80", "-rotate",
                    "0", "-rotate", "0", Photo("made.png")});
}

TEST_F(AddOn, LeavesToConvertWhatItFailsAt) {
  MakePng(Photo("crash.png"), 300, 200);
  MakePng(Photo("a.png"), 300, 200);
  ExpectHandedOver(Vector(Photo("crash.png"), kScale, Photo("made.png")));
  ExpectHandedOver(Vector(Photo("a.png"), kScale, Photo("refused.png")));
  ExpectHandedOver(Vector(Photo("a.png"), kScale, Photo("no such folder/made.png")));
}

// convert writes through links, and into the file of another owner.
TEST_F(AddOn, LeavesDestinationsThatAreNotItsOwnToConvert) {
  MakePng(Photo("a.png"), 300, 200);
  std::filesystem::create_directory(Photo("folder.png"));
  WriteFile(folder_ / "elsewhere.png", "old");
  std::filesystem::create_symlink(folder_ / "elsewhere.png", Photo("link.png"));
  std::filesystem::create_symlink(folder_ / "nowhere.png", Photo("dangling.png"));
  std::filesystem::create_hard_link(folder_ / "elsewhere.png", Photo("hard.png"));
  for (const char* name : {"folder.png", "link.png", "dangling.png", "hard.png"}) {
    SCOPED_TRACE(name);
    ExpectHandedOver(Vector(Photo("a.png"), kScale, Photo(name)));
  }
  EXPECT_EQ(Identify(folder_ / "elsewhere.png").width, 120);
  EXPECT_TRUE(std::filesystem::is_symlink(Photo("link.png")));
  if (geteuid() != 0) return;
  WriteFile(Photo("other.png"), "old");
  ASSERT_EQ(chown(Photo("other.png").c_str(), 65534, 65534), 0);
  ExpectHandedOver(Vector(Photo("a.png"), kScale, Photo("other.png")));
  struct stat record = {};
  ASSERT_EQ(stat(Photo("other.png").c_str(), &record), 0);
  EXPECT_EQ(record.st_uid, 65534U);
}

// A file of that name is one that convert reads further arguments from.
TEST_F(AddOn, LeavesAFileWithTheNameOfTheFrameToConvert) {
  MakePng(Photo("a.png"), 300, 200);
  WriteFile(Photo("a.png[0]"), "");
  ExpectHandedOver(Vector(Photo("a.png"), kScale, Photo("made.png")));
}

TEST_F(AddOn, GivesANewFileTheModeOfTheUmaskAndKeepsThatOfAnOldOne) {
  MakePng(Photo("a.png"), 300, 200);
  ASSERT_EQ(Run(Vector(Photo("a.png"), kScale, Photo("new.png")), 027), 0);
  EXPECT_EQ(ModeOf(Photo("new.png")), 0640U);
  ASSERT_EQ(Run(Vector(Photo("a.png"), kScale, Photo("open.png")), 0), 0);
  EXPECT_EQ(ModeOf(Photo("open.png")), 0666U);
  WriteFile(Photo("old.png"), "old");
  ASSERT_EQ(chmod(Photo("old.png").c_str(), 0777), 0);
  ASSERT_EQ(Run(Vector(Photo("a.png"), kScale, Photo("old.png")), 027), 0);
  EXPECT_FALSE(Exists(HandedOver()));
  EXPECT_EQ(ModeOf(Photo("old.png")), 0777U);
  EXPECT_EQ(Identify(Photo("old.png")).width, 120);
  EXPECT_EQ(Names(folder_ / "photos"), (Arguments{"a.png", "new.png", "old.png", "open.png"}));
}

TEST_F(AddOn, FailsWithoutConvert) {
  Arguments environment = Environment();
  environment.push_back("NO_CONVERT=1");
  EXPECT_EQ(Await(Start(TAVITHUMB_CONVERT, {kConvert, "-version"}, environment)), 127);
}

// The children of a process.
std::string ChildrenOf(pid_t process) {
  const std::string id = std::to_string(process);
  return ReadFile("/proc/" + id + "/task/" + id + "/children");
}

TEST_F(AddOn, LeavesNothingBehindWhenItIsKilled) {
  MakePng(Photo("hang.png"), 300, 200);
  const pid_t process = Start(TAVITHUMB_CONVERT, Vector(Photo("hang.png"), kScale, Photo("made.png")), Environment());
  std::string child;
  while ((child = ChildrenOf(process)).empty()) usleep(1000);
  kill(process, SIGKILL);
  EXPECT_EQ(Await(process), -1);
  const pid_t decoder = std::stoi(child);
  while (kill(decoder, 0) == 0) usleep(1000);
  EXPECT_EQ(Names(folder_ / "photos"), Arguments{"hang.png"});
  EXPECT_FALSE(Exists(HandedOver()));
}

}  // namespace
}  // namespace tavithumb::test
