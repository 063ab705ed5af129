#include "companion/agent/app_kind.h"

#include <array>

#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

struct Row {
  AppKind kind;
  std::vector<std::string> parts;
};

const std::array<Row, 3>& addressRows() {
  static const std::array<Row, 3> rows{{
      {AppKind::mail,
       {"mail.google.", "outlook.", "mail.yahoo.", "proton.me", "fastmail.", "/webmail",
        "roundcube"}},
      {AppKind::chat,
       {"slack.com", "discord.com", "web.whatsapp.", "web.telegram.", "messages.google.",
        "teams.microsoft.", "chat.google.", "element.io", "mattermost"}},
      {AppKind::notes, {"keep.google.", "notion.so", "evernote."}},
  }};
  return rows;
}

const std::array<Row, 6>& nameRows() {
  static const std::array<Row, 6> rows{{
      {AppKind::mail,
       {"thunderbird", "evolution", "geary", "kmail", "mail", "outlook", "betterbird"}},
      {AppKind::chat,
       {"slack", "discord", "telegram", "whatsapp", "signal", "element", "teams", "fractal",
        "polari", "viber", "skype", "mattermost", "messages", "dino", "gajim", "pidgin"}},
      {AppKind::code,
       {"visual studio", "vscode", "vscodium", "code", "cursor", "intellij", "pycharm", "webstorm",
        "clion", "sublime", "qt creator", "kdevelop", "builder", "emacs", "neovim", "zed"}},
      {AppKind::notes,
       {"obsidian", "joplin", "notes", "gnote", "tomboy", "zim", "logseq", "xournal",
        "simplenote"}},
      {AppKind::browser,
       {"firefox", "chrome", "chromium", "brave", "vivaldi", "opera", "edge", "epiphany", "falkon",
        "konqueror", "web"}},
      {AppKind::terminal,
       {"terminal", "konsole", "xterm", "kitty", "alacritty", "tilix", "console"}},
  }};
  return rows;
}

}  // namespace

AppKind appKind(const std::string& appName, const std::string& browserUrl) {
  const std::string url = text::lower(browserUrl);
  for (const Row& row : addressRows()) {
    if (text::containsAny(url, row.parts)) return row.kind;
  }
  const std::string name = text::lower(appName);
  for (const Row& row : nameRows()) {
    if (text::containsAny(name, row.parts)) return row.kind;
  }
  return AppKind::other;
}

AppContext AppContext::fromBody(const Json& body) {
  AppContext out;
  const auto parsed = Json::parse(body.stringAt("app_context", "{}"));
  if (!parsed) return out;
  out.appName = parsed->stringAt("app_name", "");
  out.windowTitle = parsed->stringAt("window_title", "");
  out.browserUrl = parsed->stringAt("browser_url", "");
  out.surroundingText = parsed->stringAt("surrounding_text", "");
  out.selectedText = parsed->stringAt("selected_text", "");
  out.activeFileName = parsed->stringAt("active_file_name", "");
  out.documentContent = parsed->stringAt("document_content", "");
  out.pageContent = parsed->stringAt("browser_page_content", "");
  out.kind = appKind(out.appName, out.browserUrl);
  return out;
}

}  // namespace kestrin::agent
