#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "dictation/cursor_context.h"
#include "dictation/request_delivery.h"
#include "dictation/streaming_request.h"

namespace kestrin {

/// Turns arriving chunks into text in another application while the user may be working elsewhere:
/// keeps the running requests, decides when a request's pending text is inserted, and how (in the
/// background, or collected for one paste at the end). Make it with `std::make_shared`.
/// Thread-safe.
class StreamingRequestManager : public std::enable_shared_from_this<StreamingRequestManager> {
 public:
  StreamingRequestManager(InsertionPorts ports, Logger& logger, UndeliveredStore& undelivered);
  ~StreamingRequestManager();

  /// Blocks on other programs: off the main queue.
  std::shared_ptr<CursorContext> captureCursorContext();
  std::shared_ptr<StreamingRequest> createRequest(std::shared_ptr<CursorContext> context);
  /// Null when there is none.
  std::shared_ptr<StreamingRequest> getRequest(const std::string& id) const;
  void addChunk(std::string_view text, const std::string& id);
  /// Blocks until the text is delivered (or found undeliverable): off the main queue. `onDelivery`
  /// has been posted when it returns, unless the delivery takes more than 10 s.
  void completeRequest(const std::string& id);
  void cancelRequest(const std::string& id);
  /// All that are not cancelled, oldest first.
  std::vector<std::shared_ptr<StreamingRequest>> getActiveRequests() const;
  /// Neither complete nor cancelled.
  int activeRequestCount() const;

  /// On the main queue after any change of the table or of a request. Set both on the main queue.
  std::function<void()> onRequestsChange;
  /// On the main queue, once for each completed request: where its text ended.
  std::function<void(const DeliveryReport&)> onDelivery;

 private:
  void processPendingChunks();
  /// True when text stays pending.
  bool processChunksForRequest(const std::shared_ptr<StreamingRequest>& request, bool force);
  void activateAndType(const std::shared_ptr<StreamingRequest>& request, std::string text);
  void flushDeferredPaste(const std::shared_ptr<StreamingRequest>& request);
  void attemptCleanupRequest(const std::string& id, int remainingAttempts);
  void cleanupActivation(const std::string& id);
  void notifyRequestsChanged();
  void armTick();
  std::vector<std::shared_ptr<StreamingRequest>> allRequests() const;

  InsertionPorts ports_;
  Logger& logger_;
  QueueRef requestQueue_;
  QueueRef typingQueue_;
  /// Accessibility writes and deferred pastes, in order: they can hold a thread for seconds.
  QueueRef deliveryQueue_;
  RequestDelivery delivery_;
  std::map<std::string, std::shared_ptr<StreamingRequest>> activeRequests_;  ///< on `requestQueue_`

  mutable std::mutex scheduleMutex_;  ///< guards what follows
  std::map<std::string, SteadyTime> lastPasteTime_;
  std::optional<std::string> currentlyTypingRequestId_;
  bool tickArmed_ = false;
  bool notificationPending_ = false;
};

}  // namespace kestrin
