#pragma once

#include <vector>

#include "companion/backend/store.h"

namespace kestrin::personality {

/// What kind of speaker the dictations show: an object with `archetype` and `isDefault` as the
/// application reads them. Rules over sentence length, modes and questions; below `fewest`
/// dictations it is the default.
constexpr size_t fewest = 5;
Json classify(const std::vector<backend::Dictation>& dictations);

}  // namespace kestrin::personality
