#include "shell/pages/settings_page.h"

#include <QLineEdit>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QSlider>
#include <cmath>

namespace kestrin {
namespace {

constexpr int sliderSteps = 1000;
constexpr int pagesWidth = 170;

QString titleOf(PreferencePage page) { return pageTitle(page); }

}  // namespace

SettingsPage::SettingsPage(PreferencesView& view)
    : view_(view), pages_(new QListWidget), column_(new Column(720)) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(16, 16, 0, 0);
  row->setSpacing(0);
  pages_->setAccessibleName("Settings pages");
  pages_->setFixedWidth(pagesWidth);
  for (const PreferencePage page : preferencePages) pages_->addItem(titleOf(page));
  connect(pages_, &QListWidget::currentRowChanged, this, [this](int index) {
    if (index >= 0) view_.selectPage(preferencePages[index]);
  });
  row->addWidget(pages_);
  row->addWidget(column_, 1);
  view_.onChange = [this] { refresh(); };
}

SettingsPage::~SettingsPage() { view_.onChange = nullptr; }

void SettingsPage::showEvent(QShowEvent* event) {
  Page::showEvent(event);
  view_.loadSavedPreferences();
}

void SettingsPage::refresh() {
  for (int i = 0; i < pages_->count(); ++i) {
    if (preferencePages[i] != view_.page()) continue;
    const QSignalBlocker quiet(pages_);
    pages_->setCurrentRow(i);
  }
  const auto sections = view_.sections(view_.page());
  std::vector<std::string> wanted;
  for (const auto& section : sections) {
    wanted.push_back("# " + section.header);
    for (const auto& row : section.rows) wanted.push_back(row.id);
  }
  if (wanted != built_) {
    built_ = std::move(wanted);
    build(sections);
  }
  for (const auto& section : sections) {
    for (const auto& row : section.rows) {
      if (const auto update = updates_.find(row.id); update != updates_.end()) update->second(row);
    }
  }
  showDialog();
}

void SettingsPage::build(const std::vector<PreferenceSection>& sections) {
  updates_.clear();
  clearLayout(column_->column());
  column_->verticalScrollBar()->setValue(0);
  column_->column()->addWidget(makeLabel(titleOf(view_.page()), "title"));
  for (const auto& section : sections) {
    column_->column()->addWidget(makeLabel(qt(section.header), "section"));
    auto* card = new Card;
    bool first = true;
    for (const auto& row : section.rows) {
      if (!first) {
        auto* line = new QFrame;
        line->setProperty("role", "line");
        line->setFixedHeight(1);
        card->column()->addWidget(line);
      }
      first = false;
      card->column()->addWidget(makeRow(row));
    }
    column_->column()->addWidget(card);
  }
}

QWidget* SettingsPage::makeRow(const PreferenceRow& row) {
  auto* line = new QWidget;
  auto* layout = new FlowLayout(line);
  layout->setContentsMargins(0, 2, 0, 2);
  auto* label = makeLabel(qt(row.label));
  label->setWordWrap(true);
  layout->addWidget(label, 1);
  Update update;
  QWidget* control = makeControl(row, update);
  layout->addWidget(control);
  updates_[row.id] = std::move(update);
  return line;
}

QWidget* SettingsPage::makeControl(const PreferenceRow& row, Update& update) {
  if (row.action) {
    auto* group = new QWidget;
    auto* layout = new FlowLayout(group);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* state = makeLabel("", "caption");
    auto* button =
        makeButton(qt(row.button), [this, action = *row.action] { view_.perform(action); });
    layout->addWidget(state);
    layout->addWidget(button);
    update = [state, button](const PreferenceRow& now) {
      state->setText(qt(now.value));
      setTitle(button, qt(now.button));
      button->setAccessibleName(qt(now.label + ": " + now.button));
    };
    return group;
  }
  if (row.preference == nullptr) {
    auto* value = makeLabel("", "caption");
    update = [value](const PreferenceRow& now) { value->setText(qt(now.value)); };
    return value;
  }
  switch (row.preference->control) {
    case PreferenceControl::slider:
      return makeSlider(row, update);
    case PreferenceControl::dropdown:
      return makeDropdown(row, update);
    case PreferenceControl::segmented:
      return makeSegments(row, update);
    case PreferenceControl::textField:
      return makeTextField(row, update);
    case PreferenceControl::toggle:
      break;
  }
  auto* toggle = new Switch;
  toggle->setAccessibleName(qt(row.label));
  connect(toggle, &QCheckBox::toggled, this,
          [this, id = row.id](bool on) { view_.setToggle(id, on); });
  update = [toggle](const PreferenceRow& now) {
    const QSignalBlocker quiet(toggle);
    toggle->setChecked(now.on);
    toggle->update();
  };
  return toggle;
}

