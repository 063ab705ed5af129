#include "companion/agent/mode_detection.h"

#include <algorithm>
#include <optional>
#include <re2/re2.h>

#include "companion/agent/words.h"
#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

/// Matches `pattern` at the start of the text, where blanks in the pattern stand for any
/// punctuation and blanks between spoken words; gives the rest as said.
std::optional<std::string> restAfter(std::string_view spoken, const std::string& pattern,
                                     std::vector<std::string>* groups = nullptr) {
  const std::string full =
      "(?i)^[\\s\"']*" + text::replaceAll(pattern, " ", "[\\s,:;.]+") + "[\\s,:;.]*";
  const RE2 expression(full);
  if (!expression.ok()) return std::nullopt;
  const int count = expression.NumberOfCapturingGroups() + 1;
  std::vector<re2::StringPiece> found(static_cast<size_t>(count));
  const re2::StringPiece subject(spoken.data(), spoken.size());
  if (!expression.Match(subject, 0, subject.size(), RE2::ANCHOR_START, found.data(), count))
    return std::nullopt;
  // The pattern must end where a word ends.
  const size_t end = found[0].size();
  if (end > 0 && end < spoken.size()) {
    const std::string_view before = spoken.substr(0, end);
    const bool blank = before.find_last_of(" \t\n,:;.") == end - 1;
    if (!blank) return std::nullopt;
  }
  if (groups) {
    groups->clear();
    for (size_t i = 1; i < found.size(); ++i)
      groups->emplace_back(found[i].data() ? std::string(found[i]) : "");
  }
  return std::string(spoken.substr(end));
}

constexpr const char* polite =
    "(?:(?:hey )?kestrin )?(?:please )?(?:can you |could you )?(?:please )?";

const std::string& relationWords() {
  static const std::string words =
      "about|regarding|concerning|saying that|saying|say that|to say that|to say|that says|telling "
      "(?:him|her|them) that|"
      "telling (?:him|her|them)|asking|to ask|and say that|and say|and ask|and tell "
      "(?:him|her|them) that|"
      "and tell (?:him|her|them)|that|to let (?:him|her|them) know that|letting (?:him|her|them) "
      "know that";
  return words;
}

std::string relationOf(std::string_view said) {
  const std::string words = plainForm(said);
  if (text::containsAny(words, {"about", "regarding", "concerning"})) return "about";
  if (text::contains(words, "ask")) return "asking";
  return words.empty() ? "" : "saying";
}

/// "Ana", "the team", "my boss Peter Gray": up to four words that are not a relation.
const std::string& namePattern() {
  static const std::string pattern = "((?:the |my |our )?[^\\s,.:;]+(?: [^\\s,.:;]+){0,2}?)";
  return pattern;
}

std::optional<Detection> email(std::string_view spoken) {
  std::vector<std::string> groups;
  const std::string head = std::string(polite) +
                           "(?:write|send|compose|draft|shoot|prepare)(?: me| up)?(?: an?| the| "
                           "another)?(?: quick| short| "
                           "brief| formal| polite| friendly| new)*(?: e-?mail| mail)";
  for (const std::string& pattern :
       {head + " to " + namePattern() + " (" + relationWords() + ")",
        head + " (" + relationWords() + ")", head + " to " + namePattern()}) {
    auto rest = restAfter(spoken, pattern, &groups);
    if (!rest || text::trim(*rest).empty()) continue;
    Detection out{"email", *rest, {}, {}, {}, {}};
    const bool named = text::contains(pattern, " to ((?:the");
    if (named) out.recipient = groups.at(0);
    if (groups.size() > (named ? 1u : 0u)) out.relation = relationOf(groups.back());
    return out;
  }
  if (auto rest = restAfter(
          spoken, std::string(polite) + "e-?mail " + namePattern() + " (" + relationWords() + ")",
          &groups)) {
    return Detection{"email", *rest, groups.at(0), relationOf(groups.back()), {}, {}};
  }
  return std::nullopt;
}

std::optional<Detection> chat(std::string_view spoken) {
  std::vector<std::string> groups;
  const std::string head = std::string(polite) +
                           "(?:(?:send|write)(?: an?| the)?(?: quick| short)*(?: text message| "
                           "text| message| chat message) to|"
                           "text|message|reply to|send a reply to) ";
  if (auto rest = restAfter(spoken, head + namePattern() + " (" + relationWords() + ")", &groups)) {
    return Detection{"chat", *rest, groups.at(0), relationOf(groups.back()), {}, {}};
  }
  if (auto rest = restAfter(
          spoken, std::string(polite) + "(?:reply|answer)(?: with)?(?: saying)? (?:that )?",
          &groups);
      rest && restAfter(spoken, std::string(polite) + "reply (?:with|saying|that)")) {
    return Detection{"chat", *rest, {}, "saying", {}, {}};
  }
  return std::nullopt;
}

