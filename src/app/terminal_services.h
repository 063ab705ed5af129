#pragma once

#include "app/core_services.h"
#include "diagnostics/terminal/terminal_services.h"

namespace kestrin {

/// What the diagnostic terminal looks at.
inline TerminalServices terminalServices(CoreServices& core) {
  Platform& platform = core.platform;
  return {.dispatch = platform.dispatch,
          .http = platform.http,
          .processes = platform.processes,
          .settings = platform.settings,
          .logger = core.logger,
          .deviceId = core.deviceId,
          .auth = core.auth,
          .preferences = core.preferences,
          .endpoints = core.endpoints,
          .version = KESTRIN_VERSION,
          .documentsFolder = platform.files.dataFolder(),
          .calendar = {},
          .isGoogleConnected = {}};
}

}  // namespace kestrin
