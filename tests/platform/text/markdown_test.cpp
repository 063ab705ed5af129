#include "platform/text/markdown.h"

#include <gtest/gtest.h>

#include "platform/text/text.h"

namespace kestrin::test {
namespace {

using markdown::Block;

/// The tree as one text: "h2(x) l1[i[p(a *b*)]]".
std::string shown(const std::vector<Block>& blocks) {
  std::vector<std::string> out;
  for (const Block& block : blocks) {
    std::string each(1, "phlicqrtow"[int(block.kind)]);
    if (block.kind == Block::Kind::heading) each += std::to_string(block.level);
    if (block.ordered) each += std::to_string(block.start);
    each += block.language;
    if (!block.spans.empty()) {
      each += "(";
      for (const auto& span : block.spans) {
        const std::string mark = std::string(span.strong ? "*" : "") + (span.emphasis ? "/" : "") +
                                 (span.code ? "`" : "") + (span.struck ? "~" : "");
        each += mark + span.text + mark;
        if (!span.link.empty()) each += "<" + span.link + ">";
      }
      each += ")";
    }
    if (!block.children.empty()) each += "[" + shown(block.children) + "]";
    out.push_back(each);
  }
  return text::join(out, " ");
}
std::string read(std::string_view markdown) { return shown(markdown::parse(markdown)); }

TEST(Markdown, AnAnswerIsReadAsBlocks) {
  EXPECT_EQ(read("# One\n\ntwo **bold *both*** `code`\nsame line  \nbroken\n\n---"),
            "h1(One) p(two *bold **/both*/ `code` same line\nbroken) r");
  EXPECT_EQ(read("- a\n- b\n  1. c\n\n     d\n\n> q\n\n3. x"),
            "l[i[p(a)] i[p(b) l1[i[p(c) p(d)]]]] q[p(q)] l3[i[p(x)]]");
  EXPECT_EQ(read("```py\nif x:\n  *y*\n```\n\n    indented"), "cpy(if x:\n  *y*) c(indented)");
  EXPECT_EQ(read("| a | b |\n|---|---|\n| 1 | ~~2~~ |"), "t[o[w(a) w(b)] o[w(1) w(~2~)]]");
  EXPECT_EQ(read(""), "");
}

TEST(Markdown, OnlyWebAddressesBecomeLinks) {
  EXPECT_EQ(read("[a](https://x.example/?b&amp;c) <http://y.example> https://z.example/ end"),
            "p(a<https://x.example/?b&c> http://y.example<http://y.example> "
            "https://z.example/<https://z.example/> end)");
  EXPECT_EQ(read("[a](javascript:x) [b](file:///etc) [c](JaVaScRiPt:x) [d](&#106;avascript:x) "
                 "[e](data:text/html,x) [f](/local)"),
            "p(a b c d e f)");
  EXPECT_EQ(read("[![pic](http://i.example/p.png)](https://l.example) ![alone](file:///p)"),
            "p(pic<https://l.example> alone)");
}

TEST(Markdown, WhatCouldRunIsShownAsText) {
  EXPECT_EQ(read("<script>x</script>\n\na <b onclick='y'>z</b>"),
            "p(<script>x</script>) p(a <b onclick='y'>z</b>)");
  EXPECT_EQ(read("&lt;b&gt; &amp; &#x27; &#8364; &#0; &#xD800; &unknown; &mdash;"),
            "p(<b> & ' € \uFFFD \uFFFD &unknown; —)");
  EXPECT_EQ(read(std::string_view("a\0b \xff", 5)), "p(a\uFFFDb \uFFFD)");
}

size_t depth(const std::vector<Block>& blocks) {
  size_t deepest = 0;
  for (const Block& block : blocks) deepest = std::max(deepest, 1 + depth(block.children));
  return deepest;
}

TEST(Markdown, ReadsPlainlyInATerminal) {
  EXPECT_EQ(markdown::plainText(markdown::parse(
                "# Lake\n\nIt is **deep** \\[1\\], see [the map](https://m.example) or "
                "https://a.example.\n\n- one\n- two\n  1. inner\n\n> said\n\n```\na  b\n```\n\n"
                "|h|i|\n|---|---|\n|1|2|\n")),
            "Lake\n\nIt is deep [1], see the map (https://m.example) or https://a.example.\n\n"
            "- one\n- two\n  1. inner\n\n> said\n\n    a  b\n\nh | i\n1 | 2");
}

TEST(Markdown, HostileTextsStayBounded) {
  for (const size_t quotes : {30u, 10'000u, 100'000u}) {
    const auto nested = markdown::parse(std::string(quotes, '>') + " deep");
    EXPECT_LE(depth(nested), markdown::maxDepth + 1);
    EXPECT_NE(shown(nested).find("deep"), std::string::npos) << quotes;
  }
  std::string list;
  for (int i = 0; i < 60; ++i)
    list += std::string(size_t(2 * i), ' ') + "- i" + std::to_string(i) + "\n";
  EXPECT_NE(read(list).find("i59"), std::string::npos) << "nothing is lost below the limit";
  // A table's cells grow as the product of its sides.
  std::string table;
  for (const char* row : {"|a", "|---"}) {
    for (int i = 0; i < 1000; ++i) table += row;
    table += "|\n";
  }
  for (int i = 0; i < 1000; ++i) table += "|x\n";
  const auto flat = markdown::parse(table);
  ASSERT_EQ(flat.size(), 1u);
  EXPECT_EQ(flat[0].kind, Block::Kind::paragraph);
  EXPECT_TRUE(flat[0].spans.at(0).text == table);
}

}  // namespace
}  // namespace kestrin::test
