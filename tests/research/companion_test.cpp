#include "companion/companion.h"

#include <gtest/gtest.h>

#include "platform/linux/curl_http.h"
#include "platform/simulated/simulated_files.h"
#include "platform/simulated/simulated_settings.h"
#include "platform/text/text.h"
#include "research/research_service.h"
#include "support/loopback_server.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

/// The application's client against the companion itself, which searches and reads on loopback.
struct CompanionWorld {
  explicit CompanionWorld(bool pagesMayBeRead = true) {
    CompanionOptions options;
    options.recogniserPort.reset();
    options.modelPort.reset();
    options.agentPort = 0;
    options.backendPort = 0;
    options.storePath = folder.file("store.sqlite");
    if (pagesMayBeRead)
      options.admitsPageAddress = [](std::string_view address) { return address == "127.0.0.1"; };
    const auto listening = companion.start(options, {});
    for (const auto& each : *listening) {
      const std::string url = "http://127.0.0.1:" + std::to_string(each.port);
      (each.service == "agent" ? endpoints.agent : endpoints.backend) = url;
    }
    service = std::make_unique<ResearchService>(*dispatch, *http, logger, deviceId, auth, endpoints,
                                                [this](Json& body) {
                                                  for (const auto& [key, value] : fields)
                                                    body.set(key, value);
                                                });
  }
  /// Runs the main queue until `done`.
  void until(const std::function<bool()>& done) { EXPECT_TRUE(eventually(*dispatch, done)); }
  struct Answer {
    std::string steps, summary, error;
    std::vector<ResearchSource> sources;
  };
  Answer ask(const std::string& query, const std::string& context = "") {
    Answer answer;
    std::atomic<bool> ended = false;
    const auto delegate = std::make_shared<ResearchStreamDelegate>(
        [&](const Json& event) { answer.steps += event.stringAt("step_type", "") + " "; },
        [&](const std::string& summary, const std::vector<ResearchSource>& sources) {
          answer.summary = summary;
          answer.sources = sources;
          ended = true;
        },
        [&](const std::string& error) {
          answer.error = error;
          ended = true;
        });
    const auto stream = service->stream(query, context, delegate);
    until([&] { return ended.load(); });
    return answer;
  }

  std::atomic<bool> searchFails = false;
  LoopbackServer web{[this](LoopbackServer::Peer& peer) {
    while (const auto request = peer.request()) {
      const std::string path = request->substr(4, request->find(' ', 4) - 4);
      if (path.starts_with("/search?")) {
        if (searchFails) {
          peer.send("HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n");
          continue;
        }
        Json hits = Json::array();
        for (const char* page : {"/lake", "/lake#depth", "/broken", "/fish"}) {
          hits.push(Json::object(
              {{"title", page}, {"url", web.url(page)}, {"content", "The lake of trout."}}));
        }
        hits.push(Json::object({{"title", "local"}, {"url", "file:///etc/passwd"}}));
        peer.reply(Json::object({{"results", hits}}).dump());
      } else if (path == "/lake") {
        peer.reply("<title>Lake</title><p>The lake is forty metres deep at its northern end.",
                   "Content-Type: text/html\r\n");
      } else if (path == "/fish") {
        peer.reply("<p>Trout live in the deep lake and in the river.",
                   "Content-Type: text/html\r\n");
      } else {
        return peer.reset();
      }
    }
  }};
  ScratchFolder folder;
  const std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  const std::unique_ptr<Http> http = makeCurlHttp(*dispatch);
  Companion companion{*dispatch, *http, [](const std::string&) {}};
  Endpoints endpoints;
  NotificationCenter notifications;
  Logger logger{*dispatch, notifications};
  SimulatedFiles files{dispatch->clock()};
  SimulatedSettings settings;
  LinuxRandom random;
  DeviceIdManager deviceId{files, settings, random};
  FirebaseAuthService auth{*dispatch, *http, files, logger, {"http://127.0.0.1:9", "key"}};
  std::map<std::string, std::string> fields;
  std::unique_ptr<ResearchService> service;
};

TEST(ResearchCompanion, SearchesReadsAndNamesItsSources) {
  CompanionWorld world;
  world.fields["search_url"] = world.web.url("");
  const auto answer = world.ask("How deep is the lake?");
  EXPECT_EQ(answer.error, "");
  EXPECT_EQ(answer.steps,
            "starting searching searching reading reading reading analyzing summarizing  ");
  ASSERT_EQ(answer.sources.size(), 3u) << "one page once";
  EXPECT_NE(answer.summary.find("forty metres deep at its northern end. \\[1\\]"),
            std::string::npos)
      << answer.summary;
  EXPECT_EQ(answer.sources[1].snippet, "The lake of trout.") << "a broken page costs its text";
  world.searchFails = true;
  EXPECT_NE(world.ask("How deep is the lake?").summary.find("status 403"), std::string::npos);
}

TEST(ResearchCompanion, ThePagesOfThisMachineAreNotForIt) {
  CompanionWorld world(false);
  world.fields["search_url"] = world.web.url("");
  const auto answer = world.ask("How deep is the lake?");
  EXPECT_EQ(answer.summary.find("forty"), std::string::npos) << answer.summary;
  EXPECT_EQ(world.web.accepted(), 1) << "the search alone";
}

TEST(ResearchCompanion, WithoutAServiceItSearchesWhatItKeepsAndSaysSo) {
  CompanionWorld world;
  std::optional<Status> saved;
  world.service->saveResearchSession(
      {"s1", "lake depth", "The lake is forty metres deep.", {}, "", ""},
      [&](const Status& status) { saved = status; });
  world.until([&] { return saved.has_value(); });
  ASSERT_TRUE(*saved) << saved->error().description;
  const auto answer = world.ask("How deep is the lake?");
  EXPECT_NE(answer.summary.find("No search service is set up"), std::string::npos);
  EXPECT_NE(answer.summary.find("forty metres deep"), std::string::npos);
  ASSERT_EQ(answer.sources.size(), 1u);
  EXPECT_EQ(answer.sources[0].title.substr(0, 12), "Research of ");

  std::optional<Result<std::string>> job;
  world.service->startJob("lake", [&](const Result<std::string>& id) { job = id; });
  world.until([&] { return job.has_value(); });
  ASSERT_TRUE(*job);
  ResearchJobStatus status;
  world.until([&] {
    std::optional<ResearchJobStatus> told;
    world.service->jobStatus(**job, [&](const ResearchJobStatus& now) { told = now; });
    world.until([&] { return told.has_value(); });
    status = *told;
    return status.state != ResearchJobStatus::State::running;
  });
  EXPECT_EQ(status.state, ResearchJobStatus::State::complete);
  EXPECT_EQ(status.query, "lake");
  const auto history = [&] {
    std::optional<Result<std::vector<ResearchSession>>> loaded;
    world.service->loadResearchHistory([&](const auto& sessions) { loaded = sessions; });
    world.until([&] { return loaded.has_value(); });
    return loaded->value_or(std::vector<ResearchSession>{});
  };
  EXPECT_EQ(history().size(), 2u) << "the job's answer is kept";
  bool deleted = false;
  world.service->deleteSession("s1", [&](const Status&) { deleted = true; });
  world.until([&] { return deleted; });
  ASSERT_EQ(history().size(), 1u);
  EXPECT_EQ(history()[0].id, **job);
}

}  // namespace
}  // namespace kestrin::test
