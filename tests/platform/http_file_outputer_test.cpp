// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <http_file_outputer.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "children.h"

namespace fs = std::filesystem;

namespace tavithumb::test {
namespace {

const std::string kCaching = "Cache-Control: max-age=300, must-revalidate\r\n";

std::string Content(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 % 253);
  return bytes;
}

std::string FileResponse(const std::string& mime, const std::string& content) {
  return kCaching + "Content-Type: " + mime + "\r\nContent-Length: " + std::to_string(content.size()) + "\r\n\r\n" +
         content;
}

std::string StreamResponse(const std::string& mime, const std::string& content) {
  return kCaching + "Content-Type: " + mime + "\r\n\r\n" + content;
}

// One run of the program "deliver", with a pipe to us, or another file, as its standard output.
class Delivery {
 public:
  explicit Delivery(const std::vector<std::string>& arguments, int output = -1, int pipeFlags = 0) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    if (pipeFlags != 0) fcntl(ends[1], F_SETFL, pipeFlags);
    const Arguments argv(Child("deliver"), arguments);
    std::fflush(nullptr);
    child_ = fork();
    if (child_ == 0) {
      dup2(output == -1 ? ends[1] : output, STDOUT_FILENO);
      if (output == kClosed) close(STDOUT_FILENO);
      execv(argv.Path(), const_cast<char* const*>(argv.Vector()));
      _exit(126);
    }
    close(ends[1]);
    output_ = ends[0];
  }
  ~Delivery() {
    StopReading();
    if (child_ != -1) EndOf(child_);
  }
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  static constexpr int kClosed = -2;

  void AwaitOutput() const {
    pollfd entry{output_, POLLIN, 0};
    while (poll(&entry, 1, -1) == -1 && errno == EINTR) {
    }
  }

  // Waits until the pipe is full and the program blocks, long after its headers.
  void AwaitFullPipe() const {
    for (int waiting = 0; waiting < 49152; std::this_thread::yield()) ioctl(output_, FIONREAD, &waiting);
  }

  // At most `limit` bytes, fewer only at the output's end.
  std::string Read(std::size_t limit = std::string::npos) const {
    std::string all;
    char data[1000];
    while (all.size() < limit) {
      const ssize_t got = read(output_, data, std::min(sizeof data, limit - all.size()));
      if (got <= 0) break;
      all.append(data, static_cast<std::size_t>(got));
    }
    return all;
  }

  void StopReading() {
    if (output_ != -1) close(output_);
    output_ = -1;
  }

  // The program's exit status, or minus the signal that it died of, and its report.
  std::string End() {
    const int end = EndOf(child_);
    child_ = -1;
    return std::to_string(end) + ": " + report_.Text();
  }

 private:
  Report report_;
  pid_t child_;
  int output_;
};

class HTTPFileOutputerOf : public testing::TestWithParam<std::size_t> {};

TEST_P(HTTPFileOutputerOf, AFileWritesTypeLengthAndContentAfterWhatWasPrinted) {
  TempDir folder;
  WriteFile(folder / "a.jpg", Content(GetParam()));
  Delivery delivery({"file", folder / "a.jpg", "image/jpeg"});
  EXPECT_TRUE(delivery.Read() == FileResponse("image/jpeg", Content(GetParam())));
  EXPECT_EQ(delivery.End(), "0: delivered");
}

TEST_P(HTTPFileOutputerOf, AStreamWritesTypeAndContentAfterWhatWasPrinted) {
  TempDir folder;
  WriteFile(folder / "a.gif", Content(GetParam()));
  Delivery delivery({"stream", folder / "a.gif", "image/gif"});
  EXPECT_TRUE(delivery.Read() == StreamResponse("image/gif", Content(GetParam())));
  EXPECT_EQ(delivery.End(), "0: delivered");
}

INSTANTIATE_TEST_SUITE_P(Sizes, HTTPFileOutputerOf, testing::Values(0, 1, 16383, 16384, 16385, 65536, 1000000),
                         testing::PrintToStringParamName());

