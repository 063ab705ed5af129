#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrin::recogniser {

/// Something that a transcript names: "email", "date", "time", "number" or "name".
struct Entity {
  std::string type;
  std::string value;

  bool operator==(const Entity&) const = default;
};

/// Found by plain rules over English text, in the order of the text; no part of it is counted
/// twice. A name is a run of capitalised words that the start of a sentence does not explain.
std::vector<Entity> findEntities(std::string_view transcript);

}  // namespace kestrin::recogniser
