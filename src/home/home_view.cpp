#include "home/home_view.h"

#include "platform/text/text.h"
#include "usermodel/user_preferences.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

constexpr auto quickActionTimeout = 60s;
constexpr auto newsPollInterval = 2s;
constexpr int newsAttempts = 15;
constexpr const char* scheduleTitle = "Today's Schedule";
constexpr const char* mailTitle = "Recent mail";
constexpr const char* notesTitle = "Notes Summary";

}  // namespace

const std::vector<HomeView::Chip>& HomeView::quickActionChips() {
  static const std::vector<Chip> chips{{"schedule", "📅 Today's schedule"},
                                       {"news", "📰 Latest news"},
                                       {"notes", "📝 My notes"},
                                       {"gmail", "📧 Mail"},
                                       {"deep_research", "🔬 Deep research"},
                                       {"Give me one useful tip for today", "💡 A tip"}};
  return chips;
}

HomeView::HomeView(Services services) : services_(std::move(services)) {
  services_.caches.onChange = [this] {
    if (panel_.title == notesTitle) showNotesSummary();
    changed();
  };
}

void HomeView::load() {
  services_.calendar.fetchEvents(
      lifetime_.guard([this](const std::vector<CalendarEvent>&) { changed(); }));
}

std::string HomeView::salutation() const {
  const auto greeting =
      services_.persona.greeting(services_.settings.string(UserPreferences::userNameKey),
                                 dates::field(services_.dispatch.clock().wallNow(), "H"));
  return greeting.substr(0, greeting.find(". "));
}

void HomeView::showBanner(const std::string& message) {
  banner_ = message;
  changed();
}

void HomeView::open(Panel panel) {
  panel_ = std::move(panel);
  changed();
}

void HomeView::closePanel() {
  abandonQuestion();
  open({});
}

/// What is still under way is not shown any more, and the status that tells of it goes.
void HomeView::abandonQuestion() {
  ++questions_;
  newsPoll_.reset();
  if (panel_.isLoading) status(services_.speech.restingText());
}

void HomeView::handleQuickAction(const std::string& query) {
  if (query == "notes") return showRecentNotes();
  if (query == "calendar" || query == "schedule") return showTodaySchedule();
  if (query == "news") return showLatestNews();
  if (query == "gmail" && services_.gmail) return showGmailPopup();
  if (query == "deep_research") {
    if (services_.switchToView) services_.switchToView("Research");
    return;
  }
  processQuickAction(query);
}

void HomeView::showRecentNotes() {
  abandonQuestion();
  if (services_.caches.cachedNotesSummary().empty()) services_.caches.refreshNotesSummaryCache();
  showNotesSummary();
  changed();
}

void HomeView::showNotesSummary() {
  const std::string& summary = services_.caches.cachedNotesSummary();
  panel_ = {.title = notesTitle,
            .text = summary.empty() ? "There is no summary of your notes yet." : summary};
}

void HomeView::showTodaySchedule() {
  ++questions_;
  status("📅 Checking your schedule...");
  open({.title = scheduleTitle, .isLoading = true});
  services_.calendar.fetchEvents(lifetime_.guard([this, question = questions_](
                                                     const std::vector<CalendarEvent>& events) {
    if (question != questions_) return;
    const MailSummary mail = services_.mail ? services_.mail() : MailSummary{};
    const std::string spoken = services_.persona.generateDailyBriefing(
        events, services_.settings.string(UserPreferences::userNameKey), mail.unread,
        mail.subjects);
    Panel panel{.title = scheduleTitle, .text = spoken};
    for (const CalendarEvent& event : events)
      panel.items.push_back({event.title, event.timeString() + " · " + event.calendarName, "", ""});
    open(std::move(panel));
    services_.speech.speakText(spoken);
  }));
}

void HomeView::showLatestNews() {
  ++questions_;
  status("📰 Fetching latest news...");
  if (!services_.caches.cachedNewsPanelItems().empty()) return newsArrived();
  open({.title = "News", .isLoading = true});
  services_.caches.refreshNewsCache();
  pollNews(newsAttempts);
}

void HomeView::pollNews(int attempts) {
  newsPoll_ = services_.dispatch.after(
      services_.dispatch.mainQueue(), newsPollInterval,
      lifetime_.guard([this, attempts, question = questions_] {
        if (question != questions_) return;
        if (!services_.caches.cachedNewsPanelItems().empty()) return newsArrived();
        if (attempts > 1 && services_.caches.isNewsCacheLoading()) return pollNews(attempts - 1);
        const std::string& said = services_.caches.cachedNewsSpeechText();
        status("📰 No news");
        open({.title = "News", .text = said.empty() ? "There are no news right now." : said});
      }));
}

void HomeView::newsArrived() {
  const auto& items = services_.caches.cachedNewsPanelItems();
  open({.title = "News", .text = services_.caches.cachedNewsSpeechText(), .items = items});
  status("📰 " + std::to_string(items.size()) + " headlines");
  if (services_.caches.cachedNewsAudioData().empty()) return;
  status("🔊 Speaking news...");
  services_.speech.play(services_.caches.cachedNewsAudioData());
}

void HomeView::showGmailPopup() {
  status("📧 Checking your mail...");
  open({.title = mailTitle, .isLoading = true});
  services_.gmail->checkGmailAccessAndLoadEmails(lifetime_.guard([this, question = ++questions_] {
    if (question == questions_) mailArrived();
  }));
}

void HomeView::mailArrived() {
  const GmailPanel& gmail = *services_.gmail;
  const auto& emails = gmail.cachedEmails();
  Panel panel{.title = mailTitle, .text = gmail.prompt()};
  if (!gmail.problem().empty()) panel.text = "Your mail could not be read: " + gmail.problem();
  if (panel.text.empty() && emails.empty()) panel.text = "Your inbox is empty.";
  for (const Email& email : emails)
    panel.items.push_back({email.shownSubject(), email.sender(), email.webAddress(), ""});
  open(std::move(panel));
  if (!gmail.problem().empty()) return status("❌ Failed: " + gmail.problem(), true);
  status(gmail.prompt().empty() ? "📧 " + std::to_string(gmail.mailSummary().unread) + " unread"
                                : "📧 " + gmail.prompt());
}

void HomeView::processQuickAction(const std::string& query) {
  status("🔄 Processing: " + query);
  open({.title = "Results", .isLoading = true});
  services_.agent.ask(
      query, "auto", quickActionTimeout,
      lifetime_.guard([this, query, question = ++questions_](const Result<AgentReply>& reply) {
        if (question == questions_) quickActionAnswered(query, reply);
      }));
}

void HomeView::quickActionAnswered(const std::string& query, const Result<AgentReply>& reply) {
  const bool isShown = reply && (!reply->text.empty() || !reply->news.empty());
  if (!isShown && (!reply || reply->audio.empty())) {
    const std::string why = reply ? "The agent gave no answer" : reply.error().description;
    services_.logger.print("❌ Quick action failed: " + why);
    open({});
    return status("❌ Failed: " + why, true);
  }
  if (isShown) {
    const bool news = text::contains(text::lower(query), "news");
    open({.title = news ? "Latest update" : "Results", .text = reply->text, .items = reply->news});
    status("✅ Got response");
  } else {
    open({});
  }
  if (reply->audio.empty()) return;
  status("🔊 Speaking...");
  services_.speech.play(reply->audio);
}

}  // namespace kestrin
