#pragma once

#include <string>
#include <vector>

#include "companion/assist/conversation.h"

namespace kestrin::assist {

/// What a conversation is about, in its own words: those said most often, never once only.
std::vector<std::string> keywords(const std::vector<Sentence>& sentences, size_t most);

/// The statements that hold most of what was said, in the order in which they were said. Later ones
/// weigh more. Empty when nothing of substance was said.
std::vector<std::string> summary(const std::vector<Sentence>& sentences, size_t most);

/// "Budget, rollout, contract": a title, or empty when the conversation shows no subject.
std::string titleOf(const std::vector<Sentence>& sentences);

}  // namespace kestrin::assist
