#include "platform/text/markdown.h"

#include <charconv>
#include <md4c.h>
#include <unicode/utf8.h>
#include <utility>

#include "platform/http.h"
#include "platform/text/text.h"

namespace kestrin::markdown {
namespace {

constexpr unsigned dialect =
    MD_FLAG_TABLES | MD_FLAG_STRIKETHROUGH | MD_FLAG_PERMISSIVEURLAUTOLINKS | MD_FLAG_NOHTML;
constexpr const char* replacement = "\xEF\xBF\xBD";

/// The entities that models write; any other name stays as it is.
constexpr std::pair<std::string_view, std::string_view> entities[] = {
    {"&amp;", "&"},        {"&lt;", "<"},         {"&gt;", ">"},
    {"&quot;", "\""},      {"&apos;", "'"},       {"&nbsp;", "\u00A0"},
    {"&ndash;", "\u2013"}, {"&mdash;", "\u2014"}, {"&hellip;", "\u2026"},
};

std::string character(uint32_t code) {
  if (code == 0 || code > 0x10FFFF || U_IS_SURROGATE(code)) return replacement;
  char units[4];
  size_t length = 0;
  U8_APPEND_UNSAFE(units, length, code);
  return {units, length};
}

/// "&amp;", "&#39;", "&#x27;".
std::string decoded(std::string_view entity) {
  for (const auto& [name, text] : entities) {
    if (name == entity) return std::string(text);
  }
  if (!entity.starts_with("&#")) return std::string(entity);
  const bool hexadecimal = entity[2] == 'x' || entity[2] == 'X';
  const std::string_view digits = entity.substr(hexadecimal ? 3 : 2);
  uint32_t code = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), code, hexadecimal ? 16 : 10);
  return character(code);
}

std::string decoded(MD_TEXTTYPE type, std::string_view text) {
  switch (type) {
    case MD_TEXT_NULLCHAR:
      return replacement;
    case MD_TEXT_BR:
      return "\n";
    case MD_TEXT_SOFTBR:
      return " ";
    case MD_TEXT_ENTITY:
      return decoded(text);
    default:
      return std::string(text);
  }
}

std::string decoded(const MD_ATTRIBUTE& attribute) {
  std::string out;
  if (attribute.size == 0) return out;
  for (size_t i = 0; attribute.substr_offsets[i] < attribute.size; ++i) {
    const MD_OFFSET begin = attribute.substr_offsets[i];
    out += decoded(attribute.substr_types[i],
                   {attribute.text + begin, attribute.substr_offsets[i + 1] - begin});
  }
  return out;
}

/// Builds the tree from the parser's calls. The blocks that are open are a stack of their own, so
/// that no depth of nesting is a depth of calls.
class Builder {
 public:
  Builder() { open_.emplace_back(); }

  std::vector<Block> take() { return std::move(open_.front().children); }

  int enter(MD_BLOCKTYPE type, void* detail) {
    if (transparent(type)) return 0;
    // The parser goes on after a positive value.
    if (++blocks_ > maxBlocks) return -1;
    if (open_.size() > maxDepth) {
      if (skipped_++ == 0 || type == MD_BLOCK_P) add("\n");
      return 0;
    }
    open_.push_back(made(type, detail));
    return 0;
  }

  int leave(MD_BLOCKTYPE type) {
    if (transparent(type)) return 0;
    if (skipped_ > 0) {
      --skipped_;
      return 0;
    }
    Block block = std::move(open_.back());
    open_.pop_back();
    if (block.kind == Block::Kind::code && !block.spans.empty()) {
      std::string& code = block.spans.front().text;
      if (code.ends_with('\n')) code.pop_back();
    }
    open_.back().children.push_back(std::move(block));
    return 0;
  }

  int span(MD_SPANTYPE type, void* detail, int step) {
    switch (type) {
      case MD_SPAN_STRONG:
        strong_ += step;
        break;
      case MD_SPAN_EM:
        emphasis_ += step;
        break;
      case MD_SPAN_CODE:
        code_ += step;
        break;
      case MD_SPAN_DEL:
        struck_ += step;
        break;
      case MD_SPAN_A:
        link(step, &static_cast<MD_SPAN_A_DETAIL*>(detail)->href);
        break;
      case MD_SPAN_IMG:
        link(step, &static_cast<MD_SPAN_IMG_DETAIL*>(detail)->src);
        break;
      default:
        break;
    }
    return 0;
  }

  int text(MD_TEXTTYPE type, std::string_view words) {
    add(decoded(type, words));
    return 0;
  }

