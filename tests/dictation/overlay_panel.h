#pragma once

#include <gtest/gtest.h>

#include "dictation/overlay_window.h"
#include "platform/simulated/simulated_world.h"

namespace kestrin {

using namespace std::chrono_literals;

/// The overlay's state over simulated ports.
struct Panel : SimulatedWorld {
  Panel() {
    SimulatedElement field;
    field.path = "/text";
    desktop.addApplication({41, "notes", "Notes", "gtk", {{41, "Notes", {field}, "/text", {}, 0}}});
    overlay.setupStreamingRequestsObserver();
    overlay.onChange = [this] { ++changes; };
  }
  ~Panel() { simulation->runFor(60s); }

  std::string request() {
    std::string id;
    dispatch.globalQueue()->post(
        [&] { id = manager->createRequest(manager->captureCursorContext())->id(); });
    EXPECT_TRUE(simulation->runUntil([&] { return !id.empty(); }, 10s));
    simulation->runReady();
    return id;
  }
  void onMain(std::function<void()> job) {
    dispatch.mainQueue()->post(std::move(job));
    simulation->runReady();
  }

  Logger logger{dispatch, notifications};
  UndeliveredStore undelivered;
  std::shared_ptr<StreamingRequestManager> manager = std::make_shared<StreamingRequestManager>(
      InsertionPorts::from(platform), logger, undelivered);
  OverlayWindow overlay{dispatch, logger, manager, undelivered};
  int changes = 0;
};

}  // namespace kestrin
