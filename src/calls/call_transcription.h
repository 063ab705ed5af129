#pragma once

#include <functional>
#include <memory>
#include <string>

#include "diagnostics/logger.h"
#include "platform/http.h"
#include "services/local/local_asr_service.h"

namespace kestrin {

/// The first sentence of eleven characters or more, else the beginning of the transcript, cut to
/// 150 characters; "Call with ..." for an empty one.
std::string generateSimpleSummary(const std::string& transcript, const std::string& callerName);

/// What becomes of the recording of a call: transcribed, summed up and kept at the backend. Its
/// services outlive the dispatch's jobs.
class CallTranscription {
 public:
  struct Call {
    std::string roomName, callerName, userId;
    double duration = 0;  ///< seconds
  };
  CallTranscription(Dispatch& dispatch, Http& http, LocalASRService& asr, Logger& logger,
                    std::string backend);

  void transcribeCallRecording(const std::string& audioURL, const Call& call,
                               std::function<void()> onSaved);

 private:
  Dispatch& dispatch_;
  LocalASRService& asr_;
  Logger& logger_;
  const std::string backend_;
  const std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin
