#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dictation/audio_recorder.h"
#include "notes/notes_service.h"
#include "platform/lifetime.h"

namespace kestrin {

/// The page of voice notes: a recorder, the list, and one note that is open for reading or editing.
/// A recording that could not become a note is kept until it does or is given up. Main queue only.
class NotesView {
 public:
  static constexpr const char* emptyTitle = "No notes yet";
  static constexpr const char* emptyText = "Press the button, speak, and press it again";

  struct Alert {
    std::string title;
    std::string text;
  };
  /// All of these must outlive this.
  struct Services {
    Dispatch& dispatch;
    Logger& logger;
    NotesService& notes;
    /// A recorder for one recording: dictation has its own.
    std::function<std::unique_ptr<AudioRecorder>()> makeRecorder;
  };
  explicit NotesView(Services services);

  /// Shows what the cache has, then what the backend answers.
  void load();
  void startNoteRecording();
  void stopNoteRecording();
  /// Makes a note of the recording that is kept.
  void retry();
  void discardRecording();

  void openNote(const std::string& id);
  void closeNote();
  void beginEditing();
  void setEditedText(const std::string& text) { editedText_ = text; }
  void saveEditedNote();
  void dismissAlert();

  /// In the order of the backend, new ones first.
  const std::vector<VoiceNote>& notes() const { return notes_; }
  /// The open note, or null.
  const VoiceNote* open() const;
  bool isEditing() const { return isEditing_; }
  const std::string& editedText() const { return editedText_; }
  bool isRecording() const { return recorder_ != nullptr; }
  float level() const { return level_; }
  /// A recording is on its way to its note, or an edit to the backend.
  bool isBusy() const { return isBusy_; }
  bool canRetry() const { return !kept_.empty() && !isBusy_; }
  /// Why the list may be old; empty when it is the backend's.
  const std::string& problem() const { return problem_; }
  const std::optional<Alert>& alert() const { return alert_; }
  std::string relativeTime(const VoiceNote& note) const;

  /// After every change; a view redraws.
  std::function<void()> onChange;

 private:
  void create(Bytes pcm);
  void created(const Result<VoiceNote>& note);
  void updateNotesView() {
    if (onChange) onChange();
  }
  void showAlert(std::string title, std::string text);

  const Services services_;
  std::vector<VoiceNote> notes_;
  std::string openId_, editedText_, problem_;
  std::unique_ptr<AudioRecorder> recorder_;
  Bytes kept_;
  float level_ = 0;
  bool isEditing_ = false, isBusy_ = false;
  std::optional<Alert> alert_;
  Lifetime lifetime_;
};

}  // namespace kestrin
