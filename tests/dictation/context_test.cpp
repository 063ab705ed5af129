#include <gtest/gtest.h>

#include "dictation/context_capture.h"
#include "dictation/editor_title.h"
#include "dictation/workspace_file_service.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct Screen : SimulatedWorld {
  /// One application with one window and one focused field, in front.
  SimulatedElement& show(const std::string& name, const std::string& id, const std::string& title,
                         SimulatedElement field = {}) {
    const int pid = ++lastPid;
    field.path = "/field";
    desktop.addApplication(
        {pid, id, name, "gtk", {{uint64_t(pid), title, {field}, "/field", {}, 0}}});
    return *desktop.element(pid, "/field");
  }
  SimulatedWindow& window() { return *desktop.window(desktop.activeWindow()); }

  CapturedContext capture() {
    ContextCapture source(workspace, accessibility, browser);
    CapturedContext context;
    bool done = false;
    dispatch.globalQueue()->post([&] {
      context = source.captureCurrentContext();
      done = true;
    });
    EXPECT_TRUE(simulation->runUntil([&] { return done; }, 60s));
    return context;
  }
  int lastPid = 100;
};

TEST(Context, ReadsTheTextRoundTheCaretWithinItsBounds) {
  Screen screen;
  std::string text;
  for (int i = 0; i < 2000; ++i) text += static_cast<char>('a' + i % 26);
  screen.show("Notes of mine", "org.example.editor", "diary",
              {.text = text, .selection = {700, 600}});
  const auto context = screen.capture();
  EXPECT_EQ(context.appName, "Notes of mine");
  EXPECT_EQ(context.windowTitle, "diary");
  EXPECT_TRUE(context.hasActiveTextInput);
  EXPECT_EQ(context.cursorPosition, 700);
  EXPECT_EQ(context.surroundingText, text.substr(200, 1000));
  EXPECT_EQ(context.selectedText, text.substr(700, 500));
}

TEST(Context, APasswordIsNobodysContext) {
  Screen screen;
  screen.show("Login", "org.example.login", "", {.role = "AXSecureTextField", .text = "hunter2"});
  const auto context = screen.capture();
  EXPECT_EQ(context.surroundingText, "");
  EXPECT_EQ(context.cursorPosition, -1);
  EXPECT_FALSE(context.toJson().has("cursor_position"));
}

TEST(Context, KnowsWhoseTextFieldsToBelieve) {
  Screen screen;
  screen.show("Files", "org.gnome.Nautilus", "Home", {.role = "AXTextField"});
  EXPECT_FALSE(screen.capture().hasActiveTextInput);
  screen.show("Telegram", "telegramdesktop", "Anna", {.role = "AXGroup"});
  const auto chat = screen.capture();
  EXPECT_TRUE(chat.hasActiveTextInput);
  EXPECT_EQ(chat.documentContent, "Chat with: Anna");
}

TEST(Context, TakesThePageOfABrowserAndTheMailOfAMailProgram) {
  Screen screen;
  screen.show("Firefox", "firefox-esr", "News — Mozilla Firefox", {.role = "AXWebArea"});
  screen.window().tabs = {{"https://news.example/a", "News", std::string(3000, 'x')}};
  const auto page = screen.capture();
  EXPECT_EQ(page.browserURL, "https://news.example/a");
  EXPECT_EQ(page.browserTabTitle, "News");
  EXPECT_EQ(page.browserPageContent, std::string(1500, 'x'));

  screen.show("Geary Mail", "org.gnome.geary", "Lunch? — Geary", {.text = "See you at noon"});
  EXPECT_EQ(screen.capture().documentContent, "Subject: Lunch?\nFrom: \n\nSee you at noon");
}

