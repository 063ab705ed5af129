#pragma once

#include <QComboBox>
#include <QDialog>
#include <QPlainTextEdit>

#include "liveassist/prompt_editor.h"
#include "liveassist/session_files_window.h"
#include "liveassist/session_history_window.h"
#include "shell/design/controls.h"

namespace kestrin {

// The windows around a Live Assist session. Each deletes itself when it is closed.

/// Past sessions, a card each.
class SessionHistoryDialog final : public QDialog {
 public:
  SessionHistoryDialog(SessionHistoryWindow& window, QWidget* parent);
  ~SessionHistoryDialog() override;

 private:
  void refresh();

  SessionHistoryWindow& window_;
  QLabel* text_;
  Column* cards_;
};

/// The files of the session, from this machine and from the Drive.
class SessionFilesDialog final : public QDialog {
 public:
  SessionFilesDialog(SessionFilesWindow& window, QWidget* parent);
  ~SessionFilesDialog() override;

 private:
  void refresh();
  void chooseLocal();

  SessionFilesWindow& window_;
  QLabel* count_;
  QVBoxLayout* files_;
  QVBoxLayout* drive_;
};

/// The prompt of each kind of conversation.
class PromptEditorDialog final : public QDialog {
 public:
  PromptEditorDialog(LiveAssistPromptEditor& editor, QWidget* parent);
  ~PromptEditorDialog() override;

 private:
  void refresh();

  LiveAssistPromptEditor& editor_;
  QComboBox* mode_;
  QLabel* explanation_;
  QPlainTextEdit* prompt_;
};

}  // namespace kestrin
