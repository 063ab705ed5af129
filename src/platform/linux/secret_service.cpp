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
  auto opened = dbus::Connection::session();
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

Result<std::vector<sdbus::ObjectPath>> SecretService::find(const Attributes& wanted) {
  auto found =
      bus_->call<std::tuple<std::vector<sdbus::ObjectPath>, std::vector<sdbus::ObjectPath>>>(
          object(servicePath, serviceInterface), "SearchItems", deadline, wanted);
  if (!found) return fail(found.error());
  return std::get<0>(*found);
}

std::optional<Bytes> SecretService::load(const std::string& service, const std::string& account) {
  std::lock_guard lock(mutex_);
  if (const auto kept = memory_.find({service, account}); kept != memory_.end())
    return kept->second;
  if (!connect()) return std::nullopt;
  const auto items = find(attributes(service, account));
  if (!items || items->empty()) return std::nullopt;
  auto secret = bus_->call<Secret>(object(items->front(), "org.freedesktop.Secret.Item"),
                                   "GetSecret", deadline, session_);
  if (!secret) return std::nullopt;
  const auto& value = secret->get<2>();
  return Bytes(value.begin(), value.end());
}

Status SecretService::save(const std::string& service, const std::string& account,
                           const Bytes& value) {
  std::lock_guard lock(mutex_);
  if (!connect()) {
    memory_[{service, account}] = value;
    return {};
  }
  const std::map<std::string, sdbus::Variant> properties{
      {"org.freedesktop.Secret.Item.Label", sdbus::Variant("Kestrin: " + account)},
      {"org.freedesktop.Secret.Item.Attributes", sdbus::Variant(attributes(service, account))}};
  const Secret secret{
      session_, {}, std::vector<uint8_t>(value.begin(), value.end()), "application/octet-stream"};
  auto created = bus_->call<std::tuple<sdbus::ObjectPath, sdbus::ObjectPath>>(
      object(loginCollection, "org.freedesktop.Secret.Collection"), "CreateItem", deadline,
      properties, secret, true);
  // A prompt instead of an item: the collection was locked meanwhile.
  if (!created || std::get<0>(*created) == "/") {
    memory_[{service, account}] = value;
    return {};
  }
  memory_.erase({service, account});
  return {};
}

Status SecretService::remove(const std::string& service, const std::string& account) {
  std::lock_guard lock(mutex_);
  memory_.erase({service, account});
  if (!connect()) return {};
  const auto items = find(attributes(service, account));
  if (!items) return fail("SecretStore", items.error().code, items.error().description);
  for (const auto& item : *items) {
    auto removed = bus_->call<sdbus::ObjectPath>(object(item, "org.freedesktop.Secret.Item"),
                                                 "Delete", deadline);
    if (!removed) return fail("SecretStore", removed.error().code, removed.error().description);
  }
  return {};
}

bool SecretService::persistent() {
  std::lock_guard lock(mutex_);
  return connect();
}

}  // namespace kestrin
