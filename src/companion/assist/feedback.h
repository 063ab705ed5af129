#pragma once

#include <string>
#include <vector>

#include "companion/assist/findings.h"
#include "platform/json/json.h"

namespace kestrin::assist {

/// What is shown to the user in a conversation.
struct Feedback {
  std::string feedbackSummary;
  std::vector<std::string> suggestions;
  std::vector<std::string> keywords;

  bool empty() const { return feedbackSummary.empty() && suggestions.empty(); }
};

/// By rules alone: what was said of substance, and what waits for the user: questions to answer,
/// objections, own promises, what was asked of them, their own questions still open. Nothing that
/// was not said.
Feedback feedbackOn(const std::vector<Sentence>& sentences, const std::vector<Finding>& findings);

/// The findings that stay of interest, newest first, as {id, icon, type, title, detail}. The same
/// finding has the same id in every answer, so that it can be pinned once.
Json memoryItems(const std::vector<Finding>& findings, size_t most);
/// One item of that form.
Json memoryItem(const std::string& type, const std::string& title, const std::string& detail);

}  // namespace kestrin::assist
