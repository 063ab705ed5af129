#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companion/backend/store.h"

namespace kestrin::backend {

/// A research conversation, as the application keeps it.
struct ResearchRecord {
  std::string id;
  std::string userId;
  Date created;
  std::string query;
  std::string summary;
  Json sources = Json::array();
};

/// The research of all users in the store's file. Cheap to make; on the store's queue only. Errors
/// as the store's.
class ResearchStore {
 public:
  static constexpr int64_t mostListed = 200;

  explicit ResearchStore(const Store& store) : database_(store.database()) {}

  /// Takes the place of the record with that id. False when that belongs to somebody else.
  Result<bool> save(const ResearchRecord& record);
  /// Newest first.
  Result<std::vector<ResearchRecord>> ofUser(const std::string& userId);
  /// `userId` empty: whoever it belongs to. False when there is no such record.
  Result<bool> remove(const std::string& id, const std::string& userId);

 private:
  const std::shared_ptr<Database> database_;
};

}  // namespace kestrin::backend
