#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "identity/device_id_manager.h"
#include "identity/firebase_auth_service.h"
#include "identity/gemini_key_manager.h"
#include "platform/dispatch/dispatch.h"
#include "platform/http.h"
#include "platform/json/json.h"
#include "platform/lifetime.h"
#include "platform/settings.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// A row of the home's panel.
struct DynamicPanelItem {
  std::string title;
  std::string source;
  std::string url;  ///< http or https, or empty
  std::string thumbnailUrl;
  bool operator==(const DynamicPanelItem&) const = default;
};

/// What the agent said to one request, read whole.
struct AgentReply {
  std::string text;
  Bytes audio;
  std::vector<DynamicPanelItem> news;
  std::string error;  ///< why it is no whole answer; empty when it is one
};
/// From the lines of the event stream; what is no event is left out.
AgentReply parseAgentReply(std::string_view body);

/// The home's requests to the agent: one question, one answer, and speech. Thread-safe but for the
/// completions, which come on the main queue while this lives; must be destroyed there. Errors:
/// domain "HTTP", or "HomeAgent" (1) with the agent's own words.
class HomeAgent {
 public:
  struct Services {
    Dispatch& dispatch;
    Http& http;
    SettingsStore& settings;
    DeviceIdManager& deviceId;
    GeminiKeyManager& geminiKey;
    FirebaseAuthService& auth;
    Endpoints endpoints;
  };
  explicit HomeAgent(Services services);

  void ask(const std::string& transcript, const std::string& mode, std::chrono::seconds timeout,
           std::function<void(const Result<AgentReply>&)> completion);
  /// Fires a request whose body gets `user_id` and `device_id`; the answer as an object.
  void post(const std::string& path, Json body, std::chrono::seconds timeout,
            std::function<void(const Result<Json>&)> completion);
  void get(const std::string& pathAndQuery, std::chrono::seconds timeout,
           std::function<void(const Result<Json>&)> completion);
  const std::string& baseUrl() const { return services_.endpoints.agent; }

 private:
  std::string userId();

  const Services services_;
  const std::shared_ptr<HttpSession> session_;
  Lifetime lifetime_;
};

}  // namespace kestrin
