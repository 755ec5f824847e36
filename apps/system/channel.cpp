// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/channel.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace tavithumb::apps {
namespace {

// A message of one byte that carries a descriptor.
struct DescriptorMessage {
  char byte = 0;
  iovec content = {&byte, 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control = {};
  msghdr header = {};

  DescriptorMessage() {
    header.msg_iov = &content;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
  }
};

}  // namespace

std::pair<FileDescriptor, FileDescriptor> OpenChannel() {
  std::array<int, 2> ends = {-1, -1};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "no process could be started");
  }
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

void SetReceiveTimeout(int channel, std::chrono::milliseconds timeout) {
  const timeval interval = {static_cast<time_t>(timeout.count() / 1000),
                            static_cast<suseconds_t>(timeout.count() % 1000 * 1000)};
  setsockopt(channel, SOL_SOCKET, SO_RCVTIMEO, &interval, sizeof interval);
}

bool SendDescriptor(int channel, int descriptor) {
  DescriptorMessage message;
  cmsghdr* const control = CMSG_FIRSTHDR(&message.header);
  control->cmsg_level = SOL_SOCKET;
  control->cmsg_type = SCM_RIGHTS;
  control->cmsg_len = CMSG_LEN(sizeof descriptor);
  std::memcpy(CMSG_DATA(control), &descriptor, sizeof descriptor);
  return sendmsg(channel, &message.header, MSG_NOSIGNAL) == 1;
}

FileDescriptor ReceiveDescriptor(int channel) {
  DescriptorMessage message;
  ssize_t got;
  do {
    got = recvmsg(channel, &message.header, MSG_CMSG_CLOEXEC);
  } while (got == -1 && errno == EINTR);
  if (got == 0) errno = 0;
  const cmsghdr* const control = got == 1 ? CMSG_FIRSTHDR(&message.header) : nullptr;
  if (control == nullptr || control->cmsg_type != SCM_RIGHTS) return FileDescriptor();
  int descriptor = -1;
  std::memcpy(&descriptor, CMSG_DATA(control), sizeof descriptor);
  return FileDescriptor(descriptor);
}

}  // namespace tavithumb::apps
