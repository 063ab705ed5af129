#pragma once

namespace SQLite {
class Database;
}

namespace kestrin::backend {

/// Brings the file's tables to the newest form, each step in a transaction. Throws SQLite's
/// exception; also for a file that a newer version has written, which is left as it is.
void migrate(SQLite::Database& database);

/// The version that `migrate` leads to.
int knownSchema();

}  // namespace kestrin::backend
