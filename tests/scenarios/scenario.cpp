#include "scenarios/scenario.h"

#include <cctype>
#include <fstream>
#include <stdexcept>

#include "platform/json/json.h"

namespace kestrin::test {
namespace {

/// Words; texts in double quotes with JSON's escapes; from "{" on the rest is one word.
Scenario::Line tokens(const std::string& line) {
  Scenario::Line out;
  for (size_t i = 0; i < line.size();) {
    if (std::isspace(static_cast<unsigned char>(line[i]))) {
      ++i;
    } else if (line[i] == '{') {
      out.push_back(line.substr(i));
      break;
    } else if (line[i] == '"') {
      size_t end = i + 1;
      while (end < line.size() && line[end] != '"') end += line[end] == '\\' ? 2 : 1;
      const auto text = Json::parse(line.substr(i, end + 1 - i));
      if (!text || !text->stringPtr()) throw std::runtime_error("bad text: " + line);
      out.push_back(*text->stringPtr());
      i = end + 1;
    } else {
      const size_t end = std::min(line.find(' ', i), line.size());
      out.push_back(line.substr(i, end - i));
      i = end;
    }
  }
  return out;
}

}  // namespace

Scenario Scenario::load(const std::string& path) {
  Scenario out;
  out.name = path.substr(path.rfind('/') + 1);
  out.scripts.emplace_back();
  std::ifstream file(path);
  if (!file) throw std::runtime_error("cannot read " + path);
  for (std::string text; std::getline(file, text);) {
    if (text.empty() || text[0] == '#') continue;
    Line line = tokens(text);
    const std::string word = line.front();
    line.erase(line.begin());
    if (word == "app") {
      out.applications.push_back(line);
    } else if (word == "asr") {
      out.scripts.back().asr.push_back(line);
    } else if (word == "agent") {
      out.scripts.back().agent.push_back(line);
    } else if (word == "next") {
      out.scripts.emplace_back();
    } else if (word == "expect") {
      out.expectations.push_back(line);
    } else if (word == "at") {
      out.events.push_back(
          {std::chrono::milliseconds(std::stoi(line.at(0))), Line(line.begin() + 1, line.end())});
    } else {
      throw std::runtime_error(path + ": what is \"" + word + "\"?");
    }
  }
  return out;
}

}  // namespace kestrin::test
