#include "platform/json/json.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace kestrin {
namespace {

using Ordered = nlohmann::ordered_json;

Json fromLibrary(const Ordered& value) {
  switch (value.type()) {
    case Ordered::value_t::boolean:
      return value.get<bool>();
    case Ordered::value_t::number_integer:
      return value.get<int64_t>();
    case Ordered::value_t::number_unsigned: {
      const auto number = value.get<uint64_t>();
      if (number <= INT64_MAX) return static_cast<int64_t>(number);
      return static_cast<double>(number);
    }
    case Ordered::value_t::number_float:
      return value.get<double>();
    case Ordered::value_t::string:
      return value.get<std::string>();
    case Ordered::value_t::array: {
      Json::Array items;
      items.reserve(value.size());
      for (const auto& item : value) items.push_back(fromLibrary(item));
      return items;
    }
    case Ordered::value_t::object: {
      Json out = Json::object();
      for (const auto& [key, member] : value.items()) out.set(key, fromLibrary(member));
      return out;
    }
    default:
      return nullptr;
  }
}

Ordered toLibrary(const Json& value) {
  if (auto b = value.asBool()) return *b;
  if (const std::string* s = value.stringPtr()) return *s;
  if (value.isArray()) {
    Ordered out = Ordered::array();
    for (const auto& item : value.items()) out.push_back(toLibrary(item));
    return out;
  }
  if (value.isObject()) {
    Ordered out = Ordered::object();
    // Keys are unique by construction, so the library's search for duplicates is not needed.
    for (const auto& [key, member] : value.members()) out.emplace(key, toLibrary(member));
    return out;
  }
  if (value.isNull()) return nullptr;
  if (value.isInteger()) return *value.asInt();
  return *value.asNumber();
}

}  // namespace

Json Json::fromObject(Object members) {
  Json out;
  out.value_ = std::move(members);
  return out;
}

Json Json::object(std::initializer_list<std::pair<std::string, Json>> members) {
  Json out = object();
  for (const auto& [key, value] : members) out.set(key, value);
  return out;
}

Json Json::fromMap(const std::map<std::string, std::string>& map) {
  Json out = object();
  for (const auto& [key, value] : map) out.set(key, value);
  return out;
}

Json Json::fromMap(const std::map<std::string, double>& map) {
  Json out = object();
  for (const auto& [key, value] : map) out.set(key, value);
  return out;
}

std::optional<bool> Json::asBool() const {
  if (const auto* value = std::get_if<bool>(&value_)) return *value;
  return std::nullopt;
}

std::optional<int64_t> Json::asInt() const {
  if (const auto* value = std::get_if<int64_t>(&value_)) return *value;
  if (const auto* value = std::get_if<double>(&value_)) {
    if (std::trunc(*value) == *value && std::abs(*value) < 9.0e15) {
      return static_cast<int64_t>(*value);
    }
  }
  return std::nullopt;
}

std::optional<double> Json::asNumber() const {
  if (const auto* value = std::get_if<int64_t>(&value_)) return static_cast<double>(*value);
  if (const auto* value = std::get_if<double>(&value_)) return *value;
  return std::nullopt;
}

std::optional<std::string> Json::asString() const {
  if (const auto* value = stringPtr()) return *value;
  return std::nullopt;
}

const Json::Array& Json::items() const {
  static const Array empty;
  const auto* value = std::get_if<Array>(&value_);
  return value ? *value : empty;
}

const Json::Object& Json::members() const {
  static const Object empty;
  const auto* value = std::get_if<Object>(&value_);
  return value ? *value : empty;
}

const Json* Json::find(std::string_view key) const {
  for (const auto& [name, value] : members()) {
    if (name == key) return &value;
  }
  return nullptr;
}

std::optional<std::string> Json::stringAt(std::string_view key) const {
  const Json* value = find(key);
  return value ? value->asString() : std::nullopt;
}

std::string Json::stringAt(std::string_view key, std::string_view fallback) const {
  const Json* value = find(key);
  const std::string* text = value ? value->stringPtr() : nullptr;
  return text ? *text : std::string(fallback);
}

std::optional<bool> Json::boolAt(std::string_view key) const {
  const Json* value = find(key);
  return value ? value->asBool() : std::nullopt;
}

std::optional<int64_t> Json::intAt(std::string_view key) const {
  const Json* value = find(key);
  return value ? value->asInt() : std::nullopt;
}

std::optional<double> Json::numberAt(std::string_view key) const {
  const Json* value = find(key);
  return value ? value->asNumber() : std::nullopt;
}

const Json* Json::objectAt(std::string_view key) const {
  const Json* value = find(key);
  return value && value->isObject() ? value : nullptr;
}

std::optional<Json::Array> Json::objectListAt(std::string_view key) const {
  const Json* list = find(key);
  if (list == nullptr || !list->isArray()) return std::nullopt;
  Array out;
  for (const Json* item : objectsAt(key)) out.push_back(*item);
  return out;
}

std::vector<const Json*> Json::objectsAt(std::string_view key) const {
  std::vector<const Json*> out;
  if (const Json* value = find(key)) {
    for (const Json& item : value->items()) {
      if (item.isObject()) out.push_back(&item);
    }
  }
  return out;
}

std::vector<std::string> Json::stringsAt(std::string_view key) const {
  std::vector<std::string> out;
  if (const Json* value = find(key)) {
    for (const Json& item : value->items()) {
      if (const std::string* text = item.stringPtr()) out.push_back(*text);
    }
  }
  return out;
}

Json& Json::set(std::string_view key, Json value) {
  if (!isObject()) value_ = Object{};
  auto& object = std::get<Object>(value_);
  for (auto& [name, member] : object) {
    if (name == key) {
      member = std::move(value);
      return *this;
    }
  }
  object.emplace_back(std::string(key), std::move(value));
  return *this;
}

bool Json::erase(std::string_view key) {
  auto* object = std::get_if<Object>(&value_);
  return object && std::erase_if(*object, [&](const auto& member) { return member.first == key; });
}

void Json::push(Json value) {
  if (!isArray()) value_ = Array{};
  std::get<Array>(value_).push_back(std::move(value));
}

std::string Json::dump() const {
  return toLibrary(*this).dump(-1, ' ', false, Ordered::error_handler_t::replace);
}

std::string Json::dumpPretty() const {
  return toLibrary(*this).dump(2, ' ', false, Ordered::error_handler_t::replace);
}

Result<Json> Json::parse(std::string_view text) {
  // Bounds the parser's recursion, so that a hostile peer cannot exhaust the stack.
  constexpr int maxDepth = 256;
  try {
    const auto value = Ordered::parse(text, [](int depth, Ordered::parse_event_t, Ordered&) {
      if (depth > maxDepth) throw std::runtime_error("nested too deeply");
      return true;
    });
    return fromLibrary(value);
  } catch (const std::exception& error) {
    return fail("JSON", 1, error.what());
  }
}

}  // namespace kestrin
