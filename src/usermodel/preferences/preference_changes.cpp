#include "usermodel/preferences/preference_changes.h"

#include "usermodel/preference_table.h"

namespace kestrin {

PreferenceChanges::PreferenceChanges(Dispatch& dispatch, SettingsStore& settings,
                                     NotificationCenter& notifications)
    : main_(dispatch.mainQueue()), settings_(settings), notifications_(notifications) {
  const std::function<void(std::string)> told = lifetime_.guard(
      [this](const std::string& key) { post(key, settings_.get(key).value_or(Json())); });
  // Observers run on the thread of the change: only on the main queue can it be our own.
  const std::function<bool()> own = lifetime_.guard([this] { return writing_; });
  others_ = settings_.observe([main = main_, told, own](const std::string& key) {
    if (key.rfind(preferencePrefix, 0) != 0) return;
    if (main->isCurrent() && own()) return;
    main->post([told, key] { told(key); });
  });
}

void PreferenceChanges::write(const std::string& key, Json value, Notice notice) {
  writing_ = true;
  settings_.set(key, value);
  writing_ = false;
  if (notice == Notice::posted) post(key, value);
}

void PreferenceChanges::post(const std::string& key, const Json& value) {
  notifications_.post(preferencesChanged, Json::object({{"key", key}, {"value", value}}));
}

}  // namespace kestrin
