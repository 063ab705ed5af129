#include "dictation/streaming_request_manager.h"

#include <algorithm>

#include "platform/text/text.h"

namespace kestrin {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* logSource = "Streaming";

/// When a target is due: enough time has passed, or enough text waits.
struct Throttle {
  Duration minPasteInterval;
  size_t burstCharacters;
};
constexpr Throttle nativeThrottle{milliseconds(60), 25};
constexpr Throttle webThrottle{milliseconds(120), 50};

constexpr milliseconds tickInterval{25};
constexpr seconds pieceTimeout{1};
constexpr seconds pasteTimeout{10};
constexpr seconds cleanupInterval{1};
constexpr int cleanupAttempts = 40;

}  // namespace

StreamingRequestManager::StreamingRequestManager(InsertionPorts ports, Logger& logger,
                                                 UndeliveredStore& undelivered)
    : ports_(ports),
      logger_(logger),
      requestQueue_(ports.dispatch.makeQueue("streaming.request.manager")),
      typingQueue_(ports.dispatch.makeQueue("streaming.typing.queue")),
      deliveryQueue_(ports.dispatch.makeQueue("streaming.delivery.queue")),
      delivery_(ports, logger, undelivered) {}

StreamingRequestManager::~StreamingRequestManager() = default;

std::shared_ptr<CursorContext> StreamingRequestManager::captureCursorContext() {
  CursorContext::Target target;
  target.requestId = ports_.random.uuid();
  target.capturedAt = ports_.dispatch.clock().wallNow();
  const auto front = ports_.workspace.frontmostApplication();
  if (!front) {
    target.appName = "Unknown";
    return std::make_shared<CursorContext>(ports_, logger_, std::move(target));
  }
  target.processId = front->pid;
  if (!front->desktopId.empty()) target.bundleId = front->desktopId;
  target.appName = front->name.empty() ? "Unknown" : front->name;
  if (const auto window = ports_.accessibility.focusedWindow(front->pid)) {
    target.windowTitle = ports_.accessibility.title(*window).value_or("");
  }
  for (const WindowInfo& window : ports_.workspace.windows()) {
    if (window.pid == front->pid) {
      target.windowNumber = window.id;
      break;
    }
  }
  logger_.print("📍 Captured cursor context: " + target.appName + " - " + target.windowTitle);
  return std::make_shared<CursorContext>(ports_, logger_, std::move(target));
}

std::shared_ptr<StreamingRequest> StreamingRequestManager::createRequest(
    std::shared_ptr<CursorContext> context) {
  auto request = std::make_shared<StreamingRequest>(ports_.dispatch, logger_, std::move(context));
  request->onStateChange = [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->notifyRequestsChanged();
  };
  delivery_.begin(request->id());
  requestQueue_->sync([&] { activeRequests_[request->id()] = request; });
  logger_.log(
      logSource, LogLevel::info,
      "Created request " + request->id().substr(0, 8) + " for " + request->cursorContext->appName);
  notifyRequestsChanged();
  return request;
}

std::shared_ptr<StreamingRequest> StreamingRequestManager::getRequest(const std::string& id) const {
  std::shared_ptr<StreamingRequest> found;
  requestQueue_->sync([&] {
    const auto at = activeRequests_.find(id);
    if (at != activeRequests_.end()) found = at->second;
  });
  return found;
}

std::vector<std::shared_ptr<StreamingRequest>> StreamingRequestManager::allRequests() const {
  std::vector<std::shared_ptr<StreamingRequest>> out;
  requestQueue_->sync([&] {
    for (const auto& [id, request] : activeRequests_) out.push_back(request);
  });
  return out;
}

std::vector<std::shared_ptr<StreamingRequest>> StreamingRequestManager::getActiveRequests() const {
  auto out = allRequests();
  std::erase_if(out, [](const auto& request) { return request->isCancelled(); });
  std::stable_sort(out.begin(), out.end(), [](const auto& a, const auto& b) {
    return a->cursorContext->capturedAt < b->cursorContext->capturedAt;
  });
  return out;
}

int StreamingRequestManager::activeRequestCount() const {
  const auto all = allRequests();
  return static_cast<int>(std::count_if(all.begin(), all.end(), [](const auto& request) {
    const StreamingStatus status = request->status();
    return status != StreamingStatus::complete && status != StreamingStatus::cancelled;
  }));
}

void StreamingRequestManager::addChunk(std::string_view text, const std::string& id) {
  const auto request = getRequest(id);
  if (!request) {
    logger_.log(logSource, LogLevel::warning, "Request " + id + " not found!");
    return;
  }
  request->addChunk(text);
  if (processChunksForRequest(request, false)) armTick();
}

/// The tick rests while nothing is pending. It comes at the same instants as one that never rests.
void StreamingRequestManager::armTick() {
  {
    std::lock_guard lock(scheduleMutex_);
    if (tickArmed_) return;
    tickArmed_ = true;
  }
  const Duration sinceTick = ports_.dispatch.clock().steadyNow().sinceStart % tickInterval;
  ports_.dispatch.mainQueue()->postAfter(tickInterval - sinceTick, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->processPendingChunks();
  });
}

void StreamingRequestManager::processPendingChunks() {
  {
    std::lock_guard lock(scheduleMutex_);
    tickArmed_ = false;
  }
  bool pending = false;
  for (const auto& request : allRequests()) {
    if (request->hasPendingChunks()) pending = processChunksForRequest(request, false) || pending;
  }
  if (pending) armTick();
}

