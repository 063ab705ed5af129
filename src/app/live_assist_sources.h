#pragma once

#include "app/core_services.h"
#include "liveassist/live_assist.h"

namespace kestrin {

/// What Live Assist is made from; time, network and sound may differ from the platform's own.
inline LiveAssist::Sources liveAssistSources(CoreServices& core, Dispatch& dispatch, Http& http,
                                             Audio& audio) {
  Platform& platform = core.platform;
  return {.dispatch = dispatch,
          .http = http,
          .audio = audio,
          .files = platform.files,
          .random = platform.random,
          .settings = platform.settings,
          .pasteboard = platform.pasteboard,
          .logger = core.logger,
          .deviceId = core.deviceId,
          .geminiKey = core.geminiKey,
          .preferences = core.preferences,
          .profiles = core.behavioralProfile,
          .endpoints = core.endpoints};
}

}  // namespace kestrin
