#include "platform/linux/portal_key_monitor.h"

#include <algorithm>

#include "platform/linux/application_id.h"
#include "platform/linux/key_names.h"

namespace kestrin {
namespace {

const char* const domain = "KeyMonitor";
const std::string shortcutId = "dictate";

const std::string portalName = "org.freedesktop.portal.Desktop";
const std::string portalPath = "/org/freedesktop/portal/desktop";
const std::string shortcutsInterface = "org.freedesktop.portal.GlobalShortcuts";
const std::string requestInterface = "org.freedesktop.portal.Request";
const std::string sessionInterface = "org.freedesktop.portal.Session";

constexpr std::chrono::seconds callLimit(2);
constexpr std::chrono::seconds firstRetryPause(2);
constexpr std::chrono::seconds longestRetryPause(120);
/// Nobody announces a bus that has gone.
constexpr std::chrono::seconds busCheckInterval(30);
constexpr Duration unlimited(-1);

using Shortcut = sdbus::Struct<std::string, std::map<std::string, sdbus::Variant>>;

dbus::Target shortcutsPortal() { return {portalName, portalPath, shortcutsInterface}; }

std::string textIn(const std::map<std::string, sdbus::Variant>& values, const std::string& key) {
  const auto found = values.find(key);
  if (found == values.end()) return {};
  if (found->second.containsValueOfType<sdbus::ObjectPath>())
    return found->second.get<sdbus::ObjectPath>();
  if (found->second.containsValueOfType<std::string>()) return found->second.get<std::string>();
  return {};
}

}  // namespace

PortalKeyMonitor::PortalKeyMonitor(std::string busAddress) : busAddress_(std::move(busAddress)) {}
PortalKeyMonitor::~PortalKeyMonitor() { stop(); }

std::vector<std::string> PortalKeyMonitor::availableKeys() {
  std::vector<std::string> names;
  for (const HoldKey& key : holdKeys()) names.emplace_back(key.name);
  return names;
}

Status PortalKeyMonitor::start(const std::string& key, std::function<void(KeyEdge)> onEdge) {
  stop();
  const auto known = holdKeyNamed(key);
  if (!known) return fail(domain, 3, "There is no key named \"" + key + "\" to hold");
  auto session = connect();
  if (!session) return fail(session.error());
  preferredTrigger_ = known->symbol;
  onEdge_ = std::move(onEdge);
  stopping_ = false;
  held_ = false;
  setBinding(fail(domain, 7, "The desktop has not yet said which key it will be"));
  thread_ = std::thread([this, s = std::move(*session)]() mutable { serve(std::move(s)); });
  return {};
}

void PortalKeyMonitor::stop() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
  onEdge_ = nullptr;
}

Status PortalKeyMonitor::binding() {
  const std::lock_guard lock(mutex_);
  return binding_;
}

std::string PortalKeyMonitor::trigger() {
  const std::lock_guard lock(mutex_);
  return trigger_;
}

