#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrin::assist {

/// What one side said in one go.
struct Turn {
  bool own = false;  ///< the user's, not the other side's
  std::string text;
};

/// One sentence of a conversation.
struct Sentence {
  size_t turn = 0;
  bool own = false;
  bool question = false;
  std::string text;   ///< as it was said
  std::string plain;  ///< lower case, no punctuation, single blanks: what phrases are matched with
};

/// Takes "[YOU] text" and "[OTHER] text" apart, a line each; "You" in any case is the user. A line
/// without a label goes on with the turn before. Of a very long transcript only its end counts.
std::vector<Turn> turnsOf(std::string_view transcript);
std::vector<Sentence> sentencesOf(const std::vector<Turn>& turns);

/// The words that carry meaning, lower case, in order.
std::vector<std::string> contentWords(std::string_view plain);
/// True when `phrase` (one or more whole words) is part of `plain`.
bool hasPhrase(std::string_view plain, std::string_view phrase);

}  // namespace kestrin::assist
