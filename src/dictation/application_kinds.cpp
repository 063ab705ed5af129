#include "dictation/application_kinds.h"

#include <initializer_list>
#include <string_view>

namespace kestrin {
namespace {

using Words = std::initializer_list<std::string_view>;

bool holds(const std::string& text, Words words) {
  for (const auto word : words) {
    if (text.find(word) != text.npos) return true;
  }
  return false;
}

bool equals(const std::string& text, Words words) {
  for (const auto word : words) {
    if (text == word) return true;
  }
  return false;
}

bool eitherHolds(const ApplicationName& application, Words words) {
  return holds(application.name, words) || holds(application.id, words);
}

}  // namespace

bool isCodeEditor(const ApplicationName& application) {
  return eitherHolds(application, {"cursor", "code", "xcode", "visual studio", "intellij",
                                   "webstorm", "pycharm", "sublime", "atom", "nova", "bbedit",
                                   // Those that stand on Linux desktops besides.
                                   "codium", "clion", "goland", "phpstorm", "rubymine",
                                   "android studio", "kate", "kdevelop", "qtcreator", "qt creator",
                                   "gnome.builder", "geany", "dev.zed", "gvim", "emacs"});
}

bool isNotesApplication(const ApplicationName& application) {
  return holds(application.id,
               {"org.gnome.notes", "bijiben", "gnote", "tomboy", "joplin", "standardnotes",
                "standard-notes", "simplenote", "knotes", "xpad", "iotas", "obsidian"}) ||
         equals(application.name, {"notes", "sticky notes"});
}

bool isMailApplication(const ApplicationName& application) {
  return holds(application.name, {"mail", "gmail"}) ||
         holds(application.id, {"thunderbird", "evolution", "geary", "kmail", "sylpheed"});
}

bool isDocumentEditor(const ApplicationName& application) {
  return holds(application.name, {"word"}) ||
         holds(application.id, {"libreoffice", "onlyoffice", "wps-office", "calligra"});
}

bool isBrowser(const ApplicationName& application) {
  return eitherHolds(application, {"safari", "chrome", "firefox", "arc", "brave", "edge", "opera",
                                   "vivaldi", "chromium", "librewolf", "epiphany", "falkon"});
}

bool isMessenger(const ApplicationName& application) {
  return holds(application.name,
               {"messages", "slack", "discord", "whatsapp", "telegram", "signal", "fractal"}) ||
         equals(application.name, {"element", "dino"});
}

bool isFileManager(const ApplicationName& application) {
  return equals(application.name, {"finder", "desktop", "dock", "files", "file manager"}) ||
         holds(application.id, {"org.gnome.nautilus", "org.kde.dolphin", "thunar", "nemo", "caja",
                                "pcmanfm", "org.kde.plasmashell", "org.gnome.shell"});
}

bool hidesItsTextInput(const ApplicationName& application) {
  return equals(application.name,
                {"cursor", "code", "visual studio code", "electron", "vscodium", "code - oss",
                 "whatsapp", "telegram", "telegram desktop", "signal", "viber", "line", "skype"});
}

}  // namespace kestrin
