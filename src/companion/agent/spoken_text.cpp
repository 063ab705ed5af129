#include "companion/agent/spoken_text.h"

#include "companion/agent/words.h"
#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

constexpr std::string_view fillers = "um umm uh uhh uhm erm er hmm hm mm mhm";
/// Words that people repeat on purpose.
constexpr std::string_view mayRepeat =
    "had that very no yes bye so really many much far ha ok okay knock";
constexpr std::string_view abbreviations =
    "mr mrs ms dr prof st vs etc e.g i.e no jr sr inc ltd approx dept";

bool isSentenceEnd(const Word& word) {
  if (word.tail.find_first_of("?!") != std::string::npos) return true;
  if (word.tail.find("...") != std::string::npos) return false;
  return word.tail.find('.') != std::string::npos && !isOneOf(word.key, abbreviations);
}

constexpr std::string_view auxiliaries =
    "is are am was were do does did can could will would should shall may might have has had isn't "
    "aren't wasn't "
    "weren't don't doesn't didn't can't couldn't won't wouldn't shouldn't haven't hasn't";
constexpr std::string_view subjects =
    "i you he she it we they this that these those there the a an my your his her its our their "
    "anyone anybody "
    "someone somebody everyone everybody any";

std::string finishLine(std::string_view line) {
  auto words = splitWords(line);
  bool begins = true;
  size_t begin = 0;
  for (size_t i = 0; i < words.size(); ++i) {
    Word& word = words[i];
    if (word.core.empty()) continue;  // a bullet or a dash on its own
    if (begins) {
      // A word with capitals or marks inside it ("iPhone", "main.cpp") keeps its spelling.
      const bool ownSpelling = word.core != word.key || word.core.find('.') != std::string::npos;
      if (!ownSpelling) word.core = text::capitalizeFirst(word.core);
      begin = i;
    } else if (word.key == "i" || word.key.rfind("i'", 0) == 0) {
      word.core = text::capitalizeFirst(word.core);
    }
    begins = isSentenceEnd(word);
    if (begins && word.tail.find('.') != std::string::npos &&
        word.tail.find_first_of("?!") == std::string::npos) {
      std::vector<Word> sentence(words.begin() + static_cast<ptrdiff_t>(begin),
                                 words.begin() + static_cast<ptrdiff_t>(i) + 1);
      sentence.back().tail.clear();
      if (soundsLikeQuestion(joinWords(sentence))) {
        word.tail = text::replaceAll(word.tail, ".", "?");
      }
    }
  }
  std::string out = joinWords(words);
  if (words.empty()) return out;
  const Word& last = words.back();
  const bool open = last.tail.empty() || last.tail == "\"" || last.tail == ")" || last.tail == ",";
  if (!last.core.empty() && open) {
    if (last.tail == ",") return out;  // a salutation or a list goes on on the next line
    const std::vector<Word> sentence(words.begin() + static_cast<ptrdiff_t>(begin), words.end());
    out += soundsLikeQuestion(joinWords(sentence)) ? '?' : '.';
  }
  return out;
}

}  // namespace

bool soundsLikeQuestion(std::string_view sentence) {
  const auto words = splitWords(sentence);
  if (words.size() < 2) return false;
  size_t i = 0;
  // "So what is the plan", "Hi, how are you"
  while (i + 2 < words.size() && isOneOf(words[i].key, "and so but or well hey hi okay ok then"))
    ++i;
  const std::string& first = words[i].key;
  if (i + 1 >= words.size()) return false;
  const std::string& second = words[i + 1].key;
  if (isOneOf(first, auxiliaries)) return isOneOf(second, subjects);
  if (isOneOf(first, "what's who's where's how's when's why's")) return true;
  if (first == "why") return isOneOf(second, auxiliaries) || second == "not";
  if (first == "how") {
    return isOneOf(second, auxiliaries) ||
           isOneOf(second, "many much long far often about come old soon");
  }
  if (first == "what") return isOneOf(second, auxiliaries) || isOneOf(second, "time kind about if");
  if (first == "who")
    return isOneOf(second, auxiliaries) || isOneOf(second, "else wants needs knows");
  if (isOneOf(first, "when where which whose")) {
    if (isOneOf(second, auxiliaries)) return true;
    return first == "which" && words.size() > i + 2 && isOneOf(words[i + 2].key, auxiliaries);
  }
  return false;
}

std::string removeFillers(std::string_view text) {
  std::string out;
  bool firstLine = true;
  for (const std::string& line : text::split(text, "\n")) {
    std::vector<Word> kept;
    bool capitalNext = false;
    for (Word& word : splitWords(line)) {
      if (isOneOf(word.key, fillers)) {
        const bool began = !word.core.empty() && word.core != word.key &&
                           (kept.empty() || isSentenceEnd(kept.back()));
        capitalNext = capitalNext || began;
        // The comma before a filler belonged to the filler; a sentence end behind it belongs to the
        // sentence.
        if (!kept.empty() && isSentenceEnd(word)) {
          kept.back().tail = word.tail;
        } else if (!kept.empty() && kept.back().tail == "," && word.tail == "," &&
                   !isOneOf(kept.front().key, "hi hello hey dear")) {
          kept.back().tail.clear();
        }
        continue;
      }
      if (!kept.empty() && kept.back().key == word.key && kept.back().tail.empty() &&
          !word.key.empty() && !isOneOf(word.key, mayRepeat)) {
        kept.back().tail = word.tail;
        continue;
      }
      if (capitalNext) word.core = text::capitalizeFirst(word.core);
      capitalNext = false;
      kept.push_back(std::move(word));
    }
    if (!firstLine) out += '\n';
    firstLine = false;
    out += joinWords(kept);
  }
  return out;
}

std::string finishSentences(std::string_view text) {
  std::vector<std::string> lines = text::split(text, "\n");
  for (std::string& line : lines) line = finishLine(line);
  return text::join(lines, "\n");
}

std::string dictated(std::string_view text) {
  return text::trim(finishSentences(applySpokenPunctuation(text)));
}

std::string cleaned(std::string_view text) {
  return text::trim(finishSentences(removeFillers(applySpokenPunctuation(text))));
}

std::vector<std::string> sentences(std::string_view text) {
  std::vector<std::string> out;
  for (const std::string& line : text::split(text, "\n")) {
    std::vector<Word> current;
    for (Word& word : splitWords(line)) {
      const bool end = isSentenceEnd(word);
      current.push_back(std::move(word));
      if (end) {
        out.push_back(joinWords(current));
        current.clear();
      }
    }
    if (!current.empty()) out.push_back(joinWords(current));
  }
  return out;
}

}  // namespace kestrin::agent
