#include "companion/assist/findings.h"

#include <algorithm>
#include <optional>
#include <set>

#include "companion/assist/phrases.h"

namespace kestrin::assist {
namespace {

constexpr size_t shortestQuestion = 3;  // words

size_t wordCount(std::string_view plain) {
  return size_t(std::count(plain.begin(), plain.end(), ' ')) + 1;
}

std::optional<Finding::Kind> kindOf(const Sentence& sentence) {
  const std::string& plain = sentence.plain;
  // A request has the form of a question as often as not.
  if (isRequest(plain)) return Finding::Kind::request;
  if (sentence.question) {
    if (wordCount(plain) < shortestQuestion || isSmallTalk(plain)) return std::nullopt;
    return Finding::Kind::question;
  }
  if (isDecision(plain)) return Finding::Kind::decision;
  // Before a promise: "let me check" promises, but "we'd have to think about it" does not.
  if (isObjection(plain)) return Finding::Kind::objection;
  if (isPromise(plain)) return Finding::Kind::promise;
  return std::nullopt;
}

bool shareWords(const std::string& a, const std::string& b) {
  const auto words = contentWords(a);
  const std::set<std::string> first(words.begin(), words.end());
  const auto other = contentWords(b);
  return std::any_of(other.begin(), other.end(),
                     [&](const std::string& word) { return first.count(word) != 0; });
}

/// Whether the other side's next turn answers; when it puts the question off, a later one that is
/// about the same does.
bool isAnswered(const Sentence& question, const std::vector<Sentence>& sentences, size_t from) {
  std::optional<size_t> reply;
  bool deferred = false, answered = false;
  for (size_t i = from; i < sentences.size(); ++i) {
    const Sentence& said = sentences[i];
    if (said.own == question.own) continue;
    if (!reply) reply = said.turn;
    if (said.turn == *reply) {
      deferred = deferred || isDeferral(said.plain);
      answered = answered || !said.question;
    } else if (!said.question && !isDeferral(said.plain) &&
               shareWords(question.plain, said.plain)) {
      return true;
    }
  }
  return answered && !deferred;
}

bool isClosed(const Finding& finding, const Sentence& said, const std::vector<Sentence>& sentences,
              size_t from) {
  if (finding.kind == Finding::Kind::question) return isAnswered(said, sentences, from);
  // Who keeps a promise is its speaker; who does what was asked is the other side.
  const bool doer = finding.kind == Finding::Kind::request ? !finding.own : finding.own;
  return std::any_of(
      sentences.begin() + ptrdiff_t(from), sentences.end(), [&](const Sentence& later) {
        if (finding.kind == Finding::Kind::objection) {
          return later.own == finding.own && isAgreement(later.plain);
        }
        return later.own == doer && isDone(later.plain) && shareWords(finding.plain, later.plain);
      });
}

}  // namespace

const char* name(Finding::Kind kind) {
  switch (kind) {
    case Finding::Kind::question:
      return "question";
    case Finding::Kind::objection:
      return "objection";
    case Finding::Kind::promise:
      return "promise";
    case Finding::Kind::request:
      return "request";
    case Finding::Kind::decision:
      return "decision";
  }
  return "";
}

std::vector<Finding> findingsIn(const std::vector<Sentence>& sentences) {
  std::vector<Finding> out;
  for (size_t i = 0; i < sentences.size(); ++i) {
    const Sentence& said = sentences[i];
    const auto kind = kindOf(said);
    if (!kind) continue;
    Finding finding{*kind, said.own, true, said.text, said.plain};
    finding.open = *kind != Finding::Kind::decision && !isClosed(finding, said, sentences, i + 1);
    std::erase_if(out, [&](const Finding& earlier) {
      return earlier.plain == finding.plain && earlier.own == finding.own;
    });
    out.push_back(std::move(finding));
  }
  return out;
}

}  // namespace kestrin::assist
