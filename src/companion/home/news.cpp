#include "companion/home/news.h"

#include <algorithm>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <memory>

#include "companion/research/readable_text.h"
#include "platform/http.h"
#include "platform/text/text.h"

namespace kestrin::home {
namespace {

constexpr size_t mostEntries = 50, longestTitle = 200, spokenItems = 5;

std::string_view nameOf(const xmlNode* node) {
  return node->name ? reinterpret_cast<const char*>(node->name) : "";
}

/// The text of the element, with markup and entities that feeds put into it read as a page.
std::string contentOf(const xmlNode* node) {
  xmlChar* content = xmlNodeGetContent(node);
  // A document that is mended while it is read may keep bytes that are no characters.
  const std::string raw =
      text::replaceInvalidUtf8(content ? reinterpret_cast<const char*>(content) : "");
  xmlFree(content);
  const bool marked = text::containsAny(raw, {"<", "&"});
  const std::string plain = marked ? text::join(research::readableHtml(raw, "").blocks, " ") : raw;
  return text::prefix(text::trim(text::replaceAll(plain, "\n", " ")), longestTitle);
}

const xmlNode* childOf(const xmlNode* node, std::string_view name) {
  for (const xmlNode* child = node->children; child; child = child->next) {
    if (child->type == XML_ELEMENT_NODE && nameOf(child) == name) return child;
  }
  return nullptr;
}

std::string textOf(const xmlNode* node, std::string_view name) {
  const xmlNode* child = childOf(node, name);
  return child ? contentOf(child) : "";
}

/// RSS has the address as text, Atom as an attribute.
std::string linkOf(const xmlNode* entry) {
  const xmlNode* link = childOf(entry, "link");
  if (!link) return {};
  xmlChar* reference = xmlGetProp(const_cast<xmlNode*>(link), BAD_CAST "href");
  std::string url = reference ? reinterpret_cast<const char*>(reference) : textOf(entry, "link");
  xmlFree(reference);
  url = text::trim(url);
  return isHttpUrl(url) ? url : "";
}

}  // namespace

std::vector<NewsItem> readFeed(std::string_view xml) {
  // No network, no entities of the document's own.
  const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
      xmlReadMemory(xml.data(), int(xml.size()), nullptr, nullptr,
                    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_RECOVER |
                        XML_PARSE_NOCDATA),
      &xmlFreeDoc);
  const xmlNode* root = document ? xmlDocGetRootElement(document.get()) : nullptr;
  if (!root) return {};
  const bool atom = nameOf(root) == "feed";
  const xmlNode* channel = atom ? root : childOf(root, "channel");
  if (!channel) return {};
  const std::string source = textOf(channel, "title");
  std::vector<NewsItem> items;
  // RSS 1.0 has its items beside the channel.
  for (const xmlNode* parent : {channel, root}) {
    for (const xmlNode* node = parent->children; node && items.size() < mostEntries;
         node = node->next) {
      if (node->type != XML_ELEMENT_NODE || nameOf(node) != (atom ? "entry" : "item")) continue;
      NewsItem item{textOf(node, "title"), source, linkOf(node)};
      if (!item.title.empty()) items.push_back(std::move(item));
    }
    if (!items.empty()) break;
  }
  return items;
}

std::vector<NewsItem> mixed(const std::vector<std::vector<NewsItem>>& feeds, size_t most) {
  size_t longest = 0;
  for (const auto& feed : feeds) longest = std::max(longest, feed.size());
  std::vector<NewsItem> out;
  for (size_t i = 0; i < longest; ++i) {
    for (const auto& feed : feeds) {
      if (i < feed.size() && out.size() < most) out.push_back(feed[i]);
    }
  }
  return out;
}

std::string spokenNews(const std::vector<NewsItem>& items) {
  std::string out = "Here are the latest headlines.";
  for (size_t i = 0; i < std::min(items.size(), spokenItems); ++i) {
    const std::string& title = items[i].title;
    out += " " + title + (text::contains(".!?", title.substr(title.size() - 1)) ? "" : ".");
  }
  return out;
}

}  // namespace kestrin::home
