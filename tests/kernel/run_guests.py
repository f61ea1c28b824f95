#!/usr/bin/env python3
"""Boots guests and has them do jobs, until there are no more; prints a line for each job, and a summary.

Usage: run_guests.py WORK_DIRECTORY GUESTS LEAST_CASES JOB:SECONDS...

A job goes to the next guest that has nothing to do. Where a guest does not finish one in its time, ends or panics the
job has failed, and a new guest does the others. Without KVM a guest's seconds are as long as the machine's other work
makes them, so what has failed is done once more; that is told. What a job has printed goes to WORK_DIRECTORY/logs. Fewer
than LEAST_CASES test cases are a failure, whatever became of the others.
"""

import collections
import os
import pathlib
import re
import socket
import subprocess
import sys
import threading
import time

BOOT_S = 120
PLUGGING_S = 30  # for the pads to come and go, beside the time that a test may take
PATIENCE_S = 20
ENDED_BY_GUEST = 17
KERNEL_OPTIONS = (
    "console=ttyS0 oops=panic panic=-1 loglevel=3 cryptomgr.notests mitigations=off log_buf_len=1M quiet"
)


def has_kvm():
    processor = pathlib.Path("/proc/cpuinfo").read_text()
    return os.access("/dev/kvm", os.R_OK | os.W_OK) and re.search(r"\b(vmx|svm)\b", processor) is not None


class Trouble(Exception):
    """The guest is of no more use."""


class Guest:
    def __init__(self, work, number, kvm):
        self.console = work / f"guest-{number}.console"
        path = work / f"guest-{number}"
        path.unlink(missing_ok=True)
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(str(path))
        listener.listen(1)
        listener.settimeout(BOOT_S)
        # To emulate the vector instructions of a larger processor takes a third more time.
        accelerator = ["-machine", "pc,accel=kvm:tcg", "-cpu", "max"] if kvm else ["-machine", "pc,accel=tcg", "-cpu", "qemu64"]
        self.process = subprocess.Popen(
            ["qemu-system-x86_64", *accelerator, "-smp", "1", "-m", "512", "-nodefaults", "-no-user-config", "-no-reboot"]
            + ["-display", "none", "-kernel", work / "vmlinux", "-initrd", work / "initrd.cpio"]
            + ["-append", KERNEL_OPTIONS, "-serial", f"file:{self.console}", "-serial", f"unix:{path}"]
            + ["-device", "isa-debug-exit,iobase=0x501,iosize=2"],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
        )
        self.line = None
        self.rest = b""
        self.listener = listener

    def connect(self):
        self.listener.settimeout(10)
        try:
            self.line, _ = self.listener.accept()
        except TimeoutError:
            raise Trouble("QEMU does not start: " + self.end()) from None
        self.await_line("::next", BOOT_S)

    def await_line(self, wanted, seconds, keep=None):
        """Reads up to a line that begins so, and returns it."""
        deadline = time.monotonic() + seconds
        while True:
            while b"\n" in self.rest:
                raw, self.rest = self.rest.split(b"\n", 1)
                text = raw.decode(errors="replace").rstrip("\r")
                if text.startswith(wanted):
                    return text
                if keep is not None:
                    keep.append(text)
            self.line.settimeout(max(0.01, deadline - time.monotonic()))
            try:
                data = self.line.recv(65536)
            except TimeoutError:
                raise Trouble(f"the guest hangs: no answer for {seconds} s") from None
            if not data:
                raise Trouble("the guest has ended: " + self.end())
            self.rest += data

    def send(self, text):
        self.line.sendall(text.encode() + b"\n")

    def end(self):
        self.process.kill()
        status = self.process.wait()
        errors = self.process.stderr.read().decode(errors="replace")
        console = self.console.read_text(errors="replace")[-3000:] if self.console.exists() else ""
        return f"status {status}\n{errors}{console}"


