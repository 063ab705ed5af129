#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "calls/call_records.h"
#include "diagnostics/logger.h"
#include "platform/http.h"
#include "platform/lifetime.h"
#include "platform/notification_center.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// The client of the backend's call endpoints, and the one call of this installation. Main queue
/// only; completions run there. Must be destroyed there. Errors: the transport's, or domain
/// "CallService".
class CallService {
 public:
  static constexpr const char* callStatusChanged = "CallStatusChanged";
  static constexpr const char* incomingCallReceived = "IncomingCallReceived";
  static constexpr const char* callConnected = "CallConnected";
  static constexpr const char* callEnded = "CallEnded";
  static constexpr std::chrono::seconds pollInterval{3};
  static constexpr std::chrono::seconds restAfterEnd{1};

  enum ErrorCode { notLoggedIn = 1, invalidResponse = 2 };
  struct Call {
    std::string roomName, token;
  };
  using Completion = std::function<void(const Result<std::string>&)>;

  CallService(Dispatch& dispatch, Http& http, NotificationCenter& center, Logger& logger,
              const Endpoints& endpoints);

  /// This installation's device id; nothing goes out before it is known.
  std::optional<std::string> currentUserId;

  /// Rings at `recipient`; gives the room's name.
  void initiateCall(const std::string& recipient, const std::string& callerName,
                    Completion completion);
  /// Gives the token of the room, which the backend is told is answered.
  void answerCall(const std::string& roomName, Completion completion);
  /// "ended", "declined" or "timeout". The local state is final, whatever the backend says.
  void endCall(const std::string& reason);
  /// `completion` may be empty.
  void fetchCallHistory(std::function<void(const std::vector<CallRecord>&)> completion);
  void startPollingForIncomingCalls();
  void stopPolling() { pollingTimer_.reset(); }

  CallStatus callStatus() const { return callStatus_; }
  const std::optional<Call>& currentCall() const { return currentCall_; }
  /// The other party of the call that rings or goes on.
  const std::optional<std::string>& currentCallerName() const { return currentCallerName_; }

  std::function<void(const IncomingCall&)> onIncomingCall;
  std::function<void(CallStatus)> onCallStatusChanged;
  std::function<void(const std::vector<CallRecord>&)> onCallHistoryUpdated;
  /// A call that was answered outside the page leads into its room by this.
  std::function<void(const std::string& token, const std::string& roomName,
                     const std::string& callerName)>
      onShowVideoCall;
  std::function<void()> onHideVideoCall;
  std::function<void()> requestUserAttention;

 private:
  void getToken(const std::string& roomName, Completion completion);
  void checkForIncomingCalls();
  /// Runs it once the observers of the status have heard of the change before it.
  Completion afterStatus(Completion completion);
  void setCallStatus(CallStatus status);
  void post(const std::string& path, Json body,
            std::function<void(const Result<HttpResponse>&)> completion);
  void get(const std::string& path, std::function<void(const Result<HttpResponse>&)> completion);

  Dispatch& dispatch_;
  NotificationCenter& center_;
  Logger& logger_;
  const std::string backendURL_;
  const std::shared_ptr<HttpSession> session_;
  CallStatus callStatus_ = CallStatus::idle;
  std::optional<Call> currentCall_;
  std::optional<std::string> currentCallerName_;
  int call_ = 0;  ///< counts calls: what a request of an earlier one brings is dropped
  TimerHandle pollingTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
