#include "companion/backend/google_routes.h"

#include "companion/backend/answers.h"

namespace kestrin::backend {

void addGoogleRoutes(server::Server& server) {
  server.route("GET", "/gmail/status/*", [](const auto&, const server::Responder& responder) {
    responder.json(200, Json::object({{"hasAccess", false}, {"unreadCount", 0}}));
  });
  for (const auto& [method, path] : {std::pair{"POST", "/google/*"}, std::pair{"GET", "/google/*"},
                                     std::pair{"POST", "/gmail/*"}}) {
    server.route(method, path, [](const auto&, const server::Responder& responder) {
      answerFailed(responder, 501, "No Google account is linked to this computer's own services");
    });
  }
}

home::HomeService::LastDictation lastDictation(BackendService& backend) {
  return
      [&backend](const std::string& userId, std::function<void(std::optional<Date>)> completion) {
        backend.withStore([userId, completion = std::move(completion)](Store& store) {
          const auto newest = store.history(userId, 1);
          completion(newest && !newest->empty() ? std::optional(newest->front().at) : std::nullopt);
        });
      };
}

}  // namespace kestrin::backend
