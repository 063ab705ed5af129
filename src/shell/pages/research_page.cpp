#include "shell/pages/research_page.h"

#include <QMenu>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTimer>
#include <algorithm>

#include "platform/text/text.h"
#include "shell/design/reading.h"

namespace kestrin {
namespace {

constexpr int sideWidth = 230, narrowSideWidth = 196;
constexpr size_t titleLength = 60;

/// Changes when anything of the message that is drawn changes.
std::string stateOf(const ConversationMessage& message, bool expanded) {
  std::string state = message.content;
  if (message.progressSteps) {
    state += expanded ? "+" : "-";
    for (const ProgressStep& step : *message.progressSteps) {
      state += step.id + step.title + step.detail.value_or("") + (step.isComplete ? "1" : "0");
    }
  }
  return state;
}

}  // namespace

ResearchPage::ResearchPage(ResearchView& view)
    : view_(view),
      sessions_(new QListWidget),
      conversation_(new Column(760)),
      welcome_(nullptr),
      input_(new QLineEdit) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(0);
  side_ = makeSide();
  row->addWidget(side_);
  auto* main = new QVBoxLayout;
  main->setSpacing(0);
  main->addWidget(conversation_, 1);
  welcome_ = makeWelcome();
  conversation_->column()->addWidget(welcome_);

  auto* bottom = new FlowLayout;
  bottom->setContentsMargins(28, 8, 28, 16);
  input_->setAccessibleName("Question");
  connect(input_, &QLineEdit::textEdited, this,
          [this](const QString& text) { view_.setInput(text.toStdString()); });
  connect(input_, &QLineEdit::textChanged, this,
          [this](const QString& text) { send_->setEnabled(!text.trimmed().isEmpty()); });
  connect(input_, &QLineEdit::returnPressed, this, [this] { view_.submitQuery(); });
  regenerate_ = makeButton(
      "Regenerate", [this] { view_.regenerateClicked(); }, "quiet");
  stop_ = makeButton("Stop", [this] { view_.stopResearchClicked(); });
  send_ = makeButton(
      "Send", [this] { view_.submitQuery(); }, "primary");
  send_->setEnabled(false);
  bottom->addWidget(input_, 1);
  bottom->addWidget(regenerate_);
  bottom->addWidget(stop_);
  bottom->addWidget(send_);
  main->addLayout(bottom);
  row->addLayout(main, 1);
}

QWidget* ResearchPage::makeSide() {
  auto* side = new QWidget;
  auto* column = new QVBoxLayout(side);
  column->setContentsMargins(16, 20, 8, 16);
  column->addWidget(makeButton(
      ResearchView::newResearchLabel, [this] { view_.newChatClicked(); }, "primary"));
  sessions_->setAccessibleName("Past research");
  sessions_->setContextMenuPolicy(Qt::CustomContextMenu);
  connect(sessions_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
    view_.historyCardClicked(item->data(Qt::UserRole).toULongLong());
  });
  connect(sessions_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
    if (item->flags() & Qt::ItemIsSelectable) {
      view_.historyCardClicked(item->data(Qt::UserRole).toULongLong());
    }
  });
  connect(sessions_, &QListWidget::customContextMenuRequested, this, [this](QPoint at) {
    QListWidgetItem* item = sessions_->itemAt(at);
    if (item == nullptr || !(item->flags() & Qt::ItemIsSelectable)) return;
    const size_t index = item->data(Qt::UserRole).toULongLong();
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->addAction("Open in a panel", [this, index] { view_.showDetails(index); });
    menu->addAction("Delete", [this, index] { view_.deleteHistoryItem(index); });
    menu->popup(sessions_->viewport()->mapToGlobal(at));
  });
  column->addWidget(sessions_, 1);
  return side;
}

void ResearchPage::resizeEvent(QResizeEvent* event) {
  Page::resizeEvent(event);
  side_->setFixedWidth(std::clamp(width() / 4, narrowSideWidth, sideWidth));
}

QWidget* ResearchPage::makeWelcome() {
  auto* welcome = new QWidget;
  auto* column = new QVBoxLayout(welcome);
  column->setContentsMargins(0, 48, 0, 0);
  column->setSpacing(12);
  const std::pair<const char*, const char*> lines[] = {{ResearchView::welcomeTitle, "title"},
                                                       {ResearchView::welcomeText, "caption"}};
  for (const auto& [words, role] : lines) {
    auto* label = makeLabel(words, role);
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    column->addWidget(label);
  }
  auto* grid = new QGridLayout;
  grid->setSpacing(10);
  const auto& suggestions = ResearchView::suggestions();
  for (size_t i = 0; i < suggestions.size(); ++i) {
    auto* tile = makeTile(qt(suggestions[i]), [this, i] { view_.suggestionClicked(i); });
    grid->addWidget(tile, int(i / 2), int(i % 2));
  }
  column->addLayout(grid);
  return welcome;
}

void ResearchPage::refresh() {
  showSessions();
  showConversation();
  if (input_->text() != qt(view_.input())) input_->setText(qt(view_.input()));
  input_->setPlaceholderText(qt(view_.placeholder()));
  send_->setVisible(view_.isSendButtonShown());
  stop_->setVisible(view_.isStopButtonShown());
  regenerate_->setVisible(!view_.isResearching() && !view_.conversationMessages().empty());
  if (focusRequests_ != view_.inputFocusRequests()) {
    focusRequests_ = view_.inputFocusRequests();
    input_->setFocus();
  }
}

