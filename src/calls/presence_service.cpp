#include "calls/presence_service.h"

#include <utility>

#include "calls/call_records.h"
#include "platform/dispatch/background.h"
#include "platform/text/text.h"
#include "usermodel/user_preferences.h"

namespace kestrin {
namespace {

constexpr size_t leastLongId = 13;

}  // namespace

std::string OnlineUser::displayName() const {
  if (userName && !userName->empty()) return *userName;
  if (userEmail && !userEmail->empty())
    return text::capitalizeFirst(text::split(*userEmail, "@").front());
  return shortId(deviceId, leastLongId);
}

PresenceService::PresenceService(Dispatch& dispatch, Http& http, SettingsStore& settings,
                                 Logger& logger, const Endpoints& endpoints)
    : dispatch_(dispatch),
      settings_(settings),
      logger_(logger),
      backendURL_(endpoints.backend),
      session_(http.makeSession({})) {}

void PresenceService::startPresence() {
  sendHeartbeat();
  const auto main = dispatch_.mainQueue();
  heartbeatTimer_ = dispatch_.every(main, heartbeatInterval, [this] { sendHeartbeat(); });
  refreshTimer_ = dispatch_.every(main, refreshInterval, [this] { fetchOnlineUsers(); });
  logger_.print("✅ Presence service started");
}

void PresenceService::stopPresence() {
  heartbeatTimer_.reset();
  refreshTimer_.reset();
  logger_.print("🔴 Presence service stopped");
  if (!deviceId) return;
  session_->data(
      jsonPost(backendURL_ + "/presence/offline", Json::object({{"deviceId", *deviceId}}).dump()),
      [](const Result<HttpResponse>&) {});
}

void PresenceService::sendHeartbeat() {
  if (!deviceId) return;
  const Json body =
      Json::object({{"userId", *deviceId},
                    {"deviceId", *deviceId},
                    {"userName", settings_.string(UserPreferences::userNameKey, "")}});
  session_->data(jsonPost(backendURL_ + "/presence/heartbeat", body.dump()),
                 [&logger = logger_](const Result<HttpResponse>& response) {
                   if (response) return;
                   logger.print("❌ Heartbeat failed: " + response.error().description);
                 });
}

void PresenceService::fetchOnlineUsers(Completion completion) {
  const std::function<void(const Result<HttpResponse>&)> take =
      [this, completion = std::move(completion)](const Result<HttpResponse>& response) {
        const auto give = [&](const std::vector<OnlineUser>& users) {
          if (completion) completion(users);
        };
        if (!response || response->body.empty()) return give({});
        const auto body = Json::parse(response->body);
        const Json* list = body ? body->find("users") : nullptr;
        if (list == nullptr || !list->isArray()) {
          logger_.print("❌ Failed to parse online users: " +
                        (body ? "The answer holds no list \"users\"" : body.error().description));
          return give({});
        }
        std::vector<OnlineUser> users;
        for (const Json& each : list->items()) {
          const auto device = each.stringAt("deviceId"), user = each.stringAt("userId");
          if (!device || !user) continue;
          users.push_back({*device, *user, each.stringAt("userName"), each.stringAt("userEmail"),
                           each.intAt("lastSeen").value_or(0)});
        }
        onlineUsers_ = std::move(users);
        if (onUsersUpdated) onUsersUpdated(onlineUsers_);
        give(onlineUsers_);
      };
  HttpRequest request;
  request.url =
      backendURL_ + "/presence/online?excludeDeviceId=" + urlEncode(deviceId.value_or(""));
  session_->data(std::move(request), onMain(dispatch_, lifetime_, take));
}

}  // namespace kestrin
