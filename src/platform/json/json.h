#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/result.h"

namespace kestrin {

/// A JSON value. Objects keep the order in which keys were set. Reading is tolerant: a key that is
/// absent or holds another type gives nothing, so that a careless peer can never break a client.
class Json {
 public:
  using Array = std::vector<Json>;
  using Object = std::vector<std::pair<std::string, Json>>;

  Json() = default;  ///< null
  Json(std::nullptr_t) {}
  Json(bool value) : value_(value) {}
  Json(int value) : value_(static_cast<int64_t>(value)) {}
  Json(int64_t value) : value_(value) {}
  Json(double value) : value_(value) {}
  Json(const char* value) : value_(std::string(value)) {}
  Json(std::string_view value) : value_(std::string(value)) {}
  Json(std::string value) : value_(std::move(value)) {}
  Json(Array value) : value_(std::move(value)) {}

  static Json object() { return fromObject({}); }
  static Json object(std::initializer_list<std::pair<std::string, Json>> members);
  static Json array() { return Json(Array{}); }
  /// An array from any range of values that convert to Json (strings, records' `toJson()`).
  template <class Range>
  static Json arrayOf(const Range& range) {
    Array out;
    for (const auto& item : range) out.push_back(Json(item));
    return Json(std::move(out));
  }
  static Json fromMap(const std::map<std::string, std::string>& map);
  static Json fromMap(const std::map<std::string, double>& map);

  bool isNull() const { return std::holds_alternative<std::monostate>(value_); }
  bool isObject() const { return std::holds_alternative<Object>(value_); }
  bool isArray() const { return std::holds_alternative<Array>(value_); }
  /// Written without a fraction.
  bool isInteger() const { return std::holds_alternative<int64_t>(value_); }

  /// The value itself, if it has that type. A number read as integer must be whole; either kind of
  /// number reads as a number; a bool is never a number.
  std::optional<bool> asBool() const;
  std::optional<int64_t> asInt() const;
  std::optional<double> asNumber() const;
  std::optional<std::string> asString() const;
  /// Without a copy; null when it is not a string.
  const std::string* stringPtr() const { return std::get_if<std::string>(&value_); }
  /// Empty when it is not an array / not an object.
  const Array& items() const;
  const Object& members() const;

  /// The member under `key`, or null when absent or when this is not an object.
  const Json* find(std::string_view key) const;
  bool has(std::string_view key) const { return find(key) != nullptr; }
  std::optional<std::string> stringAt(std::string_view key) const;
  std::string stringAt(std::string_view key, std::string_view fallback) const;
  std::optional<bool> boolAt(std::string_view key) const;
  std::optional<int64_t> intAt(std::string_view key) const;
  std::optional<double> numberAt(std::string_view key) const;
  /// The object under `key`, or null.
  const Json* objectAt(std::string_view key) const;
  /// The objects of the array under `key`; members of other types are left out.
  std::vector<const Json*> objectsAt(std::string_view key) const;
  /// Copies of them; nothing when there is no array under `key`.
  std::optional<Array> objectListAt(std::string_view key) const;
  /// The strings of the array under `key`; members of other types are left out.
  std::vector<std::string> stringsAt(std::string_view key) const;

  /// Sets a member; turns a null value into an object first. Overwrites in place.
  Json& set(std::string_view key, Json value);
  bool erase(std::string_view key);
  /// Appends; turns a null value into an array first.
  void push(Json value);

  /// Compact text. Invalid UTF-8 is replaced by U+FFFD; infinite numbers become null. Never fails.
  std::string dump() const;
  /// Indented by two blanks, for files that people read.
  std::string dumpPretty() const;
  /// Error domain "JSON", code 1, with the parser's position in the description.
  static Result<Json> parse(std::string_view text);

  bool operator==(const Json&) const = default;

 private:
  static Json fromObject(Object members);
  std::variant<std::monostate, bool, int64_t, double, std::string, Array, Object> value_;
};

}  // namespace kestrin
