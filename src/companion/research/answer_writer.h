#pragma once

#include <string>
#include <vector>

#include "companion/agent/language_model.h"
#include "companion/research/passages.h"

namespace kestrin::research {

/// What an answer is made of.
struct Findings {
  std::string question;
  std::string context;  ///< the answers so far, of a follow-up
  std::vector<Document> documents;
  std::vector<Passage> passages;  ///< best first
};

/// The prompt for a language model: the passages with their numbers are data, the question is the
/// task.
agent::ModelPrompt answerPrompt(const Findings& findings);

/// The answer in the sources' own words: the sentences that fit the question best, each with the
/// number of its source. Markdown; what stands in a page is shown as it is and never as markup.
std::string extractedAnswer(const Findings& findings);

/// The text with every character escaped that Markdown could read as markup.
std::string escapedMarkdown(std::string_view text);

}  // namespace kestrin::research
