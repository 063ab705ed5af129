#include "research/research_panel_view.h"

#include <utility>

namespace kestrin {
namespace {

using StepStatus = ResearchStep::StepStatus;
using StepType = ResearchStep::StepType;

StepType stepType(ProgressStep::Type type) {
  switch (type) {
    case ProgressStep::Type::starting:
    case ProgressStep::Type::thinking:
      return StepType::thinking;
    case ProgressStep::Type::searching:
      return StepType::searching;
    case ProgressStep::Type::reading:
      return StepType::reading;
    case ProgressStep::Type::analyzing:
      return StepType::analyzing;
    case ProgressStep::Type::summarizing:
      return StepType::summarizing;
  }
  return StepType::thinking;
}

}  // namespace

void ResearchPanelView::startResearch(const std::string& query) {
  show(query);
  if (!services_.research.isConfigured()) return failed("Configuration error");
  run_ = std::make_unique<ResearchRun>(
      services_.dispatch, services_.research, query, "",
      ResearchRun::Callbacks{
          [this](const Json& event) { handleStreamEvent(event); },
          [this, query](const std::string& summary, const std::vector<ResearchSource>& sources) {
            finish(query, summary, sources);
          },
          [this](const std::string& text) { failed(text); }});
  changed();
}

void ResearchPanelView::showSession(const ResearchSession& session) {
  show(session.query);
  setSummary(session.summary, session.sources);
  changed();
}

void ResearchPanelView::show(const std::string& query) {
  run_.reset();
  isShown_ = true;
  query_ = query;
  steps_.clear();
  errorText_.clear();
  setSummary("", {});
}

void ResearchPanelView::stop() {
  if (!run_) return;
  run_.reset();
  endSteps(StepStatus::failed);
  changed();
}

void ResearchPanelView::close() {
  run_.reset();
  isShown_ = false;
  changed();
}

void ResearchPanelView::handleStreamEvent(const Json& event) {
  auto step = ProgressStep::fromEvent(event);
  if (!step) return;
  endSteps(StepStatus::completed);
  addStep({.id = {},
           .type = stepType(step->type),
           .title = std::move(step->title),
           .detail = std::move(step->detail),
           .url = std::move(step->url),
           .timestamp = {}});
  changed();
}

void ResearchPanelView::finish(const std::string& query, const std::string& summary,
                               const std::vector<ResearchSource>& sources) {
  run_.reset();
  endSteps(StepStatus::completed);
  addStep({.id = {},
           .type = StepType::complete,
           .title = "Research complete",
           .timestamp = {},
           .status = StepStatus::completed});
  setSummary(summary, sources);
  services_.research.saveResearchSession({.id = services_.random.uuid(),
                                          .query = query,
                                          .summary = summary,
                                          .sources = sources,
                                          .createdAt = {},
                                          .userId = {}},
                                         lifetime_.guard([this](const Status& saved) {
                                           if (saved && onSaved) onSaved();
                                         }));
  changed();
}

void ResearchPanelView::failed(const std::string& text) {
  run_.reset();
  endSteps(StepStatus::failed);
  errorText_ = text;
  changed();
}

void ResearchPanelView::addStep(ResearchStep step) {
  step.id = services_.random.uuid();
  step.timestamp = services_.dispatch.clock().wallNow();
  steps_.push_back(std::move(step));
}

/// The last step is the one in progress.
void ResearchPanelView::endSteps(StepStatus status) {
  if (!steps_.empty() && steps_.back().status == StepStatus::inProgress) {
    steps_.back().status = status;
  }
}

void ResearchPanelView::setSummary(const std::string& summary,
                                   const std::vector<ResearchSource>& sources) {
  summary_ = summary;
  summaryBlocks_ = markdown::parse(summary);
  sources_ = sources;
}

}  // namespace kestrin
