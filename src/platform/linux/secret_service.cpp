#include "platform/linux/secret_service.h"

#include <vector>

namespace kestrin {
namespace {

constexpr auto deadline = std::chrono::seconds(4);
constexpr const char* name = "org.freedesktop.secrets";
constexpr const char* servicePath = "/org/freedesktop/secrets";
constexpr const char* serviceInterface = "org.freedesktop.Secret.Service";
constexpr const char* loginCollection = "/org/freedesktop/secrets/aliases/default";

/// Session, parameters, value, content type. The session is "plain": the bus is private to the
/// user.
using Secret =
    sdbus::Struct<sdbus::ObjectPath, std::vector<uint8_t>, std::vector<uint8_t>, std::string>;

}  // namespace

SecretService::Attributes SecretService::attributes(const std::string& service,
                                                    const std::string& account) {
  return {{"service", service}, {"account", account}};
}

dbus::Target SecretService::object(const std::string& path, const std::string& interface) const {
  return {name, path, interface};
}

bool SecretService::connect() {
  if (bus_ && !bus_->isLost() && !session_.empty()) return true;
  session_ = {};
  auto opened = dbus::Connection::session(busAddress_);
  if (!opened) return false;
  bus_ = std::move(*opened);
  auto session = bus_->call<std::tuple<sdbus::Variant, sdbus::ObjectPath>>(
      object(servicePath, serviceInterface), "OpenSession", deadline, std::string("plain"),
      sdbus::Variant(std::string()));
  if (!session) return false;
  session_ = std::get<1>(*session);
  // A locked collection would answer every write with a prompt that somebody has to see.
  auto locked = bus_->property<bool>(object(loginCollection, "org.freedesktop.Secret.Collection"),
                                     "Locked", deadline);
  if (!locked || *locked) session_ = {};
  return !session_.empty();
}

template <class Work>
auto SecretService::inSession(Work work) -> decltype(work()) {
  if (!connect()) return fail("SecretStore", 1, "No secret service, or its collection is locked");
  auto done = work();
  if (done || done.error().code == dbus::timeout) return done;
  session_ = {};
  if (!connect()) return done;
  return work();
}

Result<std::vector<sdbus::ObjectPath>> SecretService::find(const Attributes& wanted) {
  auto found =
      bus_->call<std::tuple<std::vector<sdbus::ObjectPath>, std::vector<sdbus::ObjectPath>>>(
          object(servicePath, serviceInterface), "SearchItems", deadline, wanted);
  if (!found) return fail(found.error());
  return std::get<0>(*found);
}

Result<std::optional<Bytes>> SecretService::read(const Attributes& wanted) {
  const auto items = find(wanted);
  if (!items) return fail(items.error());
  if (items->empty()) return std::nullopt;
  auto secret = bus_->call<Secret>(object(items->front(), "org.freedesktop.Secret.Item"),
                                   "GetSecret", deadline, session_);
  if (!secret) return fail(secret.error());
  const auto& value = secret->get<2>();
  return Bytes(value.begin(), value.end());
}

Status SecretService::write(const Attributes& item, const std::string& label, const Bytes& value) {
  const std::map<std::string, sdbus::Variant> properties{
      {"org.freedesktop.Secret.Item.Label", sdbus::Variant(label)},
      {"org.freedesktop.Secret.Item.Attributes", sdbus::Variant(item)}};
  const Secret secret{
      session_, {}, std::vector<uint8_t>(value.begin(), value.end()), "application/octet-stream"};
  auto created = bus_->call<std::tuple<sdbus::ObjectPath, sdbus::ObjectPath>>(
      object(loginCollection, "org.freedesktop.Secret.Collection"), "CreateItem", deadline,
      properties, secret, true);
  if (!created) return fail(created.error());
  // A prompt instead of an item: the collection was locked meanwhile.
  if (std::get<0>(*created) == "/") return fail("SecretStore", 2, "The collection is locked");
  return {};
}

Status SecretService::erase(const Attributes& wanted) {
  const auto items = find(wanted);
  if (!items) return fail(items.error());
  for (const auto& item : *items) {
    auto removed = bus_->call<sdbus::ObjectPath>(object(item, "org.freedesktop.Secret.Item"),
                                                 "Delete", deadline);
    if (!removed) return fail(removed.error());
  }
  return {};
}

std::optional<Bytes> SecretService::load(const std::string& service, const std::string& account) {
  std::lock_guard lock(mutex_);
  if (const auto kept = memory_.find({service, account}); kept != memory_.end())
    return kept->second;
  return inSession([&] { return read(attributes(service, account)); }).value_or(std::nullopt);
}

Status SecretService::save(const std::string& service, const std::string& account,
                           const Bytes& value) {
  std::lock_guard lock(mutex_);
  const auto written =
      inSession([&] { return write(attributes(service, account), "Kestrin: " + account, value); });
  if (written) {
    memory_.erase({service, account});
  } else {
    memory_[{service, account}] = value;
  }
  return {};
}

Status SecretService::remove(const std::string& service, const std::string& account) {
  std::lock_guard lock(mutex_);
  memory_.erase({service, account});
  if (!connect()) return {};
  const auto erased = inSession([&] { return erase(attributes(service, account)); });
  if (!erased) return fail("SecretStore", erased.error().code, erased.error().description);
  return {};
}

bool SecretService::persistent() {
  std::lock_guard lock(mutex_);
  return memory_.empty() && connect();
}

}  // namespace kestrin
