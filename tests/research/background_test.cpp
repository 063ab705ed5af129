#include <gtest/gtest.h>

#include "research/background_research.h"
#include "research_world.h"

namespace kestrin::test {
namespace {

struct Job : ResearchWorld {
  explicit Job(uint64_t seed = 1) : ResearchWorld(seed) {
    http.on("POST", "127.0.0.1:8765/research/start",
            ScriptedReply::json(Json::object({{"research_id", "r 1"}})));
    answers(ScriptedReply::json(Json::object({{"status", "running"}})));
    onMain(
        [this] {
          research = std::make_unique<BackgroundResearch>(dispatch, service);
          research->onStatus = [this](const std::string& text, BackgroundResearch::Notice notice) {
            told += (notice == BackgroundResearch::Notice::failed ? "!" : "~") + text;
          };
          research->onBackgroundResearchComplete = [this](const std::string& id,
                                                          const std::string& query) {
            told += "=" + id + ":" + query;
          };
        },
        0s);
  }
  ~Job() {
    onMain([this] { research.reset(); }, 120s);
  }
  void answers(const ScriptedReply& reply) {
    http.on("GET", "127.0.0.1:8765/research/*/status", reply);
  }
  size_t polls(const std::string& id = "*") const {
    return http.requests("127.0.0.1:8765/research/" + id + "/status").size();
  }

  std::string told;
  std::unique_ptr<BackgroundResearch> research;
};

const std::string running = "~🔬 Researching in the background...";

TEST(BackgroundResearch, AJobIsPolledUntilItEnds) {
  Job job;
  job.onMain([&] { job.research->start("q"); }, 16s);
  EXPECT_EQ(job.sent("127.0.0.1:8765/research/start").dump(),
            R"({"query":"q","user_id":")" + job.deviceId.deviceId() + R"(","max_sources":5})");
  EXPECT_EQ(job.polls("r%201"), 3u);
  for (const auto& nothing : {ScriptedReply::body("<html>"), ScriptedReply::refused(),
                              ScriptedReply::json(Json::object({{"status", 7}}))}) {
    job.answers(nothing);
    job.simulation->runFor(5s);
  }
  EXPECT_EQ(job.told, running) << "whatever says nothing is a job that runs";
  job.answers(ScriptedReply::json(Json::object({{"status", "complete"}})));
  job.simulation->runFor(5s);
  EXPECT_EQ(job.told, running + "=r 1:Research");
  EXPECT_EQ(job.research->activeResearchJobId(), std::nullopt);
  const auto polls = job.polls();
  job.simulation->runFor(60s);
  EXPECT_EQ(job.polls(), polls);
}

TEST(BackgroundResearch, AJobThatFailsOrNeverStartsIsTold) {
  for (const auto& reply :
       {ScriptedReply::refused(), ScriptedReply::body("{}"), ScriptedReply::body("[", 500),
        ScriptedReply::json(Json::object({{"research_id", ""}}))}) {
    Job job;
    job.http.on("POST", "127.0.0.1:8765/research/start", reply);
    job.onMain([&] { job.research->start("q"); }, 20s);
    EXPECT_EQ(job.told, "!⚠️ Background research start failed");
    EXPECT_EQ(job.polls(), 0u);
  }
  Job job;
  job.answers(ScriptedReply::json(Json::object({{"status", "error"}})));
  job.onMain([&] { job.research->start("q"); }, 6s);
  EXPECT_EQ(job.told, running + "!⚠️ Research failed — try again");
}

/// A slow answer about an earlier job must not end the one that took its place.
TEST(BackgroundResearch, ANewerJobTakesThePlaceOfTheWatchedOne) {
  for (uint64_t seed = 1; seed <= 40; ++seed) {
    Job job(seed);
    const Json old = Json::object({{"status", seed % 2 ? "complete" : "error"}, {"query", "old"}});
    job.http.on("GET", "127.0.0.1:8765/research/old/status", ScriptedReply::json(old).after(3s));
    job.onMain([&] { job.research->watch("old"); }, 5100ms + 50ms * (seed % 40));
    job.onMain([&] { job.research->watch("new"); }, 4900ms);
    EXPECT_EQ(job.told, running + running) << "seed " << seed;
    job.answers(ScriptedReply::json(Json::object({{"status", "complete"}, {"query", "n"}})));
    job.simulation->runFor(1s);
    EXPECT_EQ(job.told, running + running + "=new:n") << "seed " << seed;
    EXPECT_EQ(job.polls("old"), 1u) << "an answer is waited for";
  }
}

}  // namespace
}  // namespace kestrin::test
