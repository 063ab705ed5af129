#pragma once

#include "app/core_services.h"
#include "calls/calls.h"

namespace kestrin {

/// What calls are made of in the application.
inline Calls::Sources callsSources(CoreServices& core, std::string mediaLibrary,
                                   std::function<LiveAssist&()> liveAssist) {
  Platform& platform = core.platform;
  return {.dispatch = platform.dispatch,
          .http = platform.http,
          .audio = platform.audio,
          .files = platform.files,
          .random = platform.random,
          .settings = platform.settings,
          .center = platform.notifications,
          .pasteboard = platform.pasteboard,
          .webPages = platform.webPages,
          .logger = core.logger,
          .deviceId = core.deviceId,
          .profiles = core.behavioralProfile,
          .asr = core.asr,
          .endpoints = core.endpoints,
          .mediaLibrary = std::move(mediaLibrary),
          .liveAssist = std::move(liveAssist)};
}

}  // namespace kestrin
