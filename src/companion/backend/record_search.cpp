#include "companion/backend/record_search.h"

#include "companion/backend/database.h"

namespace kestrin::backend {
namespace {

constexpr size_t mostFound = 12;

/// A kind of record: its title's first words, and a query with the user's id that gives text and
/// time, the newest first. The number of rows bounds what one search reads.
struct Kind {
  const char* name;
  const char* query;
};
constexpr Kind kinds[] = {
    {"Research of ",
     "SELECT query || char(10) || summary, created FROM research WHERE user_id = ? "
     "ORDER BY created DESC LIMIT 500"},
    {"Note of ",
     "SELECT content, created FROM note WHERE user_id = ? ORDER BY created DESC LIMIT 1000"},
    {"Dictation of ",
     "SELECT processed_text, at FROM dictation WHERE user_id = ? ORDER BY at DESC LIMIT 3000"},
    {"Conversation of ",
     "SELECT group_concat(l.text, char(10)), s.started FROM live_session s JOIN live_line l "
     "ON l.session_id = s.id WHERE s.device_id = ? GROUP BY s.id ORDER BY s.started DESC LIMIT "
     "100"},
};

}  // namespace

std::vector<research::Document> searchRecords(Store& store, const std::string& userId,
                                              const std::string& query) {
  std::vector<research::Document> all;
  for (const Kind& kind : kinds) {
    (void)guarded([&]() -> Status {
      SQLite::Statement select(*store.database(), kind.query);
      select.bind(1, userId);
      while (select.executeStep()) {
        all.push_back(
            {kind.name + dates::format(dateOf(select.getColumn(1).getInt64()), "d MMM yyyy"),
             "",
             {select.getColumn(0).getString()}});
      }
      return {};
    });
  }
  std::vector<research::Document> found;
  for (const auto& passage : research::bestPassages(query, all, mostFound, 1))
    found.push_back(std::move(all[passage.document]));
  return found;
}

}  // namespace kestrin::backend