 private:
  /// Parts of the parser's tree that the model does without.
  static bool transparent(MD_BLOCKTYPE type) {
    return type == MD_BLOCK_DOC || type == MD_BLOCK_THEAD || type == MD_BLOCK_TBODY;
  }

  static Block made(MD_BLOCKTYPE type, void* detail) {
    using Kind = Block::Kind;
    Block block;
    switch (type) {
      case MD_BLOCK_H:
        block.kind = Kind::heading;
        block.level = static_cast<int>(static_cast<MD_BLOCK_H_DETAIL*>(detail)->level);
        break;
      case MD_BLOCK_UL:
        block.kind = Kind::list;
        break;
      case MD_BLOCK_OL:
        block.kind = Kind::list;
        block.ordered = true;
        block.start = static_cast<int>(static_cast<MD_BLOCK_OL_DETAIL*>(detail)->start);
        break;
      case MD_BLOCK_LI:
        block.kind = Kind::item;
        break;
      case MD_BLOCK_CODE:
        block.kind = Kind::code;
        block.language = decoded(static_cast<MD_BLOCK_CODE_DETAIL*>(detail)->lang);
        break;
      case MD_BLOCK_QUOTE:
        block.kind = Kind::quote;
        break;
      case MD_BLOCK_HR:
        block.kind = Kind::rule;
        break;
      case MD_BLOCK_TABLE:
        block.kind = Kind::table;
        break;
      case MD_BLOCK_TR:
        block.kind = Kind::row;
        break;
      case MD_BLOCK_TH:
      case MD_BLOCK_TD:
        block.kind = Kind::cell;
        break;
      default:
        break;
    }
    return block;
  }

  void link(int step, const MD_ATTRIBUTE* address) {
    if (step < 0) return links_.pop_back();
    std::string target = decoded(*address);
    // A picture inside a link leads where the link leads.
    if (!links_.empty() && !links_.back().empty()) target = links_.back();
    links_.push_back(isHttpUrl(target) ? std::move(target) : std::string());
  }

  /// Where text goes now. The items of a tight list hold it without a paragraph of their own.
  Block& leaf() {
    Block& top = open_.back();
    const bool container = top.kind == Block::Kind::item || top.kind == Block::Kind::quote ||
                           top.kind == Block::Kind::list || open_.size() == 1;
    if (!container) return top;
    if (top.children.empty() || top.children.back().kind != Block::Kind::paragraph) {
      top.children.emplace_back();
    }
    return top.children.back();
  }

  void add(const std::string& words) {
    Span span{words,     strong_ > 0, emphasis_ > 0,
              code_ > 0, struck_ > 0, links_.empty() ? "" : links_.back()};
    std::vector<Span>& spans = leaf().spans;
    if (!spans.empty() && spans.back().looksLike(span)) {
      spans.back().text += words;
    } else {
      spans.push_back(std::move(span));
    }
  }

  std::vector<Block> open_;  ///< the first is the document
  size_t blocks_ = 0;
  size_t skipped_ = 0;
  int strong_ = 0;
  int emphasis_ = 0;
  int code_ = 0;
  int struck_ = 0;
  std::vector<std::string> links_;
};

Builder& builder(void* data) { return *static_cast<Builder*>(data); }

}  // namespace

std::vector<Block> parse(std::string_view markdown) {
  const std::string text = text::replaceInvalidUtf8(markdown);
  MD_PARSER parser{};
  parser.flags = dialect;
  parser.enter_block = [](MD_BLOCKTYPE type, void* detail, void* data) {
    return builder(data).enter(type, detail);
  };
  parser.leave_block = [](MD_BLOCKTYPE type, void*, void* data) {
    return builder(data).leave(type);
  };
  parser.enter_span = [](MD_SPANTYPE type, void* detail, void* data) {
    return builder(data).span(type, detail, 1);
  };
  parser.leave_span = [](MD_SPANTYPE type, void* detail, void* data) {
    return builder(data).span(type, detail, -1);
  };
  parser.text = [](MD_TEXTTYPE type, const MD_CHAR* words, MD_SIZE size, void* data) {
    return builder(data).text(type, {words, size});
  };
  Builder built;
  if (md_parse(text.data(), static_cast<MD_SIZE>(text.size()), &parser, &built) == 0) {
    return built.take();
  }
  Block whole;
  whole.spans.push_back({.text = text});
  return {std::move(whole)};
}

}  // namespace kestrin::markdown
