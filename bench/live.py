#!/usr/bin/env python3
"""A Live Assist session on the sound server: processor share while both sides talk, and the time from the end of
speech to the line, against the recogniser's own time for the same sound.

Run it inside scripts/private-sound. live.py [SENTENCES]; KESTRIN_BIN names the programs' folder.
"""
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.request
import wave

ROOT = pathlib.Path(__file__).resolve().parent.parent
BIN = pathlib.Path(os.environ.get("KESTRIN_BIN", ROOT / "build" / "bin"))
SENTENCES = int(sys.argv[1]) if len(sys.argv) > 1 else 5
SINKS = {"microphone": "vmic", "system": "speakers"}


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def recognition_seconds(address, path):
    """Of one recording, sent as a session sends it."""
    with wave.open(str(path)) as sound:
        pcm = sound.readframes(sound.getnframes())
    boundary = "benchmark"
    fields = "".join(f'--{boundary}\r\nContent-Disposition: form-data; name="{name}"\r\n\r\n{value}\r\n'
                     for name, value in [("sample_rate", 16000), ("channels", 1), ("bit_depth", 16)])
    body = (f'{fields}--{boundary}\r\nContent-Disposition: form-data; name="file"; filename="audio.pcm"\r\n'
            "Content-Type: application/octet-stream\r\n\r\n").encode() + pcm + f"\r\n--{boundary}--\r\n".encode()
    request = urllib.request.Request(f"{address}/transcribe/pcm", body,
                                     {"Content-Type": f"multipart/form-data; boundary={boundary}"})
    began = time.monotonic()
    with urllib.request.urlopen(request, timeout=60) as answer:
        answer.read()
    return time.monotonic() - began


def play(path, sink):
    subprocess.run(["paplay", "-d", sink, str(path)], check=True)
    return time.monotonic()


def session(folder, addresses):
    said = folder / "said.wav"
    subprocess.run([ROOT / "scripts" / "make-speech",
                    "We should write down what we learned before everybody forgets it.", said], check=True)
    environment = {**os.environ, "HOME": str(folder), "XDG_CONFIG_HOME": str(folder), "XDG_DATA_HOME": str(folder)}
    for name, port in addresses.items():
        environment[f"KESTRIN_{name.upper()}_URL"] = f"http://127.0.0.1:{port}"
    recogniser = f"http://127.0.0.1:{addresses['asr']}"
    recognition_seconds(recogniser, said)
    recognition = statistics.median(recognition_seconds(recogniser, said) for _ in range(SENTENCES))
    live = subprocess.Popen([BIN / "kestrin", "live", "--json"], env=environment, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    try:
        live.stderr.readline()
        for channel, sink in SINKS.items():
            delays = []
            for _ in range(SENTENCES):
                ended = play(said, sink)
                while True:
                    event = json.loads(live.stdout.readline())
                    if event["event"] == "line" and event["channel"] == channel:
                        break
                delays.append(time.monotonic() - ended)
                time.sleep(1)
            print(f"end of speech to line, {channel}: {statistics.median(delays):.2f} s "
                  f"(the recogniser alone: {recognition:.2f} s)")
        players = [subprocess.Popen(["paplay", "-d", sink, said]) for sink in SINKS.values()]
        before, began = processor_seconds(live.pid), time.monotonic()
        while time.monotonic() - began < 20:
            players = [player if player.poll() is None else subprocess.Popen(player.args) for player in players]
            time.sleep(0.1)
        share = (processor_seconds(live.pid) - before) / (time.monotonic() - began)
        print(f"processor share while both sides talk: {100 * share:.2f} % of one core")
        for player in players:
            player.wait(20)
    finally:
        live.terminate()
        live.communicate(timeout=30)


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        companion = subprocess.Popen([BIN / "kestrin-companion", "--ports", "0,0,0,0", "--store", folder / "store.sqlite"],
                                     stdout=subprocess.PIPE, text=True)
        try:
            words = companion.stdout.readline().split()
            addresses = dict(word.split("=") for word in words if "=" in word)
            while "ready" not in companion.stdout.readline():
                pass
            session(folder, addresses)
        finally:
            companion.terminate()
            companion.wait(20)


main()
