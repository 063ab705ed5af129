#include "liveassist/live_context_loop.h"

#include <algorithm>
#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "Live Context";

struct TaggedTranscript {
  Date time;
  const char* label;
  const std::string* text;
};

void addLast(std::vector<TaggedTranscript>& lines, const std::vector<LATranscriptEntry>& entries,
             const char* label) {
  const size_t first = entries.size() - std::min(entries.size(), LiveContextLoop::linesPerChannel);
  for (size_t i = first; i < entries.size(); ++i) {
    lines.push_back({entries[i].timestamp, label, &entries[i].text});
  }
}

std::string namesOf(const std::vector<Json>& documents) {
  std::vector<std::string> names;
  for (const Json& document : documents) names.push_back(document.stringAt("name", ""));
  return text::join(names, ", ");
}

std::string keysOf(const Json& answer) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : answer.members()) keys.push_back(key);
  return text::join(keys, ", ");
}

std::string filtersText(const std::map<std::string, bool>& filters) {
  std::vector<std::string> words;
  for (const auto& [name, on] : filters) words.push_back(name + (on ? ": true" : ": false"));
  return text::join(words, ", ");
}

}  // namespace

void LiveContextLoop::start() {
  timer_ = parts_.dispatch.every(parts_.dispatch.mainQueue(), refreshInterval,
                                 [this] { refreshLiveContext(); });
}

void LiveContextLoop::reset() {
  pacing_.clear();
  ++session_;
}

std::string LiveContextLoop::transcript() const {
  std::vector<TaggedTranscript> lines;
  addLast(lines, parts_.chat.systemTranscripts(), "OTHER");
  addLast(lines, parts_.chat.micTranscripts(), "YOU");
  std::stable_sort(lines.begin(), lines.end(),
                   [](const auto& a, const auto& b) { return a.time < b.time; });
  std::string out;
  for (const TaggedTranscript& line : lines) {
    if (!out.empty()) out += '\n';
    out += "[" + std::string(line.label) + "] " + *line.text;
  }
  return out;
}

std::vector<LAAttachedFile> LiveContextLoop::tickedFiles() const {
  std::vector<LAAttachedFile> ticked;
  if (!parts_.panel.contextFilters().at("docs")) return ticked;
  for (const LAAttachedFile& file : parts_.sessions.attachedFiles()) {
    if (file.useForContext) ticked.push_back(file);
  }
  return ticked;
}

void LiveContextLoop::refreshLiveContext() {
  if (!parts_.isWanted()) return;
  LiveContextRequest request;
  request.transcript = transcript();
  if (request.transcript.empty()) return;
  const auto& contact = parts_.panel.contact();
  if (contact) request.contactEmail = contact->email;
  request.filters = parts_.panel.contextFilters();
  request.useCase = parts_.useCase();
  request.pinnedItems = parts_.sessions.pinnedItems();
  const size_t characters = text::characterCount(request.transcript);
  const SteadyTime now = parts_.dispatch.clock().steadyNow();
  request.generateFeedback = pacing_.wantsFeedback(request.transcript, characters, now);
  if (request.generateFeedback) pacing_.asked(now);

  const auto files = tickedFiles();
  parts_.files.ensureFileContentCached(
      files, parts_.sessions.fileMimeTypes(),
      lifetime_.guard([this, files, request, characters, session = session_] {
        if (session != session_) return;
        LiveContextRequest complete = request;
        complete.documents = parts_.files.documents(files);
        send(std::move(complete), characters);
      }));
}

void LiveContextLoop::send(LiveContextRequest request, size_t characters) {
  // A call that is running has its own conversation there.
  if (LiveAssistService& service = parts_.service; !service.isRunning()) {
    service.conversationTranscript = request.transcript;
    service.contextFilters = request.filters;
    service.useCase = request.useCase;
    service.documentsPayload = request.documents;
    service.pinnedItems = request.pinnedItems;
  }

  parts_.logger.log(source, LogLevel::info,
                    "🔄 Refreshing context (transcript: " + std::to_string(characters) +
                        " chars, docs: " + std::to_string(request.documents.size()) +
                        ", feedback: " + (request.generateFeedback ? "true" : "false") +
                        ", useCase: " + rawValue(request.useCase) + ")");
  if (!request.documents.empty()) {
    parts_.logger.log(source, LogLevel::info, "  Document names: " + namesOf(request.documents));
  }
  parts_.client->refresh(
      request, lifetime_.guard([this, request, session = session_](const Result<Json>& answer) {
        if (session == session_) handle(answer, request);
      }));
}

void LiveContextLoop::handle(const Result<Json>& answer, const LiveContextRequest& asked) {
  if (asked.generateFeedback) pacing_.answered();
  if (!answer) {
    const Error& error = answer.error();
    std::string line = "Request failed: " + error.description;
    if (error.domain == liveContextDomain) {
      line = error.code == liveContextNotJson ? error.description
                                              : "Backend error: " + error.description;
    }
    return parts_.logger.log(source, LogLevel::error, line);
  }
  logAnswer(*answer, asked);
  parts_.panel.updateWithLiveContext(*answer);
  const std::string summary = answer->stringAt("feedbackSummary", "");
  const auto suggestions = answer->stringsAt("suggestions");
  if (!summary.empty()) pacing_.received(parts_.dispatch.clock().steadyNow());
  if (!summary.empty() || !suggestions.empty()) {
    // What comes after the stop does not bring the window back.
    if (parts_.isWanted()) parts_.window.update(summary, suggestions);
    parts_.panel.updateInlineFeedback(summary, suggestions);
  }
  if (onAnswer) onAnswer(*answer);
}

void LiveContextLoop::logAnswer(const Json& answer, const LiveContextRequest& asked) {
  const auto log = [this](LogLevel level, const std::string& line) {
    parts_.logger.log(source, level, line);
  };
  const size_t snippets = answer.objectsAt("docItems").size();
  if (snippets > 0) {
    log(LogLevel::info, "✅ " + std::to_string(snippets) + " document snippets");
  } else if (!asked.documents.empty()) {
    log(LogLevel::warning, "⚠️ No document snippets in response (docs sent: " +
                               std::to_string(asked.documents.size()) +
                               ", filters: " + filtersText(asked.filters) + ")");
  }
  log(LogLevel::debug, "Response keys: " + keysOf(answer));
  // Without having been asked for, there is none.
  if (!asked.generateFeedback) return;
  const std::string summary = answer.stringAt("feedbackSummary", "");
  log(summary.empty() ? LogLevel::warning : LogLevel::info,
      summary.empty() ? "⚠️ No feedback summary in response (will retry on next cycle)"
                      : "✅ Feedback summary: " + summary);
  const size_t suggestions = answer.stringsAt("suggestions").size();
  log(suggestions == 0 ? LogLevel::warning : LogLevel::info,
      suggestions == 0 ? "⚠️ No suggestions in response"
                       : "✅ Suggestions: " + std::to_string(suggestions) + " items");
}

}  // namespace kestrin
