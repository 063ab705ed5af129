#pragma once

#include <optional>
#include <string>

#include "platform/bytes.h"
#include "platform/result.h"

namespace kestrin {

/// Secrets by service and account. Blocking, with a deadline of 4 s. Thread-safe. Without a secret
/// service the values live in memory for this run, and `persistent` says so.
class SecretStore {
 public:
  virtual ~SecretStore() = default;
  virtual std::optional<Bytes> load(const std::string& service, const std::string& account) = 0;
  virtual Status save(const std::string& service, const std::string& account,
                      const Bytes& value) = 0;
  virtual Status remove(const std::string& service, const std::string& account) = 0;
  virtual bool persistent() = 0;
};

}  // namespace kestrin
