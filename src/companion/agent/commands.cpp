#include "companion/agent/commands.h"

#include <array>
#include <re2/re2.h>
#include <utility>

#include "companion/agent/command_kinds.h"
#include "companion/agent/words.h"
#include "platform/text/text.h"

namespace kestrin::agent {

std::string restAsSaid(std::string_view spoken, size_t from) {
  auto words = splitWords(spoken);
  std::erase_if(words, [](const Word& word) { return word.core.empty(); });
  if (from >= words.size()) return {};
  words.erase(words.begin(), words.begin() + static_cast<ptrdiff_t>(from));
  words.back().tail.clear();
  return joinWords(words);
}

size_t wordCount(std::string_view plain) { return splitWords(plain).size(); }

namespace {

std::optional<Action> pressKey(const std::string& plain) {
  static const RE2 pattern(
      "(?:press|hit) (?:the )?((?:(?:control|ctrl|shift|alt|option|command|super)(?: plus| and)? "
      ")*)(.+?)(?: key)?");
  std::string modifiers;
  std::string key;
  if (!RE2::FullMatch(plain, pattern, &modifiers, &key)) return std::nullopt;
  static const RE2 keyName(
      "[a-z0-9]|f[0-9]{1,2}|enter|return|escape|tab|space|backspace|delete|home|end|page up|page "
      "down|up|down|left|right");
  if (!RE2::FullMatch(key, keyName)) return std::nullopt;
  std::string joined;
  for (const Word& word : splitWords(modifiers)) {
    if (isOneOf(word.key, "plus and")) continue;
    if (!joined.empty()) joined += ',';
    joined += word.key == "ctrl" ? "control" : word.key;
  }
  Action action{"press_key", {{"key", key}}};
  if (!joined.empty()) action.parameters.emplace_back("modifiers", joined);
  return action;
}

/// Commands that carry the user's own words.
struct WordsCommand {
  const char* pattern;  ///< one group: what goes before the words, so that they are taken as said
  const char* type;
  const char* parameter;
};

constexpr std::array wordsCommands{
    WordsCommand{"((?:type out|type in|type the (?:text|words)) ).+", "type_text", "text"},
    WordsCommand{"((?:say out loud|read aloud|read out|speak out loud) ).+", "speak", "text"},
    WordsCommand{"((?:show|send|give) (?:me )?a notification (?:saying|that says|that) ).+",
                 "notification", "body"},
    WordsCommand{"(put (?:this )?on (?:the|my) clipboard ).+", "clipboard", "text"},
};

std::optional<Action> withWords(const std::string& plain, std::string_view spoken) {
  for (const WordsCommand& command : wordsCommands) {
    std::string before;
    if (RE2::FullMatch(plain, command.pattern, &before)) {
      return Action{command.type, {{command.parameter, restAsSaid(spoken, wordCount(before))}}};
    }
  }
  static const RE2 copy("((?:copy|put) )(.+)( (?:to|on) (?:the|my) clipboard)");
  std::string before;
  std::string words;
  std::string after;
  if (RE2::FullMatch(plain, copy, &before, &words, &after)) {
    auto said = splitWords(restAsSaid(spoken, wordCount(before)));
    said.resize(said.size() - wordCount(after));
    if (!said.empty()) said.back().tail.clear();
    return Action{"clipboard", {{"text", joinWords(said)}}};
  }
  return std::nullopt;
}

std::optional<Action> parseOne(std::string_view spoken) {
  const std::string plain = plainForm(spoken);
  if (auto type = fixedCommand(plain); !type.empty()) return Action{std::move(type), {}};
  if (auto action = withWords(plain, spoken)) return action;
  if (auto action = pressKey(plain)) return action;
  return openOrClose(plain, spoken);
}

/// Without the words that politeness or calling the assistant by name put round a command.
std::string withoutAddress(std::string_view spoken) {
  auto words = splitWords(spoken);
  const auto drop = [&](std::initializer_list<const char*> phrase) {
    if (words.size() <= phrase.size()) return false;
    size_t i = 0;
    for (const char* word : phrase) {
      if (words[i++].key != word) return false;
    }
    words.erase(words.begin(), words.begin() + static_cast<ptrdiff_t>(phrase.size()));
    return true;
  };
  while (drop({"hey", "kestrin"}) || drop({"okay", "kestrin"}) || drop({"kestrin"}) ||
         drop({"please"}) || drop({"can", "you", "please"}) || drop({"can", "you"}) ||
         drop({"could", "you", "please"}) || drop({"could", "you"}) || drop({"would", "you"}) ||
         drop({"i", "want", "you", "to"}) || drop({"i'd", "like", "you", "to"}) ||
         drop({"let's"})) {
  }
  while (words.size() > 1 && isOneOf(words.back().key, "please now kestrin")) {
    if (words.back().key == "now" && words.size() == 2) break;
    words.pop_back();
  }
  if (words.size() > 3 && words.back().key == "me" && words[words.size() - 2].key == "for") {
    words.resize(words.size() - 2);
  }
  return joinWords(words);
}

/// Cuts at " and ", " then ", commas and sentence ends, longest parts first, so that "copy bread
/// and butter to the clipboard" stays one command.
std::optional<std::vector<Action>> parseParts(const std::vector<Word>& words) {
  if (words.empty()) return std::vector<Action>{};
  if (auto whole = parseOne(joinWords(words))) return std::vector<Action>{*whole};
  for (size_t cut = words.size() - 1; cut >= 1; --cut) {
    const bool joins = isOneOf(words[cut].key, "and then");
    const bool marks = words[cut - 1].tail.find_first_of(",.;!?") != std::string::npos;
    if (!joins && !marks) continue;
    std::vector<Word> head(words.begin(), words.begin() + static_cast<ptrdiff_t>(cut));
    auto first = parseOne(joinWords(head));
    if (!first) continue;
    size_t next = cut;
    while (next < words.size() && isOneOf(words[next].key, "and then also please")) ++next;
    auto rest = parseParts({words.begin() + static_cast<ptrdiff_t>(next), words.end()});
    if (!rest || (next == words.size() && next != cut)) continue;
    rest->insert(rest->begin(), *first);
    return rest;
  }
  return std::nullopt;
}

std::string safeValue(std::string_view value) {
  std::string out;
  for (const char c : value) {
    if (c != '"' && c != ']' && c != '[' && c != '\n') out += c;
  }
  return text::trim(out);
}

}  // namespace

std::string Action::marker() const {
  std::string out = "[ACTION:" + type;
  for (const auto& [name, value] : parameters) out += " " + name + "=\"" + safeValue(value) + "\"";
  return out + "]";
}

std::optional<std::vector<Action>> parseCommand(std::string_view spoken) {
  // Nobody says a command of this length; it keeps the search for cuts small.
  constexpr size_t maxWords = 40;
  const auto words = splitWords(withoutAddress(spoken));
  if (words.empty() || words.size() > maxWords) return std::nullopt;
  return parseParts(words);
}

std::string markers(const std::vector<Action>& actions) {
  std::string out;
  for (const Action& action : actions) {
    if (!out.empty()) out += ' ';
    out += action.marker();
  }
  return out;
}

}  // namespace kestrin::agent
