#include "dictation/request_delivery.h"

#include "dictation/terminal_text.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* logSource = "Streaming";
constexpr std::chrono::seconds lateInsertTimeout{4};

}  // namespace

RequestDelivery::RequestDelivery(InsertionPorts ports, Logger& logger,
                                 UndeliveredStore& undelivered)
    : ports_(ports), logger_(logger), undelivered_(undelivered), paste_(ports, logger) {}

void RequestDelivery::begin(const std::string& id) {
  const std::lock_guard lock(mutex_);
  deliveries_[id] = {};
}

void RequestDelivery::forget(const std::string& id) {
  const std::lock_guard lock(mutex_);
  deliveries_.erase(id);
}

void RequestDelivery::dropCollected(const std::string& id) {
  update(id, [](Delivery& delivery) { delivery.deferredPasteBuffer.clear(); });
}

void RequestDelivery::update(const std::string& id, const std::function<void(Delivery&)>& change) {
  const std::lock_guard lock(mutex_);
  const auto at = deliveries_.find(id);
  if (at != deliveries_.end()) change(at->second);
}

void RequestDelivery::deliver(const StreamingRequest& request, const std::string& text) {
  CursorContext& context = *request.cursorContext;
  if (request.isCancelled()) return;
  const auto collect = [&](bool divertTheRest) {
    update(request.id(), [&](Delivery& delivery) {
      delivery.deferredPasteBuffer += text;
      delivery.diverted = delivery.diverted || divertTheRest;
    });
  };
  bool diverted = context.isLikelyWebEditor() || context.isSecureField();
  bool isUnknown = false;
  update(request.id(), [&](Delivery& delivery) {
    diverted = diverted || delivery.diverted;
    isUnknown = !delivery.unknownText.empty();
  });
  if (isUnknown && context.resolveUnknownInsert(Duration(0)) == InsertResult::inserted) {
    isUnknown = false;
    update(request.id(), [](Delivery& delivery) {
      delivery.unknownText.clear();
      delivery.inserted = true;
    });
  }
  if (diverted || isUnknown) {
    collect(isUnknown);
    return;
  }
  switch (const InsertResult result = context.insertText(text)) {
    case InsertResult::inserted:
    case InsertResult::unverified:
      update(request.id(), [&](Delivery& delivery) {
        delivery.inserted = true;
        delivery.unverified = delivery.unverified || result == InsertResult::unverified;
      });
      break;
    case InsertResult::refused:
      collect(false);
      break;
    case InsertResult::held:
      collect(true);
      break;
    case InsertResult::unknown:
      update(request.id(), [&](Delivery& delivery) { delivery.unknownText = text; });
      break;
  }
}

DeliveryReport RequestDelivery::finish(const StreamingRequest& request) {
  CursorContext& context = *request.cursorContext;
  DeliveryReport report{request.id(), DeliveryOutcome::nothing, {}, {}};
  Delivery delivery;
  update(request.id(), [&](Delivery& mine) { delivery = std::exchange(mine, {}); });
  if (request.isCancelled()) {
    report.outcome = DeliveryOutcome::cancelled;
    return report;
  }
  std::string& rest = delivery.deferredPasteBuffer;
  if (!delivery.unknownText.empty()) {
    switch (context.resolveUnknownInsert(lateInsertTimeout)) {
      case InsertResult::inserted:
        delivery.inserted = true;
        break;
      case InsertResult::refused:
        rest.insert(0, delivery.unknownText);
        break;
      default:
        return undeliverable(request, delivery.unknownText + rest,
                             "it does not answer, and the text may still appear there");
    }
  }
  if (context.isTerminal()) rest = textForTerminal(rest);
  if (rest.empty()) {
    if (delivery.inserted) {
      report.outcome =
          delivery.unverified ? DeliveryOutcome::unverified : DeliveryOutcome::inserted;
    }
    if (delivery.unverified) {
      report.message = "⚠️ Sent to " + context.appName + ", which cannot confirm it";
    }
    return report;
  }
  if (context.isSecureField()) {
    return undeliverable(request, rest, "dictation does not type into password fields");
  }
  logger_.log(
      logSource, LogLevel::info,
      "Flushing " + std::to_string(text::characterCount(rest)) + " chars to " + context.appName);
  const PasteResult paste = paste_.performDeferredPaste(rest, context);
  switch (paste.outcome) {
    case PasteResult::Outcome::confirmed:
      report.outcome = DeliveryOutcome::pasted;
      break;
    case PasteResult::Outcome::unverified:
      report.outcome = DeliveryOutcome::unverified;
      report.text = rest;
      report.message = "⚠️ Pasted into " + context.appName + ", which cannot confirm it";
      break;
    case PasteResult::Outcome::failed:
      return undeliverable(request, rest, paste.reason);
  }
  return report;
}

DeliveryReport RequestDelivery::undeliverable(const StreamingRequest& request,
                                              const std::string& text, const std::string& reason) {
  const std::string& app = request.cursorContext->appName;
  undelivered_.keepText({request.id(), ports_.dispatch.clock().wallNow(), text, app, reason});
  Pasteboard& pasteboard = ports_.pasteboard;
  const bool onClipboard =
      (pasteboard.isOwner() && pasteboard.string() == text) || pasteboard.setString(text);
  DeliveryReport report{
      request.id(), onClipboard ? DeliveryOutcome::clipboard : DeliveryOutcome::kept, text, {}};
  report.message = "⚠️ Not delivered to " + app + ": " + reason +
                   (onClipboard ? ". The text is on the clipboard" : ". The text is kept");
  logger_.log(logSource, LogLevel::warning, report.message);
  return report;
}

}  // namespace kestrin
