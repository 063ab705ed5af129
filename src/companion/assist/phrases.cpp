#include "companion/assist/phrases.h"

#include <algorithm>
#include <initializer_list>
#include <string>

#include "companion/agent/words.h"
#include "companion/assist/conversation.h"
#include "platform/text/text.h"

namespace kestrin::assist {
namespace {

using Phrases = std::initializer_list<std::string_view>;

bool hasAny(std::string_view plain, Phrases phrases) {
  return std::any_of(phrases.begin(), phrases.end(),
                     [&](std::string_view phrase) { return hasPhrase(plain, phrase); });
}

/// What can be done after a call; "I'll be honest" and "we'll see" promise nothing.
constexpr std::string_view deeds =
    "add arrange ask book bring buy call cancel change check circulate clarify clean close collect "
    "compile complete confirm connect contact create deliver discuss draft edit email extend file "
    "find finish fix follow forward get hand introduce invite invoice investigate mail message "
    "move "
    "notify order organise organize pay phone ping plan prepare present provide publish push "
    "refund "
    "remind repair replace report research reserve review revise schedule send set share ship sign "
    "submit summarise summarize talk test text update upload verify write";

const Phrases promisers{"i'll",         "i will",         "we'll",         "we will",
                        "i'm going to", "we're going to", "i am going to", "we are going to",
                        "i'm gonna",    "let me",         "i can",         "we can",
                        "i promise to"};
const Phrases askers{"can you",       "could you",        "would you",         "will you",
                     "please",        "you should",       "you need to",       "you have to",
                     "i need you to", "i'd like you to",  "don't forget to",   "remember to",
                     "make sure to",  "we need to",       "we should",         "we have to",
                     "let's",         "someone needs to", "somebody needs to", "someone should",
                     "needs to",      "want you to",      "you could"};

/// The first word after `phrase` that is not an adverb; empty when there is none.
std::string wordAfter(std::string_view plain, std::string_view phrase) {
  size_t at = plain.find(phrase);
  while (at != std::string_view::npos && at > 0 && plain[at - 1] != ' ') {
    at = plain.find(phrase, at + 1);
  }
  if (at == std::string_view::npos) return "";
  for (const std::string& word : text::split(plain.substr(at + phrase.size()), " ")) {
    if (word.empty()) continue;
    if (!agent::isOneOf(word,
                        "please just also then definitely certainly probably quickly now to "
                        "try go and maybe kindly all still")) {
      return word;
    }
  }
  return "";
}

bool leadsToDeed(std::string_view plain, Phrases leads) {
  return std::any_of(leads.begin(), leads.end(), [&](std::string_view lead) {
    return hasPhrase(plain, lead) && agent::isOneOf(wordAfter(plain, lead), deeds);
  });
}

/// "not too expensive", "no concerns": the phrase is denied right before it.
bool hasUndenied(std::string_view plain, Phrases phrases) {
  for (const std::string_view phrase : phrases) {
    if (!hasPhrase(plain, phrase)) continue;
    const auto before = text::split(text::trim(plain.substr(0, plain.find(phrase))), " ");
    const std::string& last = before.back();
    const bool denied =
        last.ends_with("n't") || agent::isOneOf(last, "not no never without any longer hardly");
    if (!denied) return true;
  }
  return false;
}

}  // namespace

bool isObjection(std::string_view plain) {
  return hasUndenied(plain,
                     {"too expensive",   "too much money",  "too pricey",        "too costly",
                      "too high",        "too long",        "too late",          "too complicated",
                      "too complex",     "too risky",       "too slow",          "too difficult",
                      "over budget",     "over our budget", "out of our budget", "tight budget",
                      "budget is tight", "no budget",       "concern",           "concerns",
                      "concerned",       "worry",           "worried",           "worries",
                      "skeptical",       "sceptical",       "hesitant",          "a risk",
                      "deal breaker",    "the problem is",  "the issue is",      "downside",
                      "drawback",        "hard to justify", "cheaper",           "already have a",
                      "already use",     "already using",   "i disagree",        "that's a lot"}) ||
         hasAny(plain, {"don't have the budget",
                        "not in the budget",
                        "can't afford",
                        "cannot afford",
                        "not convinced",
                        "not sure about",
                        "not sure if",
                        "not sure that",
                        "not sure we",
                        "not interested",
                        "not ready",
                        "not the right time",
                        "don't need",
                        "don't see the",
                        "don't think we",
                        "don't think that",
                        "don't think it",
                        "can't commit",
                        "need to think about",
                        "have to think about",
                        "won't work",
                        "doesn't work for",
                        "not comfortable",
                        "don't trust",
                        "don't agree"});
}

bool isPromise(std::string_view plain) {
  return hasPhrase(plain, "let you know")
             ? hasAny(plain, {"i'll let you know", "i will let you know", "we'll let you know",
                              "we will let you know"})
             : leadsToDeed(plain, promisers) ||
                   hasAny(plain, {"i'll take care of", "i'll look into", "we'll look into",
                                  "i'll get back to", "i'll come back to", "i'll have a look",
                                  "i'll take a look", "i'll make sure", "leave it with me"});
}

bool isRequest(std::string_view plain) {
  return leadsToDeed(plain, askers) ||
         hasAny(plain, {"action item", "next step is", "to do is", "let me know", "get back to me",
                        "look into it please"});
}

bool isDecision(std::string_view plain) {
  return hasUndenied(plain, {"we decided", "we've decided", "we have decided", "we agreed",
                             "it's decided", "we've agreed", "that's agreed", "let's go with",
                             "we'll go with", "we go with", "decision is", "we settled on",
                             "it's a deal", "we are going with", "we're going with"});
}

bool isDone(std::string_view plain) {
  return hasAny(
      plain,
      {"i've sent",     "i have sent",  "i sent",        "just sent",          "we sent",
       "already sent",  "i've shared",  "just shared",   "i've done",          "i did",
       "it's done",     "that's done",  "i've booked",   "i booked",           "i've scheduled",
       "i've checked",  "i checked",    "i've updated",  "i updated",          "i've emailed",
       "i emailed",     "i called",     "i've called",   "i've fixed",         "i fixed",
       "it's fixed",    "is finished",  "i've finished", "you should have it", "is in your inbox",
       "i've prepared", "i've uploaded"});
}

bool isAgreement(std::string_view plain) {
  return hasUndenied(plain, {"sounds good", "that works", "works for me", "works for us",
                             "makes sense", "fair enough", "i agree", "we agree", "that's fine",
                             "perfect", "good idea", "that helps", "that answers"});
}

bool isDeferral(std::string_view plain) {
  return hasAny(plain, {"i don't know", "i'm not sure", "not sure", "let me check",
                        "let me find out", "i'll check", "i'd have to check", "i'll find out",
                        "get back to you", "come back to you", "good question", "have to ask",
                        "need to ask", "i'll let you know", "off the top of my head"});
}

bool isSmallTalk(std::string_view plain) {
  return hasAny(plain, {"how are you",       "how are things",       "how's it going",
                        "can you hear",      "do you hear",          "can you see",
                        "you see my screen", "are you there",        "you know what",
                        "what's up",         "does that make sense", "do you mind",
                        "is that right",     "is that ok",           "is that okay",
                        "how was your",      "sorry what",           "say again",
                        "isn't it",          "you know what i mean", "how have you been"});
}

}  // namespace kestrin::assist
