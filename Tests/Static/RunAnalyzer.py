#!/usr/bin/env python3
"""Compiles what a build compiles once more under GCC's -fanalyzer, and prints what that finds.

RunAnalyzer.py BUILD-FOLDER FOLDER... : the sources of those folders, with the build's own flags; objects are not kept.
"""

import concurrent.futures
import json
import os
import shlex
import subprocess
import sys

# Off: takes a value that a function returns in place, and a unique_ptr just made, for uninitialised. GCC 12 knows C
# alone in that; AddressSanitizer, valgrind and clang's analyzer look for the same.
OPTIONS = ["-fanalyzer", "-Wno-analyzer-use-of-uninitialized-value", "-fdiagnostics-plain-output", "-Wno-error"]


def analyse(entry):
    command = shlex.split(entry["command"])
    command[command.index("-o") + 1] = os.devnull
    if os.path.basename(command[0]) == "ccache":
        del command[0]
    done = subprocess.run(command + OPTIONS, cwd=entry["directory"], capture_output=True, text=True, check=False)
    return entry["file"], done


def main():
    build, *folders = sys.argv[1:]
    root = os.getcwd()
    with open(f"{build}/compile_commands.json", encoding="utf-8") as commands:
        chosen = {entry["file"]: entry for entry in json.load(commands)
                  if entry["file"].startswith(tuple(f"{root}/{folder}/" for folder in folders))}
    if not chosen:
        sys.exit(f"{build}/compile_commands.json compiles nothing of {' '.join(folders)}")
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for number, (file, done) in enumerate(pool.map(analyse, chosen.values()), 1):
            print(f"[{number}/{len(chosen)}] {os.path.relpath(file, root)}", file=sys.stderr)
            if done.returncode != 0:
                sys.exit(f"{file} does not compile under the analyzer:\n{done.stderr}")
            print(done.stderr, end="")
    return 0


if __name__ == "__main__":
    sys.exit(main())
