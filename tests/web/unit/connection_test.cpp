// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

#include "system/file_descriptor.h"
#include "web/http_error.h"

namespace tavithumb::apps::web {
namespace {

// The web server's end of a connection, and the program's.
class Connections : public testing::Test {
 protected:
  void SetUp() override { Connect(); }

  void Connect() {
    std::array<int, 2> ends = {};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    server = FileDescriptor(ends[0]);
    program = FileDescriptor(ends[1]);
  }

  void Send(const std::string& text) const {
    EXPECT_EQ(send(server.Number(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  }

  static std::string Unread(const FileDescriptor& end) {
    std::array<char, 4096> data = {};
    const ssize_t got = recv(end.Number(), data.data(), data.size(), MSG_DONTWAIT);
    return {data.data(), static_cast<std::size_t>(got > 0 ? got : 0)};
  }

  FileDescriptor server, program;
};

const std::string kRequest = std::string("18:NAME\0a long value\0,", 22);

TEST_F(Connections, LeaveABodyUnread) {
  Send(kRequest + "body");
  EXPECT_EQ(ReadScgi(program.Number()), (Variables{{"NAME", "a long value"}}));
  EXPECT_EQ(Unread(program), "body");
}

TEST_F(Connections, WithoutARequestAreNoError) {
  shutdown(server.Number(), SHUT_WR);
  EXPECT_EQ(ReadScgi(program.Number()), std::nullopt);
}

TEST_F(Connections, ThatEndEarlyHaveABadRequest) {
  for (const std::size_t length : {1u, 8u, 20u}) {
    Connect();
    Send(kRequest.substr(0, length));
    shutdown(server.Number(), SHUT_WR);
    try {
      ReadScgi(program.Number());
      ADD_FAILURE() << length;
    } catch (const HttpError& error) {
      EXPECT_EQ(error.Code(), kBadRequest) << length;
    }
  }
}

TEST_F(Connections, CarryTheWholeResponseAndEndIt) {
  Send("unread");
  Respond(program.Number(), "response");
  EXPECT_EQ(Unread(server), "response");
  EXPECT_EQ(Unread(program), "");
  std::array<char, 1> data;
  EXPECT_EQ(recv(server.Number(), data.data(), data.size(), MSG_DONTWAIT), 0) << "not ended";
}

}  // namespace
}  // namespace tavithumb::apps::web
