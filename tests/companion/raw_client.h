#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace kestrin::testing {

/// A client that sends exactly the bytes a test wants and waits for real answers, 10 s at most.
class RawClient {
 public:
  explicit RawClient(uint16_t port) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connected_ = connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~RawClient() { hangUp(); }
  RawClient(const RawClient&) = delete;

  bool connected() const { return connected_; }
  void hangUp() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  bool send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return false;
      bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
  }
  /// All that has come, once it holds `mark` or the server has closed.
  const std::string& readUntil(std::string_view mark) {
    while (received_.find(mark) == std::string::npos && readMore()) {
    }
    return received_;
  }
  const std::string& readToEnd() {
    while (readMore()) {
    }
    return received_;
  }
  /// Whether the server closes within so many milliseconds.
  bool hasEnded(int patience) {
    readMore(patience);
    return ended_;
  }
  /// True when the server closed, false at the deadline.
  bool closedByServer() {
    readToEnd();
    return ended_;
  }

 private:
  bool readMore(int patience = 10'000) {
    pollfd descriptor{fd_, POLLIN, 0};
    if (ended_ || poll(&descriptor, 1, patience) <= 0) return false;
    char block[4096];
    const ssize_t count = recv(fd_, block, sizeof block, 0);
    ended_ = count <= 0;
    if (count > 0) received_.append(block, static_cast<size_t>(count));
    return count > 0;
  }

  int fd_;
  bool connected_ = false;
  bool ended_ = false;
  std::string received_;
};

/// The whole answer to one request on a connection of its own.
inline std::string ask(uint16_t port, const std::string& method, const std::string& path,
                       const std::string& body = "", const std::string& headers = "") {
  RawClient client(port);
  client.send(method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" +
              headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  return client.readToEnd();
}

}  // namespace kestrin::testing
