"""Drives kestrin-desktop from outside, as an assistive program would: for pictures, tests and measures.

The application and its services run for real, with records that are stored first. Everything here belongs inside
scripts/desktop-session and scripts/private-sound. KESTRIN_BIN names the programs' folder.
"""
import functools
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import urllib.request

import gi
gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

Atspi.set_timeout(30_000, 60_000)  # ms for an answer, and for one at the start of a program: a busy machine is no failure
ROOT = pathlib.Path(__file__).resolve().parent.parent
BIN = pathlib.Path(os.environ.get("KESTRIN_BIN", ROOT / "build" / "bin"))
DEVICE = "device_0123456789abcdef"
FRIEND = "device_fedcba9876543210"
PORTS = {"ASR": 28001, "LLM": 28082, "AGENT": 28765, "BACKEND": 28780}
CONTROLS = {Atspi.Role.PUSH_BUTTON, Atspi.Role.TOGGLE_BUTTON, Atspi.Role.CHECK_BOX, Atspi.Role.RADIO_BUTTON,
            Atspi.Role.SLIDER, Atspi.Role.COMBO_BOX, Atspi.Role.ENTRY, Atspi.Role.LIST, Atspi.Role.TABLE,
            Atspi.Role.PASSWORD_TEXT, Atspi.Role.SPIN_BUTTON, Atspi.Role.PUSH_BUTTON_MENU}
DICTATIONS = [
    ("email", "Thunderbird", "tell anna that the meeting moved to thursday",
     "Hi Anna,\n\nthe meeting moved to Thursday, same room. Bring the new drawings, please.\n\nBest regards"),
    ("dictation", "Text Editor", "the river was higher than it had been all year",
     "The river was higher than it had been all year, and the path along it was closed."),
    ("chat", "Signal", "on my way be there in ten minutes", "On my way, be there in ten minutes!"),
    ("notes", "Text Editor", "notes from the call budget is fixed until march",
     "Call with the printers\n- The budget is fixed until March.\n- Samples arrive next week."),
    ("command", "Firefox", "open my downloads", "✅ Executed: Open the folder Downloads"),
    ("email", "Thunderbird", "thank the team for the release",
     "Dear all,\n\nthank you for the release. It went out without a single complaint."),
]
CALENDAR = "\r\n".join(
    ["BEGIN:VCALENDAR", "VERSION:2.0", "X-WR-CALNAME:Work"] +
    [line for title, hours in [("Stand-up", "0900"), ("Call with the printers", "1100"), ("Review of the drawings", "1530")]
     for line in ["BEGIN:VEVENT", f"UID:{hours}", f"SUMMARY:{title}", f"DTSTART:20260101T{hours}00", "DURATION:PT45M",
                  "RRULE:FREQ=DAILY", "END:VEVENT"]] + ["END:VCALENDAR", ""])
NOTES = [
    ("# Call with the printers\n\n- The budget is fixed until **March**\n- Samples arrive next week\n- Ask for the darker paper",
     "call with the printers the budget is fixed until march samples arrive next week ask for the darker paper"),
    ("# Idea for the garden\n\nMove the apple tree to the north side and put the bench where it stood.",
     "idea for the garden move the apple tree to the north side and put the bench where it stood"),
]


def wait_for(what, probe, seconds=30, pause=0.05):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = probe()
        if value:
            return value
        time.sleep(pause)
    raise SystemExit(f"{pathlib.Path(sys.argv[0]).name}: no {what} within {seconds} s")


def steady(read):
    """A reader of the accessibility tree that begins again when something goes while it is read."""
    @functools.wraps(read)
    def again(*arguments):
        deadline = time.monotonic() + 30
        while True:
            try:
                return read(*arguments)
            except GLib.GError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.05)
    return again


def quietly(*command):
    """The program's standard output; what it complains of is of no interest."""
    return subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                          check=False, timeout=60)


def post(path, body, port="BACKEND", device=DEVICE):
    request = urllib.request.Request(f"http://127.0.0.1:{PORTS[port]}{path}", json.dumps(body).encode(),
                                     {"Content-Type": "application/json", "X-Device-Id": device})
    with urllib.request.urlopen(request, timeout=10) as answer:
        return json.load(answer)


def answers(port):
    try:
        with urllib.request.urlopen(f"http://127.0.0.1:{PORTS[port]}/", timeout=2) as answer:
            return answer.status == 200
    except OSError:
        return False


