// SPDX-License-Identifier: GPL-3.0-or-later
// `tavithumb get --files-from`: a list of names, each answered as soon as it has been read.
#include <fcntl.h>
#include <pictures.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "batch.h"

namespace tavithumb::test {
namespace {

using namespace std::string_literals;
using nlohmann::json;

class GetList : public Batch {
 protected:
  Start WithInput(const std::string& content, Start start = {}) const {
    WriteFile(notes / "input", content);
    start.input = notes / "input";
    start.folder = folder.Path();
    return start;
  }

  // The answers: the last part of a path, and of an answer.
  std::vector<json> Ask(const std::string& content, int code, const std::vector<std::string>& options = {}) const {
    std::vector<std::string> arguments = {"get", "--json", "--files-from", "-"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const Outcome outcome = run(arguments, WithInput(content));
    EXPECT_EQ(outcome.code, code) << outcome;
    return ObjectsOf(outcome.out);
  }

  static std::string AnswerIn(const json& object) {
    const json& error = object.at("error");
    if (!error.is_null()) return error;
    return std::filesystem::path(object.at("answer").get<std::string>()).filename();
  }

  static std::vector<std::string> AnswersIn(const std::vector<json>& objects) {
    std::vector<std::string> answers;
    for (const json& object : objects) answers.push_back(AnswerIn(object));
    return answers;
  }

  const std::string png = folder / "a.png";
};

// Both ends of a pipe.
struct Pipe {
  Pipe() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    reading = ends[0];
    writing = ends[1];
  }

  std::string ReadLine() const {
    std::string line;
    for (char byte = 0; read(reading, &byte, 1) == 1 && byte != '\n';) line += byte;
    return line;
  }

  int reading;
  int writing;
};

TEST_F(GetList, AnswersEachNameBeforeTheNextIsWritten) {
  MakePng(png, 400, 200);
  MakePng(folder / "b.png", 40, 20);
  const std::string fifo = notes / "names";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const Pipe answers;
  Start start = In(folder.Path());
  start.input = fifo;
  start.outputDescriptor = answers.writing;
  const pid_t process = run.Begin({"get", "--files-from", "-"}, start);
  const int names = open(fifo.c_str(), O_WRONLY);
  const std::pair<std::string, std::string> rows[] = {{"b.png", folder / "b.png"},
                                                      {"missing.png", ""},
                                                      {"", ""},
                                                      {"a.png", EntryOf(png, "TAVIFILE_THUMB_M.png")},
                                                      {png, EntryOf(png, "TAVIFILE_THUMB_M.png")}};
  for (const auto& [name, answer] : rows) {
    ASSERT_NE(write(names, (name + "\n").c_str(), name.size() + 1), -1);
    EXPECT_EQ(answers.ReadLine(), answer) << name;
  }
  close(names);
  const Outcome outcome = run.Await(process);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err,
            "tavithumb: missing.png: it does not exist; check its name\n"
            "tavithumb: : it does not exist; check its name\n");
  close(answers.writing);
  close(answers.reading);
}

// As the system does when memory runs out.
void KillIdleChildOf(pid_t process) {
  const std::string task = "/proc/" + std::to_string(process) + "/task/" + std::to_string(process);
  const pid_t child = std::stoi(ReadFile(task + "/children"));
  ASSERT_EQ(kill(child, SIGKILL), 0);
  while (!HasMatch(ReadFile("/proc/" + std::to_string(child) + "/stat"), "\\) Z ")) usleep(1000);
}

TEST_F(GetList, GoesOnWithAnotherProcessWhenTheOneThatAnswersIsKilled) {
  MakePng(png, 40, 20);
  const std::string fifo = notes / "names";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const Pipe answers;
  Start start = In(folder.Path());
  start.input = fifo;
  start.outputDescriptor = answers.writing;
  const pid_t process = run.Begin({"get", "--files-from", "-"}, start);
  const int names = open(fifo.c_str(), O_WRONLY);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(write(names, "a.png\n", 6), 6);
    EXPECT_EQ(answers.ReadLine(), png);
    KillIdleChildOf(process);
  }
  close(names);
  const Outcome outcome = run.Await(process);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  close(answers.writing);
  close(answers.reading);
}

TEST_F(GetList, AnswersTheNamesOfTheCommandLineFirst) {
  MakePng(png, 40, 20);
  MakePng(folder / "b.png", 40, 20);
  const Outcome outcome = run({"get", "--files-from", "-", "b.png"}, WithInput("a.png"));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, folder / "b.png" + "\n" + png + "\n");
  EXPECT_EQ(outcome.err, "");
}

