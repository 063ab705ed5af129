#include "usermodel/preference_table.h"

#include <gtest/gtest.h>
#include <set>

#include "platform/simulated/simulated_world.h"
#include "usermodel/location_service.h"
#include "usermodel/user_preferences.h"

namespace kestrin {
namespace {

TEST(PreferenceTable, EveryDefaultIsAValueThatItsOwnRuleAccepts) {
  std::set<std::string> keys;
  for (const auto& each : preferences()) {
    EXPECT_TRUE(keys.insert(each.key).second) << each.key;
    EXPECT_FALSE(otherSettings().count(each.key)) << each.key;
    if (!each.fallback.isNull()) {
      EXPECT_EQ(checkedPreference(each, each.fallback).value_or(Json()), each.fallback) << each.key;
    }
  }
  EXPECT_EQ(keys.size(), 40u + 8u);
}

TEST(PreferenceTable, WhatAPersonTypesIsTypedOrRefusedWithWhatWouldBeRight) {
  const auto typed = [](const char* key, const char* text) {
    const auto value = settingFromText(key, text);
    return value ? value->dump() : "! " + value.error().description;
  };
  EXPECT_EQ(typed("pref_playSounds", "false"), "false");
  EXPECT_EQ(typed("pref_playSounds", "no"), "! pref_playSounds takes true or false");
  EXPECT_EQ(typed("pref_speechRate", "2"), "2");
  EXPECT_EQ(typed("pref_speechRate", "2.1"), "! pref_speechRate takes a number from 0.5 to 2.0");
  EXPECT_EQ(typed("pref_windowOpacity", "\"80\""),
            "! pref_windowOpacity takes a number from 50 to 100");
  EXPECT_EQ(typed("pref_appearance", "dark"), "1");
  EXPECT_EQ(typed("pref_appearance", "2"), "2");
  EXPECT_EQ(typed("pref_appearance", "3"),
            "! pref_appearance takes 0 to 2 or one of \"Light\", \"Dark\", \"System\"");
  EXPECT_EQ(typed("pref_timeFormat", "24-HOUR"), "\"24-hour\"");
  EXPECT_EQ(typed("pref_timeFormat", "24"),
            "! pref_timeFormat takes one of \"12-hour\", \"24-hour\"");
  EXPECT_EQ(typed("pref_inputDevice", "My Headset"), "\"My Headset\"");
  EXPECT_EQ(typed("pref_llmEndpoint", "123"), "\"123\"") << "a text stays one";
  EXPECT_EQ(typed("pref_unknown", "1"), "! There is no setting pref_unknown");
  EXPECT_EQ(typed("nibo_user_name", "true"), "\"true\"");
  EXPECT_EQ(typed("nibo_setup_completed", "true"), "true");
  EXPECT_EQ(typed("totalNotes", "1.5"), "! totalNotes takes a whole number");
  EXPECT_EQ(typed("nibo_custom_prompts", "[1]"), "! nibo_custom_prompts takes a JSON object");
  EXPECT_EQ(typed("lastSyncTime", "yesterday"),
            "! lastSyncTime takes a date, as 2026-03-01T09:30:00Z");
  EXPECT_EQ(typed("my_script", "{\"a\":1}"), "{\"a\":1}");
}

TEST(UserPreferences, StoredAttributesOfTheWrongTypeReadAsAbsent) {
  SimulatedSettings settings;
  UserPreferences preferences(settings);
  settings.set(UserPreferences::userPersonalityKey, 1);
  EXPECT_FALSE(preferences.hasPersonality());
  settings.set(UserPreferences::userPersonalityKey, "kind");
  EXPECT_TRUE(preferences.hasPersonality());
  for (const char* broken : {"{\"name\":", "[]", "7"}) {
    settings.set(UserPreferences::userArchetypeKey, broken);
    EXPECT_FALSE(preferences.userArchetype()) << broken;
  }
  settings.set(UserPreferences::userArchetypeKey, R"({"name":"Sage"})");
  EXPECT_EQ(preferences.userArchetype()->stringAt("name"), "Sage") << "JSON inside a text";
  preferences.setUserArchetype(Json("no record"));
  EXPECT_FALSE(settings.get(UserPreferences::userArchetypeKey));
  EXPECT_EQ(preferences.displayLocation(), "Location not set");
  settings.set(UserPreferences::userCityKey, "Lyon");
  settings.set(UserPreferences::userLocationKey, "");
  EXPECT_EQ(preferences.displayLocation(), "Lyon");
}

TEST(LocationService, ThePlaceIsStoredInItsOrderAndThenTold) {
  SimulatedWorld world;
  LocationService service(world.dispatch, world.place, world.settings);
  std::vector<std::string> events;
  const auto stored =
      world.settings.observe([&](const std::string& key) { events.push_back(key); });
  const auto told = [&](const Result<FoundLocation>& found) {
    events.push_back(found ? found->location + "|" + found->city + "|" + found->country
                           : found.error().domain);
  };
  service.update(told);
  EXPECT_TRUE(events.empty());
  world.simulation->runFor(std::chrono::seconds(1));
  EXPECT_EQ(events,
            (std::vector<std::string>{"nibo_user_location", "nibo_user_city", "nibo_user_country",
                                      "nibo_user_timezone", "Lyon, Rhône, France|Lyon|France"}));
  EXPECT_EQ(world.settings.string("nibo_user_timezone"), "Europe/Paris");
  events.clear();
  // A city that is its own region is named once; without a city the region stands for it.
  world.place.place = Place{"", "Berlin", "Germany", "Europe/Berlin"};
  service.update(told);
  world.simulation->runFor(std::chrono::seconds(1));
  EXPECT_EQ(events.back(), "Berlin, Germany|Berlin|Germany");
  world.place.place.reset();
  service.update(told);
  world.simulation->runFor(std::chrono::seconds(1));
  EXPECT_EQ(events.back(), "PlaceService");
  EXPECT_EQ(world.settings.string("nibo_user_city"), "Berlin") << "the old place is kept";
}

}  // namespace
}  // namespace kestrin