def store_records():
    """What the pages have to show."""
    for mode, app, said, text in DICTATIONS:
        post("/log-transcription", {"user_id": DEVICE, "mode": mode, "detected_mode": mode, "transcript": said,
                                    "processed_text": text, "audio_duration_ms": 4200,
                                    "app_context": json.dumps({"app_name": app})})
    for probability in (0.7, 0.5, 0.6):
        post("/update-voice-profile", {"user_id": DEVICE, "voice_metadata_probs": {
            "emotion": [{"token": "EMOTION_HAPPY", "probability": probability},
                        {"token": "EMOTION_NEUTRAL", "probability": 0.3},
                        {"token": "EMOTION_SAD", "probability": 0.1}],
            "intent": [{"token": "INTENT_STATEMENT", "probability": 0.6}, {"token": "INTENT_QUESTION", "probability": 0.3},
                       {"token": "INTENT_COMMAND", "probability": 0.2}]}})
    for content, said in NOTES:
        post("/notes/save", {"user_id": DEVICE, "user_name": "", "content": content, "transcript": said})


    store_call()


def heartbeat():
    """Both sides of a call are known to the backend."""
    for device, name in ((DEVICE, ""), (FRIEND, "Ada")):
        post("/presence/heartbeat", {"userId": device, "deviceId": device, "userName": name}, device=device)


def ring():
    """The friend calls; the room's name."""
    return post("/calls/initiate", {"callerId": FRIEND, "callerName": "Ada", "recipientId": DEVICE},
                device=FRIEND)["roomName"]


def store_call():
    """One that is over, with what was said in it."""
    heartbeat()
    room = ring()
    post("/calls/answer", {"roomName": room, "userId": DEVICE})
    post("/calls/end", {"roomName": room, "userId": DEVICE, "reason": "ended"})
    post("/calls/transcript", {"roomName": room, "callerName": "Ada", "userName": "User", "duration": 184,
                               "userId": DEVICE, "transcript": "[You] Did the samples come?\n[Other] They are here.",
                               "summary": "The samples have come; the drawings follow on Thursday.",
                               "userMood": "Engaged", "otherMood": "Calm", "userEmotion": "HAPPY",
                               "otherEmotion": "NEUTRAL", "generateSummary": True})


def has(node, state):
    return node.get_state_set().contains(state)


def nodes(node, depth=0):
    """Everything below that is on screen."""
    if node is None or depth > 40:
        return
    yield node
    for i in range(node.get_child_count()):
        child = node.get_child_at_index(i)
        if child is not None and has(child, Atspi.StateType.VISIBLE):
            yield from nodes(child, depth + 1)


def click(node):
    box = node.get_extents(Atspi.CoordType.SCREEN)
    # The toolkit tells the tree its own pixels, not those of the display.
    scale = float(os.environ.get("QT_SCALE_FACTOR", 1))
    quietly("xdotool", "mousemove", int((box.x + box.width / 2) * scale), int((box.y + box.height / 2) * scale), "click", 1)


@steady
def nameless(window):
    """The controls in it that an assistive program could not announce. A combo box is named by what is chosen in it;
    what it is for is its description."""
    def called(node):
        return node.get_description() if node.get_role() == Atspi.Role.COMBO_BOX else node.get_name()
    return [node.get_role_name() for node in nodes(window)
            if node.get_role() in CONTROLS and not (called(node) or "").strip() and has(node, Atspi.StateType.FOCUSABLE)]


