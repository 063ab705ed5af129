#pragma once

#include <string>
#include <vector>

#include "companion/backend/store.h"
#include "companion/research/passages.h"

namespace kestrin::backend {

/// The user's own records that share words with the query, best first: dictations, notes, lines of
/// live sessions, past research. On the store's queue. A table that cannot be read is left out.
std::vector<research::Document> searchRecords(Store& store, const std::string& userId,
                                              const std::string& query);

}  // namespace kestrin::backend
