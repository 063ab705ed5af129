#include "dictation/overlay_window.h"

#include <algorithm>
#include <cmath>

#include "platform/text/text.h"

namespace kestrin {
namespace {

std::string tailOf(const std::string& text) {
  auto tail = text::suffix(text, OverlayWindow::tailCharacters);
  std::replace(tail.begin(), tail.end(), '\n', ' ');
  return text::trim(tail);
}

OverlayRow rowOf(const StreamingRequest& request) {
  const auto status = request.status();
  const bool running =
      status == StreamingStatus::processing || status == StreamingStatus::streaming;
  return {request.id(), request.displayName(), tailOf(request.accumulatedText()),
          OverlayWindow::colorForStatus(status),
          running ? OverlayRow::Button::stop : OverlayRow::Button::none};
}

OverlayRow offerRow(const UndeliveredStore& undelivered) {
  constexpr OverlayColor orange{1.0, 0.58, 0.0, 0.85};
  if (undelivered.latestIsText()) {
    const auto texts = undelivered.texts();
    return {"", "⚠️ Not delivered", texts.empty() ? "" : tailOf(texts.front().text), orange,
            OverlayRow::Button::sendAgain};
  }
  const auto recordings = undelivered.recordings();
  return {"", "⚠️ Recording kept", recordings.empty() ? "" : tailOf(recordings.front().reason),
          orange, OverlayRow::Button::sendAgain};
}

double rowsHeight(size_t count) {
  if (count == 0) return 0;
  const auto rows = static_cast<double>(count);
  return rows * OverlayWindow::rowHeight + (rows - 1) * OverlayWindow::rowGap;
}

}  // namespace

OverlayWindow::OverlayWindow(Dispatch& dispatch, Logger& logger,
                             std::shared_ptr<StreamingRequestManager> manager,
                             const UndeliveredStore& undelivered)
    : dispatch_(dispatch),
      logger_(logger),
      manager_(std::move(manager)),
      undelivered_(undelivered) {
  barHeights_.fill(barHeightAtRest);
}

void OverlayWindow::showRecording() {
  isRecordingActive_ = true;
  statusLabel_ = "Listening...";
  barHeights_.fill(barHeightAtRest);
  pulsing_ = true;
  updateStreamingRequestsUI();
}

void OverlayWindow::hideOverlay() { returnToStreamingView(); }

void OverlayWindow::returnToStreamingView() {
  isRecordingActive_ = false;
  pulsing_ = false;
  updateStreamingRequestsUI();
}

void OverlayWindow::updateAudioLevel(float level) {
  currentAudioLevel_ = level;
  const double phase =
      std::chrono::duration<double>(dispatch_.clock().steadyNow().sinceStart).count() * 8.0;
  for (size_t i = 0; i < barCount; ++i) {
    const double wave = std::sin(phase + static_cast<double>(i + 1) * 0.7);
    barHeights_[i] = (wave * 0.3 + 0.7) * static_cast<double>(level) * 20 + 4;
  }
  if (isRecordingActive_) changed();
}

void OverlayWindow::setupStreamingRequestsObserver() {
  manager_->onRequestsChange = lifetime_.guard([this] { updateStreamingRequestsUI(); });
}

void OverlayWindow::updateStreamingRequestsUI() {
  const auto requests = manager_->getActiveRequests();
  rows_.clear();
  for (const auto& request : requests) rows_.push_back(rowOf(*request));
  if (undelivered_.empty()) offering_ = false;
  if (offering_) rows_.push_back(offerRow(undelivered_));
  resizeToFitContent(requests.size());
  visible_ = isRecordingActive_ || !rows_.empty();
  changed();
}

void OverlayWindow::offerSendAgain() {
  if (undelivered_.empty()) return;
  offering_ = true;
  offerTimer_ = dispatch_.after(dispatch_.mainQueue(), offerDuration, lifetime_.guard([this] {
    offering_ = false;
    updateStreamingRequestsUI();
  }));
  updateStreamingRequestsUI();
}

void OverlayWindow::stopStreamingRequest(const std::string& id) { manager_->cancelRequest(id); }

void OverlayWindow::sendAgain() {
  offering_ = false;
  updateStreamingRequestsUI();
  if (onSendAgain) onSendAgain();
}

OverlayRect OverlayWindow::placeOn(const OverlayRect& screen) const {
  return {screen.x + screen.width - width_ - screenMargin,
          screen.y + screen.height - height_ - screenMargin, width_, height_};
}

OverlayRect OverlayWindow::pillRect() const {
  return {(width_ - pillWidth) / 2, 0, pillWidth, pillHeight};
}

OverlayRect OverlayWindow::rowRect(size_t index) const {
  const double top = isRecordingActive_ ? pillHeight + rowGap : 0;
  return {(width_ - rowWidth) / 2, top + static_cast<double>(index) * (rowHeight + rowGap),
          rowWidth, rowHeight};
}

OverlayColor OverlayWindow::colorForStatus(StreamingStatus status) {
  constexpr double alpha = 0.85;
  switch (status) {
    case StreamingStatus::processing:
      return {0.0, 0.48, 1.0, alpha};
    case StreamingStatus::streaming:
      return {0.20, 0.78, 0.35, alpha};
    case StreamingStatus::complete:
      return {0.19, 0.69, 0.78, alpha};
    case StreamingStatus::cancelled:
      return {0.56, 0.56, 0.58, alpha};
  }
  return {};
}

void OverlayWindow::resizeToFitContent(size_t streams) {
  const double rows = rowsHeight(rows_.size());
  const double pill = isRecordingActive_ ? pillHeight : 0;
  const double gap = isRecordingActive_ && !rows_.empty() ? rowGap : 0;
  const double total = std::max(pillHeight, rows + gap + pill);
  const double width = rows_.empty() ? pillWidth : rowWidth;
  if (total == height_ && width == width_) return;
  height_ = total;
  width_ = width;
  logger_.log("Overlay", LogLevel::debug,
              "📐 Widget resize: " + std::to_string(streams) +
                  " streams, recording=" + (isRecordingActive_ ? "true" : "false") +
                  ", totalHeight=" + std::to_string(static_cast<int>(total)));
}

void OverlayWindow::changed() {
  if (onChange) onChange();
}

}  // namespace kestrin
