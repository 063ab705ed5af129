#include "companion/recogniser/engine.h"

namespace kestrin::recogniser {

Result<std::unique_ptr<Engine>> loadEngine(const EngineOptions&) {
  return fail("Recogniser", 1, "This build has no speech engine (KESTRIN_RECOGNISER was off)");
}

}  // namespace kestrin::recogniser
