#!/usr/bin/env python3
"""How much 20 readers of the status slow down a manager that installs many objects.

    status_readers_test.py FOLDER-OF-THE-PROGRAMS [--long]

Each reader runs `zuskux-manager status` again and again, at the lowest priority: the test measures
the manager's work for them, not the processor time of the readers. Prints the time of an install, as
the manager logs it ("in sync after"), without and with the readers. With --long: 300,000 objects,
three installs each. The fastest install with readers may take three times as long as the fastest
without, because the readers still share its processor.
"""

import os
import re
import signal
import subprocess
import sys
import threading

from programs import LONG, Programs, wait_until

OBJECTS = 300_000 if LONG else 2_000
INSTALLS = 3 if LONG else 1
READERS = 20


class Readers:
    def __init__(self, command):
        self.command = command
        self.ending = False
        self.read = [0] * READERS
        self.threads = [threading.Thread(target=self.loop, args=(i,)) for i in range(READERS)]
        for thread in self.threads:
            thread.start()

    def loop(self, number):
        while not self.ending:
            run = subprocess.run(
                self.command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                preexec_fn=lambda: os.nice(19),
            )
            if run.returncode == 0 and "KIND" in run.stdout:
                self.read[number] += 1

    def end(self):
        self.ending = True
        for thread in self.threads:
            thread.join()


def install(programs, site, name, with_readers):
    """Returns the time of the install and how often the status was read during it."""
    path = programs.path("hal.sock")
    control = programs.path("manager.sock")
    server = programs.start(name + ".hal", "zuskux-hal", "--socket", path)
    server.await_lines("listening on ", 1)
    manager = programs.start(
        name + ".manager", "zuskux-manager", site, "--stay",
        "--hal", "unix:" + path, "--control", control,
    )
    readers = None
    if with_readers:
        wait_until(lambda: os.path.exists(control), "the manager has a control socket")
        readers = Readers(programs.command("zuskux-manager", "status", "--control", control))
    try:
        (_, line), = manager.await_lines("in sync after ", 1, 300)
        read = sum(readers.read) if readers else 0
        if readers:
            wait_until(lambda: min(readers.read) > 0, "every reader has seen the status")
    finally:
        if readers:
            readers.end()
    manager.end(signal.SIGTERM)
    server.end(signal.SIGTERM)
    return int(re.match(r"in sync after (\d+) ms", line)[1]), read


def main():
    with Programs(sys.argv[1]) as programs:
        site = programs.site(OBJECTS)
        without, with_readers, read = [], [], 0
        for number in range(INSTALLS):
            without.append(install(programs, site, f"{number}.without", False)[0])
            time_with, count = install(programs, site, f"{number}.with", True)
            with_readers.append(time_with)
            read += count
    print(
        f"{OBJECTS} objects: installed in {without} ms without readers, in {with_readers} ms with "
        f"{READERS}, which read the status {read} times meanwhile"
    )
    if LONG and min(with_readers) > 3 * min(without):
        sys.exit("the readers slow the manager down too much")


main()
