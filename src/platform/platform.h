#pragma once

#include "platform/accessibility.h"
#include "platform/audio.h"
#include "platform/browser.h"
#include "platform/calendars.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/http.h"
#include "platform/key_monitor.h"
#include "platform/login_item.h"
#include "platform/notification_center.h"
#include "platform/pasteboard.h"
#include "platform/place.h"
#include "platform/processes.h"
#include "platform/secret_store.h"
#include "platform/settings.h"
#include "platform/synthetic_input.h"
#include "platform/system_controls.h"
#include "platform/system_speech.h"
#include "platform/user_notifications.h"
#include "platform/web_page.h"
#include "platform/workspace.h"

namespace kestrin {

/// Every port that a program uses. The composition root (or a test) owns the backends and fills
/// this with references; services take from it just what they use.
struct Platform {
  Dispatch& dispatch;
  Http& http;
  Files& files;
  Random& random;
  SettingsStore& settings;
  NotificationCenter& notifications;
  Processes& processes;
  KeyMonitor& keyMonitor;
  SyntheticInput& input;
  Accessibility& accessibility;
  Workspace& workspace;
  Pasteboard& pasteboard;
  Audio& audio;
  Browser& browser;
  SecretStore& secrets;
  UserNotifications& userNotifications;
  SystemControls& controls;
  SystemSpeech& speech;
  LoginItem& loginItem;
  PlaceService& place;
  Calendars& calendars;
  WebPages& webPages;
};

}  // namespace kestrin
