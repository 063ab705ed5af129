#include "companion/research/passages.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <utility>

#include "companion/agent/words.h"
#include "companion/assist/conversation.h"
#include "platform/text/text.h"

namespace kestrin::research {
namespace {

/// The usual constants of BM25.
constexpr double saturation = 1.2, lengthShare = 0.75;
/// Blocks are joined up to this length: a heading belongs to what follows it.
constexpr size_t passageLength = 700;

/// Enough to find "rivers" by "river"; more would need each language's own rules.
std::string stem(std::string word) {
  if (word.ends_with("'s")) word.resize(word.size() - 2);
  if (word.size() > 3 && word.ends_with("s") && !word.ends_with("ss")) word.pop_back();
  return word;
}

struct Counted {
  Passage passage;
  std::map<std::string, int> counts;
  size_t length = 0;
};

void add(std::vector<Counted>& all, size_t document, std::string text) {
  if (text.empty()) return;
  Counted counted{{document, std::move(text)}, {}, 0};
  for (auto& word : searchWords(counted.passage.text)) {
    ++counted.counts[std::move(word)];
    ++counted.length;
  }
  all.push_back(std::move(counted));
}

std::vector<Counted> passagesOf(const std::vector<Document>& documents) {
  std::vector<Counted> all;
  for (size_t i = 0; i < documents.size(); ++i) {
    std::string text;
    for (const auto& block : documents[i].blocks) {
      if (!text.empty() && text.size() + block.size() > passageLength)
        add(all, i, std::exchange(text, {}));
      text += (text.empty() ? "" : "\n") + block;
    }
    add(all, i, std::move(text));
  }
  return all;
}

/// How rare each word of the question is among the passages.
std::map<std::string, double> weights(const std::set<std::string>& question,
                                      const std::vector<Counted>& all) {
  std::map<std::string, double> out;
  for (const auto& word : question) {
    const auto holding = double(std::count_if(
        all.begin(), all.end(), [&](const Counted& each) { return each.counts.contains(word); }));
    out[word] = std::log(1 + (double(all.size()) - holding + 0.5) / (holding + 0.5));
  }
  return out;
}

}  // namespace

std::vector<std::string> searchWords(std::string_view text) {
  std::vector<std::string> words;
  for (auto& word :
       assist::contentWords(agent::plainForm(text::replaceAll(std::string(text), "’", "'")))) {
    words.push_back(stem(std::move(word)));
  }
  return words;
}

std::vector<Passage> bestPassages(std::string_view question, const std::vector<Document>& documents,
                                  size_t most, size_t perDocument) {
  auto all = passagesOf(documents);
  const auto words = searchWords(question);
  const auto rarity = weights({words.begin(), words.end()}, all);
  double whole = 0;
  for (const auto& each : all) whole += double(each.length);
  const double mean = std::max(1.0, whole / double(std::max<size_t>(1, all.size())));
  for (auto& each : all) {
    const double norm = saturation * (1 - lengthShare + lengthShare * double(each.length) / mean);
    for (const auto& [word, weight] : rarity) {
      const auto found = each.counts.find(word);
      if (found == each.counts.end()) continue;
      each.passage.score += weight * found->second * (saturation + 1) / (found->second + norm);
    }
  }
  std::stable_sort(all.begin(), all.end(), [](const Counted& a, const Counted& b) {
    return a.passage.score > b.passage.score;
  });
  std::vector<Passage> best;
  std::map<size_t, size_t> taken;
  for (auto& each : all) {
    if (best.size() == most || each.passage.score <= 0) break;
    if (++taken[each.passage.document] <= perDocument) best.push_back(std::move(each.passage));
  }
  return best;
}

}  // namespace kestrin::research
