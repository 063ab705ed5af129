#include "research/background_research.h"

#include <utility>

namespace kestrin {

void BackgroundResearch::start(const std::string& query) {
  service_.startJob(query, lifetime_.guard([this](const Result<std::string>& jobId) {
    if (!jobId) return say("⚠️ Background research start failed", Notice::failed);
    watch(*jobId);
  }));
}

void BackgroundResearch::watch(const std::string& jobId) {
  activeResearchJobId_ = jobId;
  ++watched_;
  polling_ = false;
  say("🔬 Researching in the background...", Notice::running);
  researchPollTimer_ = dispatch_.every(dispatch_.mainQueue(), pollInterval,
                                       lifetime_.guard([this] { pollResearchStatus(); }));
}

void BackgroundResearch::pollResearchStatus() {
  // A slow agent is not asked again before it has answered.
  if (!activeResearchJobId_ || polling_) return;
  polling_ = true;
  service_.jobStatus(*activeResearchJobId_,
                     lifetime_.guard([this, watched = watched_](const ResearchJobStatus& status) {
                       if (watched != watched_) return;
                       polling_ = false;
                       heard(status);
                     }));
}

void BackgroundResearch::heard(const ResearchJobStatus& status) {
  if (status.state == ResearchJobStatus::State::running) return;
  researchPollTimer_.reset();
  const std::string jobId = std::exchange(activeResearchJobId_, std::nullopt).value_or("");
  if (status.state == ResearchJobStatus::State::failed) {
    return say("⚠️ Research failed — try again", Notice::failed);
  }
  if (onBackgroundResearchComplete) onBackgroundResearchComplete(jobId, status.query);
}

}  // namespace kestrin