TEST(HTTPFileOutputer, WritesToAFile) {
  TempDir folder;
  WriteFile(folder / "a.jpg", Content(50000));
  const int output = open((folder / "output").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  EXPECT_EQ(Delivery({"file", folder / "a.jpg", "image/jpeg"}, output).End(), "0: delivered");
  close(output);
  EXPECT_TRUE(ReadFile(folder / "output") == FileResponse("image/jpeg", Content(50000)));
}

TEST(HTTPFileOutputer, KeepsTheOrderWithWhatIsPrintedAfterwards) {
  TempDir folder;
  WriteFile(folder / "a.jpg", "content");
  Delivery delivery({"file", folder / "a.jpg", "image/jpeg", "print-more"});
  EXPECT_EQ(delivery.Read(), FileResponse("image/jpeg", "content") + "more\n");
  EXPECT_EQ(delivery.End(), "0: delivered");
}

TEST(HTTPFileOutputer, StartsAStreamAtItsPosition) {
  TempDir folder;
  WriteFile(folder / "a.jpg", "0123456789");
  Delivery delivery({"stream", folder / "a.jpg", "image/jpeg", "partly-read"});
  EXPECT_EQ(delivery.Read(), StreamResponse("image/jpeg", "123456789"));
  EXPECT_EQ(delivery.End(), "0: delivered");
}

TEST(HTTPFileOutputer, WritesNothingOfItsOwnForAnythingButARegularFile) {
  TempDir folder;
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  for (const std::string& path : {folder / "missing", folder.Path(), folder / "fifo", std::string("/dev/null")}) {
    SCOPED_TRACE(path);
    Delivery delivery({"file", path, "image/jpeg"});
    EXPECT_EQ(delivery.Read(), kCaching);
    EXPECT_EQ(delivery.End(), "0: failed");
  }
}

TEST(HTTPFileOutputer, WritesNothingOfItsOwnForANullStream) {
  Delivery delivery({"null", "", "image/jpeg"});
  EXPECT_EQ(delivery.Read(), kCaching);
  EXPECT_EQ(delivery.End(), "0: failed");
}

TEST(HTTPFileOutputer, WritesNothingOfItsOwnForATypeThatWouldAddHeaders) {
  TempDir folder;
  WriteFile(folder / "a.jpg", "content");
  for (const char* form : {"file", "stream"}) {
    for (const char* mime : {"image/jpeg\r\nX: y", "image/jpeg\n\n", "image/jpeg\r", "\r\n"}) {
      SCOPED_TRACE(std::string(form) + " " + testing::PrintToString(mime));
      Delivery delivery({form, folder / "a.jpg", mime});
      EXPECT_EQ(delivery.Read(), kCaching);
      EXPECT_EQ(delivery.End(), "0: failed");
    }
  }
}

TEST(HTTPFileOutputer, FailsWhenAStreamCannotBeReadToItsEnd) {
  Delivery delivery({"stream", "/", "image/jpeg"});  // a directory can be opened, not read
  EXPECT_EQ(delivery.Read(), StreamResponse("image/jpeg", ""));
  EXPECT_EQ(delivery.End(), "0: failed");
}

TEST(HTTPFileOutputer, FailsWhenAFileShrinksMeanwhile) {
  TempDir folder;
  WriteFile(folder / "a.jpg", Content(1000000));
  Delivery delivery({"file", folder / "a.jpg", "image/jpeg"});
  delivery.AwaitFullPipe();
  fs::resize_file(folder / "a.jpg", 0);
  const std::string whole = FileResponse("image/jpeg", Content(1000000)), got = delivery.Read();
  EXPECT_LT(got.size(), whole.size());
  EXPECT_TRUE(got == whole.substr(0, got.size()));
  EXPECT_EQ(delivery.End(), "0: failed");
}

TEST(HTTPFileOutputer, SendsNoMoreOfAGrowingFileThanItAnnounced) {
  TempDir folder;
  WriteFile(folder / "a.jpg", Content(1000000));
  Delivery delivery({"file", folder / "a.jpg", "image/jpeg"});
  delivery.AwaitFullPipe();
  fs::resize_file(folder / "a.jpg", 2000000);
  EXPECT_TRUE(delivery.Read() == FileResponse("image/jpeg", Content(1000000)));
  EXPECT_EQ(delivery.End(), "0: delivered");
}

TEST(HTTPFileOutputer, SurvivesAReaderThatWasNeverThere) {
  TempDir folder;
  WriteFile(folder / "a.jpg", Content(1000));
  for (const char* form : {"file", "stream"}) {
    SCOPED_TRACE(form);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    // Nothing is left that would raise SIGPIPE when the program ends.
    EXPECT_EQ(Delivery({form, folder / "a.jpg", "image/jpeg"}, ends[1]).End(), "0: failed");
    close(ends[1]);
  }
}

TEST(HTTPFileOutputer, SurvivesAReaderThatDisappearsMeanwhile) {
  TempDir folder;
  WriteFile(folder / "a.jpg", Content(5000000));
  for (const char* form : {"file", "stream"}) {
    SCOPED_TRACE(form);
    Delivery delivery({form, folder / "a.jpg", "image/jpeg"});
    EXPECT_EQ(delivery.Read(kCaching.size()), kCaching);
    delivery.StopReading();
    EXPECT_EQ(delivery.End(), "0: failed");
  }
}

TEST(HTTPFileOutputer, LeavesASigPipeThatWasPendingBeforeToTheCaller) {
  TempDir folder;
  WriteFile(folder / "a.jpg", Content(5000000));
  Delivery broken({"file", folder / "a.jpg", "image/jpeg", "pending"});
  broken.AwaitOutput();
  broken.StopReading();
  EXPECT_EQ(broken.End(), "0: failed, SIGPIPE blocked, SIGPIPE pending");

  Delivery whole({"file", folder / "a.jpg", "image/jpeg", "pending"});
  EXPECT_TRUE(whole.Read() == FileResponse("image/jpeg", Content(5000000)));
  EXPECT_EQ(whole.End(), "0: delivered, SIGPIPE blocked, SIGPIPE pending");
}

TEST(HTTPFileOutputer, FailsWhenTheOutputIsFull) {
  TempDir folder;
  WriteFile(folder / "a.jpg", "content");
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  for (const char* form : {"file", "stream"}) {
    EXPECT_EQ(Delivery({form, folder / "a.jpg", "image/jpeg"}, full).End(), "0: failed") << form;
  }
  close(full);
}

TEST(HTTPFileOutputer, FailsWhenNotEvenItsHeadersCanBeWritten) {
  TempDir folder;
  WriteFile(folder / "empty", "");
  CheckInProcess([&] {
    ASSERT_EQ(dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO), STDOUT_FILENO);
    HTTPFileOutputer outputer;
    std::FILE* const stream = std::fopen((folder / "empty").c_str(), "rb");
    EXPECT_NE(outputer.Output(stream, "name.jpg", "image/jpeg"), 0);
    EXPECT_NE(outputer.Output((folder / "empty").c_str(), "image/jpeg"), 0);
    std::fclose(stream);
  });
}