void ResearchPage::showSessions() {
  std::vector<std::string> wanted;
  const auto& all = view_.researchSessions();
  for (const ResearchSection& section : view_.sections()) {
    wanted.push_back(section.title);
    for (const size_t index : section.indexes) wanted.push_back(all[index].id + all[index].query);
  }
  if (wanted == shownSessions_ && sessions_->count() > 0) return;
  shownSessions_ = std::move(wanted);
  sessions_->clear();
  for (const ResearchSection& section : view_.sections()) {
    auto* head = new QListWidgetItem(qt(section.title), sessions_);
    head->setFlags(Qt::NoItemFlags);
    for (const size_t index : section.indexes) {
      const std::string& query = all[index].query;
      auto* item = new QListWidgetItem(qt(text::prefix(query, titleLength)), sessions_);
      item->setToolTip(qt(query));
      item->setData(Qt::UserRole, qulonglong(index));
    }
  }
  if (sessions_->count() == 0) {
    auto* none = new QListWidgetItem("No research yet", sessions_);
    none->setFlags(Qt::NoItemFlags);
  }
}

void ResearchPage::showConversation() {
  const auto& messages = view_.conversationMessages();
  welcome_->setVisible(view_.isWelcomeShown());
  QScrollBar* bar = conversation_->verticalScrollBar();
  const bool atEnd = bar->value() >= bar->maximum() - 40;
  size_t same = 0;
  while (same < messages.size() && same < drawn_.size() &&
         messages[same].id == drawn_[same].first &&
         stateOf(messages[same], view_.progressStepsExpanded()) == drawn_[same].second.of) {
    ++same;
  }
  if (same == messages.size() && same == drawn_.size()) return;
  for (size_t i = same; i < drawn_.size(); ++i) {
    drawn_[i].second.widget->hide();
    drawn_[i].second.widget->deleteLater();
  }
  drawn_.resize(same);
  for (size_t i = same; i < messages.size(); ++i) {
    QWidget* widget = makeMessage(messages[i]);
    conversation_->column()->addWidget(widget);
    drawn_.push_back(
        {messages[i].id, {widget, stateOf(messages[i], view_.progressStepsExpanded())}});
  }
  // The new height is known once the layout has run.
  if (atEnd) QTimer::singleShot(0, this, [bar] { bar->setValue(bar->maximum()); });
}

QWidget* ResearchPage::makeMessage(const ConversationMessage& message) {
  auto* card = new Card;
  switch (message.type) {
    case ConversationMessage::MessageType::user:
      card->column()->addWidget(makeLabel("YOU", "section"));
      card->column()->addWidget(makeParagraph(qt(message.content), "heading"));
      break;
    case ConversationMessage::MessageType::progress:
      addProgress(card->column(), message.progressSteps.value_or(std::vector<ProgressStep>{}));
      break;
    case ConversationMessage::MessageType::error:
      card->column()->addWidget(makeParagraph(qt(message.content), "error"));
      break;
    case ConversationMessage::MessageType::result: {
      auto* reading = new Reading;
      reading->onLink = [this](const std::string& url) { view_.openURL(url); };
      reading->setMarkdownText(message.content);
      card->column()->addWidget(reading);
      if (message.sources) addSources(card->column(), *message.sources);
      auto* copy = makeButton(
          "Copy", [this, id = message.id] { view_.copyResult(id); }, "quiet");
      card->column()->addWidget(copy, 0, Qt::AlignLeft);
      break;
    }
  }
  return card;
}

void ResearchPage::addProgress(QVBoxLayout* column, const std::vector<ProgressStep>& steps) {
  const bool expanded = view_.progressStepsExpanded();
  auto* toggle = makeButton(
      expanded ? "▾ Steps" : "▸ Steps", [this] { view_.toggleProgressExpand(); }, "quiet");
  column->addWidget(toggle, 0, Qt::AlignLeft);
  // The one in work is always shown.
  for (size_t i = expanded || steps.empty() ? 0 : steps.size() - 1; i < steps.size(); ++i) {
    const ProgressStep& step = steps[i];
    column->addWidget(makeParagraph((step.isComplete ? "✓  " : "…  ") + qt(step.title)));
    if (step.detail) column->addWidget(makeParagraph(qt(*step.detail), "caption"));
  }
}

void ResearchPage::addSources(QVBoxLayout* column, const std::vector<ResearchSource>& sources) {
  if (sources.empty()) return;
  column->addWidget(makeLabel("SOURCES", "section"));
  for (size_t i = 0; i < sources.size(); ++i) {
    const ResearchSource& source = sources[i];
    const QString words = QString::number(i + 1) + ".  " + qt(source.title);
    if (!isHttpUrl(source.url)) {
      column->addWidget(makeParagraph(words));
      continue;
    }
    auto* link = makeTile(words, [this, url = source.url] { view_.openURL(url); });
    link->setToolTip(qt(source.url));
    column->addWidget(link);
  }
}

}  // namespace kestrin
