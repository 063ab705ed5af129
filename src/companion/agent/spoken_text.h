#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrin::agent {

// What is done to recognised speech before any mode shapes it. Each step leaves text that is
// already in order as it is, so that the steps may be applied twice.

/// "comma", "new line", "open quote" and their like become the marks, unless the words around them
/// say that the word itself is meant ("a trial period"). A mark that the recogniser set at the same
/// place is replaced.
std::string applySpokenPunctuation(std::string_view text);

/// Hesitations ("um", "uh") and words said twice are left out.
std::string removeFillers(std::string_view text);

/// Sentences begin with a capital and end with a mark; a sentence in the form of a question ends
/// with a question mark; "i" stands as "I".
std::string finishSentences(std::string_view text);

/// `applySpokenPunctuation` and `finishSentences`: dictation, word for word.
std::string dictated(std::string_view text);
/// The same without fillers.
std::string cleaned(std::string_view text);

/// Sentences with their end marks, trimmed; line ends also part them.
std::vector<std::string> sentences(std::string_view text);

/// Whether the sentence (without its mark) has the form of a question.
bool soundsLikeQuestion(std::string_view sentence);

}  // namespace kestrin::agent
