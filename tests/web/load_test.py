#!/usr/bin/env python3
"""200 clients read the metrics and follow the events while the manager installs everything again
and again: all of them are served, and the memory stays bounded. With --long, more objects, and the
rate of the installs with the readers is compared with that without.

    load_test.py FOLDER-OF-THE-PROGRAMS [--long]
"""

import os
import re
import selectors
import signal
import socket
import statistics
import subprocess
import sys
import threading
import time

from web_programs import Api, Failure, Programs, address_of, check, wait_until

LONG = "--long" in sys.argv
OBJECTS = 100_000 if LONG else 2_000
READERS = 200
PAIRS = 7 if LONG else 1
# Of the rate without readers; the measured figures are in docs/trust.md.
LEAST_RATE = 0.95
# The history of 65,536 changes, batches on the way to 100 followers, and what the allocator keeps.
MOST_GROWTH = 128 << 20
SCRAPE_INTERVAL = 1.0


class Readers:
    """Half of them follow the events, half read the metrics once a second, on one thread with the
    lowest priority: in real life they are elsewhere."""

    def __init__(self, address):
        self.address = address
        self.stop = threading.Event()
        self.scrapes = 0
        self.events = 0
        self.closed = 0
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        os.setpriority(os.PRIO_PROCESS, threading.get_native_id(), 19)
        with selectors.DefaultSelector() as selector:
            sockets = []
            for number in range(READERS):
                client = socket.create_connection(self.address)
                path = "/api/events" if number % 2 else "/metrics"
                request = f"GET {path} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode()
                client.sendall(request)
                client.setblocking(False)
                selector.register(client, selectors.EVENT_READ, (request, path))
                sockets.append(client)
            scrape = time.monotonic() + SCRAPE_INTERVAL
            while not self.stop.is_set():
                for key, _ in selector.select(0.05):
                    data = key.fileobj.recv(1 << 20)
                    if not data:
                        self.closed += 1
                        selector.unregister(key.fileobj)
                    elif key.data[1] == "/metrics":
                        self.scrapes += data.count(b"HTTP/1.1 200 OK")
                    else:
                        self.events += data.count(b"\nevent: objects") + data.count(b"\nevent: missed")
                if time.monotonic() > scrape:
                    scrape += SCRAPE_INTERVAL
                    for key in list(selector.get_map().values()):
                        if key.data[1] == "/metrics":
                            key.fileobj.send(key.data[0])
            for client in sockets:
                client.close()

    def end(self):
        self.stop.set()
        self.thread.join()


def memory(api):
    text = api.response("/metrics")[2]
    return float(re.search(r"^process_resident_memory_bytes (\S+)$", text, re.MULTILINE)[1])


def thread_seconds(program):
    """Processor time of the program's own thread, which does not serve HTTP."""
    pid = program.process.pid
    with open(f"/proc/{pid}/task/{pid}/stat", encoding="utf-8") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def install_everything(programs, api, manager):
    """How long it takes, and the processor time of the manager's thread, in milliseconds."""
    start = thread_seconds(manager)
    before = api.json("/api/status")["reinstall"]["last"]["ended_ms"]
    programs.run("zuskux-manager", "resync", "--control", programs.path("control"))

    def done():
        status = api.json("/api/status")
        time.sleep(0.1)
        return status["settled"] and status["reinstall"]["last"]["ended_ms"] > before

    wait_until(done, "the end of the reinstall")
    last = api.json("/api/status")["reinstall"]["last"]
    check(last["objects"] == OBJECTS, last)
    return last["duration_ms"], (thread_seconds(manager) - start) * 1000


def medians(measured):
    return [statistics.median(values) for values in zip(*measured)]


def main():
    with Programs(sys.argv[1]) as programs:
        hal = programs.start("hal", "zuskux-hal", "--socket", programs.path("hal.sock"))
        hal.await_lines("listening", 1)
        manager = programs.start(
            "manager", "zuskux-manager", programs.site(OBJECTS), "--stay",
            "--hal", f"unix:{programs.path('hal.sock')}", "--control", programs.path("control"),
            "--http", "127.0.0.1:0")
        api = Api.of(manager)
        wait_until(lambda: api.json("/api/status")["settled"], "settled")
        # Fills the history.
        install_everything(programs, api, manager)
        memory_before = memory(api)
        alone, read, scrapes, events = [], [], 0, 0
        for _ in range(PAIRS):
            alone.append(install_everything(programs, api, manager))
            readers = Readers(address_of(manager))
            try:
                wait_until(lambda: readers.scrapes >= READERS // 2, "every reader is served")
                read.append(install_everything(programs, api, manager))
                wait_until(lambda: readers.events >= READERS // 2, "the followers got events")
            finally:
                readers.end()
            check(readers.closed == 0, f"{readers.closed} readers lost their connection")
            scrapes += readers.scrapes
            events += readers.events
        growth = memory(api) - memory_before
        (time_alone, work_alone), (time_read, work_read) = medians(alone), medians(read)
        ratio = time_alone / time_read
        print(f"{OBJECTS} objects: {time_alone:.0f} ms alone, {time_read:.0f} ms with {READERS} "
              f"readers, rate {ratio:.3f} of that alone; processor time of the manager's thread "
              f"{work_alone:.0f} ms and {work_read:.0f} ms; {scrapes} scrapes, {events} batches of "
              f"events, {growth / (1 << 20):.1f} MiB more")
        for name, measured in (("alone", alone), ("with readers", read)):
            print(f"{name}:", *(f"{each:.0f}/{work:.0f}" for each, work in measured))
        check(growth < MOST_GROWTH, f"the memory grew by {growth / (1 << 20):.0f} MiB")
        check(not LONG or ratio >= LEAST_RATE, f"the rate is {ratio:.3f} of that without readers")
        check(manager.end(signal.SIGTERM) == 0, "the manager's end")


try:
    main()
except (Failure, subprocess.CalledProcessError) as failure:
    sys.exit(str(failure))