bool StreamingRequestManager::processChunksForRequest(
    const std::shared_ptr<StreamingRequest>& request, bool force) {
  const std::string& id = request->id();
  const StreamingRequest::Pending pending = request->pending();
  if (pending.cancelled) {
    request->takePendingChunks();
    return false;
  }
  if (!pending.any) return false;
  const SteadyTime now = ports_.dispatch.clock().steadyNow();
  if (!force) {
    const Throttle& throttle =
        request->cursorContext->isLikelyWebEditor() ? webThrottle : nativeThrottle;
    std::lock_guard lock(scheduleMutex_);
    const auto last = lastPasteTime_.find(id);
    const bool tooEarly =
        last != lastPasteTime_.end() && now - last->second < throttle.minPasteInterval;
    if (tooEarly && pending.characters < throttle.burstCharacters) return true;
  }
  // Posted from inside the request, so that two threads that come here at once keep the text's
  // order.
  request->passPendingChunks([&](const std::vector<std::string>& chunks) {
    {
      std::lock_guard lock(scheduleMutex_);
      lastPasteTime_[id] = now;
    }
    typingQueue_->post([weak = weak_from_this(), request, text = text::join(chunks, "")] {
      if (const auto self = weak.lock()) self->activateAndType(request, text);
    });
  });
  return false;
}

void StreamingRequestManager::activateAndType(const std::shared_ptr<StreamingRequest>& request,
                                              std::string text) {
  const auto setTyping = [this](std::optional<std::string> id) {
    std::lock_guard lock(scheduleMutex_);
    currentlyTypingRequestId_ = std::move(id);
  };
  setTyping(request->id());
  const auto done = ports_.dispatch.makeSemaphore(0, "a piece to be inserted");
  deliveryQueue_->post([weak = weak_from_this(), request, text = std::move(text), done] {
    if (const auto self = weak.lock()) self->delivery_.deliver(*request, text);
    done->signal();
  });
  done->wait(pieceTimeout);
  setTyping(std::nullopt);
}

void StreamingRequestManager::completeRequest(const std::string& id) {
  if (ports_.dispatch.mainQueue()->isCurrent()) {
    ports_.dispatch.globalQueue()->post([weak = weak_from_this(), id] {
      if (const auto self = weak.lock()) self->completeRequest(id);
    });
    return;
  }
  if (const auto request = getRequest(id)) {
    processChunksForRequest(request, true);
    typingQueue_->sync([] {});
    flushDeferredPaste(request);
    request->complete();
    logger_.log(logSource, LogLevel::info,
                "Request complete: " +
                    std::to_string(text::characterCount(request->accumulatedText())) + " chars");
  }
  notifyRequestsChanged();
  attemptCleanupRequest(id, cleanupAttempts);
}

void StreamingRequestManager::flushDeferredPaste(const std::shared_ptr<StreamingRequest>& request) {
  const auto done = ports_.dispatch.makeSemaphore(0, "the deferred paste");
  // On the delivery queue, behind pieces that are late.
  deliveryQueue_->post([weak = weak_from_this(), request, done] {
    if (const auto self = weak.lock()) {
      const DeliveryReport report = self->delivery_.finish(*request);
      self->ports_.dispatch.mainQueue()->post([weak, report] {
        const auto alive = weak.lock();
        if (alive && alive->onDelivery) alive->onDelivery(report);
      });
    }
    done->signal();
  });
  done->wait(pasteTimeout);
}

void StreamingRequestManager::attemptCleanupRequest(const std::string& id, int remainingAttempts) {
  ports_.dispatch.mainQueue()->postAfter(
      cleanupInterval, [weak = weak_from_this(), id, remainingAttempts] {
        const auto self = weak.lock();
        if (!self) return;
        bool typing = false;
        {
          std::lock_guard lock(self->scheduleMutex_);
          typing = self->currentlyTypingRequestId_ == id;
        }
        const auto request = self->getRequest(id);
        if (!typing && !(request && request->hasPendingChunks())) {
          self->requestQueue_->sync([&] { self->activeRequests_.erase(id); });
          self->delivery_.forget(id);
          self->cleanupActivation(id);
          self->notifyRequestsChanged();
        } else if (remainingAttempts >= 1) {
          self->attemptCleanupRequest(id, remainingAttempts - 1);
        }
      });
}

void StreamingRequestManager::cleanupActivation(const std::string& id) {
  std::lock_guard lock(scheduleMutex_);
  lastPasteTime_.erase(id);
}

void StreamingRequestManager::cancelRequest(const std::string& id) {
  const auto request = getRequest(id);
  if (!request) return;
  request->cancel();
  delivery_.dropCollected(id);
  logger_.print("🛑 Cancelled streaming request " + id);
}

void StreamingRequestManager::notifyRequestsChanged() {
  {
    std::lock_guard lock(scheduleMutex_);
    if (notificationPending_) return;
    notificationPending_ = true;
  }
  ports_.dispatch.mainQueue()->post([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    {
      std::lock_guard lock(self->scheduleMutex_);
      self->notificationPending_ = false;
    }
    if (self->onRequestsChange) self->onRequestsChange();
  });
}

}  // namespace kestrin
