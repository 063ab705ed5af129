#pragma once

#include <QPlainTextEdit>
#include <QSlider>
#include <map>

#include "shell/design/controls.h"
#include "shell/pages/page.h"
#include "usermodel/preferences/modes_view.h"

namespace kestrin {

/// The prompts and the creativity of the modes, a card each.
class ModesPage final : public Page {
 public:
  explicit ModesPage(ModesView& view);
  ~ModesPage() override;
  void refresh() override;

 private:
  struct CardWidgets {
    QLabel* badge;
    QPlainTextEdit* prompt;
    QSlider* slider;
    QLabel* number;
    QPushButton* test;
  };
  void addSection(QVBoxLayout* column, const char* title,
                  const std::vector<ModesView::Card>& cards);
  QWidget* makeCard(const ModesView::Card& card);
  void show(const ModesView::Card& card);

  ModesView& view_;
  std::map<std::string, CardWidgets> widgets_;
  QLabel* toast_;
  const ModesView::Alert* shownAlert_ = nullptr;
};

}  // namespace kestrin
