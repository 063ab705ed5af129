#include <algorithm>
#include <utility>

#include "platform/text/text.h"
#include "research/research_view.h"

namespace kestrin {

void ResearchServices::openURL(const std::string& url) const {
  // The address comes from a page that somebody wrote.
  if (!isHttpUrl(url)) return;
  dispatch.globalQueue()->post([&workspace = workspace, &logger = logger, url] {
    if (const Status opened = workspace.open(url); !opened) {
      logger.log("Research", LogLevel::error, opened.error().description);
    }
  });
}

void ResearchServices::copy(const std::string& text) const {
  dispatch.globalQueue()->post([&pasteboard = pasteboard, &logger = logger, text] {
    if (const Status copied = pasteboard.setString(text); !copied) {
      logger.log("Research", LogLevel::error, copied.error().description);
    }
  });
}

void ResearchView::saveResearchSession(const std::string& summary,
                                       const std::vector<ResearchSource>& sources) {
  if (!currentSessionId_) return;
  ResearchSession session;
  session.id = *currentSessionId_;
  session.query = text::join(contents(MessageType::user), ResearchSession::questionSeparator);
  session.summary = summary;
  session.sources = sources;
  services_.research.saveResearchSession(std::move(session),
                                         lifetime_.guard([this](const Status& saved) {
                                           if (saved) loadResearchHistory();
                                         }));
}

void ResearchView::loadResearchHistory() {
  isLoadingHistory_ = true;
  services_.research.loadResearchHistory(lifetime_.guard(
      [this, load = ++historyLoads_](const Result<std::vector<ResearchSession>>& sessions) {
        if (load != historyLoads_) return;
        isLoadingHistory_ = false;
        historyLoaded(sessions);
      }));
}

void ResearchView::historyLoaded(const Result<std::vector<ResearchSession>>& sessions) {
  if (sessions) {
    sessions_ = *sessions;
  } else if (sessions.error().domain == "HTTP") {
    sessions_.clear();
  }
  render();
}

void ResearchView::deleteHistoryItem(size_t index) {
  if (index >= sessions_.size()) return;
  const std::string id = sessions_[index].id;
  services_.research.deleteSession(
      id, lifetime_.guard([this, id](const Status&) { sessionDeleted(id); }));
}

void ResearchView::sessionDeleted(const std::string& id) {
  std::erase_if(sessions_, [&](const ResearchSession& each) { return each.id == id; });
  if (currentSessionId_ == id) clearConversation();
  // A list that was asked for before would bring it back.
  if (isLoadingHistory_) loadResearchHistory();
  render();
}

const ResearchSession* ResearchView::session(const std::string& id) const {
  const auto found = std::find_if(sessions_.begin(), sessions_.end(),
                                  [&](const ResearchSession& each) { return each.id == id; });
  return found == sessions_.end() ? nullptr : &*found;
}

std::vector<ResearchSection> ResearchView::sections() const {
  return groupSessionsByDate(sessions_, services_.dispatch.clock().wallNow());
}

}  // namespace kestrin
