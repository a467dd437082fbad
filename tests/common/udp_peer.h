// Test support for the IPC tests: a plain UDP peer on a loopback port the
// kernel chose.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "test_process.h"

namespace v2xtest {

inline sockaddr_in loopback(uint16_t port) {
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = htons(port);
  return a;
}

// A plain UDP socket on 127.0.0.1, on a port the kernel chose, with bounded receives.
class UdpPeer {
 public:
  UdpPeer() : fd_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in a = loopback(0);
    socklen_t len = sizeof(a);
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0 &&
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len) == 0)
      port_ = ntohs(a.sin_port);
  }
  ~UdpPeer() { ::close(fd_); }
  UdpPeer(const UdpPeer&) = delete;
  UdpPeer& operator=(const UdpPeer&) = delete;

  uint16_t port() const { return port_; }
  bool sendTo(uint16_t port, const std::vector<uint8_t>& data) const { return sendTo(loopback(port), data); }
  bool sendTo(const sockaddr_in& to, const std::vector<uint8_t>& data) const {
    return ::sendto(fd_, data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) ==
           static_cast<ssize_t>(data.size());
  }
  // One datagram within timeoutMs; false when none came.
  bool receive(std::vector<uint8_t>& data, sockaddr_in* from = nullptr, int timeoutMs = 3000) const {
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) <= 0) return false;
    data.assign(65536, 0);
    sockaddr_in src{};
    socklen_t len = sizeof(src);
    ssize_t n = ::recvfrom(fd_, data.data(), data.size(), 0, reinterpret_cast<sockaddr*>(&src), &len);
    data.resize(n > 0 ? static_cast<size_t>(n) : 0);
    if (from != nullptr) *from = src;
    return n >= 0;
  }

 private:
  int fd_;
  uint16_t port_ = 0;
};

}  // namespace v2xtest
