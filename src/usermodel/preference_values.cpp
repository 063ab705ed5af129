
#include "platform/dates/dates.h"
#include "platform/text/text.h"
#include "usermodel/preference_table.h"

namespace kestrin {
namespace {

constexpr const char* domain = "Preferences";

std::string quotedChoices(const Preference& preference) {
  std::vector<std::string> quoted;
  for (const std::string& choice : preference.choices) quoted.push_back("\"" + choice + "\"");
  return text::join(quoted, ", ");
}

/// Index of the choice in any case; -1 for none.
int choiceOf(const Preference& preference, const std::string& title) {
  const std::string wanted = text::lower(title);
  for (size_t i = 0; i < preference.choices.size(); ++i) {
    if (text::lower(preference.choices[i]) == wanted) return static_cast<int>(i);
  }
  return -1;
}

tl::unexpected<Error> wrong(std::string_view key, const std::string& expected) {
  return fail(domain, 1, std::string(key) + " takes " + expected);
}

Result<Json> typed(const std::string& key, PreferenceType type, const std::string& text) {
  if (type == PreferenceType::text) return Json(text);
  if (type == PreferenceType::date) {
    if (dates::parseIso8601(text)) return Json(text);
    return wrong(key, "a date, as 2026-03-01T09:30:00Z");
  }
  const auto value = Json::parse(text);
  switch (type) {
    case PreferenceType::boolean:
      if (value && value->asBool()) return *value;
      return wrong(key, "true or false");
    case PreferenceType::integer:
      if (value && value->asInt()) return *value;
      return wrong(key, "a whole number");
    case PreferenceType::number:
      if (value && value->asNumber()) return *value;
      return wrong(key, "a number");
    default:
      if (value && value->isObject()) return *value;
      return wrong(key, "a JSON object");
  }
}

}  // namespace

PreferenceType Preference::type() const {
  switch (control) {
    case PreferenceControl::toggle:
      return PreferenceType::boolean;
    case PreferenceControl::slider:
      return PreferenceType::number;
    case PreferenceControl::segmented:
      return PreferenceType::integer;
    case PreferenceControl::dropdown:
    case PreferenceControl::textField:
      break;
  }
  return PreferenceType::text;
}

std::string Preference::shown(double value) const { return text::fixed(value, decimals) + suffix; }

const Preference* findPreference(std::string_view key) {
  for (const Preference& each : preferences()) {
    if (key == each.key) return &each;
  }
  return nullptr;
}

Result<Json> checkedPreference(const Preference& preference, const Json& value) {
  switch (preference.control) {
    case PreferenceControl::toggle:
      if (value.asBool()) return value;
      return wrong(preference.key, "true or false");
    case PreferenceControl::slider: {
      const auto number = value.asNumber();
      if (number && *number >= preference.minimum && *number <= preference.maximum) return value;
      return wrong(preference.key,
                   "a number from " + text::fixed(preference.minimum, preference.decimals) +
                       " to " + text::fixed(preference.maximum, preference.decimals));
    }
    case PreferenceControl::segmented: {
      const auto index = value.asInt();
      const auto count = static_cast<int64_t>(preference.choices.size());
      if (index && *index >= 0 && *index < count) return value;
      return wrong(preference.key,
                   "0 to " + std::to_string(count - 1) + " or one of " + quotedChoices(preference));
    }
    case PreferenceControl::dropdown: {
      const std::string* title = value.stringPtr();
      const int choice = title ? choiceOf(preference, *title) : -1;
      if (choice >= 0) return Json(preference.choices[static_cast<size_t>(choice)]);
      if (title && preference.openChoices && !title->empty()) return value;
      return wrong(preference.key,
                   preference.openChoices ? "a name" : "one of " + quotedChoices(preference));
    }
    case PreferenceControl::textField:
      if (value.stringPtr()) return value;
      return wrong(preference.key, "a text");
  }
  return wrong(preference.key, "another value");
}

Result<Json> settingFromText(const std::string& key, const std::string& text) {
  if (const Preference* preference = findPreference(key)) {
    if (preference->type() == PreferenceType::text) return checkedPreference(*preference, text);
    if (preference->control == PreferenceControl::segmented) {
      if (const int choice = choiceOf(*preference, text); choice >= 0) return Json(choice);
    }
    return checkedPreference(*preference, Json::parse(text).value_or(Json()));
  }
  if (text::prefix(key, preferencePrefix.size()) == preferencePrefix) {
    return fail(domain, 2, "There is no setting " + key);
  }
  if (const auto known = otherSettings().find(key); known != otherSettings().end()) {
    return typed(key, known->second, text);
  }
  return Json::parse(text).value_or(Json(text));
}

}  // namespace kestrin
