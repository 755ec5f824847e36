// SPDX-License-Identifier: GPL-3.0-or-later
#include "web/connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>

#include "web/http_error.h"

namespace tavithumb::apps::web {

// Reads no byte after the netstring's end: a body stays unread.
std::optional<Variables> ReadScgi(int connection) {
  constexpr std::size_t firstRead = 8;  // enough for the length
  std::string request;
  std::optional<std::size_t> length;
  while (!length || request.size() < *length) {
    std::array<char, 4096> data;
    const std::size_t wanted = length ? *length - request.size() : firstRead - request.size();
    const ssize_t got = read(connection, data.data(), std::min(wanted, data.size()));
    if (got == -1 && errno == EINTR) continue;
    if (got == 0 && request.empty()) return std::nullopt;
    if (got <= 0) throw HttpError(kBadRequest, "the web server's request is incomplete");
    request.append(data.data(), static_cast<std::size_t>(got));
    if (!length) length = ScgiLength(request);
  }
  return ParseScgi(request);
}

Variables ReadEnvironment() {
  Variables variables;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::size_t equals = text.find('=');
    if (equals != text.npos) variables.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  return variables;
}

void Respond(int connection, const std::string& response) {
  const ssize_t sent = send(connection, response.data(), response.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent == -1 && errno == ENOTSOCK && write(connection, response.data(), response.size()) == -1) return;
  EndResponse(connection);
}

void EndResponse(int connection) {
  std::array<char, 4096> data;
  while (recv(connection, data.data(), data.size(), MSG_DONTWAIT) > 0) {
  }
  shutdown(connection, SHUT_WR);
}

}  // namespace tavithumb::apps::web
