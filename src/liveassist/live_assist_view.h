#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "liveassist/behavioral_profile_manager.h"
#include "liveassist/chat_view.h"
#include "liveassist/context_panel.h"
#include "liveassist/drive_client.h"
#include "liveassist/file_content_cache.h"
#include "liveassist/live_assist_audio_engine.h"
#include "liveassist/live_assist_service.h"
#include "liveassist/live_assist_session_manager.h"
#include "liveassist/live_assist_transcriber.h"
#include "liveassist/live_context_loop.h"
#include "liveassist/live_feedback_window.h"
#include "liveassist/prompt_editor.h"
#include "liveassist/session_files_window.h"
#include "liveassist/session_history_window.h"

namespace kestrin {

/// What Live Assist is made of. All of these must outlive it.
struct LiveAssistServices {
  Dispatch& dispatch;
  Http& http;
  Audio& audio;
  Files& files;
  Random& random;
  SettingsStore& settings;
  Pasteboard& pasteboard;
  Logger& logger;
  UserPreferences& preferences;
  BehavioralProfileManager& profiles;
  std::shared_ptr<LiveContextClient> context;
  LiveAssistService& service;
  LiveFeedbackWindow& feedbackWindow;
  Endpoints endpoints;
  std::string deviceId;
};

/// The Live Assist page and the controller behind it: capture, transcript, session, context and
/// feedback, and the windows around them. Main queue only; must be destroyed there.
class LiveAssistView {
 public:
  static constexpr const char* enabledKey = "LA_LiveAssistEnabled";
  static constexpr const char* useCaseKey = "LA_UseCase";

  enum class StatusKind { plain, muted, starting, good, failed };
  struct StatusText {
    std::string text;
    StatusKind kind = StatusKind::plain;
  };
  struct Alert {
    std::string title;
    std::string text;
  };

  explicit LiveAssistView(LiveAssistServices services);
  ~LiveAssistView();
  LiveAssistView(const LiveAssistView&) = delete;
  LiveAssistView& operator=(const LiveAssistView&) = delete;

  // What the page's controls do:

  void startCapture();
  void stopCapture();
  void newSessionClicked();
  /// The switch for feedback; capture and transcript go on without it.
  void liveAssistToggled(bool on);
  /// Nothing while capturing.
  void chooseUseCase(LALiveAssistUseCase useCase);
  /// An alert instead while capturing.
  void editPromptClicked();
  void loadSession(const std::string& sessionId);
  void dismissAlert();

  bool isCapturing() const { return isCapturing_; }
  bool isStarting() const { return isStarting_; }
  bool isLiveAssistEnabled() const { return isEnabled_; }
  LALiveAssistUseCase liveAssistUseCase() const { return useCase_; }
  bool canStart() const { return !isCapturing_ && !isStarting_; }
  bool canStop() const { return isCapturing_; }
  bool canChooseMode() const { return !isCapturing_; }
  const StatusText& status() const { return status_; }
  const std::optional<Alert>& alert() const { return alert_; }

  LiveAssistChatView& chat() { return chat_; }
  LiveAssistContextPanel& panel() { return panel_; }
  LiveAssistPromptEditor& promptEditor() { return promptEditor_; }
  SessionFilesWindow& files() { return filesWindow_; }
  SessionHistoryWindow& history() { return historyWindow_; }
  LiveAssistSessionManager& sessions() { return sessions_; }
  LiveContextLoop& loop() { return loop_; }
  LiveFeedbackWindow& feedbackWindow() { return services_.feedbackWindow; }

  /// After every change of the page itself; its parts tell of theirs.
  std::function<void()> onChange;
  /// A line was said and transcribed.
  std::function<void(const LAChatMessage&)> onLine;
  /// A segment could not be transcribed.
  std::function<void(LAAudioChannel, const std::string& error)> onFailure;

 private:
  class Events;

  void connect();
  void makeTranscriber();
  void readPreferences();
  void writePreferences();
  void captureStarted(const Status& started);
  void transcribed(const std::string& text, LAAudioChannel channel,
                   const LATranscriptionMetadata& metadata);
  void transcriptionFailed(LAAudioChannel channel, const std::string& error);
  void pinned(const LAChatMessage& message);
  void pinItem(const Json& item);
  void contactSelected(const std::string& email, const std::string& name);
  void saveSessionFeedbackSnapshot();
  void restore(const std::string& sessionId, const Result<Json>& session);
  void transcriptsLoaded(const std::vector<Json>& transcripts);
  void setUseCase(LALiveAssistUseCase useCase);
  void show(const std::string& text, StatusKind kind);
  void changed() const {
    if (onChange) onChange();
  }

  const LiveAssistServices services_;
  Logger& logger_;
  LiveAssistAudioEngine audioEngine_;
  std::shared_ptr<LiveAssistTranscriber> transcriber_;
  LiveAssistSessionManager sessions_;
  DriveClient drive_;
  FileContentCache fileCache_;
  LiveAssistChatView chat_;
  LiveAssistContextPanel panel_;
  LiveAssistPromptEditor promptEditor_;
  SessionFilesWindow filesWindow_;
  SessionHistoryWindow historyWindow_;
  LiveContextLoop loop_;
  bool isCapturing_ = false;
  bool isStarting_ = false;
  bool isEnabled_ = true;
  LALiveAssistUseCase useCase_ = LALiveAssistUseCase::salesCall;
  StatusText status_;
  std::optional<Alert> alert_;
  /// Only the newest load of a session counts.
  int loads_ = 0;
  std::string loadingSession_;
  std::shared_ptr<Events> events_;
  Lifetime lifetime_;
};

}  // namespace kestrin
