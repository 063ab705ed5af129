#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics/logger.h"
#include "dictation/cursor_context.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin {

enum class StreamingStatus {
  processing,  ///< no chunk yet
  streaming,   ///< at least one chunk with text has arrived
  complete,    ///< the stream has ended and the text is delivered
  cancelled,   ///< the user stopped it
};

/// "Processing", "Streaming", "Complete", "Cancelled".
std::string_view streamingStatusText(StreamingStatus status);

/// One dictation's stream: the text received, the text that waits for insertion, its status and its
/// target. Holds the last chunk filter. Thread-safe: reads wait for the writes posted before them,
/// writes return at once.
class StreamingRequest : public std::enable_shared_from_this<StreamingRequest> {
 public:
  StreamingRequest(Dispatch& dispatch, Logger& logger, std::shared_ptr<CursorContext> context);

  /// Shared with the snapshot of the target.
  const std::string& id() const { return cursorContext->requestId; }
  const std::shared_ptr<CursorContext> cursorContext;

  std::string accumulatedText() const;
  StreamingStatus status() const;
  bool isCancelled() const;
  bool hasPendingChunks() const;
  /// Characters in the pending chunks.
  size_t pendingCharCount() const;
  /// Chunks offered before suppression, those that the filter cut to nothing included.
  size_t totalChunksReceived() const;
  std::optional<Date> firstChunkAt() const;
  std::optional<Date> lastChunkAt() const;
  /// What the overlay's row shows: "⚡ Notes - 12 chars".
  std::string displayName() const;

  /// What a scheduler asks about a request, read in one step.
  struct Pending {
    bool cancelled = false;
    bool any = false;
    size_t characters = 0;
  };
  Pending pending() const;

  void addChunk(std::string_view text);
  /// Moves the pending chunks out.
  std::vector<std::string> takePendingChunks();
  /// Moves the pending chunks out and hands them to `receiver` before anybody else can take later
  /// ones: what two takers post from here keeps the order of the text. Not called when there are
  /// none; `receiver` must not wait.
  void passPendingChunks(const std::function<void(std::vector<std::string>)>& receiver);
  void cancel();
  void complete();

  /// Runs on the main queue after every change; several changes close together may share one call.
  /// Set it before the first chunk.
  std::function<void()> onStateChange;

 private:
  struct State {
    std::string accumulatedText;
    StreamingStatus status = StreamingStatus::processing;
    std::vector<std::string> pendingChunks;
    size_t pendingCharacters = 0;
    bool suppressFurtherChunks = false;
    size_t totalChunksReceived = 0;
    std::optional<Date> firstChunkAt;
    std::optional<Date> lastChunkAt;
  };

  template <class T>
  T read(const std::function<T(const State&)>& reader) const;
  void setStatus(StreamingStatus status);
  void acceptArrived();
  bool accept(std::string_view chunk);
  void notifyStateChange();

  Dispatch& dispatch_;
  Logger& logger_;
  QueueRef stateQueue_;
  State _state;  ///< on `stateQueue_` only

  mutable std::mutex arrivedMutex_;
  std::vector<std::string> arrived_;  ///< offered and not yet looked at
  bool notificationPending_ = false;
};

}  // namespace kestrin
