#pragma once

#include <map>
#include <memory>
#include <string>

#include "app/app_services.h"
#include "app/result_handler.h"
#include "platform/lifetime.h"

namespace kestrin {

/// Sends a recording through the recogniser and the agent to its target, and hands the result over.
/// Several can be under way. Main queue only; chunks go from the stream's thread straight to the
/// request.
class DictationSender {
 public:
  struct Outgoing {
    Bytes pcm;
    CapturedContext context;
    std::shared_ptr<CursorContext> cursor;
  };

  DictationSender(DictationServices& services, ResultHandler& results);

  void send(Outgoing outgoing);

 private:
  struct Run;
  TranscriptionService::ChunkHandler chunkHandler(const std::string& id);
  TranscriptionService::Completion completion(const std::shared_ptr<Run>& run);
  void leaveRecordingView();
  void delivered(const DeliveryReport& report);
  void finish(const Run& run, const Result<TranscriptionResult>& result);

  DictationServices& services_;
  ResultHandler& results_;
  /// Reports of requests whose result has not been handled yet.
  std::map<std::string, std::optional<DeliveryReport>> deliveries_;
  Lifetime lifetime_;
};

}  // namespace kestrin
