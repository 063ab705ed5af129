#include "platform/linux/screenshot_portal.h"

#include <condition_variable>
#include <gio/gio.h>
#include <map>
#include <mutex>

namespace kestrin {
namespace {

const char* const domain = "ScreenshotPortal";
const std::string portalName = "org.freedesktop.portal.Desktop";
const std::string portalPath = "/org/freedesktop/portal/desktop";

constexpr std::chrono::seconds callLimit(4);
/// The user may be asked first.
constexpr std::chrono::seconds answerLimit(60);

using Options = std::map<std::string, sdbus::Variant>;
using Answer = std::tuple<uint32_t, Options>;

/// The answers by the path of their request: one may come before its path is known.
struct Answers {
  std::mutex mutex;
  std::condition_variable changed;
  std::map<std::string, Answer> byRequest;
};

std::string pathOf(const std::string& uri) {
  const std::unique_ptr<char, decltype(&g_free)> path(
      g_filename_from_uri(uri.c_str(), nullptr, nullptr), g_free);
  return path ? path.get() : "";
}

}  // namespace

Result<std::string> takePortalScreenshot(dbus::Connection& bus) {
  const auto answers = std::make_shared<Answers>();
  auto listening =
      bus.subscribe("type='signal',sender='" + portalName +
                        "',interface='org.freedesktop.portal.Request',member='Response'",
                    [answers](sdbus::Message& message) {
                      auto answer = dbus::Connection::read<Answer>(message);
                      if (!answer) return;
                      const std::lock_guard lock(answers->mutex);
                      answers->byRequest[message.getPath()] = std::move(*answer);
                      answers->changed.notify_all();
                    });
  if (!listening) return fail(domain, noScreenshotPortal, listening.error().description);
  const auto request =
      bus.call<sdbus::ObjectPath>({portalName, portalPath, "org.freedesktop.portal.Screenshot"},
                                  "Screenshot", callLimit, std::string(),
                                  Options{{"handle_token", sdbus::Variant("kestrin_screenshot")},
                                          {"interactive", sdbus::Variant(false)}});
  if (!request) return fail(domain, noScreenshotPortal, request.error().description);

  std::unique_lock lock(answers->mutex);
  if (!answers->changed.wait_for(lock, answerLimit,
                                 [&] { return answers->byRequest.count(*request) > 0; })) {
    return fail(domain, screenshotDeclined, "The desktop has not answered within a minute");
  }
  const auto& [code, results] = answers->byRequest.at(*request);
  if (code == 1) return fail(domain, screenshotDeclined, "The screenshot was declined");
  const auto uri = results.find("uri");
  const bool hasUri =
      code == 0 && uri != results.end() && uri->second.containsValueOfType<std::string>();
  const auto path = hasUri ? pathOf(uri->second.get<std::string>()) : "";
  if (path.empty()) return fail(domain, noScreenshotPortal, "The desktop made no screenshot");
  return path;
}

}  // namespace kestrin
