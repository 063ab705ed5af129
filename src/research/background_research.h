#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "research/research_service.h"

namespace kestrin {

/// A research that the agent does by itself, watched until it ends. One at a time: a newer one
/// takes the place of the one that is watched. Main queue only.
class BackgroundResearch {
 public:
  static constexpr std::chrono::seconds pollInterval{5};
  enum class Notice { running, failed };

  BackgroundResearch(Dispatch& dispatch, ResearchService& service)
      : dispatch_(dispatch), service_(service) {}

  /// Hands the question to the agent and watches the job.
  void start(const std::string& query);
  /// Watches a job that the agent has started of its own accord.
  void watch(const std::string& jobId);
  /// Of the job that is watched.
  const std::optional<std::string>& activeResearchJobId() const { return activeResearchJobId_; }

  /// A line for the user.
  std::function<void(const std::string& text, Notice notice)> onStatus;
  std::function<void(const std::string& jobId, const std::string& query)>
      onBackgroundResearchComplete;

 private:
  void pollResearchStatus();
  void heard(const ResearchJobStatus& status);
  void say(const std::string& text, Notice notice) {
    if (onStatus) onStatus(text, notice);
  }

  Dispatch& dispatch_;
  ResearchService& service_;
  std::optional<std::string> activeResearchJobId_;
  TimerHandle researchPollTimer_;
  bool polling_ = false;  ///< an answer is outstanding
  int watched_ = 0;       ///< tells answers to an earlier job's question from those to this one's
  Lifetime lifetime_;
};

}  // namespace kestrin
