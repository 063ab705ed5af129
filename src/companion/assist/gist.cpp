#include "companion/assist/gist.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "companion/assist/phrases.h"
#include "platform/text/text.h"

namespace kestrin::assist {
namespace {

constexpr size_t fewestWords = 4, mostWords = 32;

std::map<std::string, int> counts(const std::vector<Sentence>& sentences) {
  std::map<std::string, int> out;
  for (const Sentence& sentence : sentences) {
    for (const std::string& word : contentWords(sentence.plain)) ++out[word];
  }
  return out;
}

/// How much of the conversation's substance a sentence holds; 0 for one that is no statement.
double weight(const Sentence& sentence, const std::map<std::string, int>& counts, double place) {
  const size_t length = text::split(sentence.plain, " ").size();
  if (sentence.question || length < fewestWords || length > mostWords ||
      isSmallTalk(sentence.plain)) {
    return 0;
  }
  double sum = 0;
  const auto words = contentWords(sentence.plain);
  for (const std::string& word : std::set<std::string>(words.begin(), words.end())) {
    sum += std::sqrt(counts.at(word));
  }
  if (sentence.plain.find_first_of("0123456789") != std::string::npos) sum += 1;
  if (isDecision(sentence.plain)) sum += 2;
  return sum / std::sqrt(double(length)) * (1 + place / 2);
}

}  // namespace

std::vector<std::string> keywords(const std::vector<Sentence>& sentences, size_t most) {
  const auto counted = counts(sentences);
  std::vector<std::pair<std::string, int>> found;
  for (const auto& each : counted) {
    if (each.second > 1) found.push_back(each);
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  std::vector<std::string> out;
  for (const auto& [word, count] : found) {
    if (out.size() < most) out.push_back(word);
  }
  return out;
}

std::vector<std::string> summary(const std::vector<Sentence>& sentences, size_t most) {
  const auto counted = counts(sentences);
  std::vector<std::pair<double, size_t>> ranked;
  for (size_t i = 0; i < sentences.size(); ++i) {
    const double value = weight(sentences[i], counted, double(i) / double(sentences.size()));
    if (value > 0) ranked.emplace_back(value, i);
  }
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::set<size_t> chosen;
  std::set<std::string> said;
  for (const auto& [value, i] : ranked) {
    if (chosen.size() < most && said.insert(sentences[i].plain).second) chosen.insert(i);
  }
  std::vector<std::string> out;
  for (const size_t i : chosen) out.push_back(sentences[i].text);
  return out;
}

std::string titleOf(const std::vector<Sentence>& sentences) {
  const auto words = keywords(sentences, 3);
  return words.size() < 2 ? "" : text::capitalizeFirst(text::join(words, ", "));
}

}  // namespace kestrin::assist
