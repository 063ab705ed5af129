#include "companion/assist/conversation.h"

#include <unordered_set>

#include "companion/agent/spoken_text.h"
#include "companion/agent/words.h"
#include "platform/text/text.h"

namespace kestrin::assist {
namespace {

/// Two hours of talk.
constexpr size_t mostBytes = 128u << 10;

/// Words that say nothing of what a conversation is about.
constexpr std::string_view emptyWords =
    "a about above after again all almost already also always am an and another any anybody anyone "
    "anything are aren't around as ask asked at away back be because been before being better "
    "between "
    "big bit both but by call came can can't cannot come could couldn't day definitely did didn't "
    "do "
    "does doesn't doing don't done down each else end enough even ever every everybody everyone "
    "everything exactly far few fine first for from get gets getting give go goes going gone gonna "
    "good "
    "got gotta great had happy has have haven't having he he'd he'll he's hello her here hers hey "
    "hi "
    "him his hope how how's however i i'd i'll i'm i've if in into is isn't it it'd it'll it's its "
    "just "
    "keep kind know last least less let let's like little long look looking lot lots made make "
    "makes "
    "making many may maybe me mean might mine more most much must my myself need needs never next "
    "nice "
    "no nobody not nothing now of off oh ok okay on once one only or other our ours out over own "
    "people "
    "please point pretty probably put quite rather really right said same saw say says see seem "
    "seems "
    "send sent shall she she'd she'll she's should shouldn't since so some somebody someone "
    "something "
    "sometimes soon sorry still stuff such sure take taken talk tell than thank thanks that that'd "
    "that'll that's the their theirs them then there there's these they they'd they'll they're "
    "they've "
    "thing things think this those though thought through time to today together told too took try "
    "two "
    "um uh under until up us use used very wait wanna want wanted wants was wasn't way we we'd "
    "we'll "
    "we're we've well went were weren't what what's when when's where where's whether which while "
    "who "
    "who's why will with without won't word work works would wouldn't yeah year years yep yes "
    "yesterday "
    "yet you you'd you'll you're you've your yours yourself";

bool isEmptyWord(const std::string& word) {
  static const auto words = [] {
    const auto list = text::split(emptyWords, " ");
    return std::unordered_set<std::string>(list.begin(), list.end());
  }();
  return words.count(word) != 0;
}

bool isOwn(std::string_view label) { return text::lower(text::trim(label)) == "you"; }

}  // namespace

std::vector<Turn> turnsOf(std::string_view transcript) {
  if (transcript.size() > mostBytes) {
    const size_t lineEnd = transcript.find('\n', transcript.size() - mostBytes);
    transcript = lineEnd == std::string_view::npos
                     ? transcript.substr(transcript.size() - mostBytes)
                     : transcript.substr(lineEnd + 1);
  }
  std::vector<Turn> turns;
  for (const std::string& line : text::split(transcript, "\n")) {
    const size_t close = line.starts_with('[') ? line.find("] ") : std::string::npos;
    if (close != std::string::npos) {
      turns.push_back({isOwn(line.substr(1, close - 1)), text::trim(line.substr(close + 2))});
    } else if (const std::string words = text::trim(line); turns.empty()) {
      if (!words.empty()) turns.push_back({false, words});
    } else if (!words.empty()) {
      turns.back().text += " " + words;
    }
  }
  return turns;
}

std::vector<Sentence> sentencesOf(const std::vector<Turn>& turns) {
  std::vector<Sentence> out;
  for (size_t i = 0; i < turns.size(); ++i) {
    for (const std::string& said : agent::sentences(turns[i].text)) {
      // Typographic apostrophes come from models that write well.
      const std::string plain = agent::plainForm(text::replaceAll(said, "’", "'"));
      Sentence sentence{i, turns[i].own, false, said, plain};
      // A recogniser that sets marks has heard the question; without marks the words must tell.
      const bool marked = said.find_last_of("?.!") != std::string::npos;
      sentence.question =
          marked ? said.find('?') != std::string::npos : agent::soundsLikeQuestion(sentence.plain);
      if (!sentence.plain.empty()) out.push_back(std::move(sentence));
    }
  }
  return out;
}

std::vector<std::string> contentWords(std::string_view plain) {
  std::vector<std::string> out;
  for (const std::string& word : text::split(plain, " ")) {
    if (word.size() > 2 && !isEmptyWord(word)) out.push_back(word);
  }
  return out;
}

bool hasPhrase(std::string_view plain, std::string_view phrase) {
  for (size_t at = plain.find(phrase); at != std::string_view::npos;
       at = plain.find(phrase, at + 1)) {
    const size_t end = at + phrase.size();
    if ((at == 0 || plain[at - 1] == ' ') && (end == plain.size() || plain[end] == ' ')) {
      return true;
    }
  }
  return false;
}

}  // namespace kestrin::assist
