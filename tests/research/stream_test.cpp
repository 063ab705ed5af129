#include <gtest/gtest.h>

#include "research/research_run.h"
#include "research/research_stream_delegate.h"
#include "research_world.h"

namespace kestrin::test {
namespace {

/// A reader and what it told, as one text.
struct Reader {
  std::string told;
  ResearchStreamDelegate delegate{
      [this](const Json& event) { told += "e" + event.stringAt("title", "?") + " "; },
      [this](const std::string& summary, const std::vector<ResearchSource>& sources) {
        told += "=" + summary;
        for (const auto& each : sources) told += "|" + each.title + each.url + each.snippet;
      },
      [this](const std::string& text) { told += "!" + text; }};

  std::string read(const std::vector<std::string>& deliveries,
                   const std::optional<Error>& error = std::nullopt) {
    for (const auto& each : deliveries) delegate.didReceive(each);
    delegate.didComplete(error);
    return told;
  }
};

std::string read(const std::vector<std::string>& deliveries,
                 const std::optional<Error>& error = std::nullopt) {
  return Reader().read(deliveries, error);
}

const std::string nothing = "!No results received from research";

TEST(ResearchStream, LinesAreEventsHoweverTheyAreCut) {
  const std::string whole =
      ": comment\r\n\ndata: {\"title\":\"é1\"}\r\n\ndata: {\"title\":\"2\",\"summary\":\"s\"}\n"
      "event: x\ndata:{\"title\":\"no blank\"}\ndata: {\"title\":\"3\"}\n";
  const std::string expected = "eé1 e2 e3 =s";
  EXPECT_EQ(read({whole}), expected);
  for (size_t at = 0; at < whole.size(); ++at) {
    EXPECT_EQ(read({whole.substr(0, at), whole.substr(at)}), expected) << "cut at " << at;
  }
  Reader reader;
  reader.delegate.didReceive("data: {\"title\":\"late\"}");
  EXPECT_EQ(reader.told, "") << "before its line feed";
  reader.delegate.didReceive("\n");
  EXPECT_EQ(reader.told, "elate ");
  EXPECT_EQ(read({"data: {\"summary\":\"s\"}"}), nothing) << "the last line has no end";
}

TEST(ResearchStream, WhatIsBrokenCostsItselfOnly) {
  const std::string good = "data: {\"summary\":\"s\"}\n";
  EXPECT_EQ(read({good, "data: {\"title\":\n", "data: [1]\ndata: \"x\"\ndata: 7\n"}), "e? =s");
  EXPECT_EQ(read({"data: {\"title\":\"\xff\"}\n", good}), "e? =s") << "a delivery that is no text";
  EXPECT_EQ(read({good, "data: {\"summary\":7,\"sources\":\"none\"}\n"}), "e? e? =s");
  EXPECT_EQ(read({"data: {\"summary\":\"\"}\n"}), "e? " + nothing);
  Reader endless;
  const std::string block(1 << 20, 'x');
  int taken = 0;
  while (taken < 40 && endless.delegate.didReceive(block)) ++taken;
  EXPECT_EQ(taken, 16);
  endless.delegate.didComplete(Error{"HTTP", httpCancelled, "cancelled"});
  EXPECT_EQ(endless.told, "!The research service sent a line without an end");
}

TEST(ResearchStream, TheLatestAnswerAndSourcesCount) {
  const std::string both =
      R"(data: {"summary":"a","sources":[{"title":"T","url":"U","snippet":"S"},)"
      R"({"title":"T","url":"U"},7]})"
      "\n";
  EXPECT_EQ(read({both}), "e? =a|TUS") << "a source without a snippet is none";
  EXPECT_EQ(read({both, "data: {\"sources\":[]}\n"}), "e? e? =a");
  EXPECT_EQ(read({both, "data: {\"summary\":\"b\"}\n"}), "e? e? =b|TUS");
}

TEST(ResearchStream, TheEndSaysWhatBecameOfIt) {
  const std::string good = "data: {\"summary\":\"s\"}\n";
  EXPECT_EQ(read({"data: {\"title\":\"1\"}\n"}), "e1 " + nothing);
  EXPECT_EQ(read({good}, Error{"HTTP", httpConnectionLost, "lost"}), "e? !lost")
      << "an answer that may not be whole is no answer";
  EXPECT_EQ(read({good}, Error{"HTTP", httpCancelled, "cancelled"}), "e? ");
}

TEST(ResearchRun, EachFaultOfTheAgentEndsInItsText) {
  using End = ScriptedReply::End;
  const std::string good = ResearchWorld::answer("s");
  const struct {
    ScriptedReply reply;
    std::string end;
    Duration least;
  } cases[] = {
      {ResearchWorld::stream({good}), "=s", 0s},
      {ScriptedReply::refused(), "!Could not connect", 0s},
      {ScriptedReply::lost(), "!", 0s},
      {ResearchWorld::stream({good}).ending(End::lost), "!", 0s},
      {ScriptedReply::never(), "!The request timed out", 180s},
      {ResearchWorld::stream({good}).ending(End::never), "!The request timed out", 180s},
      {ResearchWorld::stream({good, good, good}, 120s), "!The request timed out", 300s},
      {ScriptedReply::body("{\"error\":\"no\"}", 500), nothing, 0s},
  };
  for (const auto& each : cases) {
    ResearchWorld world;
    world.http.on("POST", ResearchWorld::streamUrl, each.reply);
    std::string told;
    Duration at{};
    std::unique_ptr<ResearchRun> run;
    const auto ended = [&](const std::string& how) {
      EXPECT_TRUE(world.dispatch.mainQueue()->isCurrent());
      told += how;
      at = world.simulation->elapsed();
    };
    world.onMain(
        [&] {
          run = std::make_unique<ResearchRun>(
              world.dispatch, world.service, "q", "",
              ResearchRun::Callbacks{[](const Json&) {},
                                     [&](const std::string& s, auto&) { ended("=" + s); },
                                     [&](const std::string& text) { ended("!" + text); }});
        },
        400s);
    EXPECT_EQ(told.substr(0, each.end.size()), each.end);
    EXPECT_GT(told.size(), 1u);
    EXPECT_GE(at, each.least);
    EXPECT_LT(at, each.least + 2s);
    EXPECT_EQ(world.logger.getEntries("answered with status 500").size(),
              each.reply.status == 500 ? 1u : 0u);
    world.onMain([&] { run.reset(); });
  }
}

}  // namespace
}  // namespace kestrin::test
