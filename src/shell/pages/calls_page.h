#pragma once

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <string>
#include <vector>

#include "calls/calls.h"
#include "shell/design/controls.h"
#include "shell/pages/page.h"

namespace kestrin {

/// Draws CallsView: whom to call, the call that goes on, who is online, and the calls that were.
class CallsPage final : public Page {
 public:
  explicit CallsPage(Calls& calls);
  ~CallsPage() override;
  void refresh() override;
  void reload() override { view_.refresh(); }

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  /// So many come at a time: cards are costly to lay out.
  static constexpr size_t callsAtOnce = 15;

  QWidget* makeRecipient();
  QWidget* makeBanner();
  QWidget* makeInCall();
  void showContacts();
  void showPeople();
  void showHistory();
  QWidget* callCard(const CallRecord& call);
  void shake();

  Calls& calls_;
  CallsView& view_;
  QLabel *status_ = nullptr, *bannerText_ = nullptr, *timer_ = nullptr, *other_ = nullptr;
  QLineEdit* recipient_ = nullptr;
  QPushButton *audio_ = nullptr, *video_ = nullptr, *mute_ = nullptr, *camera_ = nullptr;
  QWidget *banner_ = nullptr, *inCall_ = nullptr, *contacts_ = nullptr;
  QVBoxLayout *contactRows_ = nullptr, *people_ = nullptr, *history_ = nullptr;
  std::vector<std::string> shownContacts_{"?"}, shownPeople_{"?"}, shownHistory_{"?"};
  size_t mostCalls_ = callsAtOnce;
  int shakes_ = 0;
};

}  // namespace kestrin
