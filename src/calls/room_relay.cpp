#include "calls/room_relay.h"

#include <utility>

#include "platform/dispatch/background.h"

namespace kestrin {

RoomRelay::RoomRelay(Dispatch& dispatch, std::shared_ptr<HttpSession> session, Random& random,
                     std::string backend, std::string roomName, std::string token,
                     std::function<void(const Json&)> deliver)
    : dispatch_(dispatch),
      session_(std::move(session)),
      address_(std::move(backend) + "/calls/room"),
      roomName_(std::move(roomName)),
      token_(std::move(token)),
      participant_(random.uuid()),
      deliver_(std::move(deliver)) {}

RoomRelay::~RoomRelay() {
  if (after_ < 0) return;
  outgoing_ = {Json::object({{"message", Json::object({{"type", "leave"}})}})};
  session_->data(jsonPost(address_, request().dump()), [](const Result<HttpResponse>&) {});
}

Json RoomRelay::request() const {
  return Json::object({{"roomName", roomName_},
                       {"token", token_},
                       {"participant", participant_},
                       {"after", after_},
                       {"messages", Json(outgoing_)}});
}

void RoomRelay::take(const Json& fromPage) {
  const Json* signal = fromPage.objectAt("room");
  if (signal == nullptr || signal->objectAt("message") == nullptr) return;
  outgoing_.push_back(*signal);
  quickUntil_ = dispatch_.clock().steadyNow() + quickFor;
  exchange();
}

void RoomRelay::exchange() {
  if (isAsking_) return;
  isAsking_ = true;
  timer_.reset();
  session_->data(jsonPost(address_, request().dump()),
                 onMain<Result<HttpResponse>>(
                     dispatch_, lifetime_,
                     [this, sent = outgoing_.size()](const Result<HttpResponse>& response) {
                       answered(response, sent);
                     }));
}

void RoomRelay::answered(const Result<HttpResponse>& response, size_t sent) {
  isAsking_ = false;
  const bool wasOutside = after_ < 0;
  const auto answer = response ? Json::parse(response->body) : Result<Json>(Json());
  const auto after = answer ? answer->intAt("after") : std::nullopt;
  if (!after) {
    if (wasOutside) {
      const std::string why =
          response && answer
              ? answer->stringAt("error", "The room did not answer")
              : (response ? "The room did not answer" : response.error().description);
      outgoing_.clear();
      return deliver_(Json::object({{"error", why}}));
    }
    return askAgain();
  }
  outgoing_.erase(outgoing_.begin(), outgoing_.begin() + static_cast<std::ptrdiff_t>(sent));
  after_ = *after;
  auto messages = answer->objectListAt("messages").value_or(Json::Array());
  if (wasOutside) deliver_(Json::object({{"joined", true}}));
  if (!messages.empty()) {
    quickUntil_ = dispatch_.clock().steadyNow() + quickFor;
    deliver_(Json::object({{"messages", Json(std::move(messages))}}));
  }
  outgoing_.empty() ? askAgain() : exchange();
}

void RoomRelay::askAgain() {
  const bool quick = dispatch_.clock().steadyNow() < quickUntil_;
  timer_ = dispatch_.after(dispatch_.mainQueue(), quick ? quickInterval : calmInterval,
                           [this] { exchange(); });
}

}  // namespace kestrin
