#pragma once

#include <memory>
#include <string>

#include "platform/audio.h"

namespace kestrin {

/// The sound server's client interface, which PulseAudio and PipeWire both serve. `server` as in
/// PULSE_SERVER; empty is the user's own. Connects when first used.
std::unique_ptr<Audio> makePulseAudio(std::string server = {});

}  // namespace kestrin