TEST(HTTPFileOutputer, ContinuesWritingAfterSignals) {
  TempDir folder;
  WriteFile(folder / "a.jpg", Content(1000000));
  for (const std::string form : {"file", "stream"}) {
    SCOPED_TRACE(form);
    Delivery delivery({form, folder / "a.jpg", "image/jpeg", "interrupted"});
    delivery.AwaitOutput();
    usleep(20000);  // it blocks while the pipe is full, and is interrupted there
    EXPECT_TRUE(delivery.Read() == (form == "file" ? FileResponse("image/jpeg", Content(1000000))
                                                   : StreamResponse("image/jpeg", Content(1000000))));
    EXPECT_EQ(delivery.End(), "0: delivered");
  }
}

TEST(HTTPFileOutputer, ContinuesReadingAfterSignals) {
  TempDir folder;
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  const int writer = open((folder / "fifo").c_str(), O_RDWR | O_CLOEXEC);
  Delivery delivery({"stream", folder / "fifo", "image/jpeg", "interrupted"});
  ASSERT_EQ(write(writer, "one ", 4), 4);
  const std::string headers = StreamResponse("image/jpeg", "");
  EXPECT_EQ(delivery.Read(headers.size()), headers);
  usleep(20000);  // it blocks until more content comes, and is interrupted there
  ASSERT_EQ(write(writer, "two", 3), 3);
  close(writer);
  EXPECT_EQ(delivery.Read(), "one two");
  EXPECT_EQ(delivery.End(), "0: delivered");
}