TEST(Context, AFailedReadLeavesItsFieldEmptyAndStopsNothing) {
  Screen screen;
  screen.show("Firefox", "firefox-esr", "News", {.text = "abc"});
  screen.window().tabs = {{"https://news.example/a", "News", "page"}};
  screen.faults.arm(0);
  screen.capture();
  const int calls = screen.faults.count();
  for (int n = 1; n <= calls; ++n) {
    screen.faults.arm(n);
    const auto context = screen.capture();
    const bool lostTheFront =
        screen.faults.sites()[static_cast<size_t>(n) - 1] == "workspace.front";
    EXPECT_EQ(context.appName, lostTheFront ? "" : "Firefox") << n;
  }
}

TEST(EditorTitle, TellsFileAndProjectInTheFormsOfTheEditors) {
  struct Case {
    const char *title, *app, *file, *folder;
  };
  for (const Case& c : std::vector<Case>{
           {"main.swift — myproject — Cursor", "cursor", "main.swift", "myproject"},
           {"● main.cpp - kestrin - Visual Studio Code", "visual studio code", "main.cpp",
            "kestrin"},
           {"kestrin – main.cpp", "clion", "main.cpp", "kestrin"},
           {"*~/work/todo.md - Mousepad", "mousepad", "todo.md", ""},
           {"app.py (server) - Sublime Text", "sublime text", "app.py", "app.py (server)"},
           {"https://example.com/a.html — Code", "code", "", ""},
           {"kestrin — Code", "code", "", "kestrin"},
           {".. — Code", "code", "", ""},
           {"Welcome", "code", "", ""}}) {
    const auto title = parseEditorTitle(c.title, c.app);
    EXPECT_EQ(title.fileName, c.file) << c.title;
    EXPECT_EQ(title.folder.value_or(""), c.folder) << c.title;
  }
  EXPECT_EQ(languageFromExtension(pathExtension("src/Main.CPP")), "C++");
  EXPECT_EQ(languageFromExtension(pathExtension("Makefile")), "");
  EXPECT_EQ(pathExtension("/a.b/c"), "");
  EXPECT_EQ(fileTypeFromExtension("htm"), FileType::html);
}

struct Project : SimulatedWorld {
  Logger logger{dispatch, notifications};
  WorkspaceFileService service{dispatch, files, logger};
  std::vector<std::string> scan(const std::string& path) {
    std::vector<std::string> names;
    for (const auto& file : service.scanWorkspace(path)) names.push_back(file.relativePath);
    return names;
  }
};

TEST(Workspace, FindsTheProjectUnderTheUsualRootsOneFolderDeep) {
  Project project;
  project.files.put("/home/user/git/group/kestrin/a.py", "");
  project.files.put("/home/user/Documents/kestrin", "a file of that name");
  EXPECT_EQ(project.service.extractWorkspacePath("a.py - kestrin - VSCodium", "VSCodium"),
            "/home/user/git/group/kestrin");
  project.files.put("/home/user/Documents/deep/kestrin/b.py", "");
  EXPECT_EQ(project.service.extractWorkspacePath("a.py - kestrin - VSCodium", "VSCodium"),
            "/home/user/Documents/deep/kestrin");
  EXPECT_FALSE(project.service.extractWorkspacePath("a.py - kestrin - VSCodium", "Firefox"));
  EXPECT_FALSE(project.service.extractWorkspacePath("a - ../../etc - Code", "Code"));
}

TEST(Workspace, ListsSourcesOnlyAtMostFiveHundredAndOnceAMinute) {
  Project project;
  for (const char* path : {"src/a.py", "src/b.PY", "src/.hidden.py", ".git/c.py", "x/build/d.py",
                           "node_modules/e.js", "image.png", "README.md"}) {
    project.files.put(std::string("/home/user/p/") + path, "");
  }
  EXPECT_EQ(project.scan("/home/user/p"),
            (std::vector<std::string>{"README.md", "src/a.py", "src/b.PY"}));
  for (int i = 0; i < 600; ++i) {
    project.files.put("/home/user/p/gen/" + std::to_string(i) + ".go", "");
  }
  EXPECT_EQ(project.scan("/home/user/p").size(), 3u) << "scanned again within a minute";
  project.simulation->runFor(61s);
  EXPECT_EQ(project.scan("/home/user/p").size(), 500u);
}

}  // namespace
}  // namespace kestrin
