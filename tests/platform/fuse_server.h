// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

namespace tavithumb::test {

// An empty FUSE file system of a given type ("fuse.sshfs") and source, served by a thread of this process while it
// lives. For processes with their own mounts.
class FuseServer {
 public:
  FuseServer(std::string folder, const std::string& type, const std::string& source)
      : folder_(std::move(folder)), device_(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
    const std::string options = "fd=" + std::to_string(device_) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
    mounted_ = device_ != -1 && mount(source.c_str(), folder_.c_str(), type.c_str(), 0, options.c_str()) == 0;
    if (mounted_) thread_ = std::thread([this] { Serve(); });
  }
  ~FuseServer() {
    if (mounted_) {
      umount2(folder_.c_str(), MNT_DETACH);
      thread_.join();
    }
    if (device_ != -1) close(device_);
  }
  FuseServer(const FuseServer&) = delete;
  FuseServer& operator=(const FuseServer&) = delete;

  bool IsMounted() const { return mounted_; }

 private:
  // Serves until the device is unmounted and has no more requests.
  void Serve() {
    std::array<char, FUSE_MIN_READ_BUFFER * 20> request;
    while (true) {
      const ssize_t got = read(device_, request.data(), request.size());
      if (got == -1 && (errno == EINTR || errno == EAGAIN || errno == ENOENT)) continue;
      if (got < static_cast<ssize_t>(sizeof(fuse_in_header))) return;
      fuse_in_header header;
      std::memcpy(&header, request.data(), sizeof header);
      Answer(header);
    }
  }

  void Answer(const fuse_in_header& request) {
    if (request.opcode == FUSE_INIT) {
      fuse_init_out answer = {};
      answer.major = FUSE_KERNEL_VERSION;
      answer.minor = FUSE_KERNEL_MINOR_VERSION;
      answer.max_write = 4096;
      Send(request, answer);
    } else if (request.opcode == FUSE_GETATTR) {
      fuse_attr_out answer = {};
      answer.attr.ino = FUSE_ROOT_ID;
      answer.attr.mode = S_IFDIR | 0755;
      answer.attr.nlink = 2;
      Send(request, answer);
    } else if (request.opcode == FUSE_STATFS) {
      Send(request, fuse_statfs_out{});
    } else if (request.opcode != FUSE_FORGET && request.opcode != FUSE_BATCH_FORGET) {
      const fuse_out_header refusal{sizeof refusal, -ENOSYS, request.unique};
      SendBytes(&refusal, sizeof refusal);
    }
  }

  template <typename Body>
  void Send(const fuse_in_header& request, const Body& body) {
    const fuse_out_header header{sizeof header + sizeof body, 0, request.unique};
    std::array<char, sizeof header + sizeof body> message;
    std::memcpy(message.data(), &header, sizeof header);
    std::memcpy(message.data() + sizeof header, &body, sizeof body);
    SendBytes(message.data(), message.size());
  }

  void SendBytes(const void* data, size_t size) {
    if (write(device_, data, size) == -1) std::perror("fuse");
  }

  std::string folder_;
  int device_;
  bool mounted_;
  std::thread thread_;
};

}  // namespace tavithumb::test
