#pragma once

#include <optional>
#include <string>

#include "companion/http/server.h"
#include "platform/json/json.h"
#include "platform/result.h"

namespace kestrin::backend {

/// `{"success": true}`, or 500 with the error's text; 507 when the disk is full.
void answerDone(const server::Responder& responder, const Status& status);

/// `{"success": false, "error": ...}`: the form in which the application reads why not.
void answerFailed(const server::Responder& responder, int status, const std::string& why);

/// The request's JSON object; answers with 400 and gives nothing when it is none.
std::optional<Json> objectIn(const server::Request& request, const server::Responder& responder);

/// Each device sees and writes its own records alone: answers and gives false for an id that is
/// none, or that the asking device contradicts.
bool admits(const std::string& userId, const server::Request& request,
            const server::Responder& responder);

}  // namespace kestrin::backend
