#include "companion/research/readable_text.h"

#include <libxml/HTMLparser.h>
#include <libxml/tree.h>
#include <memory>
#include <optional>
#include <unordered_set>

#include "platform/text/text.h"

namespace kestrin::research {
namespace {

constexpr size_t mostText = 200u << 10;
constexpr size_t mostBlocks = 2000;
constexpr size_t longestTitle = 200;
/// A part of the page with less text than this is not its main part.
constexpr size_t leastMain = 400;
/// A short block that is mostly links is a menu.
constexpr size_t menuLength = 200;

using Names = std::unordered_set<std::string_view>;

const Names& skipped() {
  static const Names names{"script", "style",  "noscript", "template", "nav",    "footer", "aside",
                           "form",   "svg",    "button",   "iframe",   "select", "object", "head",
                           "canvas", "dialog", "textarea", "menu",     "math",   "audio",  "video"};
  return names;
}

const Names& blockLevel() {
  static const Names names{
      "p",          "div",    "section",    "article", "main",    "h1",     "h2", "h3", "h4",
      "h5",         "h6",     "li",         "ul",      "ol",      "dl",     "dt", "dd", "pre",
      "blockquote", "td",     "th",         "tr",      "table",   "header", "br", "hr", "body",
      "html",       "figure", "figcaption", "details", "summary", "address"};
  return names;
}

std::string_view nameOf(const xmlNode* node) {
  return node->name ? reinterpret_cast<const char*>(node->name) : "";
}

std::string attribute(const xmlNode* node, const char* name) {
  xmlChar* value = xmlGetProp(const_cast<xmlNode*>(node), reinterpret_cast<const xmlChar*>(name));
  if (!value) return {};
  std::string out(reinterpret_cast<const char*>(value));
  xmlFree(value);
  return out;
}

/// What people do not see is often meant for machines alone.
bool isHidden(const xmlNode* node) {
  if (xmlHasProp(const_cast<xmlNode*>(node), BAD_CAST "hidden")) return true;
  if (attribute(node, "aria-hidden") == "true") return true;
  const std::string style = text::replaceAll(text::lower(attribute(node, "style")), " ", "");
  return text::containsAny(style,
                           {"display:none", "visibility:hidden", "font-size:0", "opacity:0"});
}

bool isLeftOut(const xmlNode* node) {
  return node->type == XML_ELEMENT_NODE && (skipped().contains(nameOf(node)) || isHidden(node));
}

/// Visits the tree below and with `root` without recursion, since pages nest as deep as they like.
/// `enter` says whether the node's children are wanted; `leave` comes once for each node.
template <class Enter, class Leave>
void walk(const xmlNode* root, const Enter& enter, const Leave& leave) {
  const xmlNode* node = root;
  for (;;) {
    if (enter(node) && node->children) {
      node = node->children;
      continue;
    }
    for (leave(node); node != root && !node->next; leave(node)) node = node->parent;
    if (node == root) return;
    node = node->next;
  }
}

std::string squeezed(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const bool blank = c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
    if (!blank) {
      out += c;
    } else if (!out.empty() && out.back() != ' ') {
      out += ' ';
    }
  }
  return text::trim(text::replaceInvalidUtf8(out));
}

/// Gathers blocks while the tree is walked.
class Blocks {
 public:
  void text(const xmlNode* node, bool inLink) {
    if (!node->content || full()) return;
    const std::string_view content(reinterpret_cast<const char*>(node->content));
    current_ += content.substr(0, mostText - total_);
    if (inLink) linked_ += content.size();
  }
  void end() {
    const std::string block = squeezed(current_);
    const bool menu = block.size() < menuLength && linked_ * 2 > block.size();
    if (!block.empty() && !menu && !full()) {
      total_ += block.size();
      found.push_back(block);
    }
    current_.clear();
    linked_ = 0;
  }
  bool full() const { return total_ >= mostText || found.size() >= mostBlocks; }

  std::vector<std::string> found;

