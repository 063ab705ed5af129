#pragma once

#include <SQLiteCpp/SQLiteCpp.h>
#include <chrono>
#include <cstdint>

#include "platform/dates/dates.h"
#include "platform/result.h"

namespace kestrin::backend {

/// The open file of a Store; for the classes that keep records in it.
struct Database : SQLite::Database {
  using SQLite::Database::Database;
};

inline int64_t milliseconds(Date date) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count();
}

inline Date dateOf(int64_t milliseconds) { return Date(std::chrono::milliseconds(milliseconds)); }

/// Runs `work` and turns what the library throws into an error.
template <class Work>
auto guarded(Work work) -> decltype(work()) {
  try {
    return work();
  } catch (const SQLite::Exception& error) {
    return fail("Store", error.getErrorCode(), error.what());
  }
}

}  // namespace kestrin::backend
