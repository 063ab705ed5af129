#include <array>
#include <optional>

#include "companion/agent/spoken_text.h"
#include "companion/agent/words.h"
#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

enum class Attach {
  left,    // to the word before: "a, b"
  right,   // to the word after: "a (b"
  both,    // "a-b"
  spaced,  // "a - b"
  line,    // takes the blanks of both sides
};

struct SpokenMark {
  std::string_view spoken;
  std::string_view mark;
  Attach attach;
  /// Words before / after which the phrase is meant as itself, not as a mark.
  std::string_view literalAfter;
  std::string_view literalBefore;
};

constexpr std::string_view determiners =
    "a an the this that each every any some no my your his her its our their one another of per to "
    "with";

// Longer phrases first: the first that matches is taken.
constexpr std::array marks{
    SpokenMark{"dot dot dot", "...", Attach::left, "", ""},
    SpokenMark{"new paragraph", "\n\n", Attach::line, determiners, ""},
    SpokenMark{"new line", "\n", Attach::line, determiners, "of"},
    SpokenMark{"newline", "\n", Attach::line, determiners, "character"},
    SpokenMark{"next line", "\n", Attach::line, determiners, "of"},
    SpokenMark{"bullet point", "\n- ", Attach::line, determiners, "list"},
    SpokenMark{"question mark", "?", Attach::left, determiners, ""},
    SpokenMark{"exclamation mark", "!", Attach::left, determiners, ""},
    SpokenMark{"exclamation point", "!", Attach::left, determiners, ""},
    SpokenMark{"full stop", ".", Attach::left, determiners, ""},
    SpokenMark{"semi colon", ";", Attach::left, determiners, ""},
    SpokenMark{"semicolon", ";", Attach::left, determiners, ""},
    SpokenMark{"open parenthesis", "(", Attach::right, determiners, ""},
    SpokenMark{"close parenthesis", ")", Attach::left, determiners, ""},
    SpokenMark{"open bracket", "[", Attach::right, determiners, ""},
    SpokenMark{"close bracket", "]", Attach::left, determiners, ""},
    SpokenMark{"open quote", "\"", Attach::right, determiners, ""},
    SpokenMark{"close quote", "\"", Attach::left, determiners, ""},
    SpokenMark{"end quote", "\"", Attach::left, determiners, ""},
    SpokenMark{"unquote", "\"", Attach::left, determiners, ""},
    SpokenMark{"ellipsis", "...", Attach::left, determiners, ""},
    SpokenMark{"comma", ",", Attach::left,
               "a an the this that each every any some no my your his her its our their one "
               "another of per "
               "with oxford serial missing extra",
               "separated splice"},
    SpokenMark{"period", ".", Attach::left,
               "a an the this that each every any some no my your his her its our their one "
               "another of per "
               "with trial time grace long short brief waiting notice cooling transition busy "
               "first second "
               "third last next same whole entire holiday rental warranty historical",
               "of between from during when drama piece furniture room costume after before in"},
    SpokenMark{"colon", ":", Attach::left, determiners, "cancer cleanse"},
    SpokenMark{"hyphen", "-", Attach::both, determiners, ""},
    SpokenMark{
        "dash", "-", Attach::spaced,
        "a an the this that each every any some no my your his her its our their one another of "
        "per to i we you they must will quick mad em en",
        "off out to for into across of board"},
};

/// Words that the recogniser capitalised only because it had ended a sentence before them.
constexpr std::string_view commonWords =
    "a about after all also an and any are as at be because been before but by can could did do "
    "does for from get "
    "had has have he her here him his how if in into is it its just let like make many may me more "
    "most my no not "
    "now of on once only or other our out over please put same see she should since so some such "
    "take than thank "
    "thanks that the their them then there these they this those though through to too try under "
    "until up us use "
    "very was we well were what when where which while who why will with would yes yet you your";

struct Match {
  const SpokenMark* mark = nullptr;
  size_t length = 0;  // words
};

std::optional<Match> matchAt(const std::vector<Word>& words, size_t at) {
  for (const SpokenMark& mark : marks) {
    size_t length = 0;
    size_t begin = 0;
    bool same = true;
    while (same && begin <= mark.spoken.size()) {
      size_t end = mark.spoken.find(' ', begin);
      if (end == std::string_view::npos) end = mark.spoken.size();
      same =
          at + length < words.size() &&
          words[at + length].key == mark.spoken.substr(begin, end - begin) &&
          // A phrase with a mark inside it ("new, line") was not said as one.
          (begin == 0 || (words[at + length - 1].tail.empty() && words[at + length].lead.empty()));
      ++length;
      begin = end + 1;
    }
    if (!same) continue;
    const bool meantAsItself =
        (at > 0 && words[at - 1].tail.empty() && isOneOf(words[at - 1].key, mark.literalAfter)) ||
        (at + length < words.size() && words[at + length - 1].tail.empty() &&
         isOneOf(words[at + length].key, mark.literalBefore));
    if (meantAsItself) continue;
    return Match{&mark, length};
  }
  return std::nullopt;
}

bool endsSentence(std::string_view tail) {
  return tail.find_first_of(".?!") != std::string_view::npos;
}

void trimBlanks(std::string& text) {
  while (!text.empty() && text.back() == ' ') text.pop_back();
}

/// Takes off a comma or full stop that the recogniser put where the speaker then named a mark.
void dropOwnMark(std::string& text) {
  while (!text.empty() && (text.back() == ',' || text.back() == '.' || text.back() == ';'))
    text.pop_back();
}

}  // namespace

std::string applySpokenPunctuation(std::string_view text) {
  std::string out;
  bool firstLine = true;
  for (const std::string& line : text::split(text, "\n")) {
    if (!firstLine) out += '\n';
    firstLine = false;
    const auto words = splitWords(line);
    bool glue = true;        // no blank before the next word
    bool lowerNext = false;  // the recogniser's own sentence end was taken away
    bool afterMark = false;  // the last thing written was a mark the speaker named
    for (size_t i = 0; i < words.size();) {
      const auto match = matchAt(words, i);
      if (!match) {
        if (!glue) out += ' ';
        const Word& word = words[i];
        const bool lower = lowerNext && isOneOf(word.key, commonWords);
        out += word.lead + (lower ? word.key : word.core) + word.tail;
        glue = false;
        lowerNext = false;
        afterMark = false;
        ++i;
        continue;
      }
      const SpokenMark& mark = *match->mark;
      const std::string& tail = words[i + match->length - 1].tail;
      const bool markEnds = endsSentence(mark.mark);
      lowerNext = !markEnds && mark.attach != Attach::line && endsSentence(tail);
      trimBlanks(out);
      switch (mark.attach) {
        case Attach::left:
          dropOwnMark(out);
          out += mark.mark;
          glue = false;
          break;
        case Attach::right:
          if (!out.empty() && out.back() != '\n') out += ' ';
          out += mark.mark;
          glue = true;
          break;
        case Attach::both:
          dropOwnMark(out);
          out += mark.mark;
          glue = true;
          break;
        case Attach::spaced:
          dropOwnMark(out);
          out += ' ';
          out += mark.mark;
          glue = false;
          break;
        case Attach::line:
          // "hello, new line": the comma was only the pause before the command.
          if (!afterMark && !out.empty() && out.back() == ',') out.pop_back();
          out += mark.mark;
          glue = true;
          break;
      }
      afterMark = true;
      i += match->length;
    }
  }
  return out;
}

}  // namespace kestrin::agent
