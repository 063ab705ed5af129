#pragma once

#include "platform/accessibility.h"
#include "platform/simulated/fault_plan.h"
#include "platform/simulated/simulated_desktop.h"

namespace kestrin {

/// Accessibility of the scripted desktop. Inserts take time, in which the user may type; a program
/// that hangs holds the caller for the whole deadline and takes the text later.
class SimulatedAccessibility : public Accessibility {
 public:
  SimulatedAccessibility(Dispatch& dispatch, SimulatedDesktop& desktop,
                         FaultPlan* faults = nullptr);

  /// How long an answered insert takes, and how long after its call a hanging program wakes up.
  Duration insertTime = std::chrono::microseconds(400);
  Duration hangTime = std::chrono::seconds(5);
  /// Without a bus every call fails.
  bool busMissing = false;

  Status available() override;
  Result<AxElement> focusedWindow(int pid) override;
  Result<AxElement> focusedElement(int pid) override;
  Result<AxElement> focusedDescendant(const AxElement& root) override;
  Result<std::string> role(const AxElement& element) override;
  Result<std::string> title(const AxElement& element) override;
  Result<std::string> toolkit(const AxElement& element) override;
  Result<std::string> value(const AxElement& element) override;
  Result<std::string> textRange(const AxElement& element, int begin, int end) override;
  Result<int> textLength(const AxElement& element) override;
  Result<TextRange> selectedRange(const AxElement& element) override;
  Result<std::string> selectedText(const AxElement& element) override;
  Result<bool> isEditable(const AxElement& element) override;
  InsertOutcome insertText(const AxElement& element, int offset, const std::string& text) override;
  InsertOutcome lateOutcome(const AxElement& element, Duration timeout) override;
  Result<SubscriptionHandle> watchText(const AxElement& element,
                                       std::function<void(TextChange)> onForeignChange) override;

 private:
  /// Inserts that a hanging program has not done yet, and who waits for them.
  struct Late {
    int outstanding = 0;
    InsertOutcome result = InsertOutcome::refused;
    std::shared_ptr<Semaphore> settled;
  };

  Status reach(const char* site);
  Result<SimulatedApplication*> programOf(const AxElement& element, const char* site);
  Result<SimulatedElement*> textOf(const AxElement& element, const char* site);
  SimulatedWindow* windowOf(const AxElement& element);
  InsertOutcome hang(const AxElement& element, int offset, const std::string& text);

  Dispatch& dispatch_;
  SimulatedDesktop& desktop_;
  FaultPlan* faults_;
  QueueRef events_;
  std::map<std::pair<std::string, std::string>, Late> late_;
  Lifetime lifetime_;
};

}  // namespace kestrin
