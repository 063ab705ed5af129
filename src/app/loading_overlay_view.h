#pragma once

#include <functional>
#include <string>
#include <utility>

namespace kestrin {

/// How far one service has come, as its row shows it.
enum class ServiceState { pending, ready, failed };

/// What covers the main window until dictation works: one row for each service and a line of text.
/// A view draws it. Main queue only.
class LoadingOverlayView {
 public:
  enum class Phase {
    hidden,     ///< not shown yet
    loading,    ///< covers the window
    revealing,  ///< all is well: a view takes it away with an animation
    dismissed,  ///< taken away without one
  };
  struct Services {
    ServiceState asr = ServiceState::pending;
    ServiceState llm = ServiceState::pending;
    ServiceState agent = ServiceState::pending;
    ServiceState backend = ServiceState::pending;
    bool operator==(const Services&) const = default;
  };

  void show() { enter(Phase::loading); }
  void updateServiceStatus(ServiceState asr, ServiceState llm, ServiceState agent,
                           ServiceState backend) {
    services_ = {asr, llm, agent, backend};
    changed();
  }
  void updateStatus(std::string text) {
    statusText_ = std::move(text);
    changed();
  }
  /// "Natural language service (Local)".
  void setLLMName(std::string name) {
    llmName_ = std::move(name);
    changed();
  }
  /// `completion` runs at once: the animation is decoration, and presses count from the moment the
  /// services answer.
  void performRevealAnimation(const std::function<void()>& completion) {
    enter(Phase::revealing);
    completion();
  }
  void dismiss(const std::function<void()>& completion) {
    enter(Phase::dismissed);
    completion();
  }

  Phase phase() const { return phase_; }
  const Services& services() const { return services_; }
  const std::string& statusText() const { return statusText_; }
  const std::string& llmName() const { return llmName_; }

  /// After every change; a view redraws.
  std::function<void()> onChange;

 private:
  void enter(Phase phase) {
    phase_ = phase;
    changed();
  }
  void changed() {
    if (onChange) onChange();
  }

  Phase phase_ = Phase::hidden;
  Services services_;
  std::string statusText_;
  std::string llmName_ = "Natural language service (Off)";
};

}  // namespace kestrin
