#include "platform/linux/atspi_bus.h"

#include <cstdlib>

#include "platform/linux/atspi_root_window.h"

namespace kestrin::atspi {
namespace {

using namespace std::chrono_literals;

const AxElement registryRoot{"org.a11y.atspi.Registry", rootPath};
const dbus::Target registry{"org.a11y.atspi.Registry", "/org/a11y/atspi/registry",
                            "org.a11y.atspi.Registry"};

using Reference = sdbus::Struct<std::string, sdbus::ObjectPath>;

std::vector<AxElement> elementsOf(const std::vector<Reference>& references) {
  std::vector<AxElement> elements;
  for (const auto& reference : references) {
    AxElement element{std::get<0>(reference), std::get<1>(reference)};
    if (element.path != "/org/a11y/atspi/null") elements.push_back(std::move(element));
  }
  return elements;
}

std::string addressFromSession() {
  auto session = dbus::Connection::session();
  if (!session) return {};
  const dbus::Target launcher{"org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus"};
  auto address = (*session)->call<std::string>(launcher, "GetAddress", callLimit);
  if (!address) return {};
  // Qt and Chromium programs that start from now on look at this before they expose anything.
  (*session)->call({launcher.service, launcher.path, "org.freedesktop.DBus.Properties"}, "Set",
                   500ms, "org.a11y.Status", "IsEnabled", sdbus::Variant(true));
  return *address;
}

}  // namespace

Result<std::unique_ptr<dbus::Connection>> AtspiBus::open() {
  const char* fixed = std::getenv("AT_SPI_BUS_ADDRESS");
  const std::function<std::string()> sources[] = {[&] { return std::string(fixed ? fixed : ""); },
                                                  addressFromSession, addressOnRootWindow};
  for (const auto& source : sources) {
    const auto address = source();
    if (address.empty()) continue;
    if (auto opened = dbus::Connection::open(address)) return opened;
  }
  return fail(
      "Accessibility", dbus::noBus,
      "No accessibility bus: install at-spi2-core and log in again (org.a11y.Bus does not answer)");
}

Result<std::shared_ptr<dbus::Connection>> AtspiBus::connection() {
  const std::lock_guard lock(mutex_);
  if (connection_ && !connection_->isLost()) return connection_;
  nameWatch_.reset();
  auto opened = open();
  if (!opened) return fail(opened.error());
  connection_ = std::move(*opened);
  requests_ = std::make_shared<Requests>();
  {
    const std::lock_guard cacheLock(cacheMutex_);
    processes_.clear();
    toolkits_.clear();
  }
  auto watch = connection_->subscribe(
      "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',member='"
      "NameOwnerChanged',arg2=''",
      [this](sdbus::Message& message) {
        if (auto name = dbus::Connection::read<std::string>(message)) forget(*name);
      });
  if (watch) nameWatch_ = std::move(*watch);
  if (onConnect_) onConnect_(*connection_);
  return connection_;
}

Result<StateSet> AtspiBus::states(const AxElement& element, const Budget& budget) {
  auto words = call<std::vector<uint32_t>>(element, accessibleInterface, "GetState", budget);
  if (!words) return fail(words.error());
  StateSet set;
  if (!words->empty()) set.bits = (*words)[0];
  if (words->size() > 1) set.bits |= static_cast<uint64_t>((*words)[1]) << 32;
  return set;
}

Result<std::vector<AxElement>> AtspiBus::children(const AxElement& element, const Budget& budget) {
  auto references =
      call<std::vector<Reference>>(element, accessibleInterface, "GetChildren", budget);
  if (!references) return fail(references.error());
  return elementsOf(*references);
}

Result<uint32_t> AtspiBus::roleNumber(const AxElement& element, const Budget& budget) {
  return call<uint32_t>(element, accessibleInterface, "GetRole", budget);
}

Result<std::vector<AxElement>> AtspiBus::applications(int pid, const Budget& budget) {
  auto bus = connection();
  if (!bus) return fail(bus.error());
  auto roots = children(registryRoot, budget);
  if (!roots) return fail(roots.error());
  std::vector<AxElement> found;
  for (auto& root : *roots) {
    auto owner = processOf(**bus, root.bus, budget);
    if (owner && *owner == pid) found.push_back(std::move(root));
  }
  if (found.empty()) {
    return fail("Accessibility", dbus::unreachable,
                "The program with the process id " + std::to_string(pid) +
                    " is not on the accessibility bus");
  }
  return found;
}

Result<int> AtspiBus::processOf(dbus::Connection& bus, const std::string& name,
                                const Budget& budget) {
  {
    const std::lock_guard lock(cacheMutex_);
    if (auto known = processes_.find(name); known != processes_.end()) return known->second;
  }
  auto pid = bus.processId(name, budget.left());
  const std::lock_guard lock(cacheMutex_);
  if (pid) processes_[name] = *pid;
  return pid;
}

Result<std::string> AtspiBus::toolkit(const std::string& busName, const Budget& budget) {
  {
    const std::lock_guard lock(cacheMutex_);
    if (auto known = toolkits_.find(busName); known != toolkits_.end()) return known->second;
  }
  auto name = property<std::string>({busName, rootPath}, "org.a11y.atspi.Application",
                                    "ToolkitName", budget);
  const std::lock_guard lock(cacheMutex_);
  if (name) toolkits_[busName] = *name;
  return name;
}

void AtspiBus::forget(const std::string& busName) {
  const std::lock_guard lock(cacheMutex_);
  processes_.erase(busName);
  toolkits_.erase(busName);
}

Result<std::vector<AxElement>> AtspiBus::matches(const AxElement& root, std::vector<State> states,
                                                 std::vector<uint32_t> roles, int limit,
                                                 const Budget& budget) {
  constexpr int32_t all = 1;
  constexpr int32_t any = 2;
  constexpr uint32_t canonicalOrder = 1;
  std::vector<int32_t> stateBits(2, 0);
  for (auto state : states) {
    const int bit = static_cast<int>(state);
    stateBits[bit / 32] |= static_cast<int32_t>(1u << (bit % 32));
  }
  // The program's search takes four words of role bits.
  std::vector<int32_t> roleBits(4, 0);
  for (auto role : roles) roleBits[role / 32] |= static_cast<int32_t>(1u << (role % 32));
  using Rule =
      sdbus::Struct<std::vector<int32_t>, int32_t, std::map<std::string, std::string>, int32_t,
                    std::vector<int32_t>, int32_t, std::vector<std::string>, int32_t, bool>;
  // An empty criterion must ask for "all of nothing": the other match kinds find nothing then.
  const Rule rule(stateBits, all, std::map<std::string, std::string>{}, all, roleBits,
                  roles.empty() ? all : any, std::vector<std::string>{}, all, false);
  auto references =
      call<std::vector<Reference>>(root, "org.a11y.atspi.Collection", "GetMatches", budget, rule,
                                   canonicalOrder, static_cast<int32_t>(limit), true);
  if (!references) return fail(references.error());
  return elementsOf(*references);
}

Status AtspiBus::registerEvent(dbus::Connection& connection, const std::string& kind) {
  return mapped(connection.call(registry, "RegisterEvent", callLimit, kind,
                                std::vector<std::string>{}, std::string()));
}

Result<SubscriptionHandle> AtspiBus::requestEvents(const std::string& kind) {
  auto bus = connection();
  if (!bus) return fail(bus.error());
  std::shared_ptr<Requests> requests;
  {
    const std::lock_guard lock(mutex_);
    requests = requests_;
  }
  const std::lock_guard lock(requests->mutex);
  if (requests->counts[kind] == 0) {
    if (auto done = registerEvent(**bus, kind); !done) return fail(done.error());
  }
  ++requests->counts[kind];
  return onUnsubscribe([weak = std::weak_ptr(*bus), requests, kind] {
    const std::lock_guard held(requests->mutex);
    if (--requests->counts[kind] > 0) return;
    if (auto alive = weak.lock()) alive->call(registry, "DeregisterEvent", 500ms, kind);
  });
}

Result<SubscriptionHandle> AtspiBus::subscribe(const std::string& rule,
                                               std::function<void(sdbus::Message&)> handler) {
  auto bus = connection();
  if (!bus) return fail(bus.error());
  return mapped((*bus)->subscribe(rule, std::move(handler)));
}

}  // namespace kestrin::atspi