TEST(HTTPFileOutputer, WritesEverythingToANonBlockingOutput) {
  TempDir folder;
  WriteFile(folder / "a.jpg", Content(1000000));
  for (const std::string form : {"file", "stream"}) {
    SCOPED_TRACE(form);
    Delivery delivery({form, folder / "a.jpg", "image/jpeg"}, -1, O_WRONLY | O_NONBLOCK);
    EXPECT_TRUE(delivery.Read() == (form == "file" ? FileResponse("image/jpeg", Content(1000000))
                                                   : StreamResponse("image/jpeg", Content(1000000))));
    EXPECT_EQ(delivery.End(), "0: delivered");
  }
}

TEST(HTTPFileOutputer, FailsWithoutAStandardOutput) {
  TempDir folder;
  WriteFile(folder / "a.jpg", "content");
  for (const char* form : {"file", "stream"}) {
    EXPECT_EQ(Delivery({form, folder / "a.jpg", "image/jpeg"}, Delivery::kClosed).End(), "0: failed") << form;
  }
}

// The CGI variables of a request, as long as it lives; the children inherit them.
class CgiVariables {
 public:
  explicit CgiVariables(std::vector<std::pair<std::string, std::string>> variables) : variables_(std::move(variables)) {
    variables_.emplace_back("GATEWAY_INTERFACE", "CGI/1.1");
    for (const auto& [name, value] : variables_) setenv(name.c_str(), value.c_str(), 1);
  }
  ~CgiVariables() {
    for (const auto& [name, value] : variables_) unsetenv(name.c_str());
  }
  CgiVariables(const CgiVariables&) = delete;
  CgiVariables& operator=(const CgiVariables&) = delete;

 private:
  std::vector<std::pair<std::string, std::string>> variables_;
};

std::string Answer(const std::string& path, const std::vector<std::pair<std::string, std::string>>& variables,
                   const std::string& form = "file");

// The tag that clients get.
std::string EtagOf(const std::string& path) {
  const std::string headers = Answer(path, {{"REQUEST_METHOD", "HEAD"}});
  const std::size_t start = headers.find("ETag: ") + 6;
  return headers.substr(start, headers.find("\r\n", start) - start);
}

std::string HttpDate(std::time_t seconds) {
  struct tm parts = {};
  gmtime_r(&seconds, &parts);
  char text[40];
  return {text, std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts)};
}

// The headers of bytes first to last, up to the validators.
std::string Part(long long first, long long last, long long size) {
  return kCaching + "Status: 206 Partial Content\r\nContent-Type: image/jpeg\r\nContent-Length: " +
         std::to_string(last - first + 1) + "\r\nContent-Range: bytes " + std::to_string(first) + "-" +
         std::to_string(last) + "/" + std::to_string(size) + "\r\n";
}

constexpr char kLastModified[] = "Tue, 14 Nov 2023 22:13:20 GMT";

