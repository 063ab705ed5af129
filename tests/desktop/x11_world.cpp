#include "desktop/x11_world.h"

#include <cstdlib>
#include <signal.h>
#include <thread>

#include "platform/linux/x11_keyboard.h"

namespace kestrin {

BackgroundProgram::BackgroundProgram(const std::string& line)
    : pid_(std::atoi(shell("exec 3>&1; " + line + " >/dev/null 2>&1 3>&- & echo $!").c_str())) {}

void BackgroundProgram::end() {
  if (std::exchange(running_, false) && pid_ > 0) kill(pid_, SIGKILL);
}

void X11World::openPrograms() {
  for (const char* name : {"editor.txt", "other.txt"}) writeFile(scratchFile(name), "");
  editor_ =
      std::make_unique<BackgroundProgram>("mousepad --disable-server " + scratchFile("editor.txt"));
  other_ =
      std::make_unique<BackgroundProgram>("mousepad --disable-server " + scratchFile("other.txt"));
  // The title names the file once it is loaded; what is pasted before that is lost with the empty
  // text.
  const auto isLoaded = [&](int pid, const char* name) {
    for (const WindowInfo& window : workspace().windows()) {
      if (window.pid == pid && text::contains(window.title, name)) return true;
    }
    return false;
  };
  ASSERT_TRUE(eventually(
      [&] { return isLoaded(editorPid(), "editor.txt") && isLoaded(otherPid(), "other.txt"); }));
}

std::string X11World::editorText() {
  shell("xdotool key ctrl+s");
  return text::trim(readFile(scratchFile("editor.txt")));
}

void X11World::hold(const std::string& modifier, const std::string& verb) {
  shell("xdotool " + verb + (modifier == "shift" ? " 50" : " 37"));
}

bool X11World::isHeld(const std::string& modifier) {
  auto x = X11Connection::open("", "Test");
  const X11KeySet keys = x11PressedKeys(**x);
  return modifier == "shift" ? keys.contains(50) || keys.contains(62)
                             : keys.contains(37) || keys.contains(105);
}

void X11World::userCopies(const std::string& text) {
  writeFile(scratchFile("copied"), text);
  shell("xclip -selection clipboard -in " + scratchFile("copied") + " >/dev/null 2>&1");
}

std::string X11World::otherProgramFetches() {
  return shell("xclip -selection clipboard -out -target UTF8_STRING 2>&1");
}

void X11World::pause() { std::this_thread::sleep_for(std::chrono::milliseconds(5)); }

}  // namespace kestrin
