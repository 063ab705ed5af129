#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrin::research {

/// What a person reads on a page.
struct ReadableText {
  std::string title;
  std::vector<std::string> blocks;  ///< paragraphs, headings, list items, in order
};

/// The main text of an HTML page, without menus, scripts, forms and what is hidden from people.
/// Never fails: what is no HTML gives what text there is. `contentType` may name the character set.
/// Bounded by 200 kB and 2000 blocks.
ReadableText readableHtml(std::string_view html, std::string_view contentType);
/// The same of plain text: blocks between empty lines.
ReadableText readablePlain(std::string_view text);

}  // namespace kestrin::research
