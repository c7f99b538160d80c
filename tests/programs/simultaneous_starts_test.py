#!/usr/bin/env python3
"""Several zuskux-hal processes start at the same moment on a stale socket: exactly one of them
listens and can be reached. The others exit with one line and status 1.

    simultaneous_starts_test.py FOLDER-OF-THE-PROGRAMS [--long]

With --long, there are more than 1,000 starts.
"""

import os
import re
import signal
import sys

from programs import LONG, Failure, Programs, make_stale_socket, wait_until

STARTS = 1_200 if LONG else 40
GROUP_SIZES = (2, 3, 5, 10)


class Start:
    """A server that waits for the gate before it runs its program."""

    def __init__(self, command, gate, error_path):
        self.error_path = error_path
        self.status = None
        self.pid = os.fork()
        if self.pid == 0:
            error = os.open(error_path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)
            os.dup2(error, 2)
            os.close(gate[1])
            os.read(gate[0], 1)
            os.execv(command[0], command)

    def error(self):
        with open(self.error_path, encoding="utf-8") as file:
            return file.read()

    def runs(self):
        if self.status is None:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid != 0:
                self.status = os.waitstatus_to_exitcode(status)
        return self.status is None

    def end(self, number):
        os.kill(self.pid, number)
        _, status = os.waitpid(self.pid, 0)
        self.status = os.waitstatus_to_exitcode(status)
        return self.status


def start_group(programs, size, path):
    command = programs.command("zuskux-hal", "--socket", path)
    gate = os.pipe()
    group = [Start(command, gate, programs.path(f"error-{number}")) for number in range(size)]
    os.close(gate[0])
    os.close(gate[1])
    return group


def check(programs, group, path):
    wait_until(lambda: sum(start.runs() for start in group) <= 1, "all but one have ended")
    listening = [start for start in group if start.runs()]
    if len(listening) != 1:
        raise Failure(f"{len(listening)} of {len(group)} listen")
    wait_until(lambda: "listening on" in listening[0].error(), "the server says that it listens")
    for start in group:
        if start is listening[0]:
            continue
        line = f"ERROR zuskux-hal: another program listens on {path}"
        if start.status != 1 or line not in start.error() or "listening on" in start.error():
            raise Failure(f"status {start.status}, {start.error()}")
    generation = re.search("generation (0x[0-9a-f]{16})", listening[0].error())[1]
    if f"generation {generation}," not in programs.run("zuskux-hal", "tables", "--socket", path):
        raise Failure("another server answers")
    return listening[0]


def main():
    starts = groups = 0
    with Programs(sys.argv[1]) as programs:
        path = programs.path("hal.sock")
        while starts < STARTS:
            if not os.path.exists(path):
                make_stale_socket(path)
            group = start_group(programs, GROUP_SIZES[groups % len(GROUP_SIZES)], path)
            try:
                listening = check(programs, group, path)
                # SIGKILL leaves the socket to the next group.
                killed = groups % 2 == 0
                status = listening.end(signal.SIGKILL if killed else signal.SIGTERM)
                if status != (-signal.SIGKILL if killed else 0):
                    raise Failure(f"the server ended with {status}")
            finally:
                for start in group:
                    if start.runs():
                        start.end(signal.SIGKILL)
            starts += len(group)
            groups += 1
    print(f"{starts} starts in {groups} groups; in each, exactly one listened and was reached")


main()
