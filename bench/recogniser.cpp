// Speed and accuracy of the recogniser on a few recordings: real-time factor and word error rate.
#include <iostream>

#include "companion/engine/speech_samples.h"
#include "companion/recogniser/engine.h"
#include "platform/dispatch/threads.h"

using namespace kestrin;

int main() {
  const auto dispatch = ThreadsDispatch::make();
  const Clock& clock = dispatch->clock();
  const auto secondsSince = [&clock](SteadyTime began) {
    return std::chrono::duration<double>(clock.steadyNow() - began).count();
  };
  auto samples = testing::readAloud();
  for (auto& sample : testing::synthesised("/tmp")) samples.push_back(std::move(sample));
  if (samples.empty()) {
    std::cerr << "no recordings are installed (pocketsphinx-testdata, festival)\n";
    return 1;
  }
  for (const auto size : {recogniser::ModelSize::base, recogniser::ModelSize::tiny}) {
    SteadyTime began = clock.steadyNow();
    auto engine = recogniser::loadEngine({KESTRIN_BINARY_DIR "/share/kestrin/models", size});
    if (!engine) {
      std::cerr << engine.error().description << "\n";
      return 1;
    }
    const double loading = secondsSince(began);
    began = clock.steadyNow();
    double spoken = 0;
    size_t errors = 0, words = 0;
    for (const auto& sample : samples) {
      const auto heard = (*engine)->decode(sample.samples);
      spoken += double(sample.samples.size()) / recogniser::sampleRate;
      errors += testing::wordErrors(sample.words, heard ? heard->text : "");
      words += testing::plainWords(sample.words).size();
    }
    const double took = secondsSince(began);
    std::cout << (size == recogniser::ModelSize::base ? "base" : "tiny") << ": loaded in "
              << loading << " s; " << samples.size() << " recordings of " << spoken << " s in "
              << took << " s, real-time factor " << took / spoken << "; " << words << " words, "
              << 100.0 * double(errors) / double(words) << " % wrong\n";
  }
  return 0;
}
