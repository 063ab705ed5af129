#include "notes/user_stats.h"

#include <cmath>
#include <utility>

namespace kestrin {

std::optional<UserStats> UserStats::fromJson(const Json& stats) {
  constexpr double largest = 1e15;  // beyond it a double no longer counts in ones
  UserStats out;
  const std::pair<const char*, int64_t*> fields[] = {
      {"totalWords", &out.totalWords},
      {"averageWPM", &out.averageWPM},
      {"streak", &out.streak},
      {"transcriptionCount", &out.transcriptionCount}};
  for (const auto& [key, field] : fields) {
    const auto value = stats.numberAt(key);
    if (!value || std::abs(*value) > largest) return std::nullopt;
    *field = std::llround(*value);
  }
  return out;
}

}  // namespace kestrin
