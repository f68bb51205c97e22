#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Plants a fixed, seeded sample of faults in the module and the shared business header, one at
a time, rebuilds, runs the fast test suites (no end-to-end, valgrind, sanitizers or benchmarks)
and counts the faults they catch. A fault that does not compile is left out of the count.

usage: mutation_check.py [--seed N] [--per-file N] [--build DIR] [--list]
Kinds of fault: a comparison flipped, a result code changed, a call deleted, a constant off by
one. The sample depends only on the seed and the two files, so runs compare like with like.
"""
import argparse
import os
import random
import re
import subprocess
import sys
import time

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FILES = ["access_server/talapi/orb_business/itgt/orbapi_itgt_module.cpp",
         "access_server/talapi/inc/talapi_business_common.h"]
FLIPS = {" == ": " != ", " != ": " == ", " < ": " >= ", " >= ": " < ", " > ": " <= ",
         " <= ": " > "}
CODES = {"VW_RESULT_OK": "VW_RESULT_FAIL", "VW_RESULT_FAIL": "VW_RESULT_OK",
         "VW_RESULT_PARAM_ERR": "VW_RESULT_FAIL", "return 0;": "return -1;",
         "return -1;": "return 0;"}
CALL = re.compile(r"^(\s+)(?!return\b|if\b|for\b|while\b|switch\b)[A-Za-z_][\w:.>-]*\(.*\);\s*$")
NUMBER = re.compile(r"(?<![\w.])([1-9][0-9]*)(?![\w.])")


def is_code(line):
    stripped = line.strip()
    return stripped and not stripped.startswith(("//", "#", "static_assert", "*"))


def sites(path):
    """Every fault that can be planted in the file: (line number, kind, old text, new text)."""
    found = []
    with open(os.path.join(TOP, path)) as source:
        lines = source.read().split("\n")
    for number, line in enumerate(lines):
        if not is_code(line):
            continue
        code = line.split("//")[0]
        for old, new in FLIPS.items():
            if old in code and '"' not in code:
                found.append((number, "comparison", old, new))
        for old, new in CODES.items():
            if old in code:
                found.append((number, "result code", old, new))
        if CALL.match(line) and line.count("(") == line.count(")"):
            found.append((number, "deleted call", line.strip(), ";"))
        if '"' not in code:
            for match in NUMBER.finditer(code):
                found.append((number, "constant", match.group(1), str(int(match.group(1)) + 1)))
    return lines, found


def run(command, timeout):
    try:
        return subprocess.run(command, cwd=TOP, capture_output=True, text=True,
                              timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return "timeout"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seed", type=int, default=20261123)
    parser.add_argument("--per-file", type=int, default=15)
    parser.add_argument("--build", default=os.path.join(TOP, "build", "mutation"))
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    args = parser.parse_args()

    rng = random.Random(args.seed)
    sample = []
    for path in FILES:
        lines, found = sites(path)
        for site in rng.sample(found, min(args.per_file, len(found))):
            sample.append((path, lines, site))
    if args.list:
        for path, _, (number, kind, old, new) in sample:
            print(f"{path}:{number + 1}: {kind}: {old.strip()!r} -> {new.strip()!r}")
        return 0

    build = args.build
    if run(["cmake", "-S", ".", "-B", build, "-DCMAKE_BUILD_TYPE=Debug", "-DTALAPI_HARDENING=OFF",
            "-DCMAKE_CXX_FLAGS=-O0 -g0"], 600) != 0 or \
            run(["cmake", "--build", build, f"-j{os.cpu_count()}"], 1800) != 0:
        print("mutation_check: the unchanged tree does not build", file=sys.stderr)
        return 1
    fast = ["ctest", "--test-dir", build, "-LE", "e2e|bench|long", "--stop-on-failure",
            "-j", str(os.cpu_count())]
    if run(fast, 600) != 0:
        print("mutation_check: the fast suites fail on the unchanged tree", file=sys.stderr)
        return 1

    caught = compiled = 0
    start = time.monotonic()
    for path, lines, (number, kind, old, new) in sample:
        mutated = list(lines)
        mutated[number] = lines[number].replace(old, new, 1)
        full = os.path.join(TOP, path)
        try:
            with open(full, "w") as out:
                out.write("\n".join(mutated))
            built = run(["cmake", "--build", build, f"-j{os.cpu_count()}"], 1800) == 0
            verdict = "does not compile"
            if built:
                compiled += 1
                failed = run(fast, 600) != 0
                caught += failed
                verdict = "caught" if failed else "SURVIVED"
        finally:
            with open(full, "w") as out:
                out.write("\n".join(lines))
        print(f"{verdict:16} {path}:{number + 1}: {kind}: {old.strip()!r} -> {new.strip()!r}",
              flush=True)
    run(["cmake", "--build", build, f"-j{os.cpu_count()}"], 1800)  # back to the unchanged tree
    print(f"\n{caught} of {compiled} compiled faults caught ({len(sample) - compiled} did not "
          f"compile), seed {args.seed}, {time.monotonic() - start:.0f} s")
    return 0


if __name__ == "__main__":
    sys.exit(main())
