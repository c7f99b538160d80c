"""What the tests of the built programs share: starting them, and reading what they log."""

import datetime
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time

LONG = "--long" in sys.argv
TIME = re.compile(r"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}) \w+ zuskux-[a-z]+: (.*)")


class Failure(Exception):
    pass


def wait_until(condition, what, patience=120.0):
    end = time.monotonic() + patience
    while not condition():
        if time.monotonic() > end:
            raise Failure(f"not within {patience:.0f} s: {what}")
        time.sleep(0.01)


class Program:
    """A running program with its standard error in a file; killed at the end."""

    def __init__(self, arguments, error_path):
        self.error_path = error_path
        with open(error_path, "wb") as error:
            self.process = subprocess.Popen(
                arguments, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=error
            )

    def error(self):
        with open(self.error_path, encoding="utf-8") as file:
            return file.read()

    def lines(self, start):
        """The logged lines that begin with `start`: their times and texts."""
        found = []
        for line in self.error().splitlines():
            match = TIME.fullmatch(line)
            if match and match[2].startswith(start):
                found.append((datetime.datetime.fromisoformat(match[1]), match[2]))
        return found

    def await_lines(self, start, count, patience=120.0):
        what = f'{count} lines that begin with "{start}" in {self.error_path}'
        wait_until(lambda: len(self.lines(start)) >= count, what, patience)
        return self.lines(start)

    def end(self, number):
        """Sends the signal and waits. Returns the exit status."""
        self.process.send_signal(number)
        return self.process.wait(timeout=60)


class Programs:
    """A scratch folder, and every program that a test started. A context manager."""

    def __init__(self, binaries):
        self.binaries = binaries
        self.scratch = tempfile.TemporaryDirectory(prefix="zuskux-programs-")
        self.started = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for program in self.started:
            if program.process.poll() is None:
                program.end(signal.SIGKILL)
        self.scratch.cleanup()

    def path(self, *names):
        return os.path.join(self.scratch.name, *names)

    def command(self, name, *arguments):
        return [os.path.join(self.binaries, name), *arguments]

    def start(self, error_name, name, *arguments):
        program = Program(self.command(name, *arguments), self.path(error_name))
        self.started.append(program)
        return program

    def run(self, name, *arguments):
        return subprocess.run(
            self.command(name, *arguments), check=True, timeout=120, capture_output=True, text=True
        ).stdout

    def site(self, objects):
        path = self.path(f"{objects}.txtpb")
        self.run("zuskux-generate-site", "--objects", str(objects), "--output", path)
        return path


def make_stale_socket(path):
    """Leaves a socket as a killed server does."""
    with socket.socket(socket.AF_UNIX) as dead:
        dead.bind(path)


def percentile(sorted_values, percent):
    return sorted_values[min(len(sorted_values) - 1, len(sorted_values) * percent // 100)]
