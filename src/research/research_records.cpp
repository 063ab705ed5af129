#include "research/research_records.h"

#include <utility>

namespace kestrin {
namespace {

constexpr std::pair<std::string_view, ProgressStep::Type> stepNames[] = {
    {"starting", ProgressStep::Type::starting},   {"thinking", ProgressStep::Type::thinking},
    {"searching", ProgressStep::Type::searching}, {"reading", ProgressStep::Type::reading},
    {"analyzing", ProgressStep::Type::analyzing}, {"summarizing", ProgressStep::Type::summarizing},
};

Error missing(const std::string& field) {
  return {"ResearchSession", 1, "A session's \"" + field + "\" is missing or of another type"};
}

}  // namespace

Json ResearchSource::toJson() const {
  return Json::object({{"title", title}, {"url", url}, {"snippet", snippet}});
}

std::optional<ResearchSource> ResearchSource::fromJson(const Json& json) {
  auto title = json.stringAt("title");
  auto url = json.stringAt("url");
  auto snippet = json.stringAt("snippet");
  if (!title || !url || !snippet) return std::nullopt;
  return ResearchSource{std::move(*title), std::move(*url), std::move(*snippet)};
}

Json ResearchSession::toJson() const {
  Json list = Json::array();
  for (const ResearchSource& source : sources) list.push(source.toJson());
  return Json::object({{"id", id},
                       {"userId", userId},
                       {"query", query},
                       {"summary", summary},
                       {"sources", std::move(list)},
                       {"createdAt", createdAt}});
}

Result<ResearchSession> ResearchSession::fromJson(const Json& json) {
  ResearchSession out;
  for (const auto& [field, key] :
       {std::pair{&ResearchSession::id, "id"}, std::pair{&ResearchSession::query, "query"},
        std::pair{&ResearchSession::summary, "summary"},
        std::pair{&ResearchSession::createdAt, "createdAt"},
        std::pair{&ResearchSession::userId, "userId"}}) {
    auto value = json.stringAt(key);
    if (!value) return fail(missing(key));
    out.*field = std::move(*value);
  }
  const Json* list = json.find("sources");
  if (list == nullptr || !list->isArray()) return fail(missing("sources"));
  for (const Json& each : list->items()) {
    auto source = ResearchSource::fromJson(each);
    if (!source) return fail(missing("sources"));
    out.sources.push_back(std::move(*source));
  }
  return out;
}

std::optional<ProgressStep> ProgressStep::fromEvent(const Json& event) {
  const auto named = event.stringAt("step_type");
  for (const auto& [name, type] : stepNames) {
    if (named != name) continue;
    return ProgressStep{.id = {},
                        .type = type,
                        .title = event.stringAt("title", ""),
                        .detail = event.stringAt("detail"),
                        .url = event.stringAt("url")};
  }
  return std::nullopt;
}

std::string_view rawValue(ProgressStep::Type type) {
  for (const auto& [name, each] : stepNames) {
    if (each == type) return name;
  }
  return "";
}

}  // namespace kestrin
