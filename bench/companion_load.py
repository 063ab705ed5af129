#!/usr/bin/env python3
"""Many devices at once on one kestrin-companion: each polls, logs what it does, and dictates. Prints requests,
errors and latency of each kind, and the companion's memory and processor share.

companion_load.py [DEVICES [SECONDS]], 200 and 60 when absent; KESTRIN_BIN names the programs' folder. The companion
runs without its recogniser, the dictations without a language model: what is measured is the services' own work.
"""
import asyncio
import collections
import json
import os
import pathlib
import random
import subprocess
import sys
import tempfile
import time

BIN = pathlib.Path(os.environ.get("KESTRIN_BIN", pathlib.Path(__file__).resolve().parent.parent / "build" / "bin"))
DEVICES = int(sys.argv[1]) if len(sys.argv) > 1 else 200
SECONDS = float(sys.argv[2]) if len(sys.argv) > 2 else 60.0
PATIENCE = 10

# Kind, seconds between two of a device, method, path, body; {me} is the device. Lines of one kind take turns.
# What answers 404 before the run is left out.
BACKEND = [
    ("poll", 1, "GET", "/calls/incoming/{me}", None),
    ("poll", 1, "GET", "/presence/online?excludeDeviceId={me}", None),
    ("poll", 1, "GET", "/calls/history/{me}", None),
    ("poll", 1, "GET", "/contacts/frequent/{me}", None),
    ("poll", 1, "GET", "/history/{me}?limit=20", None),
    ("poll", 1, "GET", "/user-stats/{me}", None),
    ("poll", 1, "GET", "/notes/{me}", None),
    ("poll", 1, "GET", "/research/history/{me}", None),
    ("poll", 1, "GET", "/live-assist/sessions/{me}", None),
    ("heartbeat", 5, "POST", "/presence/heartbeat", {"userId": "{me}", "deviceId": "{me}", "userName": "Load"}),
    ("record", 5, "POST", "/log-transcription",
     {"user_id": "{me}", "transcript": "we should meet on monday to plan the pilot", "detected_mode": "dictation",
      "processed_text": "We should meet on Monday to plan the pilot.", "audio_duration_ms": 2600, "success": True}),
    ("record", 5, "POST", "/update-voice-profile",
     {"user_id": "{me}", "voice_metadata_probs": {"emotion": [{"token": "EMOTION_HAPPY", "probability": 0.5}]}}),
    ("record", 5, "POST", "/notes/save", {"user_id": "{me}", "content": "# Pilot\n- Lyon\n- Monday"}),
]
AGENT = [
    ("dictation", 5, "POST", "/process/stream",
     {"transcript": "write an email to tom that the pilot starts on monday and that i will bring the plan",
      "mode": "auto", "user_name": "Sam"}),
    ("dictation", 5, "POST", "/process/stream",
     {"transcript": "um so the uh pilot starts on monday comma and we meet in lyon", "mode": "auto",
      "app_context": {"app_name": "Mousepad", "surrounding_text": "Plan"}}),
]


class Connection:
    """One kept connection of a device to a service; opened again when it broke."""

    def __init__(self, port):
        self.port = port
        self.streams = None

    async def ask(self, method, path, body, device):
        """Status and body, read to the end."""
        text = "" if body is None else json.dumps(body)
        head = (f"{method} {path} HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Device-Id: {device}\r\n"
                f"Content-Type: application/json\r\nContent-Length: {len(text)}\r\n\r\n")
        try:
            if self.streams is None:
                self.streams = await asyncio.open_connection("127.0.0.1", self.port)
            reader, writer = self.streams
            writer.write((head + text).encode())
            lines = (await reader.readuntil(b"\r\n\r\n")).decode("latin-1").split("\r\n")
            headers = dict(line.lower().split(": ", 1) for line in lines[1:] if ": " in line)
            if headers.get("transfer-encoding") == "chunked":
                answer = b""
                while size := int(await reader.readuntil(b"\r\n"), 16):
                    answer += (await reader.readexactly(size + 2))[:-2]
                await reader.readexactly(2)
            else:
                answer = await reader.readexactly(int(headers["content-length"]))
            return int(lines[0].split()[1]), answer
        except BaseException:
            self.close()
            raise

    def close(self):
        if self.streams is not None:
            self.streams[1].close()
        self.streams = None


def filled(value, device):
    if isinstance(value, dict):
        return {key: filled(part, device) for key, part in value.items()}
    return value.replace("{me}", device) if isinstance(value, str) else value


