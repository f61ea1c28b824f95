#!/usr/bin/env python3
"""Plans the jobs of the guests: the tests over virtual pads as ctest runs them, and the checks.

Usage: plan.py BUILD_DIRECTORY CHECKS_DIRECTORY PLAN_DIRECTORY

Prints the jobs, JOB:SECONDS, what may take longest first. The plan gets a file for each test, a piece of shell: PADS are
the emulator's options, then come the variables of its environment, SECONDS is how long it may take, and the positional
parameters are the program and its arguments. A check says itself how long it may take, in its first line.
"""

import json
import pathlib
import re
import shlex
import subprocess
import sys

EMULATOR = "vxpad-emulator"
SLOWER = 4  # than natively, under software emulation


def describe(test):
    command = test["command"]
    if pathlib.Path(command[0]).name != EMULATOR or command[1] != "run":
        sys.exit(f"plan.py: {test['name']} does not run under {EMULATOR}")
    end = command.index("--")
    properties = {entry["name"]: entry["value"] for entry in test["properties"]}
    lines = [
        f"pads={shlex.quote(shlex.join(command[2:end]))}",
        f"seconds={SLOWER * int(properties['TIMEOUT'])}",
    ]
    lines += [f"export {shlex.quote(entry)}" for entry in properties.get("ENVIRONMENT", [])]
    lines.append(f"set -- {shlex.join(command[end + 1:])}")
    return "".join(line + "\n" for line in lines)


def seconds_in(text):
    return int(re.search(r"^seconds=(\d+)$", text, re.MULTILINE)[1])


def main(build, checks, plan):
    shown = subprocess.run(
        ["ctest", "--test-dir", build, "--show-only=json-v1", "-L", "pads"], check=True, capture_output=True
    )
    jobs = {}
    for test in json.loads(shown.stdout)["tests"]:
        text = describe(test)
        (pathlib.Path(plan) / test["name"]).write_text(text)
        jobs[test["name"]] = seconds_in(text)
    for check in pathlib.Path(checks).iterdir():
        jobs[f"kernel.{check.name}"] = seconds_in(check.read_text())
    for name, seconds in sorted(jobs.items(), key=lambda job: (-job[1], job[0])):
        print(f"{name}:{seconds}")
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
