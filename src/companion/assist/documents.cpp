#include "companion/assist/documents.h"

#include <set>

#include "companion/agent/spoken_text.h"
#include "companion/agent/words.h"
#include "platform/text/text.h"

namespace kestrin::assist {
namespace {

constexpr size_t recentSentences = 12;
constexpr size_t mostCharacters = 300;
constexpr size_t mostContent = 64u << 10;  // bytes of one document

std::set<std::string> recentWords(const std::vector<Sentence>& sentences) {
  std::set<std::string> out;
  const size_t from = sentences.size() > recentSentences ? sentences.size() - recentSentences : 0;
  for (size_t i = from; i < sentences.size(); ++i) {
    for (const std::string& word : contentWords(sentences[i].plain)) out.insert(word);
  }
  return out;
}

std::string bestPassage(const std::string& content, const std::set<std::string>& wanted) {
  std::string best;
  size_t most = 0;
  for (const std::string& passage : agent::sentences(content.substr(0, mostContent))) {
    std::set<std::string> shared;
    for (const std::string& word : contentWords(agent::plainForm(passage))) {
      if (wanted.count(word) != 0) shared.insert(word);
    }
    if (shared.size() > most) {
      most = shared.size();
      best = passage;
    }
  }
  return text::prefix(best, mostCharacters);
}

}  // namespace

Json docItems(const std::vector<const Json*>& documents, const std::vector<Sentence>& sentences) {
  const auto wanted = recentWords(sentences);
  Json items = Json::array();
  for (const Json* document : documents) {
    const std::string content = document->stringAt("content", "");
    std::string detail = bestPassage(content, wanted);
    if (content.empty() && !document->stringAt("content_bytes", "").empty()) {
      detail = "Its text cannot be read here (" + document->stringAt("mime_type", "unknown type") +
               "): attach it as plain text.";
    }
    if (detail.empty()) continue;
    items.push(Json::object({{"title", document->stringAt("name", "")}, {"detail", detail}}));
  }
  return items;
}

}  // namespace kestrin::assist
