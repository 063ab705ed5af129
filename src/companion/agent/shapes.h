#pragma once

#include <string>

#include "companion/agent/mode_detection.h"

namespace kestrin::agent {

/// Who speaks, as far as the request says.
struct Speaker {
  std::string name;
};

/// The text that a request becomes without a language model: the speaker's own words, put in the
/// order that the mode asks for. Nothing is invented; what would need invention (a poem) stays the
/// words it was asked with. For "command" the action markers, or an empty text when no action was
/// understood.
std::string shape(const Detection& detection, const Speaker& speaker);

}  // namespace kestrin::agent
