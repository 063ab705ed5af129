#pragma once

#include <string>
#include <vector>

#include "platform/bytes.h"
#include "platform/result.h"

namespace kestrin {

struct SpeechVoice {
  std::string id;        ///< stable on this machine; goes into a style
  std::string name;      ///< what people read: "English (America)"
  std::string language;  ///< "en-us"
};

struct SpeechStyle {
  std::string voiceId;  ///< empty: the synthesiser's own
  double wordsPerMinute = 175;
  double volume = 1;  ///< 0 to 1
};

/// Codes of errors in the domain "SystemSpeech".
enum SpeechErrorCode { noSynthesiser = 1, nothingToSay = 2, synthesisFailed = 3 };

/// The speech synthesiser of the machine. It makes sound and plays none. Blocking, with deadlines:
/// call it off the main queue. Thread-safe.
class SystemSpeech {
 public:
  virtual ~SystemSpeech() = default;
  /// Every voice that can speak now, in no order.
  virtual Result<std::vector<SpeechVoice>> voices() = 0;
  /// The spoken `text` as the bytes of a WAV file. The text is plain: no markup is obeyed. A style
  /// beyond what the synthesiser can do is brought to the nearest that it can; an unknown voice is
  /// an error.
  virtual Result<Bytes> synthesise(const std::string& text, const SpeechStyle& style) = 0;
};

}  // namespace kestrin
