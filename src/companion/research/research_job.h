#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "companion/agent/language_model.h"
#include "companion/research/answer_writer.h"
#include "companion/research/page_fetcher.h"
#include "companion/research/search_provider.h"
#include "platform/dispatch/dispatch.h"
#include "platform/json/json.h"

namespace kestrin::research {

struct ResearchQuestion {
  std::string query;
  std::string context;
  std::string userId;
  size_t maxSources = 8;
  std::string searchUrl;  ///< of the user's search service; empty: there is none
  std::optional<agent::ModelEndpoint> model;
};

/// Finds among the user's own records what fits the words, newest first; answers once, from any
/// thread.
using RecordSearch = std::function<void(const std::string& userId, const std::string& query,
                                        std::function<void(std::vector<Document>)> completion)>;

struct ResearchSource {
  std::string title, url, snippet;
  Json toJson() const;
};

/// One question from its search to its answer, on a queue of its own. Every step is told as it
/// happens. A page that cannot be read costs that page, a model that fails costs the wording.
class ResearchJob : public std::enable_shared_from_this<ResearchJob> {
 public:
  /// What it works with. All of these must outlive the queue's jobs.
  struct Tools {
    Dispatch& dispatch;
    QueueRef queue;
    SearchProvider& search;
    PageFetcher& pages;
    agent::LanguageModel& model;
    RecordSearch records;
    std::function<void(std::string)> log;
  };
  /// `onEvent` gets the steps, then one event with `summary` and `sources`; `onEnd` follows, once.
  /// Both on the queue, and not after `cancel`.
  ResearchJob(const Tools& tools, ResearchQuestion question,
              std::function<void(const Json&)> onEvent, std::function<void()> onEnd);

  void start();
  /// From any thread.
  void cancel();

 private:
  static constexpr size_t readers = 4;  ///< pages at once

  // On the queue:
  void step(const char* type, const std::string& title, const std::string& detail = {},
            const std::string& url = {});
  void found(const Result<std::vector<SearchHit>>& hits);
  void searchRecords(const std::string& why);
  void readNext();
  void read(size_t index, const Result<FetchedPage>& page);
  void analyse();
  void summarise();
  void modelEnded(const std::optional<Error>& error);
  void answer(const std::string& summary);
  /// A callback for another thread that runs `work` on the queue while the job is wanted.
  template <class Work>
  auto onQueue(Work work);

  const Tools tools_;
  const ResearchQuestion question_;
  std::function<void(const Json&)> onEvent_;
  std::function<void()> onEnd_;
  std::vector<SearchHit> hits_;
  Findings findings_;
  std::string note_;  ///< what the user must know of how the answer came about
  std::string written_;
  std::vector<HttpTaskRef> tasks_;
  const std::shared_ptr<agent::LanguageModel::Cancel> modelCancel_ =
      std::make_shared<agent::LanguageModel::Cancel>();
  size_t nextPage_ = 0, reading_ = 0;
  bool cancelled_ = false;
};

}  // namespace kestrin::research
