#include "platform/linux/espeak_speech.h"

#include <algorithm>
#include <cmath>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* domain = "SystemSpeech";
constexpr const char* program = "espeak-ng";
constexpr std::chrono::seconds listDeadline{5};
/// It speaks some hundred times faster than a person.
constexpr std::chrono::seconds speechDeadline{30};
/// The range of its own speed option.
constexpr double slowest = 80;
constexpr double fastest = 450;
/// Its amplitude for "as recorded"; more than that clips.
constexpr double fullAmplitude = 100;

std::string rounded(double value) { return std::to_string(std::lround(value)); }

double within(double value, double low, double high, double instead) {
  return std::isfinite(value) ? std::clamp(value, low, high) : instead;
}

std::vector<std::string> words(const std::string& line) {
  std::vector<std::string> all;
  for (auto& word : text::split(line, " ")) {
    if (!word.empty()) all.push_back(std::move(word));
  }
  return all;
}

/// The error of a run, as the user should read it.
Error missing(const Error& error) {
  if (error.code != ENOENT) return {domain, synthesisFailed, error.description};
  return {domain, noSynthesiser, "No speech synthesiser is installed; install espeak-ng"};
}

}  // namespace

std::vector<SpeechVoice> parseEspeakVoices(const std::string& table, bool hasMbrola) {
  std::vector<SpeechVoice> voices;
  for (const auto& line : text::split(table, "\n")) {
    // Priority, language, age/gender, name (its spaces are underscores), file, other languages.
    const auto columns = words(line);
    if (columns.size() < 5 || columns[0] == "Pty") continue;
    const auto& id = columns[4];
    if (id.starts_with("mb/") && !hasMbrola) continue;
    auto name = columns[3];
    std::replace(name.begin(), name.end(), '_', ' ');
    voices.push_back({id, name, columns[1]});
  }
  return voices;
}

Result<std::vector<SpeechVoice>> EspeakSpeech::voices() {
  const auto output = processes_.run({.program = program, .arguments = {"--voices"}}, listDeadline);
  if (!output) return fail(missing(output.error()));
  if (output->exitCode != 0) {
    return fail(domain, synthesisFailed, text::trim(output->standardError));
  }
  return parseEspeakVoices(output->standardOutput, processes_.find("mbrola").has_value());
}

Result<Bytes> EspeakSpeech::synthesise(const std::string& text, const SpeechStyle& style) {
  const auto spoken = text::replaceInvalidUtf8(text);
  if (text::trim(spoken).empty()) return fail(domain, nothingToSay, "There is nothing to say");
  ProcessSpec spec{.program = program,
                   .arguments = {"--stdout", "--stdin", "-b", "1", "-s",
                                 rounded(within(style.wordsPerMinute, slowest, fastest, 175)), "-a",
                                 rounded(fullAmplitude * within(style.volume, 0, 1, 1))},
                   .input = spoken};
  if (!style.voiceId.empty()) spec.arguments.push_back("-v" + style.voiceId);
  auto output = processes_.run(spec, speechDeadline);
  if (!output) return fail(missing(output.error()));
  if (output->exitCode != 0 || output->standardOutput.empty()) {
    const auto reason = text::trim(output->standardError);
    return fail(domain, synthesisFailed, reason.empty() ? "espeak-ng gave no sound" : reason);
  }
  return std::move(output->standardOutput);
}

}  // namespace kestrin
