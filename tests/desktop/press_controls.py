#!/usr/bin/python3
"""press_controls.py [--page TITLE]...: uses every enabled button, box, switch, list of choices and slider of every page
once, through the accessibility tree, and fails when one of them does nothing.

Run it inside scripts/desktop-session and scripts/private-sound. A control does something when anything else changes
than itself: another part of a window, a window, the settings, the day's log, or a program that was opened. A page of
the settings is called "Settings/Title".
"""
import argparse
import collections
import os
import pathlib
import subprocess
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "scripts"))
from shell_driver import Atspi, Shell, click, has, nameless, quietly, steady, wait_for  # noqa: E402

Role, State = Atspi.Role, Atspi.StateType
BOXES = {Role.TOGGLE_BUTTON, Role.RADIO_BUTTON, Role.CHECK_BOX}
USED = BOXES | {Role.PUSH_BUTTON, Role.PUSH_BUTTON_MENU, Role.COMBO_BOX, Role.SLIDER}
ALIKE = 2  # controls of the same name on one page: so many of them are used
PATIENCE = 30  # seconds for an effect to show; only a control that has none waits so long
# Of which nothing is seen at once, and why.
LEFT_OUT = {
    **{f"Live Assist: check-box {source}": "counts for the next answer of the session"
       for source in ("Documents", "Memories", "Notes", "History", "Emails")},
    "Calls: push-button Video call": "says the same of a name that nobody has as the audio call before it",
    "Calls: push-button Refresh": "nobody has come or gone meanwhile",
    "Logs: check-box Auto-scroll": "counts for the next line of the log",
}
# What is typed into a page first, by the name of the field, so that its buttons have something to work on.
TYPED = {"Research": ("Question", "apple trees", []), "Terminal": ("Command", "help", ["Return"]),
         "Calls": ("Whom to call", "nobody known", [])}
# Windows that never take the focus, and so no key: what closes them.
CLOSED_BY = {"Live feedback": "Hide the feedback"}
TOOLKITS_OWN = {"Export"}  # windows whose controls are not ours to name
NOTHING_COPIED = "nothing copied"

class Part(collections.namedtuple("Part", "node path role name words checked")):
    def called(self):
        """A combo box is named by what is chosen in it; what it is for is its description."""
        return f"{self.role.value_nick} {self.words[2] if self.role == Role.COMBO_BOX else self.name}"


@steady
def parts(windows):
    """Everything in them that is on screen, with its place in the tree."""
    found = []

    def add(node, path):
        role = node.get_role()
        text = Atspi.Text.get_text(node, 0, -1) if "Text" in node.get_interfaces() else ""
        on = has(node, State.CHECKED) if role in BOXES else None
        value = node.get_current_value() if role == Role.SLIDER else ""
        found.append(Part(node, path, role, node.get_name() or "",
                          (role, node.get_name(), node.get_description(), text, value, has(node, State.ENABLED)), on))
        for i in range(node.get_child_count()):
            child = node.get_child_at_index(i)
            if child is not None and has(child, State.VISIBLE):
                add(child, path + (i,))
    for i, window in enumerate(windows()):
        window.clear_cache()
        add(window, (i,))
    return found


def seen_besides(control, tree):
    """The tree as far as a change in it is an effect of the control: not its own state, nor that of its group. A
    button's new title is one."""
    out = []
    for part in tree:
        if part.path[:len(control.path)] == control.path:
            if control.role == Role.PUSH_BUTTON:
                out.append(part.words)
        elif part.path[:-1] == control.path[:-1]:
            out.append(part.words)
        else:
            out.append((part.words, part.checked))
    return out


def press(node):
    if not node.do_action(0):
        raise SystemExit(f"press_controls.py: {node.get_role_name()} {node.get_name()!r} cannot be pressed")


def copied():
    return quietly("xclip", "-out", "-selection", "clipboard").stdout


def copy(text):
    # It stays behind to serve the clipboard, and would hold a pipe open.
    subprocess.run(["xclip", "-selection", "clipboard"], input=text, text=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, check=True)


