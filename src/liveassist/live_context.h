#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "identity/device_id_manager.h"
#include "identity/gemini_key_manager.h"
#include "liveassist/session_records.h"
#include "platform/http.h"
#include "services/local/endpoints.h"
#include "usermodel/user_preferences.h"

namespace kestrin {

/// What a refresh of the live context says of the conversation; who asks and which language model
/// is to be used is added when it is sent.
struct LiveContextRequest {
  std::optional<std::string> contactEmail;
  std::string transcript;
  std::vector<Json> documents;
  bool generateFeedback = false;
  LALiveAssistUseCase useCase = LALiveAssistUseCase::meeting;
  std::map<std::string, bool> filters;
  std::vector<Json> pinnedItems;
};

/// When feedback is asked for: at once when the text has changed, every 15 s while it has not, and
/// never while an earlier request for it is out. Feedback on next to nothing is never asked for.
class FeedbackPacing {
 public:
  static constexpr size_t mostSilentCharacters = 30;
  static constexpr std::chrono::seconds unchangedInterval{15};

  /// Takes note of the text of this cycle. `characters`: its length.
  bool wantsFeedback(const std::string& transcript, size_t characters, SteadyTime now);
  /// A request for feedback goes out; every one must be followed by `answered`, or `clear`.
  void asked(SteadyTime now);
  void answered() { inFlight_ = false; }
  void received(SteadyTime now) { lastReceivedAt_ = now; }
  /// The next cycle is like the first.
  void clear() { *this = {}; }

  bool isFeedbackRequestInFlight() const { return inFlight_; }
  std::optional<SteadyTime> lastFeedbackRequestAt() const { return lastRequestAt_; }
  std::optional<SteadyTime> lastFeedbackReceivedAt() const { return lastReceivedAt_; }

 private:
  bool inFlight_ = false;
  size_t lastTranscriptHash_ = 0;
  std::optional<SteadyTime> lastRequestAt_, lastReceivedAt_;
};

/// Why a refresh brought nothing, in the domain "LiveContext"; the transport's errors come as they
/// are.
inline constexpr const char* liveContextDomain = "LiveContext";
enum LiveContextErrorCode {
  liveContextNotJson = 1,  ///< "Invalid response data"
  liveContextRefused = 2,  ///< the answer's `error`, or "Unknown error"
};

/// `POST /memory/live-context` and the questions around it. Requests go out in the order of the
/// calls; answers may overtake each other. Thread-safe. Dropping the client drops what is under
/// way, without a completion.
class LiveContextClient {
 public:
  /// Bounds a whole request: one that is stuck blocks feedback no longer.
  static constexpr std::chrono::milliseconds timeout{30'000};
  /// On the main queue; the answer is the whole object of a successful reply.
  using Completion = std::function<void(Result<Json>)>;

  LiveContextClient(Dispatch& dispatch, Http& http, const SettingsStore& settings,
                    DeviceIdManager& deviceId, GeminiKeyManager& geminiKey,
                    const UserPreferences& preferences, const Endpoints& endpoints);

  void refresh(LiveContextRequest request, Completion completion);
  /// What is known of a contact from earlier conversations.
  void contactContext(const std::string& email, const std::string& name, Completion completion);

 private:
  struct Core;
  const QueueRef queue_;  ///< reads the secret, which can keep a caller waiting
  const std::shared_ptr<Core> core_;
};

}  // namespace kestrin
