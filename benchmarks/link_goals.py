#!/usr/bin/env python3
"""Says what the link's rows cost in instructions, and compares the decoding of the stream with its goals.

    benchmarks/link_goals.py build/release/benchmarks

Instructions are those of the client's process, counted by callgrind: those of 800 exchanges less those of
400, so that start-up does not count. They hold on a busy machine, where times do not. Exit code 1 when a
goal is missed.
"""
import json
import re
import subprocess
import sys

ROWS = ("floor 1: QTcpSocket, one thread", "floor 2: QTcpSocket in a worker thread",
        "message of one frame to its acknowledge", "message of 64 frames to its acknowledge")
RECORDS_A_SECOND = 7.6e6
ALLOCATIONS_A_RECORD = 0.1
PAYLOAD = 500  # bytes: 64 frames

folder = sys.argv[1]


def instructions(row):
    counts = []
    for exchanges in (400, 800):
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", f"{folder}/bench_link",
             "--only", str(row), "--count", str(exchanges)],
            capture_output=True, text=True, check=True)
        counts.append(int(re.search(r"Collected : (\d+)", run.stderr).group(1)))
    return (counts[1] - counts[0]) / 400


def decoding():
    run = subprocess.run([f"{folder}/bench_link_decode", "--benchmark_format=json",
                          "--benchmark_repetitions=5"], capture_output=True, text=True, check=True)
    best = {}
    for row in json.loads(run.stdout)["benchmarks"]:
        if row["run_type"] == "iteration" and row["records"] > best.get(row["name"], row)["records"] - 1:
            best[row["name"]] = row
    return best


print("Instructions of an exchange, client's process")
for number, name in enumerate(ROWS):
    print(f"  {name:46} {instructions(number):10.0f}")

missed = 0
print("Decoding the stream, best of five")
for name, row in decoding().items():
    each = row["allocs"] / row["in_chunk"]
    print(f"  {name:24} {row['records'] / 1e6:6.2f} million records/s  {each:.3f} allocations a record")
    if name == f"bytesToMessages/{PAYLOAD}" and row["records"] < RECORDS_A_SECOND:
        print(f"    MISSED: goal {RECORDS_A_SECOND / 1e6} million records/s")
        missed += 1
    if name.startswith("bytesToFrames") and each >= ALLOCATIONS_A_RECORD:
        print(f"    MISSED: goal under {ALLOCATIONS_A_RECORD} allocations a record")
        missed += 1
sys.exit(missed > 0)
