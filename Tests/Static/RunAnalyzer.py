#!/usr/bin/env python3
"""Compiles what a build compiles once more under GCC's -fanalyzer, and prints what that finds.

RunAnalyzer.py BUILD-FOLDER FOLDER... : the sources of those folders, with the build's own flags; objects are not kept.
"""

import concurrent.futures
import json
import os
import re
import resource
import shlex
import subprocess
import sys

# Off: takes a value that a function returns in place, and a unique_ptr just made, for uninitialised. GCC 12 knows C
# alone in that; AddressSanitizer, valgrind and clang's analyzer look for the same.
OPTIONS = ["-fanalyzer", "-Wno-analyzer-use-of-uninitialized-value", "-fdiagnostics-plain-output", "-Wno-error"]
# What a source may take: where templates of many branches are put into one another it takes any memory and any time.
# That it gave up is a finding then.
LONGEST, LARGEST = 400, 4 << 30


def limit():
    resource.setrlimit(resource.RLIMIT_CPU, (LONGEST, LONGEST))
    resource.setrlimit(resource.RLIMIT_AS, (LARGEST, LARGEST))


def compiled(entry, options):
    command = shlex.split(entry["command"])
    command[command.index("-o") + 1] = os.devnull
    if os.path.basename(command[0]) == "ccache":
        del command[0]
    return subprocess.run(command + options, cwd=entry["directory"], capture_output=True, text=True, check=False,
                          preexec_fn=limit)


def analyse(entry):
    """@return the source, and what was found there."""
    file = entry["file"]
    done = compiled(entry, OPTIONS)
    if done.returncode == 0:
        # What it finds in code without a line is the source's all the same.
        return file, re.sub(r"^cc1plus: warning:", f"{file}:1: warning:", done.stderr, flags=re.M)
    if compiled(entry, ["-fsyntax-only"]).returncode != 0:
        sys.exit(f"{file} does not compile:\n{done.stderr}")
    return file, f"{file}:1: warning: took more than {LONGEST} s or {LARGEST >> 30} GiB [-Wanalyzer-gave-up]\n"


def main():
    build, *folders = sys.argv[1:]
    root = os.getcwd()
    with open(f"{build}/compile_commands.json", encoding="utf-8") as commands:
        chosen = {entry["file"]: entry for entry in json.load(commands)
                  if entry["file"].startswith(tuple(f"{root}/{folder}/" for folder in folders))}
    if not chosen:
        sys.exit(f"{build}/compile_commands.json compiles nothing of {' '.join(folders)}")
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for number, (file, found) in enumerate(pool.map(analyse, chosen.values()), 1):
            print(f"[{number}/{len(chosen)}] {os.path.relpath(file, root)}", file=sys.stderr, flush=True)
            print(found, end="", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
