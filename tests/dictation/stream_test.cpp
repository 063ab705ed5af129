#include <gtest/gtest.h>

#include "dictation/agent_events.h"
#include "dictation/chunk_filter.h"
#include "dictation/sse_client.h"

namespace kestrin {
namespace {

/// All events of a stream whose bytes arrive in the given deliveries, one to a line.
std::string framed(const std::vector<std::string>& deliveries) {
  EventStreamFramer framer;
  std::string out;
  const auto collect = [&](std::string_view event) { out += std::string(event) + "\n"; };
  for (const std::string& bytes : deliveries) framer.receive(bytes, collect);
  framer.finish(collect);
  return out;
}

TEST(EventStream, OnlyDataLinesOfCompleteEventsAreHandedOn) {
  EXPECT_EQ(framed({"data: 1\n\ndata: 2\n\n"}), "1\n2\n");
  EXPECT_EQ(framed({"data: a\ndata: b\nevent: x\ndata:c\n: keep-alive\n\ndata: [DONE]\n\n"}),
            "a\nb\n");
  EXPECT_EQ(framed({"data: last, without a blank line"}), "last, without a blank line\n");

  EventStreamFramer framer;
  int events = 0;
  framer.receive("data: 1\n", [&](std::string_view) { ++events; });
  EXPECT_EQ(events, 0);
  framer.receive("\n", [&](std::string_view) { ++events; });
  EXPECT_EQ(events, 1);
}

TEST(EventStream, GivesTheSameEventsHoweverTheBytesAreCut) {
  const std::string whole = "data: héllo\n\n: x\n\ndata: 🎉 日本\n\ndata: [DONE]\n\n";
  for (size_t i = 0; i <= whole.size(); ++i) {
    for (size_t j = i; j <= whole.size(); ++j) {
      ASSERT_EQ(framed({whole.substr(0, i), whole.substr(i, j - i), whole.substr(j)}),
                "héllo\n🎉 日本\n")
          << i << " " << j;
    }
  }
}

TEST(EventStream, DropsOnlyTheDeliveryThatCannotBeText) {
  EXPECT_EQ(framed({"data: a\n\n", "data: \xff\n\n", "data: b\n\n"}), "a\nb\n");
  // A character that is never completed does not take the next delivery with it.
  EXPECT_EQ(framed({"data: a\n\n\xf0\x9f", "data: b\n\n"}), "a\nb\n");
  EventStreamFramer framer;
  framer.receive(std::string(EventStreamFramer::maxEventBytes + 1, 'x'), [](std::string_view) {});
  EXPECT_TRUE(framer.overflowed());
}

TEST(ChunkFilter, TakesOutTokensAndEndsTheTextAtAFooter) {
  struct Case {
    std::string chunk, kept;
    bool ends;
  };
  for (const Case& c : std::vector<Case>{{"Hello<|eot_id|>", "Hello", false},
                                         {"a||eot_id||b|ot_id|c", "a|bc", false},
                                         {"a\u200Bb\u200Cc\u200Dd\uFEFFe", "abcde", false},
                                         {"Best,\n---\nSent with care", "Best,", true},
                                         {"a\n--\nb", "a", true},
                                         {"a ---\nb", "a ", true},
                                         {"<|end|>x THIS Email Follows y", "x ", true},
                                         {"Sent from my phone", "", true},
                                         {"sent from my", "sent from my", false},
                                         {"---", "---", false},
                                         {"İ sent from my İ", "İ ", true}}) {
    ChunkFilter filter;
    EXPECT_EQ(filter.accept(c.chunk), c.kept) << c.chunk;
    EXPECT_EQ(filter.suppressed(), c.ends) << c.chunk;
    EXPECT_EQ(filter.accept("more"), c.ends ? "" : "more");
  }
}

TEST(StopMarker, IsSoughtInItsOwnOrder) {
  const auto cut = [](std::string_view chunk) {
    const auto marker = findStopMarker(chunk);
    return marker
               ? std::string(chunk.substr(0, marker->position)) + "|" + std::string(marker->logLine)
               : std::string("none");
  };
  const std::string suppressing = "🧹 Suppressing further chunks: found ";
  EXPECT_EQ(cut("intro\n--- footer"), "intro|" + suppressing + "compliance block delimiter (---)");
  EXPECT_EQ(cut("a ---\nb, this email follows"),
            "a ---\nb, |" + suppressing + "meta line 'this email follows...'");
  EXPECT_EQ(cut("SENT FROM MY iPhone"),
            "|" + suppressing + "device footer 'sent from my ... device.'");
  EXPECT_EQ(cut("Hello\n--\nJohn"), "Hello|" + suppressing + "divider (--).");
  EXPECT_EQ(cut("Done ---\nmore"), "Done |" + suppressing + "divider (---\\n).");
  EXPECT_EQ(cut("---"), "none");
}

/// What the events of a stream did, in order.
struct Heard {
  std::string did;
  AgentEventReader reader{
      "auto",
      {[this](const std::string& text) { did += "chunk(" + text + ")"; },
       [this](const Bytes& audio) { did += "audio(" + audio + ")"; },
       [this](const std::string& id) { did += "research(" + id + ")"; },
       [this](const OutputRoute& route) { did += "route" + route.toJson().dump(); },
       [this](const Json& action) { did += "action" + action.dump(); }}};

