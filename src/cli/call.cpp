#include <iostream>

#include "app/core_services.h"
#include "calls/call_service.h"
#include "calls/presence_service.h"
#include "cli/commands.h"
#include "cli/printable.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

int refused(const Error& error) {
  std::cerr << "kestrin: " << printable(error.description) << std::endl;
  return failed;
}

/// The running application calls; this only tells it.
int tellApplication(const std::string& what) {
  const auto sent = LinuxControlBus().call(what);
  return sent ? done : refused(sent.error());
}

void print(const CallRecord& call, bool json) {
  if (json) {
    std::cout << Json::object({{"roomName", call.roomName},
                               {"with", call.displayName()},
                               {"direction", call.direction},
                               {"status", call.status},
                               {"createdAt", call.createdAt},
                               {"duration", call.duration.value_or(0)},
                               {"summary", call.summary.value_or("")}})
                     .dump()
              << "\n";
    return;
  }
  std::cout << printable(call.formattedDate() + "  " + call.direction + "  " + call.displayName() +
                         "  " + call.status + "  " + call.formattedDuration())
            << "\n";
  if (call.summary) std::cout << "    " << printable(*call.summary) << "\n";
}

void print(const OnlineUser& user, bool json) {
  if (json) {
    std::cout << Json::object({{"deviceId", user.deviceId}, {"name", user.displayName()}}).dump()
              << "\n";
    return;
  }
  std::cout << printable(user.displayName() + "  " + user.deviceId) << "\n";
}

}  // namespace

int call(const CallOptions& options) {
  const bool list = options.what == "list";
  if (!list && options.what != "online") return tellApplication(options.what);
  LinuxPlatform backends(
      [](const std::string& line) { std::cerr << "kestrin: " << printable(line) << "\n"; });
  Platform& platform = backends.platform();
  CoreServices core(platform, Endpoints::fromEnvironment());
  core.logger.setSink(
      [](std::string_view line) { std::cerr << printable(std::string(line)) << "\n"; });
  const auto end = [&] { backends.mainLoop().quit(done); };
  CallService calls(platform.dispatch, platform.http, platform.notifications, core.logger,
                    core.endpoints);
  PresenceService presence(platform.dispatch, platform.http, platform.settings, core.logger,
                           core.endpoints);
  calls.currentUserId = core.deviceId.deviceId();
  presence.deviceId = calls.currentUserId;
  if (list) {
    calls.fetchCallHistory([&](const std::vector<CallRecord>& records) {
      for (const CallRecord& record : records) print(record, options.json);
      if (records.empty() && !options.json) std::cout << "No calls yet\n";
      end();
    });
  } else {
    presence.fetchOnlineUsers([&](const std::vector<OnlineUser>& users) {
      for (const OnlineUser& user : users) print(user, options.json);
      if (users.empty() && !options.json) std::cout << "Nobody else is online\n";
      end();
    });
  }
  const int status = backends.mainLoop().run();
  backends.endJobs();
  return status;
}

}  // namespace kestrin::cli
