#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Text with Markdown as a tree that a view draws. Nothing in it can run or load anything: raw HTML
/// is shown as the text that it is, a picture is its description, and only http and https addresses
/// become links.
namespace kestrin::markdown {

/// A run of characters that look alike.
struct Span {
  std::string text;  ///< a line feed is a forced line break
  bool strong = false;
  bool emphasis = false;
  bool code = false;
  bool struck = false;
  std::string link;  ///< an http or https address, or empty

  bool looksLike(const Span& other) const {
    return strong == other.strong && emphasis == other.emphasis && code == other.code &&
           struck == other.struck && link == other.link;
  }
};

struct Block {
  enum class Kind {
    paragraph,
    heading,
    list,   ///< children: items
    item,   ///< children: any
    code,   ///< one span, lines as written
    quote,  ///< children: any
    rule,
    table,  ///< children: rows, the first of which is the head
    row,    ///< children: cells
    cell,
  };
  Kind kind = Kind::paragraph;
  int level = 0;         ///< heading: 1 to 6
  bool ordered = false;  ///< list
  int start = 1;         ///< ordered list: the first number
  std::string language;  ///< code: what the fence names, or empty
  std::vector<Span> spans;
  std::vector<Block> children;
};

/// Deeper nesting is drawn at this depth.
constexpr size_t maxDepth = 24;
/// A text that would give more blocks is one paragraph as it was written.
constexpr size_t maxBlocks = 20'000;

/// CommonMark with tables, strike-through and bare addresses. Never fails; invalid UTF-8 is
/// replaced.
std::vector<Block> parse(std::string_view markdown);

/// As it reads without type faces, for a terminal: list items with their marks, tables with bars
/// between the cells, an address behind the words that link to it.
std::string plainText(const std::vector<Block>& blocks);

}  // namespace kestrin::markdown
