#include "notes/notes_view.h"

#include <algorithm>
#include <utility>

#include "platform/text/text.h"

namespace kestrin {

NotesView::NotesView(Services services) : services_(std::move(services)) {}

void NotesView::load() {
  services_.notes.cachedNotes(lifetime_.guard([this](const std::vector<VoiceNote>& cached) {
    if (notes_.empty()) notes_ = cached;
    updateNotesView();
  }));
  services_.notes.fetchNotes(
      lifetime_.guard([this](const std::vector<VoiceNote>& notes, const Status& outcome) {
        problem_ = outcome ? "" : outcome.error().description;
        if (outcome) notes_ = notes;
        updateNotesView();
      }));
}

void NotesView::startNoteRecording() {
  if (recorder_ || isBusy_) return;
  recorder_ = services_.makeRecorder();
  level_ = 0;
  recorder_->startRecording(
      [this](float level) {
        level_ = level;
        updateNotesView();
      },
      lifetime_.guard([this](const Status& started) {
        if (started || !recorder_) return;
        services_.logger.print("❌ Failed to start note recording: " + started.error().description);
        AudioRecorder::retire(std::move(recorder_));
        showAlert("Failed to Start Recording", started.error().description);
      }));
  updateNotesView();
}

void NotesView::stopNoteRecording() {
  if (!recorder_) return;
  Bytes pcm = recorder_->stopRecordingWithPCM().pcmData;
  AudioRecorder::retire(std::move(recorder_));
  if (pcm.empty()) {
    return showAlert("No Audio Recorded", "Please try again and speak into the microphone.");
  }
  services_.logger.print("🎙️ Note recorded: " + std::to_string(pcm.size()) + " bytes");
  create(std::move(pcm));
}

void NotesView::create(Bytes pcm) {
  kept_ = pcm;
  isBusy_ = true;
  updateNotesView();
  services_.notes.createNoteFromPCM(
      std::move(pcm), lifetime_.guard([this](const Result<VoiceNote>& note) { created(note); }));
}

void NotesView::created(const Result<VoiceNote>& note) {
  isBusy_ = false;
  if (!note) {
    services_.logger.print("❌ Failed to create note: " + note.error().description);
    // A recording without a word in it is no loss.
    if (note.error().domain == "NotesService" && note.error().code == NotesService::noSpeech)
      kept_.clear();
    return showAlert("Failed to Create Note", note.error().description);
  }
  kept_.clear();
  services_.logger.print("✅ Note created successfully: " + note->id);
  notes_.insert(notes_.begin(), *note);
  updateNotesView();
}

void NotesView::retry() {
  if (canRetry()) create(std::exchange(kept_, {}));
}

void NotesView::discardRecording() {
  if (isBusy_) return;
  kept_.clear();
  updateNotesView();
}

const VoiceNote* NotesView::open() const {
  const auto found = std::find_if(notes_.begin(), notes_.end(),
                                  [this](const VoiceNote& note) { return note.id == openId_; });
  return found == notes_.end() ? nullptr : &*found;
}

void NotesView::openNote(const std::string& id) {
  openId_ = id;
  isEditing_ = false;
  updateNotesView();
}

void NotesView::closeNote() { openNote({}); }

void NotesView::beginEditing() {
  const VoiceNote* note = open();
  if (!note) return;
  editedText_ = note->content;
  isEditing_ = true;
  updateNotesView();
}

void NotesView::saveEditedNote() {
  const VoiceNote* note = open();
  if (!note || !isEditing_ || isBusy_) return;
  if (text::trim(editedText_).empty()) {
    return showAlert("Note is empty", "Please add some content before saving.");
  }
  isBusy_ = true;
  services_.notes.updateNote(note->id, editedText_, note->transcript,
                             lifetime_.guard([this](const Result<VoiceNote>& saved) {
                               isBusy_ = false;
                               if (!saved)
                                 return showAlert("Failed to save note", saved.error().description);
                               for (VoiceNote& each : notes_) {
                                 if (each.id == saved->id) each = *saved;
                               }
                               if (openId_ == saved->id) isEditing_ = false;
                               updateNotesView();
                             }));
  updateNotesView();
}

void NotesView::showAlert(std::string title, std::string text) {
  alert_ = Alert{std::move(title), std::move(text)};
  updateNotesView();
}

void NotesView::dismissAlert() {
  alert_.reset();
  updateNotesView();
}

std::string NotesView::relativeTime(const VoiceNote& note) const {
  return note.relativeTimeString(services_.dispatch.clock().wallNow());
}

}  // namespace kestrin
