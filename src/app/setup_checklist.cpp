#include "app/setup_checklist.h"

#include <utility>

#include "platform/text/text.h"

namespace kestrin {

SetupChecklist::SetupChecklist(CoreServices& core, const Doctor::Options& options)
    : core_(core),
      dispatch_(core.platform.dispatch),
      checks_(core, options),
      record_(core.platform.settings, core.machineIdentity) {}

void SetupChecklist::begin(std::function<void(bool)> onSetupComplete) {
  onSetupComplete_ = std::move(onSetupComplete);
  // "kestrin setup" in a terminal, and a change of the service host, may settle it.
  std::function<void()> again = lifetime_.guard([this] { recheck(); });
  settingsObserver_ = core_.platform.settings.observe(
      [main = dispatch_.mainQueue(), again](const std::string& key) {
        if (key == SetupRecord::completedKey || key == "pref_serviceHost" ||
            key == "pref_useLocalLLM") {
          main->post(again);
        }
      });
  examine(false);
}

void SetupChecklist::recheck() {
  if (onSetupComplete_ && !examining_) examine(shown_);
}

void SetupChecklist::accept() {
  if (!onSetupComplete_ || !shown_) return;
  core_.logger.log("App", LogLevel::warning,
                   "Setup accepted without " + text::join(missingNames(items_), ", "));
  record_.complete(items_);
  finish();
}

void SetupChecklist::tell() {
  tellWanted_ = true;
  if (!examining_ && !stopped_) examine(true);
}

void SetupChecklist::stop() {
  stopped_ = true;
  onSetupComplete_ = nullptr;
  recheckTimer_.reset();
  settingsObserver_.reset();
}

void SetupChecklist::examine(bool whole) {
  examining_ = true;
  std::function<void(Examined)> deliver =
      lifetime_.guard([this](Examined result) { examined(std::move(result)); });
  dispatch_.globalQueue()->post([this, whole, deliver, main = dispatch_.mainQueue()] {
    Examined result{whole ? checks_.examine() : checks_.examineRequired(), true};
    result.needsSetup = record_.needsSetup(result.items);
    main->post([deliver, result = std::move(result)] { deliver(result); });
  });
}

void SetupChecklist::examined(Examined result) {
  examining_ = false;
  if (stopped_) return;
  items_ = std::move(result.items);
  const auto missing = missingNames(items_);
  const bool waiting = onSetupComplete_ != nullptr;
  if (waiting && !result.needsSetup) return finish();
  if (waiting && missing.empty()) {
    record_.complete(items_);
    return finish();
  }
  const bool first = waiting && !std::exchange(shown_, true);
  // The whole list is worth telling; the first look was only at what the start needs.
  if (first) return examine(true);
  if (onChange) onChange();
  const bool news = std::exchange(told_, missing) != missing;
  if ((std::exchange(tellWanted_, false) || (waiting && news)) && onTell) onTell();
  if (waiting) {
    recheckTimer_ = dispatch_.after(dispatch_.mainQueue(), recheckInterval,
                                    lifetime_.guard([this] { recheck(); }));
  }
}

void SetupChecklist::finish() {
  shown_ = false;
  const auto done = std::exchange(onSetupComplete_, nullptr);
  recheckTimer_.reset();
  settingsObserver_.reset();
  const bool trusted = !items_.empty() && items_.front().finding.state == Finding::State::ok;
  if (onChange) onChange();
  done(trusted);
}

std::string SetupChecklist::summary() const {
  std::vector<std::string> lines;
  const auto missing = missingNames(items_);
  if (!missing.empty()) lines.push_back("Setup needed: " + text::join(missing, ", "));
  for (const auto& item : items_) {
    if (item.finding.state != Finding::State::ok) lines.push_back(item.finding.line());
  }
  return lines.empty() ? "Everything is in place." : text::join(lines, "\n");
}

}  // namespace kestrin
