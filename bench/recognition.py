#!/usr/bin/env python3
"""Word error rate and real-time factor of the companion's recogniser, against pocketsphinx on the same recordings:
people who read from a book or call out playing cards (Debian's pocketsphinx-testdata), and sentences of dictations
spoken by two synthesisers.

recognition.py [--markdown] [--verbose]: needs the packages of scripts/packages-bench.txt (scripts/install bench).
KESTRIN_BIN names the programs' folder.
"""
import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import urllib.request
import wave

ROOT = pathlib.Path(__file__).resolve().parent.parent
BIN = pathlib.Path(os.environ.get("KESTRIN_BIN", ROOT / "build" / "bin"))
PEOPLE = pathlib.Path("/usr/share/pocketsphinx/test/data")
UNITS = ("zero one two three four five six seven eight nine ten eleven twelve thirteen fourteen fifteen sixteen "
         "seventeen eighteen nineteen").split()
TENS = "twenty thirty forty fifty sixty seventy eighty ninety".split()


def spoken_number(digits):
    number = int(digits)
    if number < 20:
        return UNITS[number]
    if number < 100:
        return TENS[number // 10 - 2] + (f" {UNITS[number % 10]}" if number % 10 else "")
    return " ".join(UNITS[int(digit)] for digit in digits)


def plain_words(text):
    """As both sides would be read out: lower case, no marks, numbers as words."""
    text = re.sub(r":(\d\d)", r" \1", text.lower().replace("’", "'").replace(" 00", ""))
    text = re.sub(r"\d+", lambda found: f" {spoken_number(found[0])} ", text)
    text = re.sub(r"\bmr\b", "mister", text).replace("'", "")
    return re.sub(r"[^a-z]+", " ", text).split()


def word_errors(said, heard):
    said, heard = plain_words(said), plain_words(heard)
    row = list(range(len(heard) + 1))
    for i, word in enumerate(said, 1):
        diagonal, row[0] = row[0], i
        for j, other in enumerate(heard, 1):
            diagonal, row[j] = row[j], min(row[j] + 1, row[j - 1] + 1, diagonal + (word != other))
    return row[-1], len(said)


def people(name, transcription):
    found = []
    for line in (PEOPLE / name / transcription).read_text().splitlines():
        words, recording = re.fullmatch(r"(.*)\((.*)\)\s*", line).groups()
        found.append((words.replace("<s>", "").replace("</s>", "").strip(), PEOPLE / name / f"{recording}.wav"))
    return found


def synthesised(folder, name, speak):
    found = []
    for i, sentence in enumerate((ROOT / "bench" / "recognition_sentences.txt").read_text().splitlines()):
        path = folder / f"{name}{i}.wav"
        speak(sentence, path)
        found.append((sentence, path))
    return found


def espeak(sentence, path):
    raw = path.with_suffix(".raw.wav")
    subprocess.run(["espeak-ng", "-v", "en-gb-x-rp", "-s", "160", "-w", raw, sentence], check=True)
    subprocess.run(["sox", raw, "-r", "16000", "-c", "1", "-b", "16", path], check=True)


def noisy(recordings):
    """After a second and a half of a quiet room's noise, in which they stay."""
    found = []
    for said, path in recordings:
        out = path.with_suffix(".noisy.wav")
        length = str(seconds_of(path) + 2)
        noise = ["sox", "-R", "-n", "-r", "16000", "-c", "1", "-p", "synth", length, "whitenoise", "vol", "0.002"]
        made = subprocess.run(noise, check=True, capture_output=True).stdout
        subprocess.run(["sox", "-m", "-v", "1", "-p", "-v", "1", f"|sox {path} -p pad 1.5", "-b", "16", out],
                       input=made, check=True)
        found.append((said, out))
    return found


def seconds_of(path):
    with wave.open(str(path)) as sound:
        return sound.getnframes() / sound.getframerate()


def ours(address, path):
    boundary = "recognition"
    body = (f'--{boundary}\r\nContent-Disposition: form-data; name="file"; filename="audio.wav"\r\n'
            "Content-Type: audio/wav\r\n\r\n").encode() + path.read_bytes() + f"\r\n--{boundary}--\r\n".encode()
    request = urllib.request.Request(f"{address}/transcribe", body,
                                     {"Content-Type": f"multipart/form-data; boundary={boundary}"})
    with urllib.request.urlopen(request, timeout=300) as answer:
        return json.load(answer).get("transcript", "")


def sphinx(path):
    return subprocess.run(["pocketsphinx_continuous", "-infile", path, "-logfn", "/dev/null"], check=True,
                          capture_output=True, text=True).stdout


def score(recognise, recordings, verbose):
    """(share of wrong words, processing time over the sound's length)."""
    wrong = words = spoken = 0
    began = time.monotonic()
    for said, path in recordings:
        heard = recognise(path)
        errors, count = word_errors(said, heard)
        wrong, words, spoken = wrong + errors, words + count, spoken + seconds_of(path)
        if verbose and errors:
            print(f"  {said}\n    heard: {' '.join(heard.split())}", file=sys.stderr)
    return wrong / words, (time.monotonic() - began) / spoken, words


def start_companion(folder, model):
    companion = subprocess.Popen([BIN / "kestrin-companion", "--ports", "0,0,0,0", "--services", "asr", "--store",
                                  folder / "store.sqlite", "--model", model], stdout=subprocess.PIPE, text=True)
    address = "http://127.0.0.1:" + re.search(r"asr=(\d+)", companion.stdout.readline())[1]
    while "ready" not in companion.stdout.readline():
        pass
    return companion, address


def main():
    arguments = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    arguments.add_argument("--markdown", action="store_true", help="print a table for the documentation")
    arguments.add_argument("--verbose", action="store_true", help="show every sentence with an error")
    options = arguments.parse_args()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        sets = {
            "people reading from a book": people("librivox", "transcription"),
            "people calling out cards": people("cards", "cards.transcription"),
            "dictations, Festival's slt voice": synthesised(
                folder, "slt", lambda text, path: subprocess.run([ROOT / "scripts" / "make-speech", text, path],
                                                                 check=True)),
            "the same after a pause, in a room's noise": [],
            "dictations, eSpeak's British voice": synthesised(folder, "espeak", espeak),
        }
        slt = "dictations, Festival's slt voice"
        sets["the same after a pause, in a room's noise"] = noisy(sets[slt])
        results = {}
        for model in ["base", "tiny"]:
            companion, address = start_companion(folder, model)
            try:
                for title, recordings in sets.items():
                    results[title, f"ours, {model}"] = score(lambda path, at=address: ours(at, path), recordings,
                                                             options.verbose)
            finally:
                companion.terminate()
                companion.wait(20)
        for title, recordings in sets.items():
            results[title, "pocketsphinx"] = score(sphinx, recordings, False)
    row = "| {} | {} | {} | {:.1f} % | {:.2f} |" if options.markdown else "{:36} {:>5} words  {:14} {:5.1f} % wrong  x{:.2f}"
    if options.markdown:
        print("| Recordings | Words | Recogniser | Words wrong | Real-time factor |\n|---|---|---|---|---|")
    for (title, recogniser), (wrong, factor, words) in results.items():
        print(row.format(title, words, recogniser, 100 * wrong, factor))


main()
