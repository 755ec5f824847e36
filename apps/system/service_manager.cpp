// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>

#include "system/file_descriptor.h"
#include "system/numbers.h"

namespace tavithumb::apps {
namespace {

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): there is one thread
  return value == nullptr ? "" : value;
}

// Zero if nobody watches this process.
std::chrono::microseconds WatchdogTime() {
  const std::string process = Variable("WATCHDOG_PID");
  if (!process.empty() && process != std::to_string(getpid())) return {};
  return std::chrono::microseconds(ParseNumber<std::uint32_t>(Variable("WATCHDOG_USEC")).value_or(0));
}

}  // namespace

ServiceManager::ServiceManager() : socket_(Variable("NOTIFY_SOCKET")), interval_(WatchdogTime() / 2) {
  if (interval_ > Clock::duration::zero()) next_ = Clock::now();
}

void ServiceManager::SayAlive() {
  if (Clock::now() < next_) return;
  next_ = Clock::now() + interval_;
  Say("WATCHDOG=1");
}

// "@" stands for the zero byte with which abstract names start.
void ServiceManager::Say(const std::string& message) const {
  sockaddr_un address = {};
  if (socket_.empty() || socket_.size() >= sizeof(address.sun_path)) return;
  address.sun_family = AF_UNIX;
  socket_.copy(address.sun_path, socket_.size());
  if (socket_.front() == '@') address.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
  const FileDescriptor channel(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sendto(channel.Number(), message.data(), message.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&address), size);
}

}  // namespace tavithumb::apps
