#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/setup_checks.h"
#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"

namespace kestrin {

/// First-run setup as a checklist: holds the start back while something that it needs is missing,
/// says what and how to mend it, and lets the start go on by itself once all is in place, or when
/// the user accepts to go without. A machine on which all is in place is never held back. A view
/// draws it. Main queue only; let the engine end its jobs before this is destroyed.
class SetupChecklist {
 public:
  /// While something is missing, the machine is looked at this often.
  static constexpr std::chrono::seconds recheckInterval{3};

  SetupChecklist(CoreServices& core, const Doctor::Options& options);

  /// `onSetupComplete` runs once, on the main queue, when the start may go on;
  /// `accessibilityTrusted` says whether the accessibility bus answers.
  void begin(std::function<void(bool accessibilityTrusted)> onSetupComplete);
  /// Looks again and tells the user, whether or not the start is held back.
  void tell();
  /// The user starts as it stands; remembered on this machine.
  void accept();
  /// Nothing follows.
  void stop();

  /// The start is held back.
  bool isShown() const { return shown_; }
  const SetupItems& items() const { return items_; }
  /// "Setup needed: Microphone, Accessibility bus", and every line that is not well with its mend.
  std::string summary() const;

  /// After every change; a view redraws.
  std::function<void()> onChange;
  /// The user should see the summary: something else is missing than before, or it was asked for.
  std::function<void()> onTell;

 private:
  struct Examined {
    SetupItems items;
    bool needsSetup = true;
  };
  void recheck();
  void examine(bool whole);
  void examined(Examined result);
  void finish();

  CoreServices& core_;
  Dispatch& dispatch_;
  SetupChecks checks_;
  SetupRecord record_;
  SetupItems items_;
  std::vector<std::string> told_;
  bool tellWanted_ = false;
  std::function<void(bool)> onSetupComplete_;
  bool shown_ = false;
  bool examining_ = false;
  bool stopped_ = false;
  TimerHandle recheckTimer_;
  SubscriptionHandle settingsObserver_;
  Lifetime lifetime_;
};

}  // namespace kestrin