class Shell:
    """The companion with records, and one application after another, in the home folder of this session."""

    def __init__(self):
        self.logs = pathlib.Path(tempfile.mkdtemp(prefix="kestrin-shell-"))
        self.children = []
        self.application = None
        data = pathlib.Path(os.environ["XDG_DATA_HOME"])
        self.day_logs = data / "Kestrin" / "Logs"
        self.settings = pathlib.Path(os.environ["XDG_CONFIG_HOME"]) / "kestrin" / "settings.json"

    def __enter__(self):
        return self

    def __exit__(self, kind, error, trace):
        for child in reversed(self.children):
            child.terminate()
            try:
                child.wait(10)
            except subprocess.TimeoutExpired:
                child.kill()
        if kind is not None:
            for log in sorted(self.logs.iterdir()):
                print(f"--- {log.name}\n{log.read_text(errors='replace')[-3000:]}", file=sys.stderr)

    def start(self, *command):
        log = open(self.logs / (pathlib.Path(command[0]).name + ".log"), "a", encoding="utf-8")
        child = subprocess.Popen([str(part) for part in command], stdout=log, stderr=log, stdin=subprocess.DEVNULL)
        self.children.append(child)
        return child

    def start_services(self):
        data = pathlib.Path(os.environ["XDG_DATA_HOME"]) / "com.kestrin.kestrin"
        data.mkdir(parents=True, exist_ok=True)
        (data / "device_id.txt").write_text(DEVICE, encoding="utf-8")
        for name, port in PORTS.items():
            os.environ[f"KESTRIN_{name}_URL"] = f"http://127.0.0.1:{port}"
        calendars = pathlib.Path(os.environ["XDG_CONFIG_HOME"]) / "kestrin" / "calendars"
        calendars.mkdir(parents=True, exist_ok=True)
        (calendars / "work.ics").write_text(CALENDAR, encoding="utf-8")
        self.start(BIN / "kestrin-companion", "--ports", ",".join(str(port) for port in PORTS.values()))
        wait_for("backend", lambda: answers("BACKEND"))
        store_records()

    def start_application(self, settings):
        """With these settings besides those that every run needs."""
        self.settings.parent.mkdir(parents=True, exist_ok=True)
        self.settings.write_text(json.dumps({"pref_serviceHost": "external", "pref_debugMode": True,
                                             "nibo_setup_accepted": "all", **settings}), encoding="utf-8")
        self.application = self.start(BIN / "kestrin-desktop", "--tray")

    def open_window(self):
        """Until the main window stands; `ready` tells when the cover of the start is gone."""
        wait_for("application", lambda: quietly(BIN / "kestrin", "show").returncode == 0, pause=0.002)

    def ready(self):
        wait_for("ready application", lambda: json.loads(
            quietly(BIN / "kestrin", "status", "--json").stdout or "{}").get("ready"), 90)

    def quit(self):
        quietly(BIN / "kestrin", "quit")
        self.application.wait(30)

    @steady
    def windows(self):
        """Of the application, as the accessibility tree has them."""
        desktop = Atspi.get_desktop(0)
        for i in range(desktop.get_child_count()):
            application = desktop.get_child_at_index(i)
            if application is None or application.get_process_id() != self.application.pid:
                continue
            return [window for window in map(application.get_child_at_index, range(application.get_child_count()))
                    if window is not None]
        return []

    def frame(self):
        return wait_for("main window", lambda: next(
            (window for window in self.windows()
             if window.get_role() == Atspi.Role.FRAME and window.get_name() == "Kestrin"), None))

    def window_id(self):
        """Of the main window, for tools of the display."""
        return wait_for("window", lambda: quietly(
            "xdotool", "search", "--onlyvisible", "--pid", self.application.pid, "--name", "^Kestrin$").stdout.split())[-1]

    def close_window(self):
        """As the window manager's key does; the window is told, not taken away."""
        window = self.window_id()
        quietly("xdotool", "windowactivate", "--sync", window, "key", "--clearmodifiers", "alt+F4")
        wait_for("closed window", lambda: not has(self.frame(), Atspi.StateType.VISIBLE))

    @steady
    def page_buttons(self):
        """Of the side bar, by title."""
        bar = next((node for node in nodes(self.frame()) if node.get_name() == "Pages"), None)
        return {node.get_name(): node for node in nodes(bar) if node.get_role() == Atspi.Role.CHECK_BOX}

    def open_page(self, title):
        self.page_buttons()[title].do_action(0)
        wait_for(f"page {title}", lambda: has(self.page_buttons()[title], Atspi.StateType.CHECKED))

    @steady
    def setting_pages(self):
        """The rows of the list beside the settings, while that page is open."""
        listed = next(node for node in nodes(self.frame()) if node.get_name() == "Settings pages")
        return [listed.get_child_at_index(i) for i in range(listed.get_child_count())]

    def open_setting_page(self, title):
        row = next(row for row in self.setting_pages() if row.get_name() == title)
        if not has(row, Atspi.StateType.SELECTED):
            click(row)
            wait_for(f"page Settings/{title}", lambda: has(row, Atspi.StateType.SELECTED))

    def log_lines(self):
        """Everything in the dated files of the log."""
        return [line for file in sorted(self.day_logs.glob("*.log"))
                for line in file.read_text(encoding="utf-8", errors="replace").splitlines()]
