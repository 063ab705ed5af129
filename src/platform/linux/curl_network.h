#pragma once

#include <atomic>
#include <curl/curl.h>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/curl_transfer.h"
#include "platform/linux/descriptor.h"

namespace kestrin {

/// The network thread: an epoll loop around libcurl's socket interface, whose cost per wake-up
/// depends on the connections that have something to say, not on all that are open. The public
/// operations come from any thread and only leave an order for it.
class CurlNetwork {
 public:
  CurlNetwork();
  ~CurlNetwork();
  CurlNetwork(const CurlNetwork&) = delete;
  CurlNetwork& operator=(const CurlNetwork&) = delete;

  uint64_t newId() { return nextId_++; }
  void start(std::unique_ptr<CurlTransfer> transfer);
  /// Ends the transfer without another word to its delivery.
  void abandon(uint64_t id);
  void resume(uint64_t id);
  void close(const std::shared_ptr<CurlSession>& session);
  /// Ends every transfer with `httpCancelled`, later ones at once, and joins the thread.
  void stop();

 private:
  using Time = CurlTransfer::Time;

  /// False once stopped: nobody would carry it out.
  bool order(std::function<void()> job);
  void run();
  /// False when that was the last time.
  bool runOrders();
  void waitAndServe();
  void reapFinished();
  void flushTouched();
  void expire();
  void admit(std::unique_ptr<CurlTransfer> transfer);
  void begin(CurlTransfer& transfer);
  void end(uint64_t id, std::optional<Error> error, bool tell);
  void watch(Time deadline);

  static int onSocket(CURL*, curl_socket_t socket, int what, void* self, void* known);
  static int onTimer(CURLM*, long milliseconds, void* self);

  std::atomic<uint64_t> nextId_{1};
  const std::string noProxy_;
  Descriptor poll_;
  WakeEvent wake_;
  CURLM* multi_ = nullptr;

  std::mutex mutex_;  ///< guards orders_ and stopped_
  std::vector<std::function<void()>> orders_;
  bool stopped_ = false;

  // Network thread only.
  std::map<uint64_t, std::unique_ptr<CurlTransfer>> transfers_;
  std::vector<CurlTransfer*> touched_;
  Time curlTimer_ = Time::max();
  Time nextDeadline_ = Time::max();  ///< no transfer's deadline comes before it

  std::thread thread_;
};

}  // namespace kestrin
