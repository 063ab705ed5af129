#include "dictation/streaming_request.h"

#include "dictation/chunk_filter.h"
#include "platform/text/text.h"

namespace kestrin {

std::string_view streamingStatusText(StreamingStatus status) {
  switch (status) {
    case StreamingStatus::processing:
      return "Processing";
    case StreamingStatus::streaming:
      return "Streaming";
    case StreamingStatus::complete:
      return "Complete";
    case StreamingStatus::cancelled:
      return "Cancelled";
  }
  return "Processing";
}

StreamingRequest::StreamingRequest(Dispatch& dispatch, Logger& logger,
                                   std::shared_ptr<CursorContext> context)
    : cursorContext(std::move(context)),
      dispatch_(dispatch),
      logger_(logger),
      stateQueue_(dispatch.makeQueue("streaming.request.state", QueueKind::concurrent)) {}

template <class T>
T StreamingRequest::read(const std::function<T(const State&)>& reader) const {
  T out{};
  stateQueue_->sync([&] { out = reader(_state); });
  return out;
}

std::string StreamingRequest::accumulatedText() const {
  return read<std::string>([](const State& state) { return state.accumulatedText; });
}

StreamingStatus StreamingRequest::status() const {
  return read<StreamingStatus>([](const State& state) { return state.status; });
}

bool StreamingRequest::isCancelled() const { return status() == StreamingStatus::cancelled; }

StreamingRequest::Pending StreamingRequest::pending() const {
  return read<Pending>([](const State& state) {
    return Pending{state.status == StreamingStatus::cancelled, !state.pendingChunks.empty(),
                   state.pendingCharacters};
  });
}

bool StreamingRequest::hasPendingChunks() const { return pending().any; }
size_t StreamingRequest::pendingCharCount() const { return pending().characters; }

size_t StreamingRequest::totalChunksReceived() const {
  return read<size_t>([](const State& state) { return state.totalChunksReceived; });
}

std::optional<Date> StreamingRequest::firstChunkAt() const {
  return read<std::optional<Date>>([](const State& state) { return state.firstChunkAt; });
}

std::optional<Date> StreamingRequest::lastChunkAt() const {
  return read<std::optional<Date>>([](const State& state) { return state.lastChunkAt; });
}

std::string StreamingRequest::displayName() const {
  const std::string& name = cursorContext->appName;
  return read<std::string>([&](const State& state) {
    const std::string count = std::to_string(text::characterCount(state.accumulatedText));
    switch (state.status) {
      case StreamingStatus::processing:
        return "⏳ " + name + " - Processing...";
      case StreamingStatus::streaming:
        return "⚡ " + name + " - " + count + " chars";
      case StreamingStatus::complete:
        return "✅ " + name + " - Done (" + count + ")";
      case StreamingStatus::cancelled:
        return "❌ " + name + " - Cancelled";
    }
    return name;
  });
}

void StreamingRequest::addChunk(std::string_view text) {
  {
    std::lock_guard lock(arrivedMutex_);
    arrived_.emplace_back(text);
    // A barrier job is under way that will take this one along.
    if (arrived_.size() > 1) return;
  }
  stateQueue_->barrier([weak = weak_from_this()] {
    if (auto self = weak.lock()) self->acceptArrived();
  });
}

void StreamingRequest::acceptArrived() {
  std::vector<std::string> arrived;
  {
    std::lock_guard lock(arrivedMutex_);
    arrived.swap(arrived_);
  }
  bool changed = false;
  for (const std::string& chunk : arrived) changed = accept(chunk) || changed;
  if (changed) notifyStateChange();
}

bool StreamingRequest::accept(std::string_view chunk) {
  if (_state.suppressFurtherChunks) return false;
  ++_state.totalChunksReceived;
  const Date now = dispatch_.clock().wallNow();
  if (!_state.firstChunkAt) _state.firstChunkAt = now;
  _state.lastChunkAt = now;
  if (const auto marker = findStopMarker(chunk)) {
    chunk = chunk.substr(0, marker->position);
    _state.suppressFurtherChunks = true;
    logger_.print(marker->logLine);
  }
  if (chunk.empty()) return true;
  if (_state.status == StreamingStatus::processing) _state.status = StreamingStatus::streaming;
  _state.accumulatedText += chunk;
  _state.pendingChunks.emplace_back(chunk);
  _state.pendingCharacters += text::characterCount(chunk);
  return true;
}

std::vector<std::string> StreamingRequest::takePendingChunks() {
  std::vector<std::string> out;
  passPendingChunks([&](std::vector<std::string> chunks) { out = std::move(chunks); });
  return out;
}

void StreamingRequest::passPendingChunks(
    const std::function<void(std::vector<std::string>)>& receiver) {
  stateQueue_->syncBarrier([&] {
    if (_state.pendingChunks.empty()) return;
    std::vector<std::string> chunks;
    chunks.swap(_state.pendingChunks);
    _state.pendingCharacters = 0;
    receiver(std::move(chunks));
  });
}

void StreamingRequest::setStatus(StreamingStatus status) {
  stateQueue_->barrier([weak = weak_from_this(), status] {
    if (auto self = weak.lock()) {
      self->_state.status = status;
      self->notifyStateChange();
    }
  });
}

void StreamingRequest::cancel() { setStatus(StreamingStatus::cancelled); }
void StreamingRequest::complete() { setStatus(StreamingStatus::complete); }

void StreamingRequest::notifyStateChange() {
  {
    std::lock_guard lock(arrivedMutex_);
    if (notificationPending_) return;
    notificationPending_ = true;
  }
  dispatch_.mainQueue()->post([weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self) return;
    {
      std::lock_guard lock(self->arrivedMutex_);
      self->notificationPending_ = false;
    }
    if (self->onStateChange) self->onStateChange();
  });
}

}  // namespace kestrin
