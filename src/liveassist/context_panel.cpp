#include "liveassist/context_panel.h"

#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

/// "EMOTION_HAPPY" to "Happy", "INTENT_ASK_QUESTION" to "Ask question".
std::string shownLabel(std::string label, std::string_view prefix) {
  if (label.starts_with(prefix)) label.erase(0, prefix.size());
  return text::capitalizeFirst(text::lower(text::replaceAll(std::move(label), "_", " ")));
}

void count(const std::string& label, std::string_view prefix, std::string& last,
           std::map<std::string, int>& all) {
  if (label.empty()) return;
  last = shownLabel(label, prefix);
  ++all[last];
}

}  // namespace

const std::vector<LiveAssistContextPanel::Source>& LiveAssistContextPanel::sources() {
  static const std::vector<Source> all = {{"docs", "Documents"},
                                          {"memories", "Memories"},
                                          {"notes", "Notes"},
                                          {"history", "History"},
                                          {"emails", "Emails"}};
  return all;
}

LiveAssistContextPanel::LiveAssistContextPanel() {
  for (const Source& source : sources()) filters_[source.name] = false;
}

void LiveAssistContextPanel::updateWithLiveContext(const Json& answer) {
  if (auto summary = answer.stringAt("feedbackSummary", ""); !summary.empty()) {
    feedback_.feedbackSummary = std::move(summary);
  }
  if (auto suggestions = answer.stringsAt("suggestions"); !suggestions.empty()) {
    feedback_.suggestions = std::move(suggestions);
  }
  if (auto keywords = answer.stringsAt("keywords"); !keywords.empty()) {
    feedback_.keywords = std::move(keywords);
  }
  if (auto items = answer.objectListAt("memoryItems")) feedback_.memoryItems = std::move(*items);
  if (auto items = answer.objectListAt("docItems")) feedback_.docItems = std::move(*items);
  rerender();
}

void LiveAssistContextPanel::updateWithContactContext(const Json& answer) {
  contactLines_.clear();
  if (const auto summary = answer.stringAt("summary", ""); !summary.empty()) {
    contactLines_ = text::split(summary, "\n");
  }
  if (const auto keywords = answer.stringsAt("keywords"); !keywords.empty()) {
    contactLines_.push_back(text::join(keywords, ", "));
  }
  if (auto items = answer.objectListAt("memoryItems"); items && !items->empty()) {
    feedback_.memoryItems = std::move(*items);
  }
  rerender();
}

void LiveAssistContextPanel::updateInlineFeedback(const std::string& summary,
                                                  const std::vector<std::string>& suggestions) {
  if (!summary.empty()) feedback_.feedbackSummary = summary;
  if (!suggestions.empty()) feedback_.suggestions = suggestions;
  rerender();
}

void LiveAssistContextPanel::trackMetadata(LAAudioChannel channel, const std::string& emotion,
                                           const std::string& intent) {
  Tracked& side = channel == LAAudioChannel::microphone ? mic_ : system_;
  count(emotion, "EMOTION_", side.emotion, side.emotions);
  count(intent, "INTENT_", side.intent, side.intents);
  rerender();
}

void LiveAssistContextPanel::setCapturing(bool capturing) {
  isCapturing_ = capturing;
  rerender();
}

void LiveAssistContextPanel::clearLiveFeedback() {
  feedback_ = {};
  mic_ = {};
  system_ = {};
  rerender();
}

void LiveAssistContextPanel::selectContact(const std::string& email, const std::string& name) {
  if (email.empty() || contact_ == Contact{email, name}) return;
  contact_ = Contact{email, name};
  contactLines_.clear();
  rerender();
  if (onContactSelected) onContactSelected(email, name);
}

void LiveAssistContextPanel::clearContact() {
  contact_.reset();
  contactLines_.clear();
  rerender();
}

void LiveAssistContextPanel::setSource(const std::string& name, bool on) {
  const auto known = filters_.find(name);
  if (known == filters_.end() || std::exchange(known->second, on) == on) return;
  rerender();
  if (onSourcesChanged) onSourcesChanged();
}

void LiveAssistContextPanel::pin(const std::vector<Json>& items, size_t index, const char* kind) {
  if (index >= items.size() || !onPin) return;
  Json item = items[index];
  // The same thing is pinned once, also where the backend gave it no id.
  if (item.stringAt("id", "").empty()) {
    item.set("id", kind + ("_" + item.stringAt("title", "")) + item.stringAt("detail", ""));
  }
  onPin(item);
}

void LiveAssistContextPanel::pinMemory(size_t index) {
  pin(feedback_.memoryItems, index, "memory");
}

void LiveAssistContextPanel::pinDocument(size_t index) { pin(feedback_.docItems, index, "doc"); }

std::string LiveAssistContextPanel::header() const {
  if (!contact_) return plainHeader;
  return contact_->name.empty() ? contact_->email : contact_->name;
}

std::vector<LiveAssistContextPanel::Item> LiveAssistContextPanel::itemsOf(
    const std::vector<Json>& items) {
  std::vector<Item> out;
  for (const Json& item : items) {
    out.push_back(
        {item.stringAt("icon", ""), item.stringAt("title", ""), item.stringAt("detail", ""), item});
  }
  return out;
}

std::vector<LiveAssistContextPanel::Item> LiveAssistContextPanel::memoryItems() const {
  return itemsOf(feedback_.memoryItems);
}

std::vector<LiveAssistContextPanel::Item> LiveAssistContextPanel::docItems() const {
  return itemsOf(feedback_.docItems);
}

bool LiveAssistContextPanel::showsFeedbackWithoutContact() const {
  return !contact_ && (!feedback_.feedbackSummary.empty() || !feedback_.suggestions.empty());
}

LAFeedbackSnapshot LiveAssistContextPanel::snapshot() const { return feedback_; }

std::string LiveAssistContextPanel::emptyText() const {
  return isCapturing_ ? "Listening. Feedback comes with the conversation."
                      : "Start capture to get feedback on the conversation.";
}

}  // namespace kestrin
