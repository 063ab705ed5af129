#include "platform/text/markdown.h"
#include "platform/text/text.h"

namespace kestrin::markdown {
namespace {

std::string spansText(const std::vector<Span>& spans) {
  std::string out;
  for (size_t i = 0; i < spans.size(); ++i) {
    out += spans[i].text;
    // A link may consist of several spans.
    const bool ends = i + 1 == spans.size() || spans[i + 1].link != spans[i].link;
    if (ends && !spans[i].link.empty() && !text::contains(spans[i].link, spans[i].text))
      out += " (" + spans[i].link + ")";
  }
  return out;
}

std::string indented(const std::string& text, const std::string& first, const std::string& others) {
  return first + text::replaceAll(text, "\n", "\n" + others);
}

std::string blockText(const Block& block);

std::string joined(const std::vector<Block>& blocks, const char* separator) {
  std::vector<std::string> parts;
  for (const Block& block : blocks) {
    if (auto part = blockText(block); !part.empty()) parts.push_back(std::move(part));
  }
  return text::join(parts, separator);
}

std::string listText(const Block& list) {
  std::vector<std::string> items;
  int number = list.start;
  for (const Block& item : list.children) {
    const std::string mark = list.ordered ? std::to_string(number++) + ". " : "- ";
    items.push_back(indented(blockText(item), mark, std::string(mark.size(), ' ')));
  }
  return text::join(items, "\n");
}

std::string blockText(const Block& block) {
  using Kind = Block::Kind;
  switch (block.kind) {
    case Kind::list:
      return listText(block);
    case Kind::code:
      return indented(spansText(block.spans), "    ", "    ");
    case Kind::quote:
      return indented(joined(block.children, "\n\n"), "> ", "> ");
    case Kind::rule:
      return "---";
    case Kind::table:
      return joined(block.children, "\n");
    case Kind::row:
      return joined(block.children, " | ");
    case Kind::item: {
      const std::string own = spansText(block.spans), below = joined(block.children, "\n");
      return own.empty() || below.empty() ? own + below : own + "\n" + below;
    }
    default:
      return spansText(block.spans) + joined(block.children, "\n");
  }
}

}  // namespace

std::string plainText(const std::vector<Block>& blocks) { return joined(blocks, "\n\n"); }

}  // namespace kestrin::markdown