TEST_F(GetList, MayBeOfNamesThatEndWithNulBytes) {
  const std::string odd = folder / "a\n\xff.png";
  MakePng(odd, 40, 20);
  const std::string names = "a\n\xff.png\0missing.png\0a\n\xff.png\0"s;
  const Outcome outcome = run({"get", "-0", "--files-from", "-"}, WithInput(names));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, odd + '\0' + '\0' + odd + '\0');
  const std::vector<json> objects = Ask(names, 1, {"-0"});
  ASSERT_EQ(objects.size(), 3u);
  EXPECT_EQ(objects[0].at("answer_hex"), objects[2].at("source_hex"));
  EXPECT_EQ(objects[1].at("error"), "it does not exist");
}

TEST_F(GetList, OfObjectsHasASizeAndARotationForEach) {
  MakePng(png, 800, 400);
  EXPECT_EQ(AnswersIn(Ask("{\"file\": \"a.png\"}\n"
                          "{\"file\": \"a.png\", \"size\": \"big\", \"rotate\": \"-1\"}\n"
                          "{\"rotate\": 2, \"size\": 100, \"file\": \"a.png\"}\n"
                          "a.png\n",
                          0, {"--size", "small", "--rotate", "1"})),
            (std::vector<std::string>{"TAVIFILE_THUMB_S_r1.png", "TAVIFILE_THUMB_B_r3.png",
                                      "TAVIFILE_THUMB_100x100_r2.png", "TAVIFILE_THUMB_S_r1.png"}));
}

TEST_F(GetList, AnswersALineThatIsNoObjectWithAnError) {
  MakePng(png, 40, 20);
  const std::pair<std::string, std::string> rows[] = {
      {"{", "it is not a JSON object; a name that starts with { needs ./"},
      {"{}", "it has no \"file\""},
      {"{\"file\": 1}", "the value of \"file\" is not a string"},
      {"{\"file\": \"a.png\", \"size\": [1]}", "the value of \"size\" is not a string or a number"},
      {"{\"file\": \"a.png\", \"rotate\": 1.5}", "the value of \"rotate\" is not a string or a number"},
      {"{\"file\": \"a.png\", \"rotate\": \"left\"}",
       "'left' is not a number of quarter turns: use a whole number such as 1 or -1"},
      {"{\"file\": \"a.png\", \"sise\": \"big\"}", "\"sise\" is not a key: use \"file\", \"size\" and \"rotate\""},
      {"{\"file\": \"a.png\\u0000.jpg\"}", "a name can't contain a NUL byte"},
      {"{\"file\": \"a.png\", \"size\": \"9x9\"}", "--albumex needs a named size: Albumex stores no others"},
  };
  for (const auto& [line, error] : rows) {
    const std::vector<json> objects = Ask(line + "\na.png\n", 1, {"--albumex"});
    ASSERT_EQ(objects.size(), 2u) << line;
    EXPECT_EQ(objects[0], (json{{"source", line}, {"error", error}}));
    EXPECT_EQ(objects[1].at("answer"), png);
  }
}

TEST_F(GetList, HasObjectsInJsonOnly) {
  MakePng(folder / "{\"file\": \"a.png\"}.png", 40, 20);
  const Outcome outcome = run({"get", "--files-from", "-"}, WithInput("{\"file\": \"a.png\"}.png\n"));
  EXPECT_EQ(outcome.out, folder / "{\"file\": \"a.png\"}.png" + "\n") << outcome;
}

TEST_F(GetList, OutlivesAFileThatCrashesADecoder) {
  for (const char* name : {"a.png", "crash.png", "b.png"}) MakePng(folder / name, 400, 200);
  const Outcome outcome =
      run({"get", "--library", "--files-from", "-"}, WithInput("a.png\ncrash.png\nb.png\n", ProbedStart()));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out,
            EntryOf(png, "TAVIFILE_THUMB_M.png") + "\n\n" + EntryOf(folder / "b.png", "TAVIFILE_THUMB_M.png") + "\n");
  EXPECT_EQ(outcome.err,
            "tavithumb: crash.png: the process working on it died; check that it opens in another program\n");
}

TEST_F(GetList, SurvivesNamesOfAnyLength) {
  MakePng(png, 40, 20);
  const std::string longest(65536, 'x'), tooLong = "it cannot be accessed: File name too long";
  EXPECT_EQ(AnswersIn(Ask(std::string(4096, 'x') + "\n" + longest + "\na.png\n", 1)),
            (std::vector<std::string>{tooLong, tooLong, "a.png"}));
  const Outcome outcome = run({"get", "--files-from", "-"}, WithInput("a.png\n" + longest + longest + "\na.png\n"));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.out, png + "\n");
  EXPECT_EQ(outcome.err,
            "tavithumb: standard input: it contains a name of more than 65536 bytes; add -0 if its names end with NUL "
            "bytes\n");
}

}  // namespace
}  // namespace tavithumb::test
