// SPDX-License-Identifier: GPL-3.0-or-later
// redirecting SOCKET ADDRESS   The least that an SCGI program can do, to compare the web program with: two processes
// answer every request by sending the web server to ADDRESS.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <iostream>
#include <string>

namespace {

int Listen(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return -1;
  return listen(listener, SOMAXCONN) == 0 ? listener : -1;
}

// A request of a web server on the same machine arrives at once.
[[noreturn]] void Answer(int listener, const std::string& response) {
  for (;;) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    std::array<char, 8192> request;
    if (read(connection, request.data(), request.size()) > 0) {
      static_cast<void>(send(connection, response.data(), response.size(), MSG_NOSIGNAL));
    }
    close(connection);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int listener = argc == 3 ? Listen(argv[1]) : -1;
  if (listener == -1) {
    std::cerr << "usage: redirecting SOCKET ADDRESS\n";
    return 2;
  }
  const std::string response = "Content-Type: image/jpeg\r\nX-Accel-Redirect: " + std::string(argv[2]) + "\r\n\r\n";
  if (fork() == 0) prctl(PR_SET_PDEATHSIG, SIGTERM);
  Answer(listener, response);
}
