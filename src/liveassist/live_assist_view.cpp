#include "liveassist/live_assist_view.h"

#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "LiveAssist";
constexpr const char* capturingText = "🔴 Capturing...";
constexpr const char* readyText = "Ready to capture";
constexpr size_t shownErrorCharacters = 60;

}  // namespace

/// What the parts tell, handed on to the view that owns them.
class LiveAssistView::Events final : public LAAudioEngineDelegate,
                                     public LATranscriberDelegate,
                                     public LASessionManagerDelegate,
                                     public LiveAssistChatViewDelegate {
 public:
  explicit Events(LiveAssistView& view) : view_(view) {}

  void didSegmentAudio(LiveAssistAudioEngine&, Bytes pcm, LAAudioChannel channel) override {
    view_.transcriber_->transcribe(pcm, channel);
  }
  void didStartCapture(LiveAssistAudioEngine&, LAAudioChannel channel) override {
    view_.chat_.addSystemNotice(channel == LAAudioChannel::system ? "[System audio started]"
                                                                  : "[Microphone started]");
  }
  void didTranscribe(LiveAssistTranscriber&, const std::string& text, LAAudioChannel channel,
                     const LATranscriptionMetadata& metadata) override {
    view_.transcribed(text, channel, metadata);
  }
  void didFailChannel(LiveAssistTranscriber&, LAAudioChannel channel,
                      const std::string& error) override {
    view_.transcriptionFailed(channel, error);
  }
  void didLoadTranscripts(LiveAssistSessionManager&, const std::vector<Json>& transcripts,
                          const std::string& sessionId) override {
    if (sessionId == view_.loadingSession_) view_.transcriptsLoaded(transcripts);
  }
  void didUpdateFiles(LiveAssistSessionManager&, const std::vector<LAAttachedFile>&) override {
    view_.filesWindow_.changed();
    view_.changed();
  }
  void didRequestPin(LiveAssistChatView&, const LAChatMessage& message) override {
    view_.pinned(message);
  }

 private:
  LiveAssistView& view_;
};

LiveAssistView::LiveAssistView(LiveAssistServices services)
    : services_(std::move(services)),
      logger_(services_.logger),
      audioEngine_(services_.dispatch, services_.audio, services_.logger),
      sessions_(services_.dispatch, services_.http, services_.files, services_.logger,
                services_.deviceId, services_.endpoints.backend),
      drive_(services_.dispatch, services_.http, services_.deviceId, services_.endpoints.backend),
      fileCache_(services_.dispatch, services_.files, services_.logger, drive_),
      chat_(services_.dispatch, services_.pasteboard, services_.logger),
      promptEditor_(services_.preferences, services_.logger),
      filesWindow_(sessions_, drive_),
      historyWindow_(sessions_, services_.logger),
      loop_({.dispatch = services_.dispatch,
             .logger = services_.logger,
             .client = services_.context,
             .service = services_.service,
             .chat = chat_,
             .panel = panel_,
             .sessions = sessions_,
             .files = fileCache_,
             .window = services_.feedbackWindow,
             .isWanted = [this] { return isCapturing_ && isEnabled_; },
             .useCase = [this] { return useCase_; }}),
      status_{readyText, StatusKind::plain},
      events_(std::make_shared<Events>(*this)) {
  readPreferences();
  connect();
  sessions_.loadHistory();
}

LiveAssistView::~LiveAssistView() {
  if (isCapturing_) stopCapture();
}

/// Segments that are still with an earlier one come to nothing.
void LiveAssistView::makeTranscriber() {
  transcriber_ = std::make_shared<LiveAssistTranscriber>(services_.dispatch, services_.http,
                                                         services_.random, services_.logger,
                                                         services_.profiles, services_.endpoints);
  transcriber_->delegate = events_;
}

void LiveAssistView::connect() {
  makeTranscriber();
  audioEngine_.delegate = events_;
  sessions_.delegate = events_;
  // What was chosen before the session existed.
  sessions_.onSessionStarted = [this] {
    if (const auto& contact = panel_.contact()) {
      sessions_.updateContact(contact->email, contact->name);
    }
    sessions_.syncFilesToBackend();
  };
  chat_.delegate = events_;
  panel_.onPin = [this](const Json& item) { pinItem(item); };
  panel_.onContactSelected = [this](const std::string& email, const std::string& name) {
    contactSelected(email, name);
  };
  panel_.onSourcesChanged = [this] { loop_.clearPacing(); };
  promptEditor_.onSaved = [this](LALiveAssistUseCase useCase) { setUseCase(useCase); };
  historyWindow_.onChosen = [this](const std::string& sessionId) { loadSession(sessionId); };
}

void LiveAssistView::readPreferences() {
  isEnabled_ = services_.settings.boolean(enabledKey, true);
  useCase_ = liveAssistUseCaseFrom(services_.settings.string(useCaseKey))
                 .value_or(LALiveAssistUseCase::salesCall);
}

void LiveAssistView::writePreferences() {
  services_.settings.set(enabledKey, isEnabled_);
  services_.settings.set(useCaseKey, rawValue(useCase_));
}

void LiveAssistView::show(const std::string& text, StatusKind kind) {
  status_ = {text, kind};
  changed();
}

