#pragma once

#include <string>

#include "companion/agent/app_kind.h"
#include "companion/agent/language_model.h"
#include "companion/agent/mode_detection.h"

namespace kestrin::agent {

/// What a language model is told for one request: the mode's prompt and temperature from the
/// request, what is known of the speaker, what stands round the caret. The words to be worked on
/// are the user's message alone.
ModelPrompt promptFor(const Json& body, const Detection& detection, const AppContext& app);

}  // namespace kestrin::agent
