#include "companion/home/weather.h"

#include <charconv>
#include <optional>

#include "platform/text/text.h"

namespace kestrin::home {
namespace {

/// The first `value` of a list of objects, as this interface writes texts.
std::string valueAt(const Json& object, const char* key) {
  const auto list = object.objectsAt(key);
  return list.empty() ? "" : text::trim(list.front()->stringAt("value", ""));
}

/// Numbers come as texts.
std::optional<double> numberIn(const Json& object, const char* key) {
  if (const auto number = object.numberAt(key)) return number;
  const std::string text = object.stringAt(key, "");
  double value = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
  if (read.ec != std::errc() || text.empty()) return std::nullopt;
  return value;
}

const char* iconFor(const std::string& condition) {
  const std::string words = text::lower(condition);
  if (text::containsAny(words, {"thunder"})) return "⛈️";
  if (text::containsAny(words, {"snow", "sleet", "blizzard", "ice"})) return "❄️";
  if (text::containsAny(words, {"rain", "drizzle", "shower"})) return "🌧️";
  if (text::containsAny(words, {"fog", "mist", "haze"})) return "🌫️";
  if (text::containsAny(words, {"partly", "few clouds"})) return "⛅";
  if (text::containsAny(words, {"cloud", "overcast"})) return "☁️";
  if (text::containsAny(words, {"sun", "clear", "fair"})) return "☀️";
  return "🌡️";
}

}  // namespace

Json weatherAnswer(const Json& report, const std::string& location) {
  const auto now = report.objectsAt("current_condition");
  const auto degrees = now.empty() ? std::nullopt : numberIn(*now.front(), "temp_C");
  if (!degrees) {
    return Json::object({{"success", false}, {"error", "The weather service gave no report"}});
  }
  const std::string condition = valueAt(*now.front(), "weatherDesc");
  const auto areas = report.objectsAt("nearest_area");
  std::string place = location;
  if (place.empty() && !areas.empty()) place = valueAt(*areas.front(), "areaName");
  const std::string spoken = "It is " + text::fixed(*degrees, 0) + " degrees" +
                             (condition.empty() ? "" : " and " + text::lower(condition)) +
                             (place.empty() ? "" : " in " + place.substr(0, place.find(','))) + ".";
  return Json::object(
      {{"success", true},
       {"spoken", spoken},
       {"weather", Json::object({{"condition", condition},
                                 {"condition_icon", iconFor(condition)},
                                 {"temp_c", *degrees},
                                 {"location", place.substr(0, place.find(','))}})}});
}

}  // namespace kestrin::home
