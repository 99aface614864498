#!/usr/bin/env python3
"""Flushes of a store as strace sees them, beside what SpeedBenchmark counts of its own calls.

Flushes.py SPEEDBENCHMARK FOLDER   prints both, and fails where they differ; FOLDER is for what strace writes

A run of the program flushes before and behind its measured stores too: two runs of different length tell what one store
takes.
"""

import pathlib
import re
import subprocess
import sys

COLUMNS = {"SQLite": ("bare SQLite", "libZelStorageSqlite"), "file": ("packed and put in place", "libZelStorageFile")}
CHANGES = ("all changed", "one changed", "none changed")
SIZES = 3  # of each row
FEW, MANY = 5, 25
FLUSH = re.compile(r"^\d+ +(fsync|fdatasync|msync|sync_file_range|syncfs|sync)\(.*= 0$", re.MULTILINE)
COUNTED = re.compile(r"flushes ([0-9.]+)")


def fail(text):
    sys.exit(f"Flushes.py: {text}")


def run(program, trace, iterations, column, row):
    """@return how often the whole run flushed, and what it counted of one store, size by size."""
    done = subprocess.run(["strace", "-f", "-e", "trace=fsync,fdatasync,msync,sync_file_range,syncfs,sync", "-o", trace,
                           program, "--rounds", "1", "--iterations", str(iterations), "--column", column, row],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        fail(f"'{row}' of {column} did not come to its end under strace: {done.stdout[-1000:]}")
    counted = [float(each) for each in COUNTED.findall(done.stdout)]
    if len(counted) != SIZES:
        fail(f"'{row}' has {len(counted)} counts of {column}, expected {SIZES}: a column or a row has another name")
    return len(FLUSH.findall(pathlib.Path(trace).read_text(encoding="utf-8", errors="replace"))), counted


def main():
    if len(sys.argv) != 3:
        fail("takes: SPEEDBENCHMARK FOLDER")
    program, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    differing = 0
    for provider, columns in COLUMNS.items():
        for change in CHANGES:
            for column in columns:
                row = f"{provider}: store, {change}"
                few, _ = run(program, folder / "strace.txt", FEW, column, row)
                many, counted = run(program, folder / "strace.txt", MANY, column, row)
                seen = (many - few) / (MANY - FEW)
                agrees = seen == sum(counted)
                differing += not agrees
                print(f"{row}: {column}: strace {seen / SIZES:g} a store, counted {sum(counted) / SIZES:g}"
                      + ("" if agrees else ": THEY DIFFER"), flush=True)
    if differing:
        fail(f"{differing} of the rows' counts are not what the kernel saw")


if __name__ == "__main__":
    main()
