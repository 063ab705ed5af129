#include "companion/research/research_job.h"

#include <set>
#include <utility>

#include "companion/research/readable_text.h"
#include "platform/text/text.h"

namespace kestrin::research {
namespace {

constexpr size_t mostPassages = 16, passagesOfOne = 4;
constexpr size_t mostWritten = 64u << 10;  // bytes
constexpr size_t snippetLength = 240;      // characters
constexpr size_t keptContextWords = 6;
/// A follow-up shorter than this needs the words of what went before.
constexpr size_t shortQuestion = 4;

std::string plural(size_t count, const std::string& word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

/// What the search service is asked: "and how deep is it?" means nothing to it without the subject.
std::string searchQuery(const ResearchQuestion& question) {
  const auto own = searchWords(question.query);
  if (question.context.empty() || own.size() >= shortQuestion) return question.query;
  std::string query = question.query;
  std::set<std::string> added(own.begin(), own.end());
  for (const auto& word : searchWords(text::prefix(question.context, 400))) {
    if (added.size() == own.size() + keptContextWords) break;
    if (added.insert(word).second) query += " " + word;
  }
  return query;
}

std::string hostOf(const std::string& url) {
  const size_t begin = url.find("://") + 3;
  return url.substr(begin, url.find_first_of("/?#", begin) - begin);
}

/// Addresses that differ in their fragment alone are one page.
std::string pageOf(const std::string& url) { return url.substr(0, url.find('#')); }

}  // namespace

Json ResearchSource::toJson() const {
  return Json::object({{"title", title}, {"url", url}, {"snippet", snippet}});
}

ResearchJob::ResearchJob(const Tools& tools, ResearchQuestion question,
                         std::function<void(const Json&)> onEvent, std::function<void()> onEnd)
    : tools_(tools),
      question_(std::move(question)),
      onEvent_(std::move(onEvent)),
      onEnd_(std::move(onEnd)) {
  findings_.question = question_.query;
  findings_.context = question_.context;
}

template <class Work>
auto ResearchJob::onQueue(Work work) {
  return [self = shared_from_this(), work = std::move(work)](auto value) {
    self->tools_.queue->post([self, work, value = std::move(value)] {
      if (!self->cancelled_) work(*self, value);
    });
  };
}

void ResearchJob::start() {
  tools_.queue->post([self = shared_from_this()] {
    if (self->cancelled_) return;
    self->step("starting", "Starting research", self->question_.query);
    if (self->question_.searchUrl.empty())
      return self->searchRecords(
          "No search service is set up, so this rests on your own notes, dictations and earlier "
          "research alone. \"kestrin settings set pref_searchEndpoint ADDRESS\" names one.");
    const std::string query = searchQuery(self->question_);
    self->step("searching", "Searching the web", query);
    self->tasks_.push_back(self->tools_.search.search(
        self->question_.searchUrl, query,
        self->onQueue([](ResearchJob& job, const Result<std::vector<SearchHit>>& hits) {
          job.found(hits);
        })));
  });
}

void ResearchJob::cancel() {
  tools_.queue->post([self = shared_from_this()] {
    if (std::exchange(self->cancelled_, true)) return;
    for (const auto& task : self->tasks_) task->cancel();
    (*self->modelCancel_)();
    self->onEvent_ = nullptr;
    self->onEnd_ = nullptr;
  });
}

void ResearchJob::step(const char* type, const std::string& title, const std::string& detail,
                       const std::string& url) {
  Json event = Json::object({{"step_type", type}, {"title", title}});
  if (!detail.empty()) event.set("detail", detail);
  if (!url.empty()) event.set("url", url);
  onEvent_(event);
}

void ResearchJob::found(const Result<std::vector<SearchHit>>& hits) {
  if (!hits) {
    tools_.log("research: " + hits.error().description);
    return searchRecords("The search service failed (" + hits.error().description +
                         "), so this rests on your own notes, dictations and earlier research "
                         "alone.");
  }
  std::set<std::string> pages;
  for (const SearchHit& hit : *hits) {
    if (hits_.size() < question_.maxSources && pages.insert(pageOf(hit.url)).second)
      hits_.push_back(hit);
  }
  if (hits_.empty()) return answer("Nothing was found for this question.");
  step("searching", "Found " + plural(hits_.size(), "page"));
  for (const SearchHit& hit : hits_) findings_.documents.push_back({hit.title, hit.url, {}});
  readNext();
}

void ResearchJob::searchRecords(const std::string& why) {
  note_ = why;
  step("searching", "Searching your own records", question_.query);
  if (!tools_.records) return analyse();
  tools_.records(question_.userId, searchQuery(question_),
                 onQueue([](ResearchJob& job, const std::vector<Document>& documents) {
                   for (const Document& document : documents) {
                     if (job.findings_.documents.size() < job.question_.maxSources)
                       job.findings_.documents.push_back(document);
                   }
                   job.analyse();
                 }));
}

void ResearchJob::readNext() {
  while (reading_ < readers && nextPage_ < hits_.size()) {
    const size_t index = nextPage_++;
    ++reading_;
    step("reading", "Reading " + hits_[index].title, hostOf(hits_[index].url), hits_[index].url);
    tasks_.push_back(tools_.pages.fetch(
        hits_[index].url, onQueue([index](ResearchJob& job, const Result<FetchedPage>& page) {
          job.read(index, page);
        })));
  }
  if (reading_ == 0) analyse();
}

void ResearchJob::read(size_t index, const Result<FetchedPage>& page) {
  --reading_;
  Document& document = findings_.documents[index];
  if (page) {
    const bool plain = !text::contains(text::lower(page->contentType), "html");
    auto readable = plain ? readablePlain(page->body) : readableHtml(page->body, page->contentType);
    document.blocks = std::move(readable.blocks);
  } else {
    tools_.log("research: " + document.url + ": " + page.error().description);
  }
  // What the search service knows of it is better than nothing.
  if (document.blocks.empty() && !hits_[index].snippet.empty())
    document.blocks = {hits_[index].snippet};
  readNext();
}

void ResearchJob::analyse() {
  findings_.passages = bestPassages(question_.query + " " + searchQuery(question_),
                                    findings_.documents, mostPassages, passagesOfOne);
  if (findings_.passages.empty())
    return answer(note_.empty() ? "None of the pages that were found says anything about this."
                                : "Nothing in them fits this question.");
  step("analyzing", "Comparing " + plural(findings_.documents.size(), "source"),
       plural(findings_.passages.size(), "passage") + " that fit the question");
  summarise();
}

void ResearchJob::summarise() {
  step("summarizing", "Writing the answer",
       question_.model ? "with the language model" : "in the sources' own words");
  if (!question_.model) return answer(extractedAnswer(findings_));
  agent::LanguageModel::Handlers handlers;
  handlers.onText = onQueue([](ResearchJob& job, const std::string& piece) {
    if (job.written_.size() < mostWritten) job.written_ += piece;
  });
  handlers.onEnd =
      onQueue([](ResearchJob& job, const std::optional<Error>& error) { job.modelEnded(error); });
  tools_.model.stream(*question_.model, answerPrompt(findings_), modelCancel_, std::move(handlers));
}

void ResearchJob::modelEnded(const std::optional<Error>& error) {
  if (!error && !text::trim(written_).empty()) return answer(text::trim(written_));
  const std::string why = error ? error->description : "it said nothing";
  tools_.log("research: language model: " + why);
  note_ += std::string(note_.empty() ? "" : "\n\n") + "The language model did not answer (" + why +
           "); this is what the sources say in their own words.";
  answer(extractedAnswer(findings_));
}

void ResearchJob::answer(const std::string& summary) {
  std::string whole = summary;
  if (!note_.empty()) whole = "*" + escapedMarkdown(note_) + "*\n\n" + summary;
  Json sources = Json::array();
  for (size_t i = 0; i < findings_.documents.size(); ++i) {
    const Document& document = findings_.documents[i];
    std::string snippet = document.blocks.empty() ? "" : document.blocks.front();
    for (const Passage& passage : findings_.passages) {
      if (passage.document != i) continue;
      snippet = passage.text;
      break;
    }
    sources.push(ResearchSource{document.title, document.url, text::prefix(snippet, snippetLength)}
                     .toJson());
  }
  onEvent_(Json::object({{"summary", whole}, {"sources", std::move(sources)}}));
  if (const auto end = std::exchange(onEnd_, nullptr)) end();
}

}  // namespace kestrin::research
