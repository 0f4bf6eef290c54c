#!/usr/bin/env python3
"""Compares the CAN stack with its goals and says which are missed and by how much.

    benchmarks/can_goals.py build/release/benchmarks

Instructions are counted by callgrind: those of 400 messages less those of 200, so that start-up
does not count. Exit code 1 when a goal is missed.
"""
import json
import re
import subprocess
import sys

PAYLOADS = (2, 60, 250, 500)
RATIO = 1.3            # instructions of the stack to those of the floor
MORE_ALLOCATIONS = 1   # of the stack than of the floor
CODEC = {250: 21500, 500: 40600}  # instructions of encoding and decoding
CHANNEL_BYTES = 1536
LATE_MS = 2.0

folder = sys.argv[1]
missed = 0


def verdict(what, value, limit, unit=""):
    global missed
    good = value <= limit
    missed += not good
    by = "" if good else f"  MISSED by {value - limit:.2f}{unit}"
    print(f"{what:44} {value:10.2f}{unit}  goal {limit:g}{unit}{by}")


def instructions(what, payload):
    counts = []
    for messages in (200, 400):
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
             f"{folder}/bench_can_codec", "--repeat", what, str(payload), str(messages)],
            capture_output=True, text=True, check=True)
        counts.append(int(re.search(r"Collected : (\d+)", run.stderr).group(1)))
    return (counts[1] - counts[0]) / 200


def benchmarks(program):
    run = subprocess.run([f"{folder}/{program}", "--benchmark_format=json"],
                         capture_output=True, text=True, check=True)
    return {entry["name"].split("/iterations")[0]: entry
            for entry in json.loads(run.stdout)["benchmarks"]}


print("instructions per message, sent, received and acknowledged")
for payload in PAYLOADS:
    fixed, stack = instructions("fixed", payload), instructions("stack", payload)
    print(f"  {payload:3} bytes: bytes without Qt {instructions('raw', payload):.0f}, "
          f"floor {fixed:.0f}, stack {stack:.0f}")
    verdict(f"stack to floor, {payload} bytes", stack / fixed, RATIO)
for payload, limit in CODEC.items():
    verdict(f"encode and decode, {payload} bytes", instructions("codec", payload), limit)
codec = benchmarks("bench_can_codec")
for payload in PAYLOADS:
    more = codec[f"stack/{payload}"]["allocs"] - codec[f"fixed/{payload}"]["allocs"]
    verdict(f"allocations above the floor, {payload} bytes", round(more, 2), MORE_ALLOCATIONS)
verdict("allocations for 55 more frames",
        round(codec["stack/500"]["allocs"] - codec["stack/60"]["allocs"], 2), 0)
timing = benchmarks("bench_can_timing")
verdict("an open, idle channel", timing["idleChannels"]["bytes_each"], CHANNEL_BYTES, " bytes")
verdict("wake-ups by 1000 idle channels in 2 s", timing["idleChannels"]["wakeups"], 0)
for name in ("answerTimeout", "receptionTimeout"):
    verdict(f"{name}, early at most", -timing[name]["earliest_ms"], 0.999, " ms")
    verdict(f"{name}, late at the 99th percentile", timing[name]["p99_ms"], LATE_MS, " ms")
print("every goal is met" if not missed else f"{missed} goals are missed")
sys.exit(missed > 0)
