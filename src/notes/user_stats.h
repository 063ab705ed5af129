#pragma once

#include <cstdint>
#include <optional>

#include "platform/json/json.h"

namespace kestrin {

/// The usage that the backend computes from its records of dictations.
struct UserStats {
  int64_t totalWords = 0;
  int64_t averageWPM = 0;
  int64_t streak = 0;  ///< days in a row
  int64_t transcriptionCount = 0;

  /// Nothing unless all four are there as numbers; a fraction is rounded.
  static std::optional<UserStats> fromJson(const Json& stats);
  bool operator==(const UserStats&) const = default;
};

}  // namespace kestrin
