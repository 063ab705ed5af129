#include "research/research_stream_delegate.h"

#include <utility>

#include "platform/http.h"

namespace kestrin {

ResearchStreamDelegate::ResearchStreamDelegate(OnEvent onEvent, OnComplete onComplete,
                                               OnError onError)
    : onEvent_(std::move(onEvent)),
      onComplete_(std::move(onComplete)),
      onError_(std::move(onError)) {}

bool ResearchStreamDelegate::didReceive(std::string_view bytes) {
  constexpr std::string_view field = "data: ";
  if (overflowed_) return false;
  deliveries_.receive(bytes, buffer_);
  size_t begin = 0;
  for (size_t end = buffer_.find('\n', searched_); end != std::string::npos;
       end = buffer_.find('\n', begin)) {
    const std::string_view line = std::string_view(buffer_).substr(begin, end - begin);
    if (line.starts_with(field)) processEvent(line.substr(field.size()));
    begin = end + 1;
  }
  buffer_.erase(0, begin);
  searched_ = buffer_.size();
  if (buffer_.size() > maxLineBytes) {
    overflowed_ = true;
    buffer_.clear();
  }
  return !overflowed_;
}

void ResearchStreamDelegate::processEvent(std::string_view text) {
  const Result<Json> event = Json::parse(text);
  if (!event || !event->isObject()) return;
  if (auto summary = event->stringAt("summary")) lastSummary_ = std::move(*summary);
  if (const Json* sources = event->find("sources"); sources != nullptr && sources->isArray()) {
    lastSources_.clear();
    for (const Json* each : event->objectsAt("sources")) {
      if (auto source = ResearchSource::fromJson(*each)) lastSources_.push_back(std::move(*source));
    }
  }
  // Always: a step and an answer can travel together.
  if (onEvent_) onEvent_(*event);
}

void ResearchStreamDelegate::didComplete(const std::optional<Error>& error) {
  if (overflowed_) {
    if (onError_) onError_("The research service sent a line without an end");
  } else if (error) {
    // Who cancelled has said so already.
    const bool cancelled = error->domain == "HTTP" && error->code == httpCancelled;
    if (!cancelled && onError_) onError_(error->description);
  } else if (!lastSummary_.empty()) {
    if (onComplete_) onComplete_(lastSummary_, lastSources_);
  } else if (onError_) {
    onError_("No results received from research");
  }
}

}  // namespace kestrin
