#!/usr/bin/env python3
"""syscalls_test.py PROBE: traces the probe and holds the system calls of each of its steps against
what the job needs. Time is never judged; one call too many is."""
import re
import shutil
import subprocess
import sys
import tempfile

COMMAND = ["openat", "write", "poll", "read", "close"]
EXPECTED = {
    # The descriptor is looked at and read once; then the two pieces and the load command.
    "load": ["poll", "read", "openat", "write", *COMMAND, "write", *COMMAND, "close", *COMMAND],
    # The command, and one word for the control thread.
    "start": [*COMMAND, "write"],
    "stop": [*COMMAND, "write"],
    # From the control thread's wake-up to the framework's callback.
    "detection": ["read"],
    # Besides the audio: the hotword's instant and the clock node.
    "first-read": ["openat", "poll", "read", *COMMAND, "openat", "read", "close", "close"],
    "read": ["openat", "poll", "read", "close"],
    "timestamp": [],
    "model-handle": [],
}
# Not the job's but its surroundings': the lock, when another thread has it; memory; the log.
IGNORED = {"futex", "mmap", "munmap", "brk", "madvise", "mprotect", "writev", "gettid", "getpid",
           "clock_gettime"}
WAITS = {"select", "pselect6"}


def trace(probe):
    with tempfile.NamedTemporaryFile("r") as log:
        run = subprocess.run(["strace", "-f", "-o", log.name, probe], stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=120)
        return run, log.read()


def is_counted(call, rest):
    return call not in IGNORED and "/dev/log" not in rest and not (
        call == "write" and rest.startswith("(2,"))


def steps(log):
    """Name -> calls of the thread that made the step, in order; of a detection, those between the
    wait and the callback."""
    found = {}
    awake = {}
    name = pid = None
    inside = False
    for line in log.splitlines():
        match = re.match(r"(\d+) +(?:<\.\.\. )?(\w+)(.*)", line)
        if not match:
            continue
        thread, call, rest = match.groups()
        marker = re.match(r'\(-1, "([\w-]+)"', rest)
        if call == "write" and marker:
            if marker.group(1) == "detected":
                found["detection"] = list(awake.get(thread, []))
            else:
                name, pid = marker.group(1), thread
        elif call in WAITS:
            awake[thread] = []
        elif "resumed>" in line:
            continue
        elif thread == pid and call == "getppid":
            inside = not inside
            if inside:
                found[name] = []
        elif is_counted(call, rest):
            call = "poll" if call == "ppoll" else call
            awake.setdefault(thread, []).append(call)
            if thread == pid and inside:
                found[name].append(call)
    return found


def main():
    if shutil.which("strace") is None:
        print("strace is missing: install the package strace")
        return 77
    run, log = trace(sys.argv[1])
    if run.returncode == 77 or "ptrace" in run.stderr:
        print(run.stderr)
        return 77
    found = steps(log)
    failures = 0
    for name, expected in EXPECTED.items():
        got = found.get(name)
        if got != expected:
            failures += 1
            print(f"{name}: expected {expected}\n{' ' * len(name)}       got {got}")
    print(f"{len(EXPECTED) - failures} passed, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
