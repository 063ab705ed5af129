#include "app/home.h"

namespace kestrin {

Home::Home(CoreServices& core, MainWindowController* window, std::string holdKeyName,
           std::function<std::vector<VoiceNote>()> notes)
    : agent_({core.platform.dispatch, core.platform.http, core.platform.settings, core.deviceId,
              core.geminiKey, core.auth, core.endpoints}),
      persona_(core.platform.dispatch.clock(), core.platform.random),
      speech_(agent_, core.player, persona_, core.logger,
              "Hold " + holdKeyName + " to ask anything"),
      calendar_(core.platform.dispatch, core.platform.http, core.platform.calendars,
                core.platform.settings, core.logger, core.deviceId, core.endpoints),
      googleAuth_(
          {core.platform.dispatch, core.platform.http, core.platform.settings, core.platform.random,
           core.platform.webPages, core.logger, core.deviceId, core.endpoints.backend},
          GoogleConsent::fromEnvironment()),
      googleAccount_(googleAuth_),
      gmail_({core.platform.dispatch, core.platform.http, core.platform.settings, core.logger,
              core.deviceId, speech_, core.platform.workspace, core.endpoints.backend}),
      caches_({core.platform.dispatch, core.platform.settings, core.logger, agent_, speech_,
               persona_, calendar_, std::move(notes), [this] { return gmail_.mailSummary(); },
               std::move(holdKeyName)}),
      triggers_({core.platform.dispatch, core.logger, agent_, speech_, calendar_,
                 core.platform.userNotifications, [this] { return gmail_.mailSummary(); }}),
      view_({core.platform.dispatch, core.platform.settings, core.logger, agent_, speech_, persona_,
             calendar_, caches_,
             [window](const std::string& tab) {
               if (window) window->navigateToTab(tab);
             },
             [this] { return gmail_.mailSummary(); }, &gmail_}),
      calendarView_(core.platform.dispatch, calendar_),
      activity_({core.platform.dispatch,
                 [this] {
                   std::set<std::string> ids;
                   for (const CalendarEvent& event : calendar_.todayEvents()) ids.insert(event.id);
                   return ids;
                 },
                 [this] {
                   std::set<std::string> ids;
                   for (const Email& email : gmail_.cachedEmails())
                     if (email.isUnread) ids.insert(email.id);
                   return ids;
                 },
                 [this] { return calendar_.today(); }}) {
  activity_.onReturn = [this](const std::string& message) { view_.showBanner(message); };
  const auto status = [this, window](const std::string& text, bool failed) {
    if (!window) return;
    // What somebody else has said meanwhile stands until they are done.
    if (text == speech_.restingText() && window->status().text != lastStatus_) return;
    lastStatus_ = text;
    window->updateStatus(text, failed ? StatusColor::red : StatusColor::primary);
  };
  speech_.onStatus = status;
  caches_.onStatus = status;
  view_.onStatus = status;
  gmail_.onStatus = status;
  // What may be read has changed.
  googleAccount_.onLinkChanged = [this] {
    gmail_.checkGmailAccessAndLoadEmails();
    view_.load();
    if (onLinkChanged) onLinkChanged();
  };
}

void Home::start() {
  view_.load();
  caches_.startAllBackgroundCaches();
  gmail_.start();
  triggers_.startTriggerPolling();
  activity_.startTracking();
}

}  // namespace kestrin