  std::string after(std::string_view event) {
    did.clear();
    reader.receive(event);
    return did;
  }
};

TEST(AgentEvents, KeysSayWhatAnEventIs) {
  Heard heard;
  EXPECT_EQ(heard.after(R"({"chunk": "x", "mode": "email"})"), "chunk(x)");
  EXPECT_EQ(heard.reader.mode(), "auto");
  EXPECT_EQ(heard.after(R"({"chunk": 5, "action": {"type": "a"}, "audio": "aGk="})"),
            R"(audio(hi)action{"type":"a"})");
  EXPECT_EQ(heard.after(R"({"audio": "not base64!"})"), "");
  EXPECT_EQ(heard.after(R"({"research_started": false, "research_id": "r1"})"), "research(r1)");
  EXPECT_EQ(heard.after(R"({"research_started": true})"), "");
  EXPECT_EQ(
      heard.after(R"({"output_route": {}})"),
      R"(route{"channel":"paste","suppress_paste":false,"auto_speak":false,"show_in_panel":false})");
  heard.after(R"({"auto_detected": true})");
  EXPECT_FALSE(heard.reader.autoDetected());
  heard.after(R"({"mode": "email", "auto_detected": true})");
  EXPECT_TRUE(heard.reader.autoDetected());
  EXPECT_EQ(heard.reader.mode(), "email");
}

TEST(AgentEvents, WhatIsNotWholeJsonIsIgnored) {
  Heard heard;
  for (const char* broken : {"", "[1]", "\"x\"", R"({"chunk":"x")", R"({"chunk":"x",})",
                             R"({"chunk":"x"} trailing)", R"({"chunk":"\ud800"} x)"}) {
    EXPECT_EQ(heard.after(broken), "") << broken;
  }
  EXPECT_EQ(heard.after(R"({"chunk":"\u00e9\n\"q\" \ud83c\udf89"})"), "chunk(é\n\"q\" 🎉)");
  EXPECT_EQ(heard.after(R"({ "chunk" : "spaced" })"), "chunk(spaced)");
  EXPECT_EQ(heard.after(R"({"chunk":"first","chunk":"last"})"), "chunk(last)");
}

TEST(AgentEvents, ACommandIsNeverTyped) {
  Heard heard;
  EXPECT_EQ(heard.after(R"({"chunk":"typed "})"), "chunk(typed )");
  heard.after(R"({"mode":"command"})");
  EXPECT_EQ(heard.after(R"({"chunk":"[ACTION:mute]"})"), "");
  EXPECT_EQ(heard.reader.fullText(), "typed [ACTION:mute]");
}

}  // namespace
}  // namespace kestrin
