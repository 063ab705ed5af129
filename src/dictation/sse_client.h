#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "dictation/utf8_deliveries.h"
#include "platform/http.h"

namespace kestrin {

/// Cuts a server-sent event stream into the texts of its `data: ` lines. Bytes may be cut anywhere
/// (see Utf8Deliveries). Other fields and "[DONE]" give nothing. Not thread-safe.
class EventStreamFramer {
 public:
  static constexpr size_t maxEventBytes = 16u << 20;

  using OnEvent = std::function<void(std::string_view data)>;

  /// Calls `onEvent` for each line of each event that is complete by now.
  void receive(std::string_view bytes, const OnEvent& onEvent);
  /// Whether an event grew past what a sane peer sends; its text is dropped.
  bool overflowed() const { return overflowed_; }
  /// The end of the stream: what is left counts as an event.
  void finish(const OnEvent& onEvent);

 private:
  static void deliver(std::string_view block, const OnEvent& onEvent);

  std::string buffer_;
  size_t searched_ = 0;  ///< no blank line begins before this index
  Utf8Deliveries deliveries_;
  bool overflowed_ = false;
};

/// One event stream over HTTP, on a session of its own. Make it with `std::make_shared`; the
/// callbacks keep it alive to the end of the stream.
class SSEClient : public std::enable_shared_from_this<SSEClient> {
 public:
  explicit SSEClient(Http& http);

  /// `onEvent` for each event's data and `onComplete` once, both on the session's serial queue. The
  /// status of the answer decides nothing here; `onStatus` tells it. Once per client. Besides the
  /// transport's errors: "SSEClient", code 1, for an event that never ends.
  void stream(HttpRequest request, std::function<void(std::string_view)> onEvent,
              std::function<void(std::optional<Error>)> onComplete,
              std::function<void(int status)> onStatus = nullptr);
  void cancel();

  /// Opens a connection ahead of need; every failure is ignored.
  static void prewarm(HttpSession& sharedSession, const std::string& url);
  static HttpSessionConfiguration configuration();

 private:
  std::shared_ptr<HttpSession> session_;
  std::mutex mutex_;
  HttpTaskRef task_;
  EventStreamFramer framer_;  ///< on the session's queue
};

}  // namespace kestrin
