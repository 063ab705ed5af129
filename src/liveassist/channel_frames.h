#pragma once

#include <memory>

#include "diagnostics/logger.h"
#include "liveassist/audio_segmenter.h"
#include "liveassist/capture_line.h"

namespace kestrin {

/// What happens with a block of the microphone: the detector hears it and the segmenter gets it.
/// All of it goes on, speech or not. The audio thread only copies it into a ring; the rest is work
/// for the buffer queue, when the next pass begins. One handler serves one capture.
CaptureLine::OnBlock microphoneFrames(Clock& clock, Logger& logger,
                                      std::shared_ptr<MicrophoneDetector> detector,
                                      const std::shared_ptr<AudioSegmenter>& segmenter);

/// The same for the computer's sound.
CaptureLine::OnBlock systemFrames(Clock& clock, Logger& logger,
                                  std::shared_ptr<SystemDetector> detector,
                                  const std::shared_ptr<AudioSegmenter>& segmenter);

}  // namespace kestrin
