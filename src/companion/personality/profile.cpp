#include "companion/personality/profile.h"

#include "companion/agent/spoken_text.h"
#include "companion/agent/words.h"
#include "companion/assist/conversation.h"
#include "companion/assist/gist.h"
#include "platform/text/text.h"

namespace kestrin::personality {
namespace {

constexpr size_t mostSubjects = 5, mostQuoted = 160;
constexpr double shortSentence = 9, longSentence = 18;  // words

struct Manner {
  double wordsPerSentence = 0;
  bool hedges = false;
  bool exclaims = false;
};

Manner mannerOf(const std::vector<assist::Sentence>& sentences) {
  Manner manner;
  size_t words = 0, hedged = 0, loud = 0;
  for (const auto& sentence : sentences) {
    words += agent::splitWords(sentence.plain).size();
    for (const char* phrase : {"maybe", "i think", "i guess", "sort of", "kind of", "probably"})
      hedged += assist::hasPhrase(sentence.plain, phrase);
    for (const char* phrase : {"love", "really", "amazing", "great", "excited", "passionate"})
      loud += assist::hasPhrase(sentence.plain, phrase);
  }
  const double count = double(std::max<size_t>(1, sentences.size()));
  manner.wordsPerSentence = double(words) / count;
  manner.hedges = double(hedged) / count > 0.3;
  manner.exclaims = double(loud) / count > 0.3;
  return manner;
}

}  // namespace

std::string transcriptOf(const std::vector<Answer>& answers) {
  std::string out;
  for (const Answer& answer : answers)
    out += "Q: " + answer.question + "\nA: " + answer.transcript + "\n\n";
  return text::trim(out);
}

std::string describe(const std::string& name, const std::vector<Answer>& answers) {
  std::vector<assist::Turn> turns;
  for (const Answer& answer : answers) {
    if (!text::trim(answer.transcript).empty()) turns.push_back({true, answer.transcript});
  }
  const auto sentences = assist::sentencesOf(turns);
  if (sentences.empty()) return {};
  const Manner manner = mannerOf(sentences);
  const std::string who = name.empty() ? "The speaker" : text::split(name, " ").front();
  std::string out = who;
  out += manner.wordsPerSentence <= shortSentence  ? " speaks in short, direct sentences"
         : manner.wordsPerSentence >= longSentence ? " speaks in long, flowing sentences"
                                                   : " speaks in sentences of middle length";
  out += manner.hedges     ? ", weighs what they say,"
         : manner.exclaims ? ", with enthusiasm,"
                           : ", plainly,";
  const auto subjects = assist::keywords(sentences, mostSubjects);
  out += subjects.empty() ? " and names many things once."
                          : " and often of: " + text::join(subjects, ", ") + ".";
  for (const Answer& answer : answers) {
    const auto said = agent::sentences(answer.transcript);
    if (!said.empty())
      out += " " + answer.question + ": \"" + text::prefix(said.front(), mostQuoted) + "\"";
  }
  return out;
}

}  // namespace kestrin::personality
