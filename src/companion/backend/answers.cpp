#include "companion/backend/answers.h"

#include <sqlite3.h>

#include "platform/text/text.h"

namespace kestrin::backend {

namespace {

constexpr size_t longestUserId = 128;

}  // namespace

void answerDone(const server::Responder& responder, const Status& status) {
  if (!status) {
    // What was kept before is still whole: the failed change was undone.
    const bool full = status.error().domain == "Store" && status.error().code == SQLITE_FULL;
    return answerFailed(responder, full ? 507 : 500,
                        full ? "There is no room left on the disk" : status.error().description);
  }
  responder.json(200, Json::object({{"success", true}}));
}

void answerFailed(const server::Responder& responder, int status, const std::string& why) {
  responder.json(status, Json::object({{"success", false}, {"error", why}}));
}

std::optional<Json> objectIn(const server::Request& request, const server::Responder& responder) {
  Result<Json> body = Json::parse(request.body);
  if (body && body->isObject()) return std::move(*body);
  answerFailed(responder, 400, "The body must be a JSON object");
  return std::nullopt;
}

bool admits(const std::string& userId, const server::Request& request,
            const server::Responder& responder) {
  if (userId.empty() || userId.size() > longestUserId || userId.find('/') != std::string::npos ||
      !text::isValidUtf8(userId)) {
    responder.error(400, "That is no user id");
    return false;
  }
  const std::string device = request.header("x-device-id");
  if (!device.empty() && device != userId) {
    responder.error(403, "These records belong to another device");
    return false;
  }
  return true;
}

}  // namespace kestrin::backend
