#include "app/dictation_sender.h"

#include <atomic>
#include <utility>

namespace kestrin {

struct DictationSender::Run {
  std::string id;
  Outgoing outgoing;
};

DictationSender::DictationSender(DictationServices& services, ResultHandler& results)
    : services_(services), results_(results) {
  services_.manager->onDelivery =
      lifetime_.guard([this](const DeliveryReport& report) { delivered(report); });
}

void DictationSender::send(Outgoing outgoing) {
  auto run = std::make_shared<Run>();
  run->outgoing = std::move(outgoing);
  run->id = services_.manager->createRequest(run->outgoing.cursor)->id();
  deliveries_[run->id] = std::nullopt;
  services_.mainWindow.updateStatus(
      "⏳ Processing... (" + countedStreams(services_.manager->activeRequestCount()) + ")",
      StatusColor::blue);
  services_.overlay.returnToStreamingView();
  services_.transcription->transcribePCMStreaming(
      run->outgoing.pcm, "auto", run->outgoing.context,
      services_.authToken ? services_.authToken() : std::nullopt, chunkHandler(run->id),
      completion(run));
}

TranscriptionService::ChunkHandler DictationSender::chunkHandler(const std::string& id) {
  auto isFirst = std::make_shared<std::atomic<bool>>(true);
  std::function<void()> first = lifetime_.guard([this] {
    leaveRecordingView();
    services_.mainWindow.updateStatus("📝 Streaming...", StatusColor::primary);
  });
  return [manager = services_.manager, main = services_.dispatch.mainQueue(), id, isFirst,
          first = std::move(first)](const std::string& text) {
    if (isFirst->exchange(false)) main->post(first);
    manager->addChunk(text, id);
  };
}

TranscriptionService::Completion DictationSender::completion(const std::shared_ptr<Run>& run) {
  std::function<void()> ended = lifetime_.guard([this] {
    leaveRecordingView();
    services_.recorder.cleanup();
  });
  std::function<void(const Result<TranscriptionResult>&)> handle = lifetime_.guard(
      [this, run](const Result<TranscriptionResult>& result) { finish(*run, result); });
  return [manager = services_.manager, main = services_.dispatch.mainQueue(),
          global = services_.dispatch.globalQueue(), id = run->id, ended = std::move(ended),
          handle = std::move(handle)](Result<TranscriptionResult> result) {
    main->post(ended);
    // Blocks until the last text is in its place; what follows may rely on that.
    global->post([manager, main, id, handle, result = std::move(result)] {
      manager->completeRequest(id);
      main->post([handle, result] { handle(result); });
    });
  };
}

/// The pill belongs to the next dictation when its recording runs already.
void DictationSender::leaveRecordingView() {
  if (!services_.recorder.isRecording()) services_.overlay.hideOverlay();
}

void DictationSender::delivered(const DeliveryReport& report) {
  if (const auto waiting = deliveries_.find(report.requestId); waiting != deliveries_.end()) {
    waiting->second = report;
  }
  results_.reportDelivery(report);
}

void DictationSender::finish(const Run& run, const Result<TranscriptionResult>& result) {
  auto delivery = std::move(deliveries_[run.id]);
  deliveries_.erase(run.id);
  const auto request = services_.manager->getRequest(run.id);
  const bool cancelled = (request && request->isCancelled()) ||
                         (delivery && delivery->outcome == DeliveryOutcome::cancelled);
  if (!result && !cancelled) {
    services_.undelivered.keepRecording({run.id, services_.dispatch.clock().wallNow(),
                                         run.outgoing.pcm, run.outgoing.context,
                                         result.error().description});
    services_.overlay.offerSendAgain();
  }
  results_.handle({run.id, run.outgoing.context.appName, result, std::move(delivery)});
}

}  // namespace kestrin
