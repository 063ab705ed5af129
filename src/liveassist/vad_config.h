#pragma once

#include <cstddef>

namespace kestrin {

/// What decides when speech begins and ends and when a buffer is cut. Sizes in bytes of PCM
/// (32,000 a second), times in seconds, runs in frames (blocks of the capture).
struct LAVADConfig {
  size_t minBufferSize = 16'000;           ///< below this only the maximum cuts
  size_t maxBufferSize = 256'000;          ///< from here a buffer is cut whatever is heard
  size_t idealBufferSize = 128'000;        ///< from here the time rules apply
  float micVADThreshold = 0.002F;          ///< RMS above which a microphone frame is speech
  int maxSilenceFrames = 40;               ///< a longer run of silence ends the microphone's speech
  double micSilenceThreshold = 0.5;        ///< since the end of speech, before a cut
  double micTranscribeTimeoutSec = 15.0;   ///< a microphone segment in flight is given up then
  size_t energyHistorySize = 50;           ///< frames of the system channel's RMS history
  int systemSilenceFramesForSegment = 18;  ///< a longer run ends the system channel's speech
};

}  // namespace kestrin
