#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <curl/curl.h>
#include <deque>
#include <map>
#include <memory>
#include <string>

#include "platform/http_delivery.h"

namespace kestrin {

/// What the network thread knows of a session.
struct CurlSession {
  HttpSessionConfiguration configuration;
  QueueRef queue;
  std::shared_ptr<std::atomic<bool>> closed = std::make_shared<std::atomic<bool>>(false);
  // Requests running and waiting for a place, by host; network thread only.
  std::map<std::string, int> active;
  std::map<std::string, std::deque<uint64_t>> waiting;
};

/// One exchange: the easy handle with its callbacks, which gather what arrives until the network
/// thread posts it. Except for the construction everything happens on the network thread.
class CurlTransfer {
 public:
  using Time = std::chrono::steady_clock::time_point;

  CurlTransfer(uint64_t id, std::shared_ptr<CurlSession> session,
               std::shared_ptr<HttpDelivery> delivery, HttpRequest request, std::string peer);
  ~CurlTransfer();
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;

  /// False when the handle cannot be made. `touched` is called from the callbacks, at the first
  /// byte that is not yet posted.
  bool open(const std::string& noProxy, std::function<void(CurlTransfer*)> touched);
  void started(Time now) { lastProgress_ = now; }
  /// When the idle time-out strikes if nothing moves.
  Time idleDeadline() const;
  bool needsResume() const { return paused_ && *unread_ < resumeBelow; }
  void resume(Time now);
  /// The error of a finished transfer.
  std::optional<Error> outcome(CURLcode code) const;
  /// Posts what was gathered.
  void flush();
  /// Posts the end, with what was gathered before it.
  void finish(std::optional<Error> error);

  /// Data handed over but not yet consumed; a slow consumer pauses the connection instead of
  /// filling memory.
  static constexpr size_t pauseAbove = 4u << 20;
  static constexpr size_t resumeBelow = 1u << 20;

  const uint64_t id;
  const std::shared_ptr<CurlSession> session;
  const std::shared_ptr<HttpDelivery> delivery;
  const std::string peer;  ///< "host:port"
  CURL* easy = nullptr;
  bool begun = false;  ///< holds one of its session's places
  Time wholeDeadline = Time::max();

  std::shared_ptr<std::atomic<size_t>> unread() const { return unread_; }

 private:
  static curl_socket_t onOpenSocket(void* session, curlsocktype purpose, curl_sockaddr* address);
  static size_t onHeader(char* data, size_t size, size_t count, void* self);
  static size_t onBody(char* data, size_t size, size_t count, void* self);
  static int onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent);
  static int onConnected(void* self, char*, char*, int, int);
  bool headerLine(std::string_view line);
  void headComplete();
  bool followsRedirect() const;
  void touch();

  HttpRequest request_;
  curl_slist* headers_ = nullptr;
  std::function<void(CurlTransfer*)> touched_;
  HttpArrival arrival_;
  bool pending_ = false;  ///< arrival_ holds something to post
  Time lastProgress_{};
  curl_off_t sent_ = 0;
  int status_ = 0;
  HttpHeaders responseHeaders_;
  size_t headerBytes_ = 0;
  bool headDone_ = false;
  bool paused_ = false;
  std::shared_ptr<std::atomic<size_t>> unread_ = std::make_shared<std::atomic<size_t>>(0);
  char errorText_[CURL_ERROR_SIZE] = {};
};

}  // namespace kestrin
