#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrin::agent {

/// One word as spoken, with the punctuation the recogniser hung on it: `lead` + `core` + `tail`.
struct Word {
  std::string lead;
  std::string core;
  std::string tail;
  std::string key;  ///< `core` in lower case, for look-ups

  std::string text() const { return lead + core + tail; }
};

/// Splits at white space. Line ends are lost.
std::vector<Word> splitWords(std::string_view text);
std::string joinWords(const std::vector<Word>& words);

/// Lower case, without punctuation except inside words, single blanks: what command patterns match
/// against.
std::string plainForm(std::string_view text);

/// True when `word` is one of the blank-separated words of `list`.
bool isOneOf(std::string_view word, std::string_view list);

}  // namespace kestrin::agent
