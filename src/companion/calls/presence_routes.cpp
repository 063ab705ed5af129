#include "companion/calls/presence_routes.h"

#include "companion/backend/answers.h"
#include "companion/calls/call_store.h"
#include "platform/text/text.h"

namespace kestrin::backend {
namespace {

using server::Request;
using server::Responder;

constexpr int64_t mostContacts = 10'000, mostFound = 50;
constexpr size_t longestName = 200;

/// The device that the body names, if it may speak for it; answers when not.
std::optional<Json> deviceBody(const Request& request, const Responder& responder) {
  auto body = objectIn(request, responder);
  if (body && !admits(body->stringAt("deviceId", ""), request, responder)) return std::nullopt;
  return body;
}

void answerContacts(const Result<std::vector<Contact>>& contacts, const Responder& responder) {
  if (!contacts) return answerDone(responder, fail(contacts.error()));
  Json list = Json::array();
  for (const Contact& each : *contacts)
    list.push(Json::object({{"name", each.name}, {"email", ""}, {"calls", each.calls}}));
  responder.json(200, Json::object({{"contacts", std::move(list)}}));
}

void online(Store& store, const Request& request, Date now, const Responder& responder) {
  const auto found =
      CallStore(store).onlineSince(now - CallStore::online, request.queryValue("excludeDeviceId"));
  if (!found) return answerDone(responder, fail(found.error()));
  Json users = Json::array();
  for (const Presence& each : *found) {
    users.push(Json::object({{"deviceId", each.deviceId},
                             {"userId", each.deviceId},
                             {"userName", each.userName},
                             {"lastSeen", std::chrono::duration_cast<std::chrono::milliseconds>(
                                              each.lastSeen.time_since_epoch())
                                              .count()}}));
  }
  responder.json(200, Json::object({{"users", std::move(users)}}));
}

}  // namespace

void addPresenceRoutes(server::Server& server, BackendService& backend, Clock& clock) {
  backend.addStoreRoute(
      server, "POST", "/presence/heartbeat",
      [&clock](Store& store, const Request& request, const Responder& responder) {
        if (const auto body = deviceBody(request, responder)) {
          const auto name = text::prefix(text::trim(body->stringAt("userName", "")), longestName);
          answerDone(responder, CallStore(store).heartbeat(body->stringAt("deviceId", ""), name,
                                                           clock.wallNow()));
        }
      });
  backend.addStoreRoute(server, "POST", "/presence/offline",
                        [](Store& store, const Request& request, const Responder& responder) {
                          if (const auto body = deviceBody(request, responder))
                            answerDone(responder,
                                       CallStore(store).offline(body->stringAt("deviceId", "")));
                        });
  backend.addStoreRoute(server, "GET", "/presence/online",
                        [&clock](Store& store, const Request& request, const Responder& responder) {
                          online(store, request, clock.wallNow(), responder);
                        });
  backend.addStoreRoute(server, "GET", "/contacts/frequent/*",
                        [](Store& store, const Request& request, const Responder& responder) {
                          if (admits(request.rest, request, responder))
                            answerContacts(CallStore(store).frequent(request.rest, mostContacts),
                                           responder);
                        });
  backend.addStoreRoute(
      server, "GET", "/contacts/search",
      [](Store& store, const Request& request, const Responder& responder) {
        const std::string device = request.queryValue("device_user_id");
        if (admits(device, request, responder))
          answerContacts(CallStore(store).search(device, request.queryValue("query"), mostFound),
                         responder);
      });
}

}  // namespace kestrin::backend
