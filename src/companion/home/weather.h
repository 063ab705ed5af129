#pragma once

#include <string>

#include "platform/json/json.h"

namespace kestrin::home {

/// What a weather service says (the form `format=j1` of wttr.in), as the application reads it:
/// `success`, `spoken` and `weather`, or `error`. `location`: as the user names it.
Json weatherAnswer(const Json& report, const std::string& location);

}  // namespace kestrin::home