void LiveAssistView::startCapture() {
  // A second press while the devices are being opened would open a second session.
  if (isCapturing_ || isStarting_) return;
  isStarting_ = true;
  show("Starting capture...", StatusKind::starting);
  sessions_.useCase = useCase_;
  sessions_.syncFilesToBackend();
  sessions_.startSession();
  loop_.stop();
  if (isEnabled_) loop_.start();
  audioEngine_.startCapture(
      lifetime_.guard([this](const Status& started) { captureStarted(started); }));
}

void LiveAssistView::captureStarted(const Status& started) {
  if (!std::exchange(isStarting_, false)) return;
  if (!started) {
    // What did open must not stay open.
    audioEngine_.stopCapture();
    return show("Error: " + started.error().description, StatusKind::failed);
  }
  isCapturing_ = true;
  logger_.log(source, LogLevel::info, "Capture started successfully");
  panel_.setCapturing(true);
  if (isEnabled_) services_.feedbackWindow.showListening();
  show(capturingText, StatusKind::good);
}

void LiveAssistView::stopCapture() {
  if (!isCapturing_) return;
  logger_.log(source, LogLevel::info, "Stopping capture");
  // It needs the session's id, which the end forgets.
  saveSessionFeedbackSnapshot();
  audioEngine_.stopCapture();
  sessions_.endSession();
  loop_.stop();
  isCapturing_ = false;
  panel_.setCapturing(false);
  services_.feedbackWindow.dismiss();
  show("Capture stopped", StatusKind::muted);
}

void LiveAssistView::newSessionClicked() {
  stopCapture();
  saveSessionFeedbackSnapshot();
  chat_.clearAll();
  makeTranscriber();
  audioEngine_.resetState();
  sessions_.clearFilesAndPins();
  panel_.clearContact();
  panel_.clearLiveFeedback();
  services_.feedbackWindow.clear();
  fileCache_.clear();
  loop_.reset();
  loadingSession_.clear();
  ++loads_;
  services_.profiles.resetSystemProfile();
  services_.profiles.persistUserProfile();
  logger_.log(source, LogLevel::info, "New session started — all state cleared");
  show("New session ready", StatusKind::plain);
}

void LiveAssistView::liveAssistToggled(bool on) {
  isEnabled_ = on;
  writePreferences();
  if (!on) {
    loop_.stop();
    return show("Feedback off", StatusKind::muted);
  }
  if (!isCapturing_) return show(readyText, StatusKind::plain);
  loop_.start();
  show(capturingText, StatusKind::good);
}

void LiveAssistView::setUseCase(LALiveAssistUseCase useCase) {
  useCase_ = useCase;
  sessions_.useCase = useCase;
  sessions_.syncFilesToBackend();
  writePreferences();
  changed();
}

void LiveAssistView::chooseUseCase(LALiveAssistUseCase useCase) {
  if (canChooseMode() && useCase != useCase_) setUseCase(useCase);
}

void LiveAssistView::editPromptClicked() {
  if (!isCapturing_) return promptEditor_.open(useCase_);
  alert_ = Alert{"Cannot Edit Prompt During Active Session",
                 "Please stop the current capture session before editing the prompt."};
  changed();
}

void LiveAssistView::dismissAlert() {
  alert_.reset();
  changed();
}

void LiveAssistView::saveSessionFeedbackSnapshot() {
  sessions_.saveSessionFeedbackSnapshot(panel_.snapshot());
}

void LiveAssistView::transcribed(const std::string& text, LAAudioChannel channel,
                                 const LATranscriptionMetadata& metadata) {
  const LAChatMessage message{services_.random.uuid(),
                              services_.dispatch.clock().wallNow(),
                              text,
                              channel,
                              metadata.displayString(),
                              metadata.speakerNumber,
                              metadata.speakerChanged};
  chat_.addMessage(message);
  panel_.trackMetadata(channel, metadata.emotion.value_or(""), metadata.intent.value_or(""));
  sessions_.logTranscript(channel, text, metadata.speakerNumber, metadata.loggingDict());
  if (onLine) onLine(message);
  audioEngine_.markTranscriptionComplete(channel);
}

void LiveAssistView::transcriptionFailed(LAAudioChannel channel, const std::string& error) {
  audioEngine_.markTranscriptionComplete(channel);
  if (error == "empty") return;
  const std::string side = channel == LAAudioChannel::system ? "System" : "Mic";
  logger_.print("⚠️ Transcription error (" + side + "): " + error);
  if (onFailure) onFailure(channel, error);
  show("ASR error (" + side + "): " + text::prefix(error, shownErrorCharacters),
       StatusKind::failed);
}

void LiveAssistView::pinItem(const Json& item) {
  sessions_.addPinnedItem(item);
  show("Pinned to context", status_.kind);
  if (panel_.showsFeedbackWithoutContact()) panel_.rerender();
}

void LiveAssistView::pinned(const LAChatMessage& message) {
  const bool mine = message.channel == LAAudioChannel::microphone;
  pinItem(Json::object({{"id", message.id},
                        {"icon", mine ? "🎤" : "🖥"},
                        {"type", mine ? "mic" : "system"},
                        {"title", mine ? "Pinned (You)" : "Pinned (System)"},
                        {"detail", message.text}}));
}

void LiveAssistView::contactSelected(const std::string& email, const std::string& name) {
  sessions_.updateContact(email, name);
  loop_.clearPacing();
  services_.context->contactContext(email, name,
                                    lifetime_.guard([this, email](const Result<Json>& answer) {
                                      const auto& contact = panel_.contact();
                                      if (answer && contact && contact->email == email)
                                        panel_.updateWithContactContext(*answer);
                                    }));
}

}  // namespace kestrin
