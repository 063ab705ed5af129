#include "shell/pages/notes_page.h"

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t previewLength = 180;
/// So many come at a time: cards are costly to lay out.
constexpr size_t notesAtOnce = 20;

/// What follows the title, on one line.
QString preview(const VoiceNote& note) {
  const auto blocks = markdown::parse(note.content);
  const std::string plain = markdown::plainText(blocks);
  const size_t end = plain.find('\n');
  const std::string rest = end == std::string::npos ? "" : text::trim(plain.substr(end));
  return qt(text::prefix(rest, previewLength)).simplified();
}

}  // namespace

NotesPage::NotesPage(NotesView& view, std::function<void(const std::string&)> openURL)
    : view_(view), openURL_(std::move(openURL)) {
  auto* whole = new QVBoxLayout(this);
  whole->setContentsMargins(0, 0, 0, 0);
  auto* page = new Column;
  whole->addWidget(page);
  page->column()->addWidget(makeLabel("Notes", "title"));
  list_ = new QWidget;
  auto* column = new QVBoxLayout(list_);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(12);
  column->addWidget(makeRecorder());
  cards_ = new QVBoxLayout;
  cards_->setSpacing(8);
  column->addLayout(cards_);
  page->column()->addWidget(list_);
  note_ = makeNote();
  page->column()->addWidget(note_);
  view_.onChange = [this] {
    if (isVisible()) refresh();
  };
}

NotesPage::~NotesPage() { view_.onChange = nullptr; }

QWidget* NotesPage::makeRecorder() {
  auto* card = new Card;
  auto* row = new FlowLayout;
  record_ = makeButton(
      "Record a note",
      [this] { view_.isRecording() ? view_.stopNoteRecording() : view_.startNoteRecording(); },
      "primary");
  row->addWidget(record_);
  level_ = new QProgressBar;
  level_->setAccessibleName("Loudness");
  level_->setRange(0, 100);
  level_->setTextVisible(false);
  row->addWidget(level_, 1);
  state_ = makeLabel("", "caption");
  row->addWidget(state_, 1);
  card->column()->addLayout(row);
  kept_ = new QWidget;
  auto* kept = new FlowLayout(kept_);
  kept->addWidget(makeParagraph("The last recording is kept: it did not become a note yet."), 1);
  kept->addWidget(makeButton("Try Again", [this] { view_.retry(); }));
  kept->addWidget(makeButton(
      "Discard", [this] { view_.discardRecording(); }, "quiet"));
  card->column()->addWidget(kept_);
  return card;
}

QWidget* NotesPage::makeNote() {
  auto* whole = new QWidget;
  auto* column = new QVBoxLayout(whole);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(12);
  auto* row = new FlowLayout;
  row->addWidget(makeButton(
      "‹ All notes", [this] { view_.closeNote(); }, "quiet"));
  noteTime_ = makeLabel("", "caption");
  row->addWidget(noteTime_, 1);
  edit_ = makeButton("Edit", [this] { view_.beginEditing(); });
  save_ = makeButton(
      "Save", [this] { view_.saveEditedNote(); }, "primary");
  row->addWidget(edit_);
  row->addWidget(save_);
  column->addLayout(row);
  auto* card = new Card;
  reading_ = new Reading;
  reading_->onLink = openURL_;
  card->column()->addWidget(reading_);
  editor_ = new QPlainTextEdit;
  editor_->setAccessibleName("Text of the note");
  editor_->setMinimumHeight(280);
  connect(editor_, &QPlainTextEdit::textChanged, this,
          [this] { view_.setEditedText(editor_->toPlainText().toStdString()); });
  card->column()->addWidget(editor_);
  column->addWidget(card);
  said_ = makeParagraph("", "caption");
  column->addWidget(said_);
  return whole;
}

void NotesPage::refresh() {
  const bool open = view_.open() != nullptr;
  list_->setVisible(!open);
  note_->setVisible(open);
  if (open) {
    showNote();
  } else {
    shownNote_.clear();
    showRecorder();
    showList();
  }
  showAlertOnce();
}

void NotesPage::showRecorder() {
  setTitle(record_, view_.isRecording() ? "Stop and save" : "Record a note");
  record_->setEnabled(!view_.isBusy());
  level_->setVisible(view_.isRecording() || view_.isBusy());
  // Without a range the bar moves by itself.
  level_->setRange(0, view_.isBusy() ? 0 : 100);
  level_->setValue(int(view_.level() * 100));
  state_->setText(view_.isBusy()            ? "Making a note of it…"
                  : view_.isRecording()     ? "Listening…"
                  : view_.problem().empty() ? ""
                                            : "Shown as last seen: " + qt(view_.problem()));
  kept_->setVisible(view_.canRetry());
}

void NotesPage::showList() {
  const auto& notes = view_.notes();
  shownCount_ = std::max(shownCount_, notesAtOnce);
  const size_t count = std::min(notes.size(), shownCount_);
  std::vector<std::string> wanted{std::to_string(notes.size() - count)};
  for (size_t i = 0; i < count; ++i)
    wanted.push_back(notes[i].id + notes[i].content + view_.relativeTime(notes[i]));
  if (wanted == shown_) return;
  shown_ = std::move(wanted);
  clearLayout(cards_);
  if (notes.empty())
    cards_->addWidget(makeEmptyState({NotesView::emptyTitle, NotesView::emptyText}));
  for (size_t i = 0; i < count; ++i) cards_->addWidget(noteCard(notes[i]));
  if (count == notes.size()) return;
  const auto showMore = [this] {
    shownCount_ += notesAtOnce;
    showList();
  };
  cards_->addWidget(makeButton("Show more", showMore), 0, Qt::AlignHCenter);
}

QWidget* NotesPage::noteCard(const VoiceNote& note) {
  auto* card = new Card;
  const QString title = qt(extractMeaningfulTitle(note.content));
  auto* row = new FlowLayout;
  row->addWidget(makeParagraph(title, "heading"), 1);
  row->addWidget(makeLabel(qt(view_.relativeTime(note)), "caption"));
  auto* open = makeButton(
      "Open", [this, id = note.id] { view_.openNote(id); }, "quiet");
  open->setAccessibleName("Open " + title);
  row->addWidget(open);
  card->column()->addLayout(row);
  if (const QString rest = preview(note); !rest.isEmpty())
    card->column()->addWidget(makeParagraph(rest, "caption"));
  return card;
}

void NotesPage::showNote() {
  const VoiceNote& note = *view_.open();
  noteTime_->setText(qt(view_.relativeTime(note)));
  reading_->setVisible(!view_.isEditing());
  editor_->setVisible(view_.isEditing());
  edit_->setVisible(!view_.isEditing());
  save_->setVisible(view_.isEditing());
  save_->setEnabled(!view_.isBusy());
  const std::string key = note.id + note.content + (view_.isEditing() ? "+" : "");
  if (key == shownNote_) return;
  shownNote_ = key;
  reading_->setMarkdownText(note.content);
  if (view_.isEditing()) editor_->setPlainText(qt(view_.editedText()));
  said_->setVisible(note.transcript.has_value());
  said_->setText("You said: " + qt(note.transcript.value_or("")));
}

void NotesPage::showAlertOnce() {
  if (!view_.alert() || alertShown_) return;
  alertShown_ = true;
  showAlert(this, view_.alert()->title, view_.alert()->text, {"OK"}, [this](size_t) {
    alertShown_ = false;
    view_.dismissAlert();
  });
}

}  // namespace kestrin