 private:
  std::string current_;
  size_t linked_ = 0;  ///< of the current block, in bytes
  size_t total_ = 0;
};

std::vector<std::string> blocksOf(const xmlNode* root) {
  Blocks blocks;
  int links = 0;
  const auto isElement = [](const xmlNode* node) { return node->type == XML_ELEMENT_NODE; };
  walk(
      root,
      [&](const xmlNode* node) {
        if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE)
          blocks.text(node, links > 0);
        if (!isElement(node)) return false;
        if (blockLevel().contains(nameOf(node))) blocks.end();
        if (isLeftOut(node) || blocks.full()) return false;
        links += nameOf(node) == "a";
        return true;
      },
      [&](const xmlNode* node) {
        if (!isElement(node)) return;
        if (blockLevel().contains(nameOf(node))) blocks.end();
        if (nameOf(node) == "a" && links > 0 && !isLeftOut(node)) --links;
      });
  blocks.end();
  return std::move(blocks.found);
}

size_t lengthOf(const std::vector<std::string>& blocks) {
  size_t length = 0;
  for (const auto& block : blocks) length += block.size();
  return length;
}

struct Landmarks {
  const xmlNode* title = nullptr;
  const xmlNode* main = nullptr;
  const xmlNode* heading = nullptr;
};

Landmarks landmarksOf(const xmlNode* root) {
  Landmarks found;
  walk(
      root,
      [&found](const xmlNode* node) {
        if (node->type != XML_ELEMENT_NODE) return false;
        const auto name = nameOf(node);
        if (name == "title" && !found.title) found.title = node;
        if (name == "h1" && !found.heading) found.heading = node;
        const bool main = name == "main" || name == "article" || attribute(node, "role") == "main";
        if (main && !found.main) found.main = node;
        return true;
      },
      [](const xmlNode*) {});
  return found;
}

std::string contentOf(const xmlNode* node) {
  if (!node) return {};
  xmlChar* content = xmlNodeGetContent(node);
  std::string out = squeezed(content ? reinterpret_cast<const char*>(content) : "");
  xmlFree(content);
  return text::prefix(out, longestTitle);
}

std::optional<std::string> charsetIn(std::string_view contentType) {
  const std::string lower = text::lower(contentType);
  const size_t at = lower.find("charset=");
  if (at == std::string::npos) return std::nullopt;
  std::string name = lower.substr(at + 8);
  name = text::trim(name.substr(0, name.find(';')));
  std::erase(name, '"');
  if (name.empty()) return std::nullopt;
  return name;
}

}  // namespace

ReadableText readableHtml(std::string_view html, std::string_view contentType) {
  auto charset = charsetIn(contentType);
  // Nothing said and nothing in the page: most of the web.
  if (!charset && !text::contains(text::lower(html.substr(0, 2048)), "charset") &&
      text::isValidUtf8(html.substr(0, html.size() - text::incompleteUtf8Tail(html)))) {
    charset = "utf-8";
  }
  const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
      htmlReadMemory(html.data(), int(html.size()), nullptr, charset ? charset->c_str() : nullptr,
                     HTML_PARSE_RECOVER | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING |
                         HTML_PARSE_NONET | HTML_PARSE_COMPACT),
      &xmlFreeDoc);
  const xmlNode* root = document ? xmlDocGetRootElement(document.get()) : nullptr;
  if (!root) return {};
  const Landmarks landmarks = landmarksOf(root);
  ReadableText out;
  out.title = contentOf(landmarks.title);
  if (out.title.empty()) out.title = contentOf(landmarks.heading);
  if (landmarks.main) out.blocks = blocksOf(landmarks.main);
  if (lengthOf(out.blocks) < leastMain) out.blocks = blocksOf(root);
  return out;
}

ReadableText readablePlain(std::string_view plain) {
  ReadableText out;
  for (const auto& block : text::split(
           text::replaceAll(std::string(plain.substr(0, mostText)), "\r\n", "\n"), "\n\n")) {
    const std::string squeezedBlock = squeezed(block);
    if (squeezedBlock.empty() || out.blocks.size() == mostBlocks) continue;
    out.blocks.push_back(squeezedBlock);
  }
  return out;
}

}  // namespace kestrin::research
