#pragma once

#include <QListWidget>
#include <functional>
#include <map>

#include "shell/design/controls.h"
#include "shell/pages/page.h"
#include "usermodel/preferences/preferences_view.h"

namespace kestrin {

/// The settings: the pages at the left, their sections and rows beside them.
class SettingsPage final : public Page {
 public:
  explicit SettingsPage(PreferencesView& view);
  ~SettingsPage() override;
  void refresh() override;

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  using Update = std::function<void(const PreferenceRow&)>;

  void build(const std::vector<PreferenceSection>& sections);
  QWidget* makeRow(const PreferenceRow& row);
  /// The control of the row, and in `update` what shows a newer state of it.
  QWidget* makeControl(const PreferenceRow& row, Update& update);
  QWidget* makeSlider(const PreferenceRow& row, Update& update);
  QWidget* makeDropdown(const PreferenceRow& row, Update& update);
  QWidget* makeSegments(const PreferenceRow& row, Update& update);
  QWidget* makeTextField(const PreferenceRow& row, Update& update);
  void showDialog();

  PreferencesView& view_;
  QListWidget* pages_;
  Column* column_;
  std::vector<std::string> built_;  ///< the rows on screen, by id
  std::map<std::string, Update> updates_;
  bool dialogShown_ = false;
};

}  // namespace kestrin
