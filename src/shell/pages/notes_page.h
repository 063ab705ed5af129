#pragma once

#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <functional>
#include <string>
#include <vector>

#include "notes/notes_view.h"
#include "shell/design/controls.h"
#include "shell/design/reading.h"
#include "shell/pages/page.h"

namespace kestrin {

/// Draws NotesView: the recorder and the list, or the note that is open.
class NotesPage final : public Page {
 public:
  /// `openURL` shows an address of the web with the user's browser.
  NotesPage(NotesView& view, std::function<void(const std::string&)> openURL);
  ~NotesPage() override;
  void refresh() override;
  void reload() override { view_.load(); }

 private:
  QWidget* makeRecorder();
  QWidget* makeNote();
  QWidget* noteCard(const VoiceNote& note);
  void showRecorder();
  void showList();
  void showNote();
  void showAlertOnce();

  NotesView& view_;
  const std::function<void(const std::string&)> openURL_;
  QPushButton* record_ = nullptr;
  QProgressBar* level_ = nullptr;
  QLabel* state_ = nullptr;
  QWidget* kept_ = nullptr;
  QWidget* list_ = nullptr;
  QVBoxLayout* cards_ = nullptr;
  QWidget* note_ = nullptr;
  QLabel* noteTime_ = nullptr;
  Reading* reading_ = nullptr;
  QPlainTextEdit* editor_ = nullptr;
  QPushButton* edit_ = nullptr;
  QPushButton* save_ = nullptr;
  QLabel* said_ = nullptr;
  std::vector<std::string> shown_;
  size_t shownCount_ = 0;  ///< at most, in the list
  std::string shownNote_;
  bool alertShown_ = false;
};

}  // namespace kestrin