Result<PortalKeyMonitor::Session> PortalKeyMonitor::connect() {
  Session session;
  auto bus = dbus::Connection::session(busAddress_);
  if (!bus) return fail(domain, 1, "There is no session bus: " + bus.error().description);
  session.bus = std::move(*bus);
  // Newer portals give no shortcuts to programs without a name, older ones do not know this call.
  // It must be the connection's first, and the name that of our desktop entry.
  (void)session.bus->call({portalName, portalPath, "org.freedesktop.host.portal.Registry"},
                          "Register", callLimit, std::string(desktopApplicationId), Options{});
  auto version = session.bus->property<uint32_t>(shortcutsPortal(), "version", callLimit);
  if (!version)
    return fail(domain, 6,
                "This desktop has no portal for global shortcuts; bind \"kestrin press\" and "
                "\"kestrin release\" to a key in its settings instead");
  auto owner = session.bus->call<std::string>(
      {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"}, "GetNameOwner",
      callLimit, portalName);
  if (!owner) return fail(domain, 1, owner.error().description);
  session.portal = *owner;
  {
    const std::lock_guard lock(mutex_);
    portal_ = session.portal;
    sessionHandle_.clear();
    sessionClosed_ = false;
    answers_.clear();
  }
  if (auto subscribed = subscribe(session); !subscribed) return fail(subscribed.error());
  return session;
}

Status PortalKeyMonitor::subscribe(Session& session) {
  const std::string rules[] = {
      "type='signal',interface='" + requestInterface + "',member='Response'",
      "type='signal',interface='" + shortcutsInterface + "'",
      "type='signal',interface='" + sessionInterface + "',member='Closed'",
      "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" + portalName +
          "'",
  };
  for (const std::string& rule : rules) {
    auto subscription =
        session.bus->subscribe(rule, [this](sdbus::Message& message) { onSignal(message); });
    if (!subscription) return fail(domain, 1, subscription.error().description);
    session.subscriptions.push_back(std::move(*subscription));
  }
  return {};
}

void PortalKeyMonitor::onSignal(sdbus::Message& message) {
  const std::string interface = message.getInterfaceName(), member = message.getMemberName();
  std::unique_lock lock(mutex_);
  if (member == "NameOwnerChanged" && message.getSender() == "org.freedesktop.DBus") {
    sessionClosed_ = true;
  } else if (message.getSender() != portal_) {
    return;
  } else if (interface == requestInterface) {
    using Content = std::tuple<uint32_t, std::map<std::string, sdbus::Variant>>;
    if (auto content = dbus::Connection::read<Content>(message))
      answers_[message.getPath()] = {std::get<0>(*content), std::get<1>(*content)};
  } else if (interface == sessionInterface) {
    if (message.getPath() == sessionHandle_) sessionClosed_ = true;
  } else if (interface == shortcutsInterface) {
    const auto content =
        dbus::Connection::read<std::tuple<sdbus::ObjectPath, std::string>>(message);
    if (!content || std::get<0>(*content) != sessionHandle_ || std::get<1>(*content) != shortcutId)
      return;
    lock.unlock();
    if (member == "Activated") setHeld(true);
    if (member == "Deactivated") setHeld(false);
    return;
  }
  changed_.notify_all();
}

void PortalKeyMonitor::setHeld(bool held) {
  if (std::exchange(held_, held) != held) onEdge_(held ? KeyEdge::holdDown : KeyEdge::holdUp);
}

void PortalKeyMonitor::setBinding(Status status, std::string trigger) {
  const std::lock_guard lock(mutex_);
  binding_ = std::move(status);
  trigger_ = std::move(trigger);
}

bool PortalKeyMonitor::waitUntil(const std::function<bool()>& done, Duration limit) {
  std::unique_lock lock(mutex_);
  const auto awake = [&] { return stopping_ || done(); };
  if (limit < Duration(0)) {
    changed_.wait(lock, awake);
  } else {
    changed_.wait_for(lock, limit, awake);
  }
  return !stopping_ && done();
}

template <class... In>
Result<PortalKeyMonitor::Answer> PortalKeyMonitor::request(Session& session,
                                                           const std::string& method,
                                                           Duration limit, const In&... in) {
  auto path = session.bus->call<sdbus::ObjectPath>(shortcutsPortal(), method, callLimit, in...);
  if (!path) return fail(domain, 6, path.error().description);
  // The answer may have come before the path.
  const auto answered = [&] { return answers_.count(*path) > 0 || sessionClosed_; };
  if (!waitUntil(answered, limit)) return fail(domain, 6, "The desktop does not answer");
  const std::lock_guard lock(mutex_);
  if (!answers_.count(*path)) return fail(domain, 6, "The desktop's portal went away");
  return std::move(answers_.extract(*path).mapped());
}

bool PortalKeyMonitor::bind(Session& session) {
  const auto created = request(session, "CreateSession", callLimit,
                               Options{{"handle_token", sdbus::Variant("kestrin_session")},
                                       {"session_handle_token", sdbus::Variant("kestrin")}});
  if (!created || created->code != 0) {
    setBinding(created ? fail(domain, 6, "The desktop gives no session for shortcuts")
                       : fail(created.error()));
    return false;
  }
  session.handle = textIn(created->results, "session_handle");
  {
    const std::lock_guard lock(mutex_);
    sessionHandle_ = session.handle;
  }
  const std::vector<Shortcut> shortcuts = {
      {shortcutId, Options{{"description", sdbus::Variant("Hold to dictate")},
                           {"preferred_trigger", sdbus::Variant(preferredTrigger_)}}}};
  const auto bound =
      request(session, "BindShortcuts", unlimited, sdbus::ObjectPath(session.handle), shortcuts,
              std::string(), Options{{"handle_token", sdbus::Variant("kestrin_bind")}});
  if (!bound || bound->code != 0) {
    setBinding(bound ? fail(domain, 8, "The shortcut for dictation was declined")
                     : fail(bound.error()));
    return false;
  }
  const auto listed = bound->results.find("shortcuts");
  if (listed != bound->results.end() &&
      listed->second.containsValueOfType<std::vector<Shortcut>>()) {
    for (const auto& shortcut : listed->second.get<std::vector<Shortcut>>()) {
      if (shortcut.get<0>() != shortcutId) continue;
      setBinding({}, textIn(shortcut.get<1>(), "trigger_description"));
      return true;
    }
  }
  setBinding(fail(domain, 8, "The shortcut for dictation was given no key"));
  return false;
}

void PortalKeyMonitor::serve(Session session) {
  std::chrono::seconds pause = firstRetryPause;
  while (true) {
    bool bound = bind(session);
    if (!bound && binding().error().code == 8) {
      // The user has decided: asking again would be nagging.
      waitUntil([] { return false; });
      return;
    }
    const auto ended = [&] { return sessionClosed_ || session.bus->isLost(); };
    if (bound) pause = firstRetryPause;
    while (bound) {
      if (waitUntil(ended, busCheckInterval)) bound = false;
      const std::lock_guard lock(mutex_);
      if (stopping_) return;
    }
    if (binding()) setBinding(fail(domain, 7, "The desktop has ended the shortcut's session"));
    session = {};  // from here on no signal comes
    setHeld(false);
    do {
      waitUntil([] { return false; }, pause);
      pause = std::min(pause * 2, longestRetryPause);
      {
        const std::lock_guard lock(mutex_);
        if (stopping_) return;
      }
      if (auto again = connect()) session = std::move(*again);
    } while (!session.bus);
  }
}

}  // namespace kestrin
