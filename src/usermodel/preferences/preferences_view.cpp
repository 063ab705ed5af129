#include "usermodel/preferences/preferences_view.h"

#include <algorithm>

#include "platform/dispatch/background.h"

namespace kestrin {
namespace {

const Preference* withControl(const std::string& key, PreferenceControl control) {
  const Preference* found = findPreference(key);
  return found && found->control == control ? found : nullptr;
}

}  // namespace

PreferencesView::PreferencesView(PreferencesServices services)
    : services_(std::move(services)),
      dispatch_(services_.platform.dispatch),
      settings_(services_.platform.settings),
      voice_(services_.platform.speech),
      updates_(std::make_shared<UpdateCheck>(services_.platform.http, services_.endpoints)),
      account_(std::make_shared<AccountStatus>(services_.platform.http, services_.endpoints,
                                               services_.deviceId)),
      secretQueue_(dispatch_.makeQueue("com.kestrin.preferences.secret")),
      loginQueue_(dispatch_.makeQueue("com.kestrin.preferences.login")) {
  changes_ = services_.platform.notifications.observe(
      preferencesChanged, lifetime_.guard([this](const Json& info) {
        if (info.stringAt("key") == "pref_launchAtLogin") launchAtLoginShown_.reset();
        changed();
      }));
}

void PreferencesView::loadSavedPreferences() {
  loadGeminiKey();
  refreshStorage();
  refreshStatus();
}

void PreferencesView::selectPage(PreferencePage page) {
  page_ = page;
  // Permissions change outside of this window.
  if (page == PreferencePage::privacy) refreshStatus();
  changed();
}

void PreferencesView::setToggle(const std::string& key, bool on) {
  if (!withControl(key, PreferenceControl::toggle)) return;
  using Notice = PreferenceChanges::Notice;
  const auto window = services_.window.lock();
  if (key == "pref_launchAtLogin") {
    setLaunchAtLogin(on);
  } else if (key == "pref_showDockIcon") {
    services_.changes.write(key, on, Notice::none);
    if (window) window->setTaskbarEntry(on);
  } else if (key == "pref_alwaysOnTop") {
    services_.changes.write(key, on, Notice::none);
    if (window) window->setWindowLevel(on ? floatingWindowLevel : normalWindowLevel);
  } else {
    services_.changes.write(key, on);
  }
  changed();
}

void PreferencesView::setSlider(const std::string& key, double value) {
  const Preference* preference = withControl(key, PreferenceControl::slider);
  if (!preference) return;
  const double held = std::clamp(value, preference->minimum, preference->maximum);
  if (key == "pref_windowOpacity") {
    services_.changes.write(key, held, PreferenceChanges::Notice::none);
    if (const auto window = services_.window.lock()) window->setWindowAlpha(held / 100);
  } else {
    services_.changes.write(key, held);
  }
  changed();
}

void PreferencesView::choose(const std::string& key, const std::string& title) {
  if (!withControl(key, PreferenceControl::dropdown)) return;
  services_.changes.write(key, title);
}

void PreferencesView::chooseSegment(const std::string& key, int index) {
  const Preference* preference = withControl(key, PreferenceControl::segmented);
  if (preference && checkedPreference(*preference, index)) services_.changes.write(key, index);
}

void PreferencesView::editText(const std::string& key, const std::string& text) {
  if (!withControl(key, PreferenceControl::textField)) return;
  if (key == GeminiKeyManager::settingKey) return saveGeminiKey(text);
  services_.changes.write(key, text);
}

/// The setting is kept even where the desktop refuses: it says what the user wants.
void PreferencesView::setLaunchAtLogin(bool on) {
  services_.changes.write("pref_launchAtLogin", on);
  registerLogin(on);
}

void PreferencesView::registerLogin(bool on) {
  inBackground(
      dispatch_, loginQueue_, lifetime_,
      [&item = services_.platform.loginItem, on] { return item.setEnabled(on); },
      [this, on](const Status& registered) {
        if (registered) return;
        services_.logger.print("❌ Failed to set launch at login: " +
                               registered.error().description);
        launchAtLoginShown_ = !on;
        changed();
      });
}

void PreferencesView::loadGeminiKey() {
  inBackground(
      dispatch_, secretQueue_, lifetime_,
      [&manager = services_.geminiKey] { return manager.apiKey(); },
      [this](const std::string& key) {
        if (geminiKeyEdited_) return;
        geminiKey_ = key;
        changed();
      });
}

void PreferencesView::saveGeminiKey(const std::string& text) {
  geminiKey_ = text;
  geminiKeyEdited_ = true;
  const uint64_t edit = ++*geminiEdits_;
  inBackground(
      dispatch_, secretQueue_, lifetime_,
      [&manager = services_.geminiKey, edits = geminiEdits_, edit, text] {
        // While the store was busy more was typed: only the last text counts.
        const bool last = *edits == edit;
        if (last) manager.save(text);
        return last;
      },
      [this, text](bool saved) {
        if (saved) services_.changes.post(GeminiKeyManager::settingKey, text);
      });
}

const PreferenceDialog* PreferencesView::dialog() const {
  return asked_.empty() ? nullptr : &asked_.front().dialog;
}

void PreferencesView::answer(size_t button) {
  if (asked_.empty()) return;
  const auto answered = std::move(asked_.front().answered);
  asked_.pop_front();
  if (answered) answered(button);
  changed();
}

void PreferencesView::ask(PreferenceDialog dialog, std::function<void(size_t)> answered) {
  asked_.push_back({std::move(dialog), std::move(answered)});
  changed();
}

void PreferencesView::changed() {
  if (onChange) onChange();
}

}  // namespace kestrin
