#pragma once

#include <gtest/gtest.h>

#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"
#include "research/research_service.h"
#include "research/research_view.h"

namespace kestrin::test {

using namespace std::chrono_literals;

/// An agent and a backend in virtual time, and everything that research needs.
struct ResearchWorld : SimulatedWorld {
  static constexpr const char* streamUrl = "127.0.0.1:8765/research/stream";
  static constexpr const char* saveUrl = "127.0.0.1:8780/research/save";
  static constexpr const char* historyUrl = "127.0.0.1:8780/research/history/*";

  explicit ResearchWorld(uint64_t seed = 1) : SimulatedWorld(seed) {
    logger.setSink([this](std::string_view line) { printed.emplace_back(line); });
    http.on("POST", saveUrl, ScriptedReply::json(Json::object({}), 201).after(20ms));
    historyHas({});
  }

  static std::string step(const std::string& type, const std::string& title) {
    return "data: " + Json::object({{"step_type", type}, {"title", title}}).dump() + "\n\n";
  }
  static std::string answer(const std::string& summary) {
    return "data: " + Json::object({{"summary", summary}, {"sources", Json::array()}}).dump() +
           "\n\n";
  }
  static Json session(const std::string& id, const std::string& query = "q",
                      const std::string& createdAt = "2026-03-01T10:00:00Z") {
    return ResearchSession{id,        query, "sum " + id, {{"t", "https://a.example", "s"}},
                           createdAt, "u"}
        .toJson();
  }
  static ScriptedReply stream(std::vector<std::string> events, Duration between = 100ms) {
    auto reply = ScriptedReply::events({});
    for (auto& each : events) reply.piece(between, std::move(each));
    return reply;
  }
  void historyHas(Json::Array sessions) {
    http.on("GET", historyUrl,
            ScriptedReply::json(Json::object({{"sessions", std::move(sessions)}})).after(20ms));
  }
  void onMain(std::function<void()> job, Duration after = 10s) {
    bool done = false;
    dispatch.mainQueue()->post([&] {
      job();
      done = true;
    });
    simulation->runFor(after);
    ASSERT_TRUE(done) << simulation->dump();
  }
  /// The body of the latest request there.
  Json sent(const std::string& where) const {
    const auto seen = http.requests(where);
    return seen.empty() ? Json() : Json::parse(seen.back().request.body).value_or(Json());
  }
  bool printedLine(const std::string& part) const {
    return text::contains(text::join(printed, "\n"), part);
  }

  std::vector<std::string> printed;
  Logger logger{dispatch, notifications};
  DeviceIdManager deviceId{files, settings, random};
  FirebaseAuthService auth{dispatch, http, files, logger, {"http://127.0.0.1:9099", "key"}};
  ResearchService service{dispatch, http,
                          logger,   deviceId,
                          auth,     {"", "", "http://127.0.0.1:8765", "http://127.0.0.1:8780"}};
  ResearchServices services{dispatch, random, logger, service, pasteboard, workspace};
};

}  // namespace kestrin::test
