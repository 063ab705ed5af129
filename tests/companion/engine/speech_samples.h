#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/audio/wav.h"
#include "platform/text/text.h"

namespace kestrin::testing {

struct SpeechSample {
  std::string name;
  std::string words;
  std::vector<float> samples;
};

/// Lower-case words without punctuation, hyphens as blanks.
inline std::vector<std::string> plainWords(const std::string& text) {
  std::string plain;
  for (const char c : text::lower(text::replaceAll(text, "’", "'"))) {
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) {
      plain += c;
    } else if (c != '\'') {
      plain += ' ';
    }
  }
  std::istringstream stream(plain);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

/// Substitutions, insertions and deletions between two texts, in words.
inline size_t wordErrors(const std::string& said, const std::string& heard) {
  const auto from = plainWords(said), to = plainWords(heard);
  std::vector<size_t> row(to.size() + 1);
  for (size_t j = 0; j <= to.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= from.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= to.size(); ++j) {
      const size_t substituted = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, substituted});
    }
  }
  return row.back();
}

inline std::string fileBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

/// People reading from a book (Debian's pocketsphinx-testdata). Empty when it is not installed.
inline std::vector<SpeechSample> readAloud() {
  const std::filesystem::path folder = "/usr/share/pocketsphinx/test/data/librivox";
  std::vector<SpeechSample> found;
  std::ifstream lines(folder / "transcription");
  for (std::string line; std::getline(lines, line);) {
    // "words ... (file name)"
    const size_t open = line.rfind('(');
    if (open == std::string::npos) continue;
    const std::string name = line.substr(open + 1, line.rfind(')') - open - 1);
    const auto samples = wav::readMono(fileBytes(folder / (name + ".wav")));
    std::string words = text::replaceAll(line.substr(0, open), "<s>", " ");
    words = text::replaceAll(std::move(words), "</s>", " ");
    if (samples) found.push_back({name, words, *samples});
  }
  return found;
}

/// Sentences spoken by the synthesiser, made once a run into `folder`.
inline std::vector<SpeechSample> synthesised(const std::string& folder) {
  static constexpr const char* sentences[] = {
      "Please send the report to the whole team before lunch.",
      "The meeting was moved to Thursday morning because the room is taken.",
      "I would like to know whether the train stops at the next station.",
      "Thank you for the quick answer, it helped us a lot.",
      "Open the browser and search for the weather in the mountains.",
      "We should write down what we learned before everybody forgets it.",
  };
  std::vector<SpeechSample> found;
  for (const char* sentence : sentences) {
    const std::string file = folder + "/said-" + std::to_string(found.size()) + ".wav";
    const std::string command = std::string("'") + KESTRIN_SOURCE_DIR + "/scripts/make-speech' '" +
                                sentence + "' '" + file + "'";
    if (std::system(command.c_str()) != 0) return {};
    const auto samples = wav::readMono(fileBytes(file));
    if (samples) found.push_back({sentence, sentence, *samples});
  }
  return found;
}

}  // namespace kestrin::testing
