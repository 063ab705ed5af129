#include "calls/post_call_summary.h"

#include <algorithm>
#include <array>
#include <utility>

#include "calls/call_records.h"
#include "platform/dispatch/background.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "Calls";
constexpr size_t loggedSummary = 80;

/// The strongest emotion by the name that the backend knows.
std::string strongest(const BehavioralProfile& profile) {
  const auto top = profile.topEmotions(1);
  if (top.empty() || top.front().second <= 0) return "NEUTRAL";
  const std::string name = text::upper(top.front().first);
  static constexpr std::array known{"HAPPY", "ANGRY", "FEAR", "SURPRISE", "DISGUST"};
  return std::find(known.begin(), known.end(), name) == known.end() ? "NEUTRAL" : name;
}

}  // namespace

PostCallSummary::PostCallSummary(Dispatch& dispatch, Http& http, Logger& logger,
                                 BehavioralProfileManager& profiles, std::string backend)
    : dispatch_(dispatch),
      logger_(logger),
      profiles_(profiles),
      backend_(std::move(backend)),
      session_(http.makeSession({})) {}

void PostCallSummary::requestPostCallSummary(const Call& call) {
  if (call.transcript.empty())
    return logger_.log(source, LogLevel::info, "Post-call: no transcript to summarize");
  const BehavioralProfile user = profiles_.userProfile(), other = profiles_.systemProfile();
  HttpRequest request =
      jsonPost(backend_ + "/calls/transcript", Json::object({{"roomName", call.roomName},
                                                             {"callerName", call.callerName},
                                                             {"userName", call.userName},
                                                             {"duration", call.duration},
                                                             {"userId", call.userId},
                                                             {"transcript", call.transcript},
                                                             {"userMood", user.moodTag()},
                                                             {"otherMood", other.moodTag()},
                                                             {"userEmotion", strongest(user)},
                                                             {"otherEmotion", strongest(other)},
                                                             {"generateSummary", true}})
                                                   .dump());
  request.timeout = timeout;
  logger_.log(source, LogLevel::info,
              "Post-call: " + std::to_string(call.duration) + " s, transcript of " +
                  std::to_string(text::characterCount(call.transcript)) + " characters");
  session_->data(std::move(request),
                 onMain<Result<HttpResponse>>(dispatch_, lifetime_,
                                              [this, call](const Result<HttpResponse>& response) {
                                                answered(call, response);
                                              }));
}

void PostCallSummary::answered(const Call& call, const Result<HttpResponse>& response) {
  if (!response) {
    return logger_.log(source, LogLevel::error,
                       "Post-call summary request failed: " + response.error().description);
  }
  if (response->body.empty()) return;
  const auto body = Json::parse(response->body);
  const std::string summary = body ? body->stringAt("summary", "") : "";
  if (!summary.empty()) {
    logger_.log(source, LogLevel::info,
                "Post-call summary received: " + text::prefix(summary, loggedSummary));
    if (onSummary) onSummary(call.callerName, summary);
  }
  sendPostCallNotification(call, summary);
}

void PostCallSummary::sendPostCallNotification(const Call& call, const std::string& summary) {
  if (!notify) return;
  notify({.title = "📞 Call Ended — " + call.callerName,
          .body = "Duration: " + formatDuration(call.duration) +
                  (summary.empty() ? "" : "\n" + summary),
          .category = "POST_CALL_SUMMARY",
          .sound = true},
         Json::object({{"callerName", call.callerName}}),
         lifetime_.guard([this](const Result<uint32_t>& shown) {
           if (shown) return;
           logger_.log(source, LogLevel::error,
                       "Post-call notification error: " + shown.error().description);
         }));
}

}  // namespace kestrin
