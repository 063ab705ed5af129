#!/usr/bin/env python3
"""Processor time, wake-ups and memory of the ready application while nothing happens, and its time from start to ready.

Run it inside scripts/desktop-session and scripts/private-sound. idle.py [SECONDS]; KESTRIN_BIN names the programs' folder.
"""
import json
import os
import pathlib
import subprocess
import sys
import time

BIN = pathlib.Path(os.environ.get("KESTRIN_BIN", pathlib.Path(__file__).resolve().parent.parent / "build" / "bin"))
SECONDS = float(sys.argv[1]) if len(sys.argv) > 1 else 60.0


def figures(pid):
    """CPU seconds, voluntary context switches (each a wake-up) and resident KiB, over all threads."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    cpu = (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
    switches = 0
    for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status"):
        for line in status.read_text().splitlines():
            if line.startswith("voluntary_ctxt_switches"):
                switches += int(line.split()[1])
    resident = next(int(line.split()[1]) for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
                    if line.startswith("VmRSS"))
    return cpu, switches, resident


def is_ready():
    answer = subprocess.run([BIN / "kestrin", "status", "--json"], capture_output=True, text=True, check=False).stdout
    return bool(answer) and json.loads(answer).get("ready")


def start(label, environment=None):
    began = time.monotonic()
    application = subprocess.Popen([BIN / "kestrin-desktop", "--tray"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   env={**os.environ, **(environment or {})})
    while not is_ready():
        if time.monotonic() - began > 120 or application.poll() is not None:
            sys.exit("idle: the application did not become ready")
        time.sleep(0.01)
    print(f"start to ready, {label}: {1000 * (time.monotonic() - began):.0f} ms")
    return application


def main():
    services = None
    application = start("with its own companion")
    try:
        time.sleep(5)
        cpu, switches, _ = figures(application.pid)
        time.sleep(SECONDS)
        cpu_after, switches_after, resident = figures(application.pid)
        print(f"idle for {SECONDS:.0f} s: {1000 * (cpu_after - cpu) * 60 / SECONDS:.0f} ms of processor time a minute, "
              f"{(switches_after - switches) * 60 / SECONDS:.0f} wake-ups a minute, {resident / 1024:.0f} MiB resident")
    finally:
        application.terminate()
        application.wait(20)
    services = subprocess.Popen([BIN / "kestrin-companion"], stdout=subprocess.PIPE, text=True)
    try:
        while "ready" not in services.stdout.readline():
            pass
        application = start("with warm services", {})
        application.terminate()
        application.wait(20)
    finally:
        services.terminate()
        services.wait(20)


main()
