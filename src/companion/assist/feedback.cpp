#include "companion/assist/feedback.h"

#include <cstdint>
#include <cstdio>

#include "companion/assist/gist.h"
#include "platform/text/text.h"

namespace kestrin::assist {
namespace {

using Kind = Finding::Kind;

constexpr size_t mostSuggestions = 5, mostKeywords = 6;
constexpr size_t mostCharacters = 300;

/// What waits for the user, the most pressing first, with the words before the quotation.
struct Waiting {
  Kind kind;
  bool own;
  const char* lead;
};
constexpr Waiting waiting[] = {
    {Kind::question, false, "Answer"},
    {Kind::objection, false, "Address the concern"},
    {Kind::request, false, "Asked of you"},
    {Kind::promise, true, "You promised"},
    {Kind::question, true, "Still without an answer"},
};

struct Shown {
  Kind kind;
  bool own;
  const char* title;
};
constexpr Shown shown[] = {
    {Kind::question, false, "They asked"},   {Kind::question, true, "You asked"},
    {Kind::objection, false, "Objection"},   {Kind::objection, true, "Your objection"},
    {Kind::promise, false, "They promised"}, {Kind::promise, true, "You promised"},
    {Kind::request, false, "To do"},         {Kind::request, true, "To do (others)"},
    {Kind::decision, false, "Decided"},      {Kind::decision, true, "Decided"},
};

const char* iconOf(const std::string& type) {
  constexpr std::pair<std::string_view, const char*> icons[] = {{"question", "❓"},
                                                                {"objection", "⚠️"},
                                                                {"promise", "🤝"},
                                                                {"request", "✅"},
                                                                {"decision", "⚖️"}};
  for (const auto& [name, icon] : icons) {
    if (name == type) return icon;
  }
  return "🧠";
}

/// FNV-1a: the same in every run, unlike the library's hash.
std::string idOf(const std::string& text) {
  uint64_t hash = 14695981039346656037u;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
  char out[17];
  std::snprintf(out, sizeof out, "%016llx", static_cast<unsigned long long>(hash));
  return out;
}

}  // namespace

Feedback feedbackOn(const std::vector<Sentence>& sentences, const std::vector<Finding>& findings) {
  Feedback out;
  out.feedbackSummary = text::prefix(text::join(summary(sentences, 2), " "), mostCharacters);
  out.keywords = keywords(sentences, mostKeywords);
  for (const Waiting& each : waiting) {
    for (auto finding = findings.rbegin(); finding != findings.rend(); ++finding) {
      if (finding->kind != each.kind || finding->own != each.own || !finding->open) continue;
      if (out.suggestions.size() == mostSuggestions) return out;
      out.suggestions.push_back(each.lead + (": " + text::prefix(finding->text, mostCharacters)));
    }
  }
  return out;
}

Json memoryItem(const std::string& type, const std::string& title, const std::string& detail) {
  return Json::object({{"id", type + "-" + idOf(title + "\n" + detail)},
                       {"icon", iconOf(type)},
                       {"type", type},
                       {"title", title},
                       {"detail", text::prefix(detail, mostCharacters)}});
}

Json memoryItems(const std::vector<Finding>& findings, size_t most) {
  Json items = Json::array();
  for (auto finding = findings.rbegin(); finding != findings.rend(); ++finding) {
    const bool matters = finding->open || finding->kind == Kind::decision;
    if (!matters || items.items().size() == most) continue;
    for (const Shown& each : shown) {
      if (each.kind == finding->kind && each.own == finding->own) {
        items.push(memoryItem(name(finding->kind), each.title, finding->text));
      }
    }
  }
  return items;
}

}  // namespace kestrin::assist
