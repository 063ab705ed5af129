#include "cli/live_printer.h"

#include <iostream>

#include "cli/printable.h"
#include "liveassist/session_records.h"
#include "platform/dates/dates.h"

namespace kestrin::cli {
namespace {

void print(const Json& event) { std::cout << event.dump() << std::endl; }

}  // namespace

void tell(const std::string& line) { std::cerr << "kestrin: " << printable(line) << std::endl; }

void LivePrinter::attach(LiveAssistView& view) {
  view.onLine = [this](const LAChatMessage& message) { line(message); };
  view.onFailure = [this](LAAudioChannel channel, const std::string& error) {
    failure(channel, error);
  };
  view.loop().onAnswer = [this](const Json& answer) { feedback(answer); };
}

void LivePrinter::line(const LAChatMessage& message) {
  if (json_) {
    return print(Json::object({{"event", "line"},
                               {"channel", rawValue(message.channel)},
                               {"text", message.text},
                               {"speaker", message.speakerNumber},
                               {"metadata", message.metadata},
                               {"time", dates::iso8601(message.timestamp, true)}}));
  }
  const bool mine = message.channel == LAAudioChannel::microphone;
  std::cout << dates::format(message.timestamp, "HH:mm:ss") << (mine ? "  YOU    " : "  OTHER  ")
            << printable(message.text) << std::endl;
}

void LivePrinter::failure(LAAudioChannel channel, const std::string& error) {
  hasFailed_ = true;
  if (json_) {
    print(Json::object({{"event", "error"},
                        {"domain", "LiveAssistTranscriber"},
                        {"code", 1},
                        {"channel", rawValue(channel)},
                        {"description", error}}));
  }
  tell(error);
}

void LivePrinter::feedback(const Json& answer) {
  const std::string summary = answer.stringAt("feedbackSummary", "");
  const auto suggestions = answer.stringsAt("suggestions");
  if (summary.empty() && suggestions.empty()) return;
  Json event = Json::object({{"event", "feedback"},
                             {"summary", summary},
                             {"suggestions", Json::arrayOf(suggestions)},
                             {"keywords", Json::arrayOf(answer.stringsAt("keywords"))}});
  if (shown_ == event) return;
  shown_ = event;
  if (json_) return print(event);
  if (!summary.empty()) std::cout << "          ● " << printable(summary) << "\n";
  for (const auto& each : suggestions) std::cout << "            – " << printable(each) << "\n";
  std::cout << std::flush;
}

}  // namespace kestrin::cli