class Walk:
    def __init__(self, shell, opened):
        self.shell = shell
        self.opened = opened  # the file that tells what other programs were asked to open
        self.failures, self.used = [], 0

    @steady
    def windows(self):
        return [window for window in self.shell.windows() if has(window, State.VISIBLE)]

    def files(self):
        """The effects that are outside the windows."""
        return ([line for line in self.shell.log_lines() if "[Shell]" not in line],
                self.shell.settings.read_text(encoding="utf-8"), self.opened.read_text(encoding="utf-8"), copied())

    def tree(self):
        """When it has come to rest, as far as it does."""
        deadline = time.monotonic() + 2
        tree = parts(self.windows)
        while True:
            time.sleep(0.05)
            again = parts(self.windows)
            if [part[1:] for part in again] == [part[1:] for part in tree] or time.monotonic() > deadline:
                return again
            tree = again

    def operate(self, control):
        if control.role == Role.SLIDER:
            node = control.node
            step = (node.get_maximum_value() - node.get_minimum_value()) / 4
            now = node.get_current_value()
            node.set_current_value(now - step if now + step > node.get_maximum_value() else now + step)
        elif control.role == Role.COMBO_BOX:
            for key in ("End", "Home"):
                if control.node.get_name() == control.name:
                    control.node.do_action(1)  # opens it
                    wait_for("opened box", lambda: has(control.node, State.EXPANDED))
                    quietly("xdotool", "key", key, "Return")
                    wait_for("closed box", lambda: not has(control.node, State.EXPANDED))
        else:
            press(control.node)

    def has_effect(self, control, tree, files):
        before = seen_besides(control, tree)
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            time.sleep(0.05)
            if self.files() != files or seen_besides(control, parts(self.windows)) != before:
                return True
        return False

    def close_others(self, page):
        """Whatever opened besides the main window."""
        for _ in range(10):
            others = [window for window in self.windows() if window.get_role() != Role.FRAME]
            if not others:
                return
            self.failures += [f"{page}: {role} without a name in {window.get_name()!r}"
                              for window in others if window.get_name() not in TOOLKITS_OWN for role in nameless(window)]
            if others[0].get_name() in CLOSED_BY:
                next(part for part in parts(lambda: others[:1]) if part.name == CLOSED_BY[others[0].get_name()]).node.do_action(0)
            else:
                quietly("xdotool", "key", "Escape")
            time.sleep(0.2)
        self.failures.append(f"{page}: {others[0].get_role_name()} {others[0].get_name()!r} does not close")

    def put_back(self, control):
        """A box that changed; others keep what they have."""
        if control.role not in BOXES:
            return
        try:
            control.node.clear_cache()
            if has(control.node, State.CHECKED) != control.checked:
                control.node.do_action(0)
        except Exception:  # it is gone with what it did
            pass

    def choose(self, tree, page, used):
        """The next control: what is chosen already comes last, when something else is chosen."""
        bar = next(part.path for part in tree if part.name == "Pages")
        left = [part for part in tree if part.role in USED and has(part.node, State.ENABLED)
                and part.path[:len(bar)] != bar and used[part.called()] < ALIKE
                and f"{page}: {part.called()}" not in LEFT_OUT and used[part.path, part.called()] == 0]
        return min(left, key=lambda part: bool(part.checked), default=None)

    def go(self, page):
        title, _, sub = page.partition("/")
        if not has(self.shell.page_buttons()[title], State.CHECKED):
            self.shell.open_page(title)
        if sub:
            self.shell.open_setting_page(sub)

    def page(self, page):
        self.go(page)
        if page in TYPED:
            name, text, keys = TYPED[page]
            click(next(part.node for part in parts(self.windows) if part.name == name))
            quietly("xdotool", "type", text)
            quietly("xdotool", "key", *keys)
        time.sleep(0.5)  # what it fetches
        used = collections.Counter()
        while True:
            if copied() != NOTHING_COPIED:
                copy(NOTHING_COPIED)
            tree, files = self.tree(), self.files()
            control = self.choose(tree, page, used)
            if control is None:
                break
            used[control.called()] += 1
            used[control.path, control.called()] += 1
            self.used += 1
            self.operate(control)
            if not self.has_effect(control, tree, files):
                self.failures.append(f"{page}: {control.called()} does nothing")
            self.close_others(page)
            self.put_back(control)
            self.go(page)
        print(f"{page}: {sum(used.values()) // 2} controls", flush=True)


def catch_opened(folder):
    """Instead of a browser or an editor: a program that notes what it was to open."""
    opened = folder / "opened.txt"
    opened.touch()
    program = folder / "note-opened"
    program.write_text(f'#!/bin/sh\necho "$@" >>{opened}\n', encoding="utf-8")
    program.chmod(0o755)
    types = ["x-scheme-handler/http", "x-scheme-handler/https", "text/plain", "text/html", "inode/directory"]
    applications = pathlib.Path(os.environ["XDG_DATA_HOME"]) / "applications"
    applications.mkdir(parents=True, exist_ok=True)
    (applications / "note-opened.desktop").write_text(
        f"[Desktop Entry]\nType=Application\nName=Opener\nExec={program} %u\nMimeType={';'.join(types)};\n",
        encoding="utf-8")
    (pathlib.Path(os.environ["XDG_CONFIG_HOME"]) / "mimeapps.list").write_text(
        "[Default Applications]\n" + "".join(f"{kind}=note-opened.desktop\n" for kind in types), encoding="utf-8")
    return opened


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--page", action="append", default=[])
    arguments = parser.parse_args()
    with Shell() as shell:
        opened = catch_opened(shell.logs)
        shell.start_services()
        shell.start_application({})
        shell.open_window()
        titles = list(wait_for("side bar", shell.page_buttons))
        shell.ready()
        walk = Walk(shell, opened)
        shell.open_page("Settings")
        subs = [f"Settings/{row.get_name()}" for row in shell.setting_pages()]
        # Last, since a setting may change what the others do.
        pages = [title for title in titles if title != "Settings"] + subs
        for page in arguments.page or pages:
            walk.page(page)
        shell.quit()
    for failure in walk.failures:
        print(failure, file=sys.stderr)
    print(f"{walk.used} controls used, {len(walk.failures)} failures")
    return 1 if walk.failures or walk.used == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
