#include "companion/agent/words.h"

#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

/// Bytes above ASCII are letters of some script here; dashes and quotes of typography are rare in
/// recognised speech and stay part of the word.
bool isWordByte(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x80 || (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= 'a' && byte <= 'z') || c == '%' || c == '$' || c == '#' || c == '@' || c == '&' ||
         c == '+' || c == '/' || c == '_' || c == '*' || c == '=';
}

}  // namespace

std::vector<Word> splitWords(std::string_view text) {
  std::vector<Word> words;
  size_t i = 0;
  while (i < text.size()) {
    const size_t begin = text.find_first_not_of(" \t\r\n", i);
    if (begin == std::string_view::npos) break;
    size_t end = text.find_first_of(" \t\r\n", begin);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view token = text.substr(begin, end - begin);
    size_t from = 0;
    while (from < token.size() && !isWordByte(token[from])) ++from;
    size_t to = token.size();
    while (to > from && !isWordByte(token[to - 1])) --to;
    Word word{std::string(token.substr(0, from)),
              std::string(token.substr(from, to - from)),
              std::string(token.substr(to)),
              {}};
    word.key = text::lower(word.core);
    words.push_back(std::move(word));
    i = end;
  }
  return words;
}

std::string joinWords(const std::vector<Word>& words) {
  std::string out;
  for (const Word& word : words) {
    if (!out.empty()) out += ' ';
    out += word.text();
  }
  return out;
}

std::string plainForm(std::string_view text) {
  std::string out;
  for (const Word& word : splitWords(text)) {
    if (word.key.empty()) continue;
    if (!out.empty()) out += ' ';
    out += word.key;
  }
  return out;
}

bool isOneOf(std::string_view word, std::string_view list) {
  size_t at = 0;
  while (at < list.size()) {
    size_t end = list.find(' ', at);
    if (end == std::string_view::npos) end = list.size();
    if (list.substr(at, end - at) == word) return true;
    at = end + 1;
  }
  return false;
}

}  // namespace kestrin::agent
