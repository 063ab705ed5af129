#pragma once

#include <memory>

#include "liveassist/live_assist_view.h"

namespace kestrin {

/// Live Assist whole: the page and its controller, and what it shares with a call. Main queue only;
/// must be destroyed there.
class LiveAssist {
 public:
  /// What it is made from. All of these must outlive it.
  struct Sources {
    Dispatch& dispatch;
    Http& http;
    Audio& audio;
    Files& files;
    Random& random;
    SettingsStore& settings;
    Pasteboard& pasteboard;
    Logger& logger;
    DeviceIdManager& deviceId;
    GeminiKeyManager& geminiKey;
    UserPreferences& preferences;
    BehavioralProfileManager& profiles;
    Endpoints endpoints;
  };

  /// Reads the device's id: a wait for the disk, if nothing has read it before.
  explicit LiveAssist(const Sources& sources)
      : context_(std::make_shared<LiveContextClient>(
            sources.dispatch, sources.http, sources.settings, sources.deviceId, sources.geminiKey,
            sources.preferences, sources.endpoints)),
        service_(sources.dispatch, sources.logger, context_),
        feedbackWindow_(sources.dispatch),
        view_({.dispatch = sources.dispatch,
               .http = sources.http,
               .audio = sources.audio,
               .files = sources.files,
               .random = sources.random,
               .settings = sources.settings,
               .pasteboard = sources.pasteboard,
               .logger = sources.logger,
               .preferences = sources.preferences,
               .profiles = sources.profiles,
               .context = context_,
               .service = service_,
               .feedbackWindow = feedbackWindow_,
               .endpoints = sources.endpoints,
               .deviceId = sources.deviceId.deviceId()}) {}

  LiveAssistView& view() { return view_; }
  LiveAssistService& service() { return service_; }
  LiveFeedbackWindow& feedbackWindow() { return feedbackWindow_; }

 private:
  const std::shared_ptr<LiveContextClient> context_;
  LiveAssistService service_;
  LiveFeedbackWindow feedbackWindow_;
  LiveAssistView view_;
};

}  // namespace kestrin
