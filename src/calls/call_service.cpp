#include "calls/call_service.h"

#include <utility>

#include "platform/dispatch/background.h"

namespace kestrin {
namespace {

constexpr const char* domain = "CallService";

Error notLoggedInError() { return {domain, CallService::notLoggedIn, "User not logged in"}; }

/// The text under `key` of an answer; an error status has none.
std::optional<std::string> textIn(const HttpResponse& response, const char* key) {
  const auto body = Json::parse(response.body);
  auto value = body ? body->stringAt(key) : std::nullopt;
  return value && !value->empty() ? value : std::nullopt;
}

}  // namespace

CallService::CallService(Dispatch& dispatch, Http& http, NotificationCenter& center, Logger& logger,
                         const Endpoints& endpoints)
    : dispatch_(dispatch),
      center_(center),
      logger_(logger),
      backendURL_(endpoints.backend),
      session_(http.makeSession({})) {}

void CallService::post(const std::string& path, Json body,
                       std::function<void(const Result<HttpResponse>&)> completion) {
  session_->data(jsonPost(backendURL_ + path, body.dump()),
                 onMain(dispatch_, lifetime_, std::move(completion)));
}

void CallService::get(const std::string& path,
                      std::function<void(const Result<HttpResponse>&)> completion) {
  HttpRequest request;
  request.url = backendURL_ + path;
  session_->data(std::move(request), onMain(dispatch_, lifetime_, std::move(completion)));
}

CallService::Completion CallService::afterStatus(Completion completion) {
  return [this, completion = std::move(completion)](const Result<std::string>& value) {
    dispatch_.mainQueue()->post(lifetime_.guard([completion, value] { completion(value); }));
  };
}

void CallService::initiateCall(const std::string& recipient, const std::string& callerName,
                               Completion completion) {
  if (!currentUserId) return completion(fail(notLoggedInError()));
  completion = afterStatus(std::move(completion));
  currentCallerName_ = recipient;
  setCallStatus(CallStatus::ringing);
  const auto failed = [this, completion](const Error& error) {
    setCallStatus(CallStatus::failed);
    completion(fail(error));
  };
  post("/calls/initiate",
       Json::object(
           {{"callerId", *currentUserId}, {"callerName", callerName}, {"recipientId", recipient}}),
       [this, call = ++call_, completion, failed](const Result<HttpResponse>& response) {
         if (call != call_) return;
         if (!response) return failed(response.error());
         const auto roomName = textIn(*response, "roomName");
         if (!roomName) return failed({domain, invalidResponse, "Invalid response"});
         getToken(*roomName, [this, call, roomName = *roomName, completion,
                              failed](const Result<std::string>& token) {
           if (call != call_) return;
           if (!token) return failed(token.error());
           currentCall_ = Call{roomName, *token};
           setCallStatus(CallStatus::connecting);
           completion(roomName);
         });
       });
}

void CallService::getToken(const std::string& roomName, Completion completion) {
  if (!currentUserId) return completion(fail(notLoggedInError()));
  post("/calls/token",
       Json::object(
           {{"userId", *currentUserId}, {"identity", *currentUserId}, {"roomName", roomName}}),
       [completion](const Result<HttpResponse>& response) {
         if (!response) return completion(fail(response.error()));
         const auto token = textIn(*response, "token");
         if (!token) return completion(fail(domain, invalidResponse, "Invalid token response"));
         completion(*token);
       });
}

void CallService::answerCall(const std::string& roomName, Completion completion) {
  if (!currentUserId) return completion(fail(notLoggedInError()));
  completion = afterStatus(std::move(completion));
  setCallStatus(CallStatus::connecting);
  post("/calls/answer", Json::object({{"userId", *currentUserId}, {"roomName", roomName}}),
       [this, call = ++call_, roomName, completion](const Result<HttpResponse>&) {
         if (call != call_) return;
         getToken(roomName, [this, call, roomName, completion](const Result<std::string>& token) {
           if (call != call_) return;
           if (!token) {
             setCallStatus(CallStatus::failed);
             return completion(fail(token.error()));
           }
           currentCall_ = Call{roomName, *token};
           setCallStatus(CallStatus::connected);
           // After the status, which goes the same way.
           dispatch_.mainQueue()->post(lifetime_.guard([this, roomName] {
             center_.post(callConnected,
                          Json::object({{"roomName", roomName},
                                        {"callerName", currentCallerName_.value_or("")}}));
           }));
           completion(*token);
         });
       });
}

void CallService::endCall(const std::string& reason) {
  ++call_;
  if (!currentUserId || !currentCall_) return setCallStatus(CallStatus::idle);
  setCallStatus(reason == "declined" ? CallStatus::declined : CallStatus::ended);
  post("/calls/end",
       Json::object(
           {{"userId", *currentUserId}, {"roomName", currentCall_->roomName}, {"reason", reason}}),
       [](const Result<HttpResponse>&) {});
  currentCall_.reset();
  currentCallerName_.reset();
  center_.post(callEnded, Json::object({{"reason", reason}}));
  dispatch_.mainQueue()->postAfter(restAfterEnd, lifetime_.guard([this, call = call_] {
    if (call == call_) setCallStatus(CallStatus::idle);
  }));
}

void CallService::fetchCallHistory(std::function<void(const std::vector<CallRecord>&)> completion) {
  if (!currentUserId) {
    if (completion) completion({});
    return;
  }
  get("/calls/history/" + urlEncode(*currentUserId),
      [this, completion = std::move(completion)](const Result<HttpResponse>& response) {
        std::vector<CallRecord> calls;
        const auto failed = [&](const std::string& why) {
          logger_.print("Failed to decode call history: " + why);
          calls.clear();
        };
        if (!response) {
          logger_.print("❌ Call history: " + response.error().description);
        } else if (!response->body.empty()) {
          const auto body = Json::parse(response->body);
          if (!body || !body->isObject()) {
            failed(body ? "The answer is no object" : body.error().description);
          } else if (const Json* list = body->find("calls")) {
            for (const Json& each : list->items()) {
              auto record = CallRecord::fromJson(each);
              if (!record) {
                failed(record.error().description);
                break;
              }
              calls.push_back(std::move(*record));
            }
          }
        }
        if (onCallHistoryUpdated) onCallHistoryUpdated(calls);
        if (completion) completion(calls);
      });
}

void CallService::startPollingForIncomingCalls() {
  pollingTimer_ =
      dispatch_.every(dispatch_.mainQueue(), pollInterval, [this] { checkForIncomingCalls(); });
}

void CallService::checkForIncomingCalls() {
  if (!currentUserId || callStatus_ != CallStatus::idle) return;
  get("/calls/incoming/" + urlEncode(*currentUserId), [this](const Result<HttpResponse>& response) {
    const auto body = response ? Json::parse(response->body) : Result<Json>(Json());
    if (!body || !body->boolAt("hasIncoming").value_or(false)) return;
    const auto room = body->stringAt("roomName"), id = body->stringAt("callerId"),
               name = body->stringAt("callerName");
    // A call that began while the answer was under way goes on.
    if (!room || !id || !name || callStatus_ != CallStatus::idle) return;
    const IncomingCall call{*room, *id, *name};
    setCallStatus(CallStatus::ringing);
    currentCallerName_ = call.callerName;
    center_.post(incomingCallReceived, call.toJson());
    if (onIncomingCall) onIncomingCall(call);
    if (requestUserAttention) requestUserAttention();
  });
}

void CallService::setCallStatus(CallStatus status) {
  callStatus_ = status;
  dispatch_.mainQueue()->post(lifetime_.guard([this, status] {
    if (onCallStatusChanged) onCallStatusChanged(status);
    center_.post(callStatusChanged, Json::object({{"status", rawValue(status)}}));
  }));
}

}  // namespace kestrin
