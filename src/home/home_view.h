#pragma once

#include <string>
#include <vector>

#include "home/mail/gmail_panel.h"
#include "home/trigger_service.h"

namespace kestrin {

/// The home page: the day in words, chips that ask for more, and a panel that shows what came. Main
/// queue only; must be destroyed there.
class HomeView {
 public:
  struct Chip {
    const char* query;
    const char* title;
  };
  static const std::vector<Chip>& quickActionChips();

  struct Panel {
    std::string title;
    std::string text;  ///< Markdown
    std::vector<DynamicPanelItem> items;
    bool isLoading = false;
    bool isOpen() const { return isLoading || !title.empty(); }
  };
  struct Services {
    Dispatch& dispatch;
    SettingsStore& settings;
    Logger& logger;
    HomeAgent& agent;
    SpeechService& speech;
    AIPersonaService& persona;
    CalendarService& calendar;
    HomeCaches& caches;
    std::function<void(const std::string& tab)> switchToView;
    std::function<MailSummary()> mail;  ///< may be empty
    GmailPanel* gmail = nullptr;        ///< none: there is no mail
  };
  explicit HomeView(Services services);

  void load();
  void handleQuickAction(const std::string& query);
  void playLatestBriefing() { services_.caches.playLatestBriefing(); }
  void closePanel();
  void showLatestNews();
  void showTodaySchedule();
  void showRecentNotes();
  void showGmailPopup();

  /// What came while the user was away, above everything until it is dismissed.
  void showBanner(const std::string& message);
  void speakBanner() { services_.speech.speakText(banner_); }
  void dismissBanner() { showBanner(""); }
  static constexpr const char* bannerTitle = "Update";
  const std::string& banner() const { return banner_; }

  /// "Good morning, Ada"
  std::string salutation() const;
  /// "Thursday, 26 November"
  std::string dateLine() const {
    return dates::format(services_.dispatch.clock().wallNow(), "EEEE, d MMMM");
  }
  const Panel& panel() const { return panel_; }
  const std::vector<CalendarEvent>& todayEvents() const { return services_.calendar.todayEvents(); }
  const HomeCaches& caches() const { return services_.caches; }

  std::function<void(const std::string& text, bool failed)> onStatus;
  /// After every change; a widget redraws.
  std::function<void()> onChange;

 private:
  void processQuickAction(const std::string& query);
  void quickActionAnswered(const std::string& query, const Result<AgentReply>& reply);
  void abandonQuestion();
  void open(Panel panel);
  void pollNews(int attempts);
  void newsArrived();
  void showNotesSummary();
  void mailArrived();
  void status(const std::string& text, bool failed = false) {
    if (onStatus) onStatus(text, failed);
  }
  void changed() {
    if (onChange) onChange();
  }

  const Services services_;
  Panel panel_;
  std::string banner_;
  int questions_ = 0;  ///< only the answer to the newest is shown
  TimerHandle newsPoll_;
  Lifetime lifetime_;
};

}  // namespace kestrin
