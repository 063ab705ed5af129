#include "companion/home/home_requests.h"

#include "companion/agent/language_model.h"
#include "companion/agent/mode_detection.h"
#include "companion/agent/spoken_text.h"
#include "companion/agent/words.h"
#include "platform/text/markdown.h"
#include "platform/text/text.h"

namespace kestrin::home {
namespace {

constexpr std::string_view notesRequest = "Summarize these notes";
constexpr size_t summarisedNotes = 3;

bool isHomeRequest(const Json& body) {
  const std::string mode = body.stringAt("mode", "auto");
  return !body.has("app_context") && (mode == "auto" || mode == "plain");
}

bool asksForSummary(const Json& body) {
  return isHomeRequest(body) && body.stringAt("transcript", "").starts_with(notesRequest);
}

/// The page shows why there is no answer where the answer would stand; an error would break the
/// stream off. Half an answer stays a failure.
agent::Agent::Emit withReasonAsText(agent::Agent::Emit emit) {
  return [emit = std::move(emit), began = std::make_shared<bool>(false)](const Json& event) {
    *began = *began || event.has("chunk");
    const auto why = event.stringAt("error");
    if (!why || *began) return emit(event);
    emit(Json::object({{"chunk", *why}}));
  };
}

Json newsEvent(const std::vector<NewsItem>& items) {
  Json list = Json::array();
  for (const NewsItem& item : items)
    list.push(Json::object({{"title", item.title}, {"source", item.source}, {"url", item.url}}));
  return Json::object({{"news_items", std::move(list)}});
}

}  // namespace

bool asksForNews(const Json& body) {
  const std::string said = agent::plainForm(body.stringAt("transcript", ""));
  return isHomeRequest(body) && text::containsAny(said, {"latest news", "the news", "headlines"}) &&
         said.size() < 60;
}

bool asksQuestion(const Json& body) {
  const std::string asked = text::trim(body.stringAt("transcript", ""));
  return isHomeRequest(body) && body.stringAt("mode", "auto") == "auto" && !asked.empty() &&
         agent::detectMode(asked, {}).mode == "dictation";
}

std::string summaryOfNotes(const Json& body) {
  if (!asksForSummary(body)) return {};
  const std::string asked = body.stringAt("transcript", "");
  std::vector<std::string> titles;
  for (const auto& line : text::split(asked, "\n")) {
    if (!line.starts_with("- ") || titles.size() == summarisedNotes) continue;
    const auto plain = markdown::plainText(markdown::parse(line.substr(2)));
    const auto sentences = agent::sentences(plain);
    if (sentences.empty()) continue;
    std::string first = sentences.front();
    while (!first.empty() && text::contains(".!?", first.substr(first.size() - 1)))
      first.pop_back();
    titles.push_back(first);
  }
  if (titles.empty()) return {};
  return "Your latest notes: " + text::join(titles, "; ") + ".";
}

void HomeRequests::process(const Json& body, Emit emit, std::function<void()> done,
                           agent::CancelRef cancel) {
  if (asksForNews(body)) {
    return home_.news([emit, done = std::move(done)](const Result<std::vector<NewsItem>>& items) {
      emit(Json::object({{"mode", "plain"}, {"auto_detected", true}}));
      if (items) emit(newsEvent(*items));
      emit(Json::object({{"chunk", items ? spokenNews(*items) : items.error().description + "."}}));
      done();
    });
  }
  const bool model = agent::endpointFor(body, "http://hosted").has_value();
  if (const std::string summary = model ? "" : summaryOfNotes(body); !summary.empty()) {
    emit(Json::object({{"mode", "plain"}, {"auto_detected", false}}));
    emit(Json::object({{"chunk", summary}}));
    return done();
  }
  const bool question = asksQuestion(body);
  if (!question && !asksForSummary(body))
    return agent_.process(body, std::move(emit), std::move(done), std::move(cancel));
  Json asked = body;
  asked.set("mode", agent::answerMode);
  agent_.process(asked, question ? withReasonAsText(std::move(emit)) : std::move(emit),
                 std::move(done), std::move(cancel));
}

}  // namespace kestrin::home