std::optional<Detection> notes(std::string_view spoken) {
  std::vector<std::string> groups;
  if (auto rest = restAfter(spoken,
                            "((?:meeting|lecture|class|call|project|interview|shopping|to-?do|"
                            "daily) (?:notes?|list))",
                            &groups)) {
    return Detection{"notes", *rest, {}, {}, groups.at(0), {}};
  }
  const std::string head = std::string(polite) +
                           "(?:(?:take|make|write|create|add|start|jot down)(?: me)?(?: an?| some| "
                           "the| another)?(?: quick| "
                           "short| new)*(?: notes?)(?: of| that| about| saying| to self| for "
                           "me)?|notes? to self|notes?:)";
  if (auto rest = restAfter(spoken, head); rest && !text::trim(*rest).empty()) {
    return Detection{"notes", *rest, {}, {}, {}, {}};
  }
  return std::nullopt;
}

std::optional<Detection> search(std::string_view spoken) {
  for (const char* pattern : {"(?:do an? (?:web |online |internet )?search for|search (?:the "
                              "web|the internet|online|google|the net) for|search for|"
                              "look up|google for|google|web search for|web search|find me|look "
                              "online for|search the web|find out)",
                              "find (?:the best|the cheapest|the nearest|the latest)"}) {
    auto rest = restAfter(spoken, std::string(polite) + pattern);
    if (!rest || text::trim(*rest).empty()) continue;
    if (text::contains(pattern, "the best")) {
      rest = restAfter(spoken, std::string(polite) + "find");
    }
    return Detection{"search", *rest, {}, {}, {}, {}};
  }
  return std::nullopt;
}

std::optional<Detection> drawing(std::string_view spoken) {
  for (const char* pattern :
       {"(?:generate|create|make|design|render)(?: me)?(?: an?| some| the)?(?: image| picture| "
        "drawing| illustration| photo| "
        "painting| logo)s?(?: prompt)?(?: of| for| showing| with| that shows)",
        "(?:draw|sketch|paint|illustrate)(?: me)?(?: a picture of| an image of)?",
        "image prompt(?: of| for)?"}) {
    auto rest = restAfter(spoken, std::string(polite) + pattern);
    // "Draw the curtains" aside, a picture is described in more than two words.
    if (rest && splitWords(*rest).size() >= 3) return Detection{"draw", *rest, {}, {}, {}, {}};
  }
  return std::nullopt;
}

std::optional<Detection> composing(std::string_view spoken) {
  for (const char* pattern : {"(?:write|compose|create)(?: me| us)?(?: an?| some| the)?(?: short| "
                              "long| little| funny| nice)*(?: poem| story| "
                              "paragraph| essay| article| blog post| letter| speech| song| haiku| "
                              "introduction| post)(?: about| on| for| saying)?",
                              "(?:write|compose)(?: something)? about", "compose"}) {
    auto rest = restAfter(spoken, std::string(polite) + pattern);
    if (rest && splitWords(*rest).size() >= 2) return Detection{"compose", *rest, {}, {}, {}, {}};
  }
  return std::nullopt;
}

Detection byApplication(std::string_view spoken, const AppContext& app) {
  Detection out;
  out.content = spoken;
  switch (app.kind) {
    case AppKind::mail:
      out.mode = "email";
      break;
    case AppKind::chat:
      out.mode = "chat";
      break;
    case AppKind::code:
      out.mode = "ide_assist";
      break;
    case AppKind::notes:
      out.mode = "notes";
      break;
    case AppKind::other:
    case AppKind::browser:
    case AppKind::terminal:
      break;
  }
  return out;
}

}  // namespace

Detection detectMode(std::string_view transcript, const AppContext& app) {
  if (auto actions = parseCommand(transcript)) {
    Detection out;
    out.mode = "command";
    out.content = transcript;
    out.actions = std::move(*actions);
    return out;
  }
  for (auto* detect : {&email, &notes, &chat, &search, &drawing, &composing}) {
    if (auto found = (*detect)(transcript)) return *found;
  }
  return byApplication(transcript, app);
}

Detection contentForMode(const std::string& mode, std::string_view transcript,
                         const AppContext& app) {
  if (mode != "dictation" && mode != "plain") {
    Detection found = detectMode(transcript, app);
    if (found.mode == mode) return found;
    if (mode == "command") {
      if (auto actions = parseCommand(transcript)) found.actions = std::move(*actions);
    }
  }
  Detection out;
  out.mode = mode;
  out.content = transcript;
  return out;
}

}  // namespace kestrin::agent