// Of a file modified then.
std::string ValidatorsOf(const std::string& path) {
  return std::string("Last-Modified: ") + kLastModified + "\r\nETag: " + EtagOf(path) + "\r\n";
}

// A file of ten bytes and the headers of every answer with it.
class FileForCgi {
 public:
  FileForCgi() {
    WriteFile(path, "0123456789");
    SetTimes(path, 1700000000, 1700000000);
  }
  std::string Validators() const { return ValidatorsOf(path); }
  std::string Whole() const {
    return kCaching + "Content-Type: image/jpeg\r\nContent-Length: 10\r\n" + Validators() +
           "Accept-Ranges: bytes\r\n\r\n";
  }

 private:
  TempDir folder_;

 public:
  const std::string path = folder_ / "a.jpg";
};

std::string Answer(const std::string& path, const std::vector<std::pair<std::string, std::string>>& variables,
                   const std::string& form) {
  const CgiVariables request(variables);
  Delivery delivery({form, path, "image/jpeg"});
  const std::string response = delivery.Read();
  EXPECT_EQ(delivery.End(), "0: delivered");
  return response;
}

TEST(HTTPFileOutputerForCgi, SendsWhatACacheNeeds) {
  const FileForCgi file;
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "GET"}}), file.Whole() + "0123456789");
}

TEST(HTTPFileOutputerForCgi, GivesEveryFileATagWithoutItsInode) {
  const FileForCgi file, same;
  struct stat facts = {};
  stat(file.path.c_str(), &facts);
  std::ostringstream inode;
  inode << std::hex << facts.st_ino;
  EXPECT_THAT(EtagOf(file.path), testing::MatchesRegex("\"a-[0-9a-f]+\""));
  EXPECT_THAT(EtagOf(file.path), testing::Not(testing::HasSubstr(inode.str())));
  EXPECT_EQ(EtagOf(file.path), EtagOf(file.path));
  EXPECT_NE(EtagOf(file.path), EtagOf(same.path));
}

TEST(HTTPFileOutputerForCgi, LeavesOutTheContentForHead) {
  const FileForCgi file;
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "HEAD"}}), file.Whole());
}

TEST(HTTPFileOutputerForCgi, SendsNothingThatTheClientHasAlready) {
  const FileForCgi file;
  const std::string expected = kCaching + "Status: 304 Not Modified\r\n" + file.Validators() + "\r\n";
  for (const char* method : {"GET", "HEAD"}) {
    EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", method}, {"HTTP_IF_NONE_MATCH", EtagOf(file.path)}}), expected);
    EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", method}, {"HTTP_IF_MODIFIED_SINCE", kLastModified}}), expected);
  }
}

TEST(HTTPFileOutputerForCgi, SendsAPart) {
  const FileForCgi file;
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "GET"}, {"HTTP_RANGE", "bytes=2-4"}}),
            Part(2, 4, 10) + file.Validators() + "Accept-Ranges: bytes\r\n\r\n234");
}

TEST(HTTPFileOutputerForCgi, SendsAPartOnlyOfTheVersionThatTheClientHas) {
  const FileForCgi file;
  const std::string part = Part(2, 4, 10) + file.Validators() + "Accept-Ranges: bytes\r\n\r\n234";
  const std::string whole = file.Whole() + "0123456789";
  const std::string etag = EtagOf(file.path);
  const std::pair<std::string, std::string> rows[] = {
      {etag, part},
      {kLastModified, part},
      {"W/" + etag, whole},
      {"\"other\"", whole},
      {"Tue, 14 Nov 2023 22:13:21 GMT", whole},
  };
  for (const auto& [ifRange, expected] : rows) {
    EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "GET"}, {"HTTP_RANGE", "bytes=2-4"}, {"HTTP_IF_RANGE", ifRange}}),
              expected)
        << ifRange;
  }
}

