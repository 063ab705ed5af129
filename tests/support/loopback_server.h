#pragma once

#include <arpa/inet.h>
#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>

#include "platform/linux/descriptor.h"

namespace kestrin::test {

/// A server on a loopback port that does what a test wants, byte by byte. Each connection runs the
/// behaviour on a thread of its own; destruction cuts all of them.
class LoopbackServer {
 public:
  class Peer {
   public:
    explicit Peer(int fd) : fd_(fd) {}

    /// The next request, head and body; nothing once the client is gone.
    std::optional<std::string> request() {
      for (;;) {
        const size_t head = pending_.find("\r\n\r\n");
        if (head != std::string::npos) {
          const size_t field = pending_.find("Content-Length: ");
          const size_t body = field < head ? std::stoul(pending_.substr(field + 16)) : 0;
          if (pending_.size() >= head + 4 + body) {
            std::string whole = pending_.substr(0, head + 4 + body);
            pending_.erase(0, whole.size());
            return whole;
          }
        }
        char block[65536];
        const ssize_t got = ::recv(fd_.get(), block, sizeof block, 0);
        if (got <= 0) return {};
        pending_.append(block, static_cast<size_t>(got));
      }
    }
    bool send(std::string_view bytes) {
      while (!bytes.empty()) {
        const ssize_t sent = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(sent));
      }
      return true;
    }
    bool reply(const std::string& body, const std::string& headers = "") {
      return send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
                  headers + "\r\n" + body);
    }
    /// So long, or until the connection is cut; false then.
    bool pause(std::chrono::nanoseconds duration) {
      pollfd gone{fd_.get(), POLLRDHUP, 0};
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(duration).count();
      return ::poll(&gone, 1, static_cast<int>(left)) == 0;
    }
    void waitUntilClosed() {
      char byte = 0;
      while (::recv(fd_.get(), &byte, 1, 0) > 0) {
      }
    }
    /// The next close sends a reset instead of an orderly end.
    void reset() {
      const linger now{1, 0};
      ::setsockopt(fd_.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }
    void cut() { ::shutdown(fd_.get(), SHUT_RDWR); }

   private:
    friend class LoopbackServer;
    Descriptor fd_;
    std::string pending_;
  };
  using Behaviour = std::function<void(Peer&)>;

  explicit LoopbackServer(Behaviour behaviour)
      : behaviour_(std::move(behaviour)),
        listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_.get(), generic, size) != 0 || ::listen(listener_.get(), 64) != 0)
      std::abort();
    ::getsockname(listener_.get(), generic, &size);
    host_ = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    acceptor_ = std::thread([this] { accept(); });
  }
  ~LoopbackServer() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    acceptor_.join();
    for (auto& connection : connections_) {
      {
        const std::lock_guard lock(mutex_);
        connection.peer.cut();
      }
      connection.thread.join();
    }
  }

  std::string host() const { return host_; }
  std::string url(const std::string& path = "/") const { return "http://" + host_ + path; }
  int accepted() const { return accepted_; }

 private:
  struct Connection {
    explicit Connection(int fd) : peer(fd) {}
    Peer peer;
    std::thread thread;
  };

  void accept() {
    for (;;) {
      const int fd = ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) return;
      ++accepted_;
      Connection& connection = connections_.emplace_back(fd);
      connection.thread = std::thread([this, &connection] {
        behaviour_(connection.peer);
        const std::lock_guard lock(mutex_);
        connection.peer.fd_ = Descriptor();
      });
    }
  }

  const Behaviour behaviour_;
  Descriptor listener_;
  std::string host_;
  std::atomic<int> accepted_{0};
  std::mutex mutex_;  ///< so that no descriptor is cut after it was closed
  std::list<Connection> connections_;
  std::thread acceptor_;
};

}  // namespace kestrin::test
