#include "platform/linux/desktop_notifications.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "platform/linux/application_id.h"

namespace kestrin {
namespace {

constexpr auto deadline = std::chrono::seconds(2);

dbus::Target server() {
  return {"org.freedesktop.Notifications", "/org/freedesktop/Notifications",
          "org.freedesktop.Notifications"};
}

/// A text that a server which reads markup shows as it stands.
std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace

/// Who hears of which notification. Its lock is never held during a call on the bus: the thread
/// that brings the answer may be waiting for it with a signal.
struct DesktopNotifications::Handlers {
  using Handler = std::function<void(const std::string&)>;

  void showing() {
    const std::lock_guard lock(mutex);
    early.clear();
    isShowing = true;
  }
  /// The id is known now, or there is none. The user may have answered already.
  void shown(std::optional<uint32_t> id, Handler handler) {
    std::optional<std::string> answer;
    {
      const std::lock_guard lock(mutex);
      isShowing = false;
      if (!id || !handler) return;
      const auto event = std::find_if(early.begin(), early.end(),
                                      [&](const auto& each) { return each.first == *id; });
      if (event == early.end()) {
        byId[*id] = std::move(handler);
        return;
      }
      answer = event->second;
    }
    if (answer) handler(*answer);
  }
  /// `action`: nothing when the notification was closed.
  void ended(uint32_t id, const std::optional<std::string>& action) {
    Handler handler;
    {
      const std::lock_guard lock(mutex);
      const auto found = byId.find(id);
      if (found == byId.end()) {
        if (isShowing) early.emplace_back(id, action);
        return;
      }
      handler = std::move(found->second);
      byId.erase(found);
    }
    if (action) handler(*action);
  }

  std::mutex mutex;
  std::map<uint32_t, Handler> byId;
  bool isShowing = false;
  /// What came while a notification was being shown, of ids that were not known yet.
  std::vector<std::pair<uint32_t, std::optional<std::string>>> early;
};

DesktopNotifications::DesktopNotifications(std::string busAddress)
    : busAddress_(std::move(busAddress)), handlers_(std::make_shared<Handlers>()) {}

DesktopNotifications::~DesktopNotifications() {
  // Signals end before the connection that they come from.
  actions_.reset();
  closings_.reset();
}

Status DesktopNotifications::connect() {
  if (bus_ && !bus_->isLost()) return {};
  actions_.reset();
  closings_.reset();
  auto opened = dbus::Connection::session(busAddress_);
  if (!opened) return fail("UserNotifications", opened.error().code, opened.error().description);
  bus_ = std::move(*opened);
  const std::string rule = "type='signal',interface='org.freedesktop.Notifications',member='";
  auto invoked =
      bus_->subscribe(rule + "ActionInvoked'", [handlers = handlers_](sdbus::Message& message) {
        const auto action = dbus::Connection::read<std::tuple<uint32_t, std::string>>(message);
        if (action) handlers->ended(std::get<0>(*action), std::get<1>(*action));
      });
  auto closed = bus_->subscribe(
      rule + "NotificationClosed'", [handlers = handlers_](sdbus::Message& message) {
        const auto closing = dbus::Connection::read<std::tuple<uint32_t, uint32_t>>(message);
        if (closing) handlers->ended(std::get<0>(*closing), std::nullopt);
      });
  if (!invoked) return fail(invoked.error());
  if (!closed) return fail(closed.error());
  actions_ = std::move(*invoked);
  closings_ = std::move(*closed);
  return {};
}

/// Asked each time it matters: another server may have taken the name.
bool DesktopNotifications::readsAsMarkup(const std::string& body) {
  if (body.find_first_of("&<>") == body.npos) return false;
  const auto can = bus_->call<std::vector<std::string>>(server(), "GetCapabilities", deadline);
  return !can || std::find(can->begin(), can->end(), "body-markup") != can->end();
}

Result<uint32_t> DesktopNotifications::show(const UserNotification& notification,
                                            std::function<void(const std::string&)> onAction) {
  std::lock_guard lock(mutex_);
  if (auto connected = connect(); !connected) return fail(connected.error());
  const auto body =
      readsAsMarkup(notification.body) ? escaped(notification.body) : notification.body;
  std::vector<std::string> actions;
  for (const auto& [key, label] : notification.actions) {
    actions.push_back(key);
    actions.push_back(label);
  }
  std::map<std::string, sdbus::Variant> hints{
      {"desktop-entry", sdbus::Variant(std::string(desktopApplicationId))}};
  if (!notification.category.empty())
    hints.emplace("category", sdbus::Variant(notification.category));
  if (notification.sound) {
    hints.emplace("sound-name", sdbus::Variant(std::string("message-new-instant")));
  } else {
    hints.emplace("suppress-sound", sdbus::Variant(true));
  }
  handlers_->showing();
  auto id = bus_->call<uint32_t>(server(), "Notify", deadline, std::string("Kestrin"), uint32_t{0},
                                 std::string(desktopApplicationId), notification.title, body,
                                 actions, hints, int32_t{-1});
  handlers_->shown(id ? std::optional(*id) : std::nullopt, std::move(onAction));
  if (!id) return fail("UserNotifications", id.error().code, id.error().description);
  return *id;
}

void DesktopNotifications::withdraw(uint32_t id) {
  handlers_->ended(id, std::nullopt);
  std::lock_guard lock(mutex_);
  if (bus_ && !bus_->isLost()) bus_->call<void>(server(), "CloseNotification", deadline, id);
}

}  // namespace kestrin
