#pragma once

#include <memory>

#include "platform/dispatch/simulation.h"
#include "platform/platform.h"
#include "platform/simulated/fault_plan.h"
#include "platform/simulated/simulated_accessibility.h"
#include "platform/simulated/simulated_audio.h"
#include "platform/simulated/simulated_browser.h"
#include "platform/simulated/simulated_desktop.h"
#include "platform/simulated/simulated_files.h"
#include "platform/simulated/simulated_http.h"
#include "platform/simulated/simulated_input.h"
#include "platform/simulated/simulated_pasteboard.h"
#include "platform/simulated/simulated_processes.h"
#include "platform/simulated/simulated_settings.h"
#include "platform/simulated/simulated_speech.h"
#include "platform/simulated/simulated_system.h"
#include "platform/simulated/simulated_web_pages.h"
#include "platform/simulated/simulated_workspace.h"

namespace kestrin {

/// A whole machine in virtual time: every port, one clock, one plan of faults. What a test makes
/// first.
struct SimulatedWorld {
  explicit SimulatedWorld(uint64_t seed = 0) : simulation(Simulation::make(seed)) {}

  std::unique_ptr<Simulation> simulation;
  Dispatch& dispatch = *simulation;
  FaultPlan faults;
  SimulatedDesktop desktop{dispatch};
  SimulatedFiles files{dispatch.clock(), &faults};
  SimulatedRandom random{simulation->seed()};
  SimulatedSettings settings{&faults};
  SimulatedHttp http{dispatch, &faults, &files};
  NotificationCenter notifications;
  SimulatedProcesses processes{dispatch, &faults};
  SimulatedKeyMonitor keyMonitor{desktop, &faults};
  SimulatedInput input{dispatch, desktop, &faults};
  SimulatedAccessibility accessibility{dispatch, desktop, &faults};
  SimulatedWorkspace workspace{dispatch, desktop, &faults};
  SimulatedPasteboard pasteboard{dispatch, desktop, &faults};
  SimulatedAudio audio{dispatch, &faults};
  SimulatedBrowser browser{desktop, &faults};
  SimulatedSecretStore secrets{&faults};
  SimulatedUserNotifications userNotifications{&faults};
  SimulatedSystemControls controls{&faults};
  SimulatedLoginItem loginItem{&faults};
  SimulatedPlaceService place{dispatch.clock(), &faults};
  SimulatedSpeech speech{&faults};
  SimulatedCalendars calendars{&faults};
  SimulatedWebPages webPages{&faults};
  Platform platform{dispatch,          http,       files,      random,    settings,
                    notifications,     processes,  keyMonitor, input,     accessibility,
                    workspace,         pasteboard, audio,      browser,   secrets,
                    userNotifications, controls,   speech,     loginItem, place,
                    calendars,         webPages};
};

}  // namespace kestrin
