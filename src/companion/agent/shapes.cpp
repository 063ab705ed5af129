#include "companion/agent/shapes.h"

#include <re2/re2.h>

#include "companion/agent/spoken_text.h"
#include "companion/agent/words.h"
#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

bool hasOneOf(std::string_view plain, std::initializer_list<const char*> phrases) {
  for (const char* phrase : phrases) {
    if (plain == phrase) return true;
  }
  return false;
}

std::string withoutEndMark(std::string text) {
  while (!text.empty() && std::string_view(".!?,;:").find(text.back()) != std::string_view::npos)
    text.pop_back();
  return text;
}

std::string lowerFirst(std::string text) {
  const auto words = splitWords(text);
  if (words.empty() || words[0].key == "i" || words[0].key.rfind("i'", 0) == 0) return text;
  // A name keeps its capital; only words of ordinary speech lose it.
  if (!isOneOf(
          words[0].key,
          "the a an my our your his her its their we you he she it they this that these those "
          "there if "
          "whether when what how why where who can could will would please is are do does did")) {
    return text;
  }
  text.replace(0, words[0].core.size(), words[0].key);
  return text;
}

bool isSalutation(std::string_view sentence) {
  static const RE2 pattern(
      "(?i)(?:hi|hello|hey|dear|good (?:morning|afternoon|evening))(?:,? [^\\s,.!]+){0,4}[,.!]*");
  return RE2::FullMatch(re2::StringPiece(sentence.data(), sentence.size()), pattern);
}

bool isClosing(std::string_view sentence) {
  const std::string plain = plainForm(sentence);
  return hasOneOf(plain, {"best", "best regards", "kind regards", "regards", "warm regards",
                          "sincerely", "yours sincerely", "cheers", "thanks", "many thanks",
                          "thank you", "all the best", "best wishes", "yours truly"});
}

std::string salutationFor(const std::string& recipient) {
  std::string name = recipient;
  for (const char* word : {"the ", "my ", "our "}) {
    if (text::lower(name).rfind(word, 0) == 0) name = name.substr(std::string_view(word).size());
  }
  return name.empty() ? "Hi," : "Hi " + text::capitalizeFirst(name) + ",";
}

/// A salutation that was spoken inside a longer sentence: "Hi Ana, I will be late".
void splitSalutation(std::vector<std::string>& parts) {
  if (parts.empty()) return;
  static const RE2 pattern(
      "(?i)^((?:hi|hello|hey|dear|good (?:morning|afternoon|evening))(?: "
      "[^\\s,.!]+){0,3}),\\s+(.+)$");
  std::string greeting;
  std::string rest;
  if (RE2::FullMatch(parts.front(), pattern, &greeting, &rest)) {
    parts.front() = greeting + ",";
    parts.insert(parts.begin() + 1, text::capitalizeFirst(rest));
  }
}

std::string email(const Detection& detection, const Speaker& speaker) {
  std::string content = cleaned(detection.content);
  if (detection.relation == "about") {
    content = "I am writing about " + lowerFirst(withoutEndMark(content)) + ".";
  } else if (detection.relation == "asking") {
    const std::string asked = lowerFirst(withoutEndMark(content));
    content = "I wanted to ask " + asked + ".";
  }
  // Paragraphs that were spoken ("new paragraph") stay; only the lines at both ends are looked at.
  std::vector<std::string> paragraphs = text::split(content, "\n\n");
  std::vector<std::string> first = sentences(paragraphs.front());
  splitSalutation(first);
  std::string greeting;
  if (!first.empty() && isSalutation(first.front())) {
    greeting = withoutEndMark(first.front()) + ",";
    first.erase(first.begin());
  } else if (!detection.recipient.empty() || !detection.relation.empty()) {
    greeting = salutationFor(detection.recipient);
  }
  paragraphs.front() = text::join(first, " ");

  std::string closing;
  std::vector<std::string> last = sentences(paragraphs.back());
  if (last.size() > 1 && isClosing(last.back())) {
    closing = withoutEndMark(last.back()) + ",";
    last.pop_back();
    paragraphs.back() = text::join(last, " ");
  } else if (last.size() > 2 && isClosing(last[last.size() - 2])) {
    // "Best regards. Peter."
    closing = withoutEndMark(last[last.size() - 2]) + ",\n" + withoutEndMark(last.back());
    last.resize(last.size() - 2);
    paragraphs.back() = text::join(last, " ");
  } else if (!greeting.empty()) {
    closing = "Best regards,";
  }
  std::string out = greeting;
  for (const std::string& paragraph : paragraphs) {
    if (paragraph.empty()) continue;
    if (!out.empty()) out += "\n\n";
    out += paragraph;
  }
  if (!closing.empty()) {
    out += "\n\n" + closing;
    if (!speaker.name.empty() && closing.find('\n') == std::string::npos)
      out += "\n" + speaker.name;
  }
  return out;
}

std::string chat(const Detection& detection) {
  std::string content = cleaned(detection.content);
  if (detection.relation == "asking") {
    static const RE2 indirect("(?i)^(?:if|whether) (.+)$");
    std::string asked = withoutEndMark(content);
    std::string rest;
    if (!RE2::FullMatch(asked, indirect, &rest)) rest = asked;
    content = text::capitalizeFirst(rest) + "?";
  }
  // One short sentence with a full stop reads cold in a chat.
  const auto parts = sentences(content);
  if (parts.size() == 1 && !content.empty() && content.back() == '.') content.pop_back();
  return content;
}

std::string notes(const Detection& detection) {
  std::string out;
  if (!detection.title.empty()) out = text::capitalizeFirst(text::lower(detection.title)) + "\n";
  static const RE2 opener(
      "(?i)^(?:and )?(?:(?:firstly|first of all|secondly|thirdly|finally|lastly),?|"
      "(?:first|second|third|next|then|also),) (.+)$");
  for (std::string line : sentences(cleaned(detection.content))) {
    if (line.rfind("- ", 0) == 0) line = line.substr(2);
    std::string rest;
    if (RE2::FullMatch(line, opener, &rest)) line = text::capitalizeFirst(rest);
    if (!line.empty() && line.back() == '.') line.pop_back();
    if (line.empty()) continue;
    if (!out.empty() && out.back() != '\n') out += '\n';
    out += "- " + line;
  }
  return out;
}

std::string query(const Detection& detection) {
  return withoutEndMark(text::trim(removeFillers(detection.content)));
}

/// "main dot cpp" to "main.cpp", for file names as people say them.
std::string joinFileNames(std::string text) {
  static const RE2 pattern(
      "(?i)\\b([a-z0-9_-]+) dot "
      "(cpp|cc|c|h|hpp|py|js|ts|tsx|jsx|rs|go|java|kt|rb|php|css|html|json|yaml|yml|toml|md|sh|txt|"
      "swift)"
      "\\b");
  RE2::GlobalReplace(&text, pattern, "\\1.\\2");
  return text;
}

}  // namespace

std::string shape(const Detection& detection, const Speaker& speaker) {
  const std::string& mode = detection.mode;
  if (mode == "command") return markers(detection.actions);
  if (mode == "email") return email(detection, speaker);
  if (mode == "chat") return chat(detection);
  if (mode == "notes") return notes(detection);
  if (mode == "search") return query(detection);
  if (mode == "draw") return text::capitalizeFirst(query(detection));
  if (mode == "ide_assist") return cleaned(joinFileNames(detection.content));
  if (mode == "compose") return cleaned(detection.content);
  return dictated(detection.content);
}

}  // namespace kestrin::agent