class Load:
    def __init__(self):
        self.latencies = collections.defaultdict(list)
        self.errors = collections.defaultdict(collections.Counter)
        self.late = 0

    async def one(self, connection, line, device):
        kind, _, method, path, body = line
        began = time.monotonic()
        try:
            status, answer = await asyncio.wait_for(
                connection.ask(method, filled(path, device), filled(body, device), device), PATIENCE)
            problem = "" if status == 200 else f"status {status}"
            if kind == "dictation" and not problem and b"data: [DONE]" not in answer:
                problem = "no end"
        except (OSError, EOFError, ValueError, KeyError, asyncio.TimeoutError) as error:
            problem = type(error).__name__
        if problem:
            self.errors[kind][problem] += 1
        self.latencies[kind].append(time.monotonic() - began)

    async def device(self, number, services, end):
        """Its own rhythm, begun anywhere within it; the kinds of one service share a connection."""
        device = f"device_{number:016d}"

        async def serve(port, lines):
            connection = Connection(port)
            by_kind = collections.defaultdict(list)
            for line in lines:
                by_kind[line[0]].append(line)
            due = {kind: time.monotonic() + random.uniform(0, its[0][1]) for kind, its in by_kind.items()}
            turn = collections.Counter({kind: random.randrange(len(its)) for kind, its in by_kind.items()})
            while True:
                kind = min(due, key=due.get)
                if due[kind] >= end:
                    break
                await asyncio.sleep(max(0.0, due[kind] - time.monotonic()))
                if time.monotonic() - due[kind] > 0.1:
                    self.late += 1
                line = by_kind[kind][turn[kind] % len(by_kind[kind])]
                turn[kind] += 1
                due[kind] += line[1]
                await self.one(connection, line, device)
            connection.close()

        await asyncio.gather(*(serve(port, lines) for port, lines in services if lines))


async def offered(port, lines):
    """The lines that the service knows, and the paths that it does not."""
    known, unknown = [], []
    for line in lines:
        connection = Connection(port)
        status, _ = await connection.ask(line[2], filled(line[3], "device_probe"), filled(line[4], "device_probe"),
                                         "device_probe")
        connection.close()
        if status == 404:
            unknown.append(f"{line[2]} {line[3]}")
        else:
            known.append(line)
    return known, unknown


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def status_of(pid, name):
    text = pathlib.Path(f"/proc/{pid}/status").read_text()
    return int(next(line.split()[1] for line in text.splitlines() if line.startswith(name + ":")))


def percentile(values, share):
    return sorted(values)[min(len(values) - 1, int(share * len(values)))]


async def run(pid, addresses, store):
    services = []
    for name, lines in (("backend", BACKEND), ("agent", AGENT)):
        known, unknown = await offered(addresses[name], lines)
        services.append((addresses[name], known))
        for path in unknown:
            print(f"left out, the companion answers 404: {path}")
    before, resident = processor_seconds(pid), status_of(pid, "VmRSS")
    began = time.monotonic()
    load = Load()
    await asyncio.gather(*(load.device(number, services, began + SECONDS) for number in range(DEVICES)))
    took = time.monotonic() - began
    share = 100 * (processor_seconds(pid) - before) / took
    total = sum(map(len, load.latencies.values()))
    failed = sum(sum(counts.values()) for counts in load.errors.values())
    print(f"{DEVICES} devices for {took:.1f} s: {total} requests, {total / took:.0f} a second, {failed} errors; "
          f"{load.late} sent more than 100 ms late")
    for kind, values in load.latencies.items():
        errors = ", ".join(f"{count} x {problem}" for problem, count in load.errors[kind].items()) or "no errors"
        shares = " / ".join(f"{1000 * percentile(values, share):.1f}" for share in (0.5, 0.95, 0.99))
        print(f"{kind}: {len(values)} requests, {errors}; p50 / p95 / p99 {shares} ms, worst {1000 * max(values):.0f} ms")
    print(f"companion: {share:.1f} % of one core, resident {resident / 1024:.1f} MiB at the start, "
          f"{status_of(pid, 'VmRSS') / 1024:.1f} at the end, {status_of(pid, 'VmHWM') / 1024:.1f} at most, "
          f"{status_of(pid, 'Threads')} threads; store {sum(f.stat().st_size for f in store.parent.iterdir()) / 2**20:.1f} MiB")
    return failed


def main():
    with tempfile.TemporaryDirectory() as name:
        store = pathlib.Path(name) / "data" / "store.sqlite"
        companion = subprocess.Popen([BIN / "kestrin-companion", "--ports", "0,0,0,0", "--services", "agent,backend",
                                      "--store", store], stdout=subprocess.PIPE, text=True)
        try:
            words = companion.stdout.readline().split()
            addresses = {key: int(port) for key, port in (word.split("=") for word in words if "=" in word)}
            failed = asyncio.run(run(companion.pid, addresses, store))
        finally:
            companion.terminate()
            companion.wait(20)
    sys.exit(1 if failed else 0)


main()
