#!/usr/bin/python3
"""The desktop application's window: from its start to the first paint, the time that each page takes to come, how long
the main loop is held meanwhile, and resident memory while only the tray shows.

Run it inside scripts/desktop-session and scripts/private-sound. shell.py [RUNS]; KESTRIN_BIN names the programs' folder.
The figures of pages and holds are the application's own, out of the day's log; the first paint is timed from outside.
"""
import os
import pathlib
import re
import statistics
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "scripts"))
from shell_driver import Shell, quietly, store_records, wait_for  # noqa: E402

RUNS = int(sys.argv[1]) if len(sys.argv) > 1 else 5
TOLD_FROM = 20  # ms: the application tells of no shorter hold
HISTORY = 40  # times the records: a page that has grown
LOG_LINES = 5000  # as many as the log keeps


def resident(pid):
    return next(int(line.split()[1]) / 1024 for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
                if line.startswith("VmRSS"))


def told(lines, words):
    """What stands before "ms" in those lines."""
    return [int(found.group(1)) for line in lines if (found := re.search(re.escape(words) + r" (\d+) ms", line))]


def first_paint(shell):
    """Seconds until the log has the line; the request to show the window comes as soon as it is understood."""
    before = len(shell.log_lines())
    began = time.monotonic()
    shell.start_application({})
    shell.open_window()
    wait_for("first paint", lambda: told(shell.log_lines()[before:], "first paint after"), pause=0.002)
    return time.monotonic() - began


def fill_log(shell):
    """What the process prints comes into its log; so does what is written to its standard error from here."""
    with open(f"/proc/{shell.application.pid}/fd/2", "w", encoding="utf-8") as error:
        for i in range(LOG_LINES):
            error.write(f"[Bench] line {i} of a long day, about as long as most of the lines are that the log holds\n")
    wait_for("full log", lambda: any(f"line {LOG_LINES - 1} " in line for line in shell.log_lines()[-50:]))


def walk(shell, titles):
    """One switch to each page; times by title, and every hold that was told."""
    before = len(shell.log_lines())
    times = {}
    for title in titles:
        shell.open_page(title)
        words = f"page {title} drawn after"
        wait_for(f"drawing of {title}", lambda: told(shell.log_lines()[before:], words))
        time.sleep(0.7)  # what the page fetches is drawn too
        times[title] = told(shell.log_lines()[before:], words)[-1]
    return times, told(shell.log_lines()[before:], "main loop held")


def main():
    with Shell() as shell:
        shell.start_services()
        for _ in range(HISTORY):
            store_records()
        paints, firsts, agains, holds, tray = [], [], [], [], []
        for _ in range(RUNS):
            paints.append(1000 * first_paint(shell))
            shell.ready()
            fill_log(shell)
            time.sleep(1)
            titles = list(shell.page_buttons())
            # The page that is open at the start would not be a switch.
            for made in (firsts, agains):
                times, held = walk(shell, titles[1:] + titles[:1])
                made.append(times)
                holds.append(held)
            shell.close_window()
            time.sleep(1)
            tray.append(resident(shell.application.pid))
            shell.quit()
        lines = shell.log_lines()
        shell.start_application({})
        shell.ready()
        time.sleep(5)
        never = resident(shell.application.pid)
        shell.quit()
    print(f"first paint of the main window: {statistics.median(paints):.0f} ms after the start "
          f"(worst of {RUNS}: {max(paints):.0f} ms)")
    for label, runs in (("opened first", firsts), ("opened again", agains)):
        medians = {title: statistics.median(run[title] for run in runs) for title in runs[0]}
        print(f"page {label}: {statistics.median(medians.values()):.0f} ms, worst "
              f"{max(value for run in runs for value in run.values())} ms; " +
              ", ".join(f"{title} {value:.0f}" for title, value in medians.items()))
    longest = [max(held, default=0) for held in holds]
    print(f"longest hold of the main loop in a walk over all pages: median {statistics.median(longest):.0f} ms, "
          f"worst {max(longest)} ms (0: none of {TOLD_FROM} ms or more); with the start "
          f"{max(told(lines, 'main loop held'), default=0)} ms")
    print(f"resident with only the tray: {never:.0f} MiB before the window was ever shown, "
          f"{statistics.median(tray):.0f} MiB after it was and every page opened")


if __name__ == "__main__":
    main()
