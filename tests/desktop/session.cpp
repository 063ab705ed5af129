#include "desktop/session.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "platform/text/text.h"

namespace kestrin {

std::string shell(const std::string& line) {
  std::string output;
  FILE* pipe = popen(line.c_str(), "r");
  char buffer[4096];
  while (const size_t n = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
  pclose(pipe);
  return output;
}

std::string scratchFile(const std::string& name) {
  const char* folder = std::getenv("DESKTOP_SESSION_DIR");
  return std::string(folder ? folder : "/tmp") + "/" + name;
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void userPresses(const std::string& keys) { shell("xdotool key --delay 20 " + keys); }
void userTypesKeys(const std::string& text) { shell("xdotool type --delay 20 '" + text + "'"); }
std::string activeTitle() { return text::trim(shell("xdotool getactivewindow getwindowname")); }

}  // namespace kestrin
