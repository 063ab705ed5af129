#include "shell/pages/logs_page.h"

#include <QFileDialog>
#include <QHeaderView>
#include <QLineEdit>

#include "shell/design/controls.h"

namespace kestrin {

class LogsPage::Rows final : public QAbstractTableModel {
 public:
  Rows(const LogsView& view, QObject* parent) : QAbstractTableModel(parent), view_(view) {}

  void reset() {
    beginResetModel();
    entries_ = view_.filteredEntries();
    endResetModel();
  }
  const LogEntry& entry(int row) const { return entries_[size_t(row)]; }

  int rowCount(const QModelIndex& parent = {}) const override {
    return parent.isValid() ? 0 : int(entries_.size());
  }
  int columnCount(const QModelIndex& parent = {}) const override {
    return parent.isValid() ? 0 : int(LogsView::columns.size());
  }
  QVariant data(const QModelIndex& index, int role) const override {
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole) return {};
    return qt(LogsView::cell(entry(index.row()), size_t(index.column())));
  }
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    return QString(LogsView::columns[size_t(section)].title);
  }

 private:
  const LogsView& view_;
  std::vector<LogEntry> entries_;
};

LogsPage::LogsPage(LogsView& view)
    : view_(view), rows_(new Rows(view, this)), table_(new QTableView) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(24, 20, 24, 16);
  column->setSpacing(10);
  column->addWidget(makeLabel(LogsView::title, "title"));

  auto* controls = new FlowLayout;
  auto* filter = new QLineEdit(qt(view_.filter()));
  filter->setPlaceholderText(LogsView::filterPlaceholder);
  filter->setAccessibleName("Filter logs");
  connect(filter, &QLineEdit::textChanged, this,
          [this](const QString& text) { view_.setFilter(text.toStdString()); });
  controls->addWidget(filter, 1);
  auto* level = makeChoices("Least level");
  for (const char* title : LogsView::levelTitles) level->addItem(title);
  level->setCurrentIndex(view_.levelFilter());
  connect(level, &QComboBox::activated, this, [this](int index) { view_.setLevelFilter(index); });
  controls->addWidget(level);
  auto* follow = new QCheckBox(LogsView::autoScrollTitle);
  follow->setChecked(view_.isAutoScrolling());
  connect(follow, &QCheckBox::toggled, this, [this](bool on) { view_.setAutoScrolling(on); });
  controls->addWidget(follow);
  controls->addWidget(makeButton(LogsView::exportTitle, [this] { exportShown(); }));
  controls->addWidget(makeButton(LogsView::clearTitle, [this] { view_.clear(); }));
  column->addLayout(controls);

  table_->setModel(rows_);
  table_->setAccessibleName("Log entries");
  table_->setAlternatingRowColors(true);
  table_->setShowGrid(false);
  table_->setSelectionBehavior(QAbstractItemView::SelectRows);
  table_->verticalHeader()->hide();
  table_->horizontalHeader()->setStretchLastSection(true);
  table_->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
  table_->setColumnWidth(0, 110);
  table_->setColumnWidth(1, 70);
  table_->setColumnWidth(2, 130);
  table_->setWordWrap(true);
  column->addWidget(table_, 1);
  view_.onChange = [this] { refresh(); };
  view_.refreshLogs();
}

LogsPage::~LogsPage() { view_.onChange = nullptr; }

void LogsPage::refresh() {
  rows_->reset();
  for (int row = 0; row < rows_->rowCount(); ++row) {
    const int height = LogsView::rowHeight(rows_->entry(row));
    if (table_->rowHeight(row) != height) table_->setRowHeight(row, height);
  }
  if (view_.isAutoScrolling()) table_->scrollToBottom();
}

void LogsPage::exportShown() {
  auto* dialog = new QFileDialog(this, LogsView::exportTitle);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setAcceptMode(QFileDialog::AcceptSave);
  dialog->selectFile(qt(view_.suggestedExportName()));
  connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& path) {
    view_.exportTo(path.toStdString(), [this](const Status& written) {
      if (!written) {
        showAlert(this, "The log was not exported", written.error().description, {"OK"},
                  [](size_t) {});
      }
    });
  });
  dialog->open();
}

}  // namespace kestrin
