#include "companion/recogniser/entities.h"

#include <algorithm>
#include <memory>
#include <re2/re2.h>
#include <utility>

namespace kestrin::recogniser {

namespace {

struct Rule {
  const char* type;
  std::string pattern;  ///< its first group is the entity
};

/// In the order in which they claim their part of the text.
std::vector<Rule> rules() {
  const std::string day = "(?:Mon|Tues|Wednes|Thurs|Fri|Satur|Sun)day";
  const std::string month =
      "(?:January|February|March|April|May|June|July|August|September|October|November|December)";
  const std::string numeral =
      "(?:one|two|three|four|five|six|seven|eight|nine|ten|eleven|twelve|thirteen|fourteen|fifteen|"
      "sixteen"
      "|seventeen|eighteen|nineteen|twenty|thirty|forty|fifty|sixty|seventy|eighty|ninety|hundred|"
      "thousand"
      "|million)";
  return {
      {"email", R"((?i)\b([a-z0-9._%+-]+@[a-z0-9-]+(?:\.[a-z0-9-]+)+)\b)"},
      {"date", R"(\b(\d{4}-\d{2}-\d{2}|\d{1,2}[/.]\d{1,2}[/.]\d{2,4})\b)"},
      {"date", R"(\b()" + month + R"( \d{1,2}(?:st|nd|rd|th)?(?:,? \d{4})?)\b)"},
      {"date", R"(\b((?:the )?\d{1,2}(?:st|nd|rd|th)?(?: of)? )" + month + R"((?: \d{4})?)\b)"},
      {"date", R"((?i)\b((?:next |last |this )?)" + day + R"()\b)"},
      {"date",
       R"((?i)\b(today|tonight|tomorrow|yesterday|(?:next|last|this) (?:week|month|year|weekend))\b)"},
      {"time", R"((?i)\b(\d{1,2}(?::\d{2})? ?(?:[ap]\.m\.|[ap]m\b|o'clock\b)))"},
      {"time", R"(\b(\d{1,2}:\d{2})\b)"},
      {"time", R"((?i)\b((?:half|quarter) (?:past|to) [a-z0-9]+|noon|midnight)\b)"},
      {"number", R"(((?:[$€£] ?)?\b\d+(?:[.,]\d+)*(?: ?%| percent\b)?))"},
      {"number", R"((?i)\b()" + numeral + R"((?:[ -])" + numeral + R"()*)\b)"},
      {"name", R"((\p{Lu}[\p{L}'’]*\p{Ll}(?:[ -]\p{Lu}[\p{L}'’]*\p{Ll})*))"},
  };
}

struct Span {
  size_t begin = 0;
  size_t end = 0;
  Entity entity;
};

bool startsSentence(std::string_view text, size_t at) {
  while (at > 0 && (text[at - 1] == ' ' || text[at - 1] == '"' || text[at - 1] == '\n')) --at;
  return at == 0 || text[at - 1] == '.' || text[at - 1] == '!' || text[at - 1] == '?';
}

/// A capitalised word at the start of a sentence says nothing, so it is taken away: "Please Anna".
std::string_view withoutSentenceStart(std::string_view text, std::string_view name) {
  const auto at = static_cast<size_t>(name.data() - text.data());
  if (!startsSentence(text, at)) return name;
  const size_t blank = name.find(' ');
  return blank == std::string_view::npos ? std::string_view() : name.substr(blank + 1);
}

bool isNoName(std::string_view word) {
  static constexpr std::string_view words[] = {"I'm", "I'll", "I've", "I'd",
                                               "Mr",  "Mrs",  "OK",   "Okay"};
  return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

void apply(const RE2& pattern, const char* type, std::string_view text, std::vector<Span>& spans) {
  re2::StringPiece rest(text.data(), text.size());
  re2::StringPiece match;
  while (RE2::FindAndConsume(&rest, pattern, &match)) {
    std::string_view value(match.data(), match.size());
    if (std::string_view(type) == "name") value = withoutSentenceStart(text, value);
    if (value.empty() || isNoName(value)) continue;
    const auto begin = static_cast<size_t>(value.data() - text.data());
    const size_t end = begin + value.size();
    const bool taken = std::any_of(spans.begin(), spans.end(),
                                   [&](const Span& s) { return begin < s.end && s.begin < end; });
    if (!taken) spans.push_back({begin, end, {type, std::string(value)}});
  }
}

}  // namespace

std::vector<Entity> findEntities(std::string_view transcript) {
  static const auto compiled = [] {
    std::vector<std::pair<const char*, std::unique_ptr<RE2>>> out;
    for (const Rule& rule : rules())
      out.emplace_back(rule.type, std::make_unique<RE2>(rule.pattern));
    return out;
  }();
  std::vector<Span> spans;
  for (const auto& rule : compiled) apply(*rule.second, rule.first, transcript, spans);
  std::sort(spans.begin(), spans.end(),
            [](const Span& a, const Span& b) { return a.begin < b.begin; });
  std::vector<Entity> out;
  for (Span& span : spans) out.push_back(std::move(span.entity));
  return out;
}

}  // namespace kestrin::recogniser
