#pragma once

#include <string>
#include <vector>

#include "companion/assist/conversation.h"

namespace kestrin::assist {

/// One thing that was said and matters afterwards.
struct Finding {
  enum class Kind { question, objection, promise, request, decision };
  Kind kind = Kind::question;
  bool own = false;   ///< the user said it
  bool open = true;   ///< a question without an answer, a promise not yet kept, ...
  std::string text;   ///< the sentence as it was said
  std::string plain;  ///< see Sentence
};

/// "question", "objection", "promise", "request", "decision".
const char* name(Finding::Kind kind);

/// In the order in which it was said; the same sentence twice counts once, where it was last said.
/// A question is closed by an answer of the other side that does not put it off; an objection when
/// its speaker is content later; a promise or a request when its doer says it is done, in words
/// that it shares.
std::vector<Finding> findingsIn(const std::vector<Sentence>& sentences);

}  // namespace kestrin::assist
