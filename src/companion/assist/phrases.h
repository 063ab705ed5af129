#pragma once

#include <string_view>

namespace kestrin::assist {

// What a single sentence does. `plain` is lower case, without punctuation, single blanks. Each rule
// would rather miss a sentence than take one for what it is not.

/// A reason against: price, time, risk, doubt. "That is too expensive for us."
bool isObjection(std::string_view plain);
/// The speaker says what they will do. "I'll send you the contract."
bool isPromise(std::string_view plain);
/// The speaker wants something done. "Could you send me the contract?", "We need to book a room."
bool isRequest(std::string_view plain);
/// Something was settled. "Let's go with the annual plan."
bool isDecision(std::string_view plain);
/// Something that was promised is done. "I've just sent it."
bool isDone(std::string_view plain);
/// The other side is content. "That works for me."
bool isAgreement(std::string_view plain);
/// No answer yet. "Let me check and come back to you."
bool isDeferral(std::string_view plain);
/// A question that wants no answer worth keeping. "Can you hear me?"
bool isSmallTalk(std::string_view plain);

}  // namespace kestrin::assist