TEST(HTTPFileOutputerForCgi, IgnoresPartsForHeadAndAllConditionsForOtherMethods) {
  const FileForCgi file;
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "HEAD"}, {"HTTP_RANGE", "bytes=2-4"}}), file.Whole());
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "POST"}, {"HTTP_RANGE", "bytes=2-4"}, {"HTTP_IF_NONE_MATCH", "*"}}),
            file.Whole() + "0123456789");
}

TEST(HTTPFileOutputerForCgi, GivesAFileFromTheFutureTheDateOfItsLastChange) {
  const FileForCgi file;
  const std::time_t before = std::time(nullptr);
  SetTimes(file.path, before + 86400, before + 86400);
  const std::string response = Answer(file.path, {{"REQUEST_METHOD", "GET"}});
  std::vector<std::string> possible;
  for (std::time_t now = before; now <= std::time(nullptr); ++now) {
    possible.push_back(kCaching + "Content-Type: image/jpeg\r\nContent-Length: 10\r\nLast-Modified: " + HttpDate(now) +
                       "\r\nETag: " + EtagOf(file.path) + "\r\nAccept-Ranges: bytes\r\n\r\n0123456789");
  }
  EXPECT_THAT(possible, testing::Contains(response));
}

TEST(HTTPFileOutputerForCgi, SendsAFileFromTheFutureToThoseWhoHaveItsDate) {
  const FileForCgi file;
  const std::time_t before = std::time(nullptr);
  SetTimes(file.path, before + 86400, before + 86400);
  const std::string whole = Answer(file.path, {{"REQUEST_METHOD", "GET"}});
  const std::string name = "Last-Modified: ", date = whole.substr(whole.find(name) + name.size(), 29);
  while (std::time(nullptr) <= before + 1) usleep(10000);
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "GET"}, {"HTTP_IF_UNMODIFIED_SINCE", date}}), whole);
}

TEST(HTTPFileOutputerForCgi, SendsNoPartByADateThatTwoContentsMayShare) {
  const FileForCgi file;
  WriteFile(file.path, "abcdefghij");
  const std::string date = HttpDate(ModificationTime(file.path));
  WriteFile(file.path, "0123456789");
  EXPECT_THAT(Answer(file.path, {{"REQUEST_METHOD", "GET"}, {"HTTP_RANGE", "bytes=2-4"}, {"HTTP_IF_RANGE", date}}),
              testing::EndsWith("\r\n\r\n0123456789"));
}

TEST(HTTPFileOutputerForCgi, GivesAFileThatIsRewrittenAnotherTagEvenIfItsTimeIsPutBack) {
  const FileForCgi file;
  const std::string before = EtagOf(file.path);
  usleep(20000);  // more than a tick of the file system's clock
  WriteFile(file.path, "abcdefghij");
  SetTimes(file.path, 1700000000, 1700000000);
  EXPECT_NE(EtagOf(file.path), before);
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "GET"}, {"HTTP_IF_NONE_MATCH", before}}),
            file.Whole() + "abcdefghij");
}

// After the caller's line about caching, which an error overrides.
std::string Refusal(const std::string& status, const std::string& body, const std::string& more) {
  return kCaching + "Status: " + status +
         "\r\nCache-Control: no-store\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n" + more + "\r\n";
}

TEST(HTTPFileOutputerForCgi, RefusesAPartBeyondTheEnd) {
  const FileForCgi file;
  const std::string body = "the requested range is outside the file\n";
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "GET"}, {"HTTP_RANGE", "bytes=10-"}}),
            Refusal("416 Range Not Satisfiable", body, "Content-Range: bytes */10\r\n") + body);
}

TEST(HTTPFileOutputerForCgi, RefusesAVersionThatNoLongerExists) {
  const FileForCgi file;
  const std::string body = "the file has changed\n", headers = Refusal("412 Precondition Failed", body, "");
  const std::pair<const char*, const char*> conditions[] = {
      {"HTTP_IF_MATCH", "\"other\""}, {"HTTP_IF_UNMODIFIED_SINCE", "Tue, 14 Nov 2023 22:13:19 GMT"}};
  for (const auto& [name, value] : conditions) {
    EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "GET"}, {name, value}}), headers + body) << name;
    EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "HEAD"}, {name, value}}), headers) << name;
  }
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "GET"}, {"HTTP_IF_MATCH", EtagOf(file.path)}}),
            file.Whole() + "0123456789");
}

