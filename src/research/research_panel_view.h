#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/text/markdown.h"
#include "research/research_run.h"
#include "research/research_view.h"

namespace kestrin {

/// The floating panel: one question, its steps, its answer and the pages it rests on; or a stored
/// session, then without steps. Main queue only.
class ResearchPanelView {
 public:
  static constexpr const char* detailTitle = "🧠 Research Results";

  explicit ResearchPanelView(ResearchServices services) : services_(services) {}

  /// Shows the panel and asks; a running question is given up.
  void startResearch(const std::string& query);
  /// Shows a stored session.
  void showSession(const ResearchSession& session);
  /// Ends the question, if one is running.
  void stop();
  /// Hides the panel and ends the question.
  void close();
  void openURL(const std::string& url) { services_.openURL(url); }
  void copyResult() { services_.copy(summary_); }

  bool isShown() const { return isShown_; }
  bool isResearching() const { return run_ != nullptr; }
  const std::string& query() const { return query_; }
  const std::vector<ResearchStep>& steps() const { return steps_; }
  const std::string& summary() const { return summary_; }
  /// The summary as it is drawn.
  const std::vector<markdown::Block>& summaryBlocks() const { return summaryBlocks_; }
  const std::vector<ResearchSource>& sources() const { return sources_; }
  /// Empty unless the question failed.
  const std::string& errorText() const { return errorText_; }

  /// After every change; a widget redraws.
  std::function<void()> onChange;
  /// After the answer was stored.
  std::function<void()> onSaved;

 private:
  void show(const std::string& query);
  void handleStreamEvent(const Json& event);
  void finish(const std::string& query, const std::string& summary,
              const std::vector<ResearchSource>& sources);
  void failed(const std::string& text);
  void addStep(ResearchStep step);
  void endSteps(ResearchStep::StepStatus status);
  void setSummary(const std::string& summary, const std::vector<ResearchSource>& sources);
  void changed() {
    if (onChange) onChange();
  }

  const ResearchServices services_;
  bool isShown_ = false;
  std::string query_;
  std::vector<ResearchStep> steps_;
  std::string summary_;
  std::vector<markdown::Block> summaryBlocks_;
  std::vector<ResearchSource> sources_;
  std::string errorText_;
  std::unique_ptr<ResearchRun> run_;
  Lifetime lifetime_;
};

}  // namespace kestrin