QWidget* SettingsPage::makeSlider(const PreferenceRow& row, Update& update) {
  auto* group = new QWidget;
  auto* layout = new QHBoxLayout(group);
  layout->setContentsMargins(0, 0, 0, 0);
  auto* slider = new QSlider(Qt::Horizontal);
  slider->setAccessibleName(qt(row.label));
  slider->setRange(0, sliderSteps);
  slider->setPageStep(sliderSteps / 10);
  slider->setSingleStep(sliderSteps / 20);
  slider->setFixedWidth(180);
  auto* number = makeLabel("", "caption");
  number->setMinimumWidth(90);
  number->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  const double least = row.preference->minimum;
  const double range = row.preference->maximum - least;
  connect(slider, &QSlider::valueChanged, this, [this, id = row.id, least, range](int step) {
    view_.setSlider(id, least + range * step / sliderSteps);
  });
  layout->addWidget(slider);
  layout->addWidget(number);
  update = [slider, number, least, range](const PreferenceRow& now) {
    number->setText(qt(now.value));
    if (slider->isSliderDown()) return;
    const QSignalBlocker quiet(slider);
    slider->setValue(int(std::lround(sliderSteps * (now.number - least) / range)));
  };
  return group;
}

QWidget* SettingsPage::makeDropdown(const PreferenceRow& row, Update& update) {
  auto* box = makeChoices(qt(row.label));
  box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  box->setMinimumContentsLength(18);
  connect(box, &QComboBox::textActivated, this,
          [this, id = row.id](const QString& title) { view_.choose(id, title.toStdString()); });
  update = [box](const PreferenceRow& now) {
    const QSignalBlocker quiet(box);
    QStringList titles;
    for (const auto& choice : now.choices) titles << qt(choice);
    QStringList shown;
    for (int i = 0; i < box->count(); ++i) shown << box->itemText(i);
    if (titles != shown) {
      box->clear();
      box->addItems(titles);
    }
    box->setCurrentIndex(int(now.selected));
  };
  return box;
}

QWidget* SettingsPage::makeSegments(const PreferenceRow& row, Update& update) {
  auto* group = new QWidget;
  auto* layout = new FlowLayout(group);
  layout->setSpacing(4);
  auto* buttons = new QButtonGroup(group);
  std::vector<QPushButton*> made;
  for (size_t i = 0; i < row.choices.size(); ++i) {
    auto* button = makeSegment(qt(row.choices[i]), buttons,
                               [this, id = row.id, i] { view_.chooseSegment(id, int(i)); });
    button->setAccessibleName(qt(row.label + ": " + row.choices[i]));
    made.push_back(button);
    layout->addWidget(button);
  }
  update = [made](const PreferenceRow& now) {
    if (now.selected < made.size()) showChosen(made[now.selected]);
  };
  return group;
}

QWidget* SettingsPage::makeTextField(const PreferenceRow& row, Update& update) {
  auto* field = new QLineEdit;
  field->setAccessibleName(qt(row.label));
  field->setPlaceholderText(row.preference->placeholder);
  field->setMinimumWidth(260);
  if (row.id == GeminiKeyManager::settingKey) field->setEchoMode(QLineEdit::Password);
  connect(field, &QLineEdit::textEdited, this,
          [this, id = row.id](const QString& text) { view_.editText(id, text.toStdString()); });
  update = [field](const PreferenceRow& now) {
    // What is being typed is not overtaken by what was stored of it.
    if (!field->hasFocus() && field->text() != qt(now.value)) field->setText(qt(now.value));
  };
  return field;
}

void SettingsPage::showDialog() {
  const PreferenceDialog* dialog = view_.dialog();
  if (dialog == nullptr || dialogShown_) return;
  dialogShown_ = true;
  showAlert(this, dialog->title, dialog->text, dialog->buttons, [this](size_t button) {
    dialogShown_ = false;
    view_.answer(button);
    showDialog();
  });
}

}  // namespace kestrin