class Run:
    def __init__(self, work, jobs):
        self.work = work
        self.jobs = jobs
        self.lock = threading.Lock()
        self.failed = []
        self.again = []
        self.kvm = has_kvm()
        self.guests = 0
        self.cases = 0
        self.checks = 0
        self.skipped = collections.Counter()

    def take(self):
        with self.lock:
            return self.jobs.pop(0) if self.jobs else None

    def boot(self):
        with self.lock:
            self.guests += 1
            guest = Guest(self.work, self.guests, self.kvm)
        try:
            guest.connect()
        except Trouble:
            guest.end()
            if not self.kvm:
                raise
            self.kvm = False
            return self.boot()
        return guest

    def may_try_again(self, job):
        with self.lock:
            if self.kvm or job in self.again:
                return False
            self.again.append(job)
            self.jobs.append(job)
            return True

    def tell(self, name, result, seconds, log, is_last=True):
        (self.work / "logs" / name).write_text("\n".join(log) + "\n")
        cases = sum(line.startswith("[       OK ]") for line in log)
        reasons = [after for line, after in zip(log, log[1:]) if line.endswith(": Skipped")]
        checks = sum(line.startswith("ok: ") for line in log)
        with self.lock:
            if is_last:
                self.cases += cases
                self.checks += checks
                self.skipped.update(reasons)
            words = [f"{cases} cases"] * bool(cases) + [f"{checks} checks"] * bool(checks)
            words += [f"{len(reasons)} skipped"] * bool(reasons)
            if result != "ok":
                words.insert(0, result)
                if is_last:
                    self.failed.append(name)
                else:
                    words.append("is done once more")
            print(f"  {name:<24} {'ok' if result == 'ok' else 'FAILED':<6} {seconds:6.1f} s  {', '.join(words)}")
            if result != "ok":
                told = [line for line in log if re.match(r"\[  FAILED  \] \S+ \(|FAILED: |::kernel ", line)] or log
                print("\n".join("    " + line for line in told[-20:]))
            sys.stdout.flush()

    def work_off(self):
        guest = None
        while job := self.take():
            name, seconds = job
            log = []
            start = time.monotonic()
            try:
                if guest is None:
                    guest = self.boot()
                    start = time.monotonic()
                guest.send(f"{name} {seconds + PLUGGING_S}")
                status = guest.await_line("::done ", seconds + PLUGGING_S + PATIENCE_S, log).split()[1]
                complaints = [line for line in log if line.startswith("::kernel ")]
                result = "ok" if status == "0" else f"status {status}"
                if complaints:
                    result = complaints[0]
                guest.await_line("::next", 30)
            except (Trouble, OSError) as trouble:
                result = str(trouble).split("\n", 1)[0]
                log += str(trouble).split("\n")
                if guest is not None:
                    guest.end()
                guest = None
            is_last = result == "ok" or not self.may_try_again(job)
            self.tell(name, result, time.monotonic() - start, log, is_last)
        if guest is not None:
            guest.send("end")
            try:
                if guest.process.wait(30) != ENDED_BY_GUEST:
                    self.failed.append("the guest's end")
            except subprocess.TimeoutExpired:
                guest.end()
                self.failed.append("the guest's end")


def main(work, guests, least, *jobs):
    work = pathlib.Path(work)
    start = time.monotonic()
    run = Run(work, [(name, int(seconds)) for name, seconds in (job.rsplit(":", 1) for job in jobs)])
    threads = [threading.Thread(target=run.work_off) for _ in range(min(int(guests), len(jobs)))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for reason, count in sorted(run.skipped.items()):
        print(f"  skipped {count}: {reason}")
    for name, _ in run.again:
        print(f"  done twice: {name}")
    used = os.times()
    print(
        f"test-kernel: {run.cases} test cases, {run.checks} checks, {run.skipped.total()} skipped, on a real kernel "
        f"{'with' if run.kvm else 'without'} KVM in {time.monotonic() - start:.0f} s "
        f"({used.children_user + used.children_system:.0f} s of processor time)"
    )
    if run.cases < int(least):
        run.failed.append(f"fewer than {least} test cases")
    if run.failed:
        print(f"test-kernel: FAILED: {', '.join(run.failed)}; what they said is in {work / 'logs'}")
    return 1 if run.failed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
