#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "companion/agent/app_kind.h"
#include "companion/agent/commands.h"

namespace kestrin::agent {

/// The mode of a question that is to be answered instead of written down.
constexpr const char* answerMode = "answer";

/// What a spoken request is for, and what remains of it when the words that said so are taken off.
struct Detection {
  std::string mode = "dictation";
  /// As the recogniser gave it, without the request's own words ("send an email to Ana saying").
  std::string content;
  std::string recipient;  ///< email, chat; empty when none was named
  /// How the content was introduced: "about", "asking", "saying" or nothing.
  std::string relation;
  std::string title;            ///< notes: "Meeting notes"
  std::vector<Action> actions;  ///< command
};

/// By what was said first, then by the application in front; without a sign of anything else it is
/// dictation.
Detection detectMode(std::string_view transcript, const AppContext& app);

/// The same for a mode that was asked for: takes the request's own words off where they are there.
Detection contentForMode(const std::string& mode, std::string_view transcript,
                         const AppContext& app);

}  // namespace kestrin::agent
