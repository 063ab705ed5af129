#pragma once

#include <string>
#include <vector>

namespace kestrin::personality {

struct Answer {
  std::string question;
  std::string transcript;
};

/// A few sentences on how somebody speaks and what they speak of, for whoever writes in their
/// style. From their words alone: sentence length, tone, subjects, and what they said of
/// themselves. Empty when nothing was said.
std::string describe(const std::string& name, const std::vector<Answer>& answers);

/// Questions and answers as one text.
std::string transcriptOf(const std::vector<Answer>& answers);

}  // namespace kestrin::personality
