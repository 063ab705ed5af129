#pragma once

#include <functional>
#include <memory>
#include <string>

#include "diagnostics/logger.h"
#include "liveassist/behavioral_profile_manager.h"
#include "liveassist/live_feedback_window.h"
#include "platform/http.h"
#include "platform/lifetime.h"
#include "platform/user_notifications.h"

namespace kestrin {

/// Asks the backend for the summary of a call that has ended, and tells the user. Best effort:
/// nothing repeats it. Main queue only; must be destroyed there.
class PostCallSummary {
 public:
  struct Call {
    std::string roomName, callerName, userName, userId, transcript;
    int64_t duration = 0;  ///< seconds
  };
  static constexpr std::chrono::seconds timeout{30};
  static constexpr const char* savedStatus = "📋 Call summary saved";

  PostCallSummary(Dispatch& dispatch, Http& http, Logger& logger,
                  BehavioralProfileManager& profiles, std::string backend);

  /// Nothing goes out for a call in which nothing was said.
  void requestPostCallSummary(const Call& call);

  /// A summary has been stored.
  std::function<void(const std::string& callerName, const std::string& summary)> onSummary;
  std::function<void(UserNotification, Json userInfo,
                     std::function<void(const Result<uint32_t>&)> onShown)>
      notify;

 private:
  void answered(const Call& call, const Result<HttpResponse>& response);
  void sendPostCallNotification(const Call& call, const std::string& summary);

  Dispatch& dispatch_;
  Logger& logger_;
  BehavioralProfileManager& profiles_;
  const std::string backend_;
  const std::shared_ptr<HttpSession> session_;
  Lifetime lifetime_;
};

}  // namespace kestrin