std::time_t LastRead(const std::string& path) {
  struct stat facts = {};
  stat(path.c_str(), &facts);
  return facts.st_atime;
}

TEST(HTTPFileOutputerForCgi, ReadsNoContentThatItDoesNotSend) {
  const FileForCgi file;
  const std::vector<std::pair<std::string, std::string>> requests[] = {
      {{"REQUEST_METHOD", "GET"}, {"HTTP_IF_NONE_MATCH", "*"}},
      {{"REQUEST_METHOD", "GET"}, {"HTTP_RANGE", "bytes=10-"}},
      {{"REQUEST_METHOD", "GET"}, {"HTTP_IF_MATCH", "\"other\""}},
      {{"REQUEST_METHOD", "HEAD"}},
  };
  for (const auto& request : requests) {
    Answer(file.path, request);
    EXPECT_EQ(LastRead(file.path), 1700000000) << testing::PrintToString(request);
  }
  Answer(file.path, {{"REQUEST_METHOD", "GET"}});
  if (LastRead(file.path) == 1700000000) GTEST_SKIP() << "this volume keeps no access times";
}

TEST(HTTPFileOutputerForCgi, SendsOfAStreamWhatIsKnown) {
  const FileForCgi file;
  const std::string headers = kCaching + "Content-Type: image/jpeg\r\nAccept-Ranges: none\r\n\r\n";
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "GET"}, {"HTTP_RANGE", "bytes=2-4"}}, "stream"),
            headers + "0123456789");
  EXPECT_EQ(Answer(file.path, {{"REQUEST_METHOD", "HEAD"}}, "stream"), headers);
}

TEST(HTTPFileOutputerForCgi, SendsAPartFromBeyondFourGibibytes) {
  TempDir folder;
  WriteFile(folder / "large", "");
  fs::resize_file(folder / "large", 5368709120);
  std::FILE* const large = std::fopen((folder / "large").c_str(), "a");
  std::fputs("the end", large);
  std::fclose(large);
  SetTimes(folder / "large", 1700000000, 1700000000);
  EXPECT_EQ(Answer(folder / "large", {{"REQUEST_METHOD", "GET"}, {"HTTP_RANGE", "bytes=-9"}}),
            Part(5368709118, 5368709126, 5368709127) + ValidatorsOf(folder / "large") + "Accept-Ranges: bytes\r\n\r\n" +
                std::string("\0\0the end", 9));
}

TEST(HTTPFileOutputerForCgi, CopiesAPartWhereTheKernelCannotSendIt) {
  TempDir folder;
  const FileForCgi file;
  const CgiVariables request({{"REQUEST_METHOD", "GET"}, {"HTTP_RANGE", "bytes=2-4"}});
  const int output = open((folder / "output").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  EXPECT_EQ(Delivery({"file", file.path, "image/jpeg"}, output).End(), "0: delivered");
  close(output);
  EXPECT_EQ(ReadFile(folder / "output"), Part(2, 4, 10) + file.Validators() + "Accept-Ranges: bytes\r\n\r\n234");
}

TEST(HTTPFileOutputer, CopiesWhereTheKernelCannotSend) {
  TempDir folder;
  WriteFile(folder / "a.jpg", Content(50000));
  const int output = open((folder / "output").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  EXPECT_EQ(Delivery({"file", folder / "a.jpg", "image/jpeg"}, output).End(), "0: delivered");
  close(output);
  EXPECT_TRUE(ReadFile(folder / "output") == FileResponse("image/jpeg", Content(50000)));
}

}  // namespace
}  // namespace tavithumb::test
