#pragma once

#include <optional>
#include <string>

#include "companion/agent/agent.h"
#include "companion/agent/language_model.h"
#include "companion/http/server.h"

namespace kestrin::agent {

/// Adds the agent server's routes: `POST /process/stream` (an event stream), `POST /process` (the
/// whole answer as one object), `GET /`, `GET /health`. A stream whose agent fails is broken off
/// after the event that says so: its client must not take half a text for a whole one. `agent` must
/// outlive the server.
void addRoutes(server::Server& server, Agent& agent);

/// Adds `GET /` and `GET /health` of the language model's port: 200 only while a chat-completions
/// server answers at `modelUrl`. `model` must outlive the server.
void addModelHealthRoutes(server::Server& server, LanguageModel& model,
                          std::optional<std::string> modelUrl);

}  // namespace kestrin::agent
