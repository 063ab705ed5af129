#include "companion/backend/research_store.h"

#include "companion/backend/database.h"

namespace kestrin::backend {

Result<bool> ResearchStore::save(const ResearchRecord& record) {
  return guarded([&]() -> Result<bool> {
    SQLite::Statement upsert(
        *database_,
        "INSERT INTO research(id, user_id, created, query, summary, sources) VALUES(?,?,?,?,?,?) "
        "ON CONFLICT(id) DO UPDATE SET created = excluded.created, query = excluded.query, "
        "summary = excluded.summary, sources = excluded.sources "
        "WHERE user_id = excluded.user_id");
    upsert.bind(1, record.id);
    upsert.bind(2, record.userId);
    upsert.bind(3, milliseconds(record.created));
    upsert.bind(4, record.query);
    upsert.bind(5, record.summary);
    upsert.bind(6, record.sources.dump());
    return upsert.exec() > 0;
  });
}

Result<std::vector<ResearchRecord>> ResearchStore::ofUser(const std::string& userId) {
  return guarded([&]() -> Result<std::vector<ResearchRecord>> {
    SQLite::Statement select(*database_,
                             "SELECT id, created, query, summary, sources FROM research "
                             "WHERE user_id = ? ORDER BY created DESC, rowid DESC LIMIT ?");
    select.bind(1, userId);
    select.bind(2, mostListed);
    std::vector<ResearchRecord> found;
    while (select.executeStep()) {
      found.push_back({select.getColumn(0).getString(), userId,
                       dateOf(select.getColumn(1).getInt64()), select.getColumn(2).getString(),
                       select.getColumn(3).getString(),
                       Json::parse(select.getColumn(4).getString()).value_or(Json::array())});
    }
    return found;
  });
}

Result<bool> ResearchStore::remove(const std::string& id, const std::string& userId) {
  return guarded([&]() -> Result<bool> {
    SQLite::Statement remove(*database_,
                             "DELETE FROM research WHERE id = ?1 AND (?2 = '' OR user_id = ?2)");
    remove.bind(1, id);
    remove.bind(2, userId);
    return remove.exec() > 0;
  });
}

}  // namespace kestrin::backend
