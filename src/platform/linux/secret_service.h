#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/dbus.h"
#include "platform/secret_store.h"

namespace kestrin {

/// Secrets in the login collection of the Secret Service, under the attributes `service` and
/// `account`. While no service answers, or its collection is locked, values live in memory for this
/// run; nothing waits for a person to answer a prompt. A service that was started anew is found
/// again.
class SecretService final : public SecretStore {
 public:
  /// Without an address: the session bus.
  explicit SecretService(std::string busAddress = {}) : busAddress_(std::move(busAddress)) {}

  std::optional<Bytes> load(const std::string& service, const std::string& account) override;
  Status save(const std::string& service, const std::string& account, const Bytes& value) override;
  Status remove(const std::string& service, const std::string& account) override;
  bool persistent() override;

 private:
  using Attributes = std::map<std::string, std::string>;
  static Attributes attributes(const std::string& service, const std::string& account);
  /// Connects and opens a session if there is none; false without a usable service.
  bool connect();
  /// Does `work` over a session; once more over a new one when the service has forgotten it.
  template <class Work>
  auto inSession(Work work) -> decltype(work());
  Result<std::vector<sdbus::ObjectPath>> find(const Attributes& attributes);
  Result<std::optional<Bytes>> read(const Attributes& attributes);
  Status write(const Attributes& attributes, const std::string& label, const Bytes& value);
  Status erase(const Attributes& attributes);
  dbus::Target object(const std::string& path, const std::string& interface) const;

  const std::string busAddress_;
  std::mutex mutex_;
  std::unique_ptr<dbus::Connection> bus_;
  sdbus::ObjectPath session_;
  std::map<std::pair<std::string, std::string>, Bytes> memory_;
};

}  // namespace kestrin
