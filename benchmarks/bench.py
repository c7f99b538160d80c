#!/usr/bin/env python3
"""Measures zuskux. Started by ./bench, which builds the programs.

    bench.py PROGRAMS [--quick] [--peers] [--rounds N] [--out FOLDER] [--document]

Every round measures everything once, except what takes long: the large sites are measured in at most
three rounds. The output shows the median of the rounds, with the minimum and the maximum. Prints a table and writes bench.json and bench.svg to FOLDER. --quick only shows that
everything runs. --document also writes both into docs/performance.md and its picture.
"""

import argparse
import contextlib
import datetime
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

import costs
import report

TIMEOUT = 600


# The socket client's limit on requests in flight, and smaller ones.
WINDOW = 4096
SMALL_WINDOWS = [1, 4, 16, 64, 256]

# What takes long is measured in that many rounds at most.
LONG_ROUNDS = 3


class Sizes:
    """How much to measure."""

    def __init__(self, quick):
        self.seconds_a_case = 0.001 if quick else 0.02
        self.reinstalled = [1_000, 10_000] if quick else [1_000, 10_000, 100_000, 1_000_000]
        self.requests = 5_000 if quick else 200_000
        self.peer_requests = 1_000 if quick else 100_000
        self.large_site = 5_000 if quick else 1_000_000


class Bench:
    """The programs, each pinned to its own core if there are two."""

    def __init__(self, programs, folder):
        self._programs = programs
        self.folder = folder
        cores = sorted(os.sched_getaffinity(0))
        self._server_core, self._client_core = cores[0], cores[-1]

    def path(self, program):
        return os.path.join(self._programs, program)

    def _pinned(self, core, command):
        if self._server_core == self._client_core:
            return command
        return ["taskset", "--cpu-list", str(core), *command]

    def values(self, program, *arguments):
        """What a program prints: lines of a name and a number."""
        command = self._pinned(self._client_core, [self.path(program), *map(str, arguments)])
        printed = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True,
                                 timeout=TIMEOUT).stdout
        return {name: float(value) for name, value in map(str.split, printed.splitlines())}

    def case_times(self, seconds):
        """CPU nanoseconds of each case."""
        command = self._pinned(self._client_core, [
            self.path("library_bench"), "--benchmark_format=json",
            f"--benchmark_min_time={seconds}"])
        printed = subprocess.run(command, check=True, stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL, text=True, timeout=TIMEOUT).stdout
        return {case["name"]: case["cpu_time"] for case in json.loads(printed)["benchmarks"]}

    @contextlib.contextmanager
    def serving(self, *command, socket="socket", fresh=True):
        """A server on the socket whose path replaces SOCKET in its arguments."""
        path = os.path.join(self.folder, socket)
        if fresh and os.path.exists(path):
            os.unlink(path)
        command = [path if word == "SOCKET" else word for word in command]
        with subprocess.Popen(self._pinned(self._server_core, command),
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as server:
            try:
                for _ in range(500):
                    if os.path.exists(path):
                        break
                    if server.poll() is not None:
                        raise RuntimeError(f"{command[0]} has ended")
                    time.sleep(0.02)
                yield path, server
            finally:
                server.terminate()
                server.wait(TIMEOUT)

    def hal(self):
        return self.serving(self.path("zuskux-hal"), "--socket", "SOCKET", "--quiet",
                            "--table-size", "10000000")

    def redis(self):
        return self.serving("redis-server", "--port", "0", "--unixsocket", "SOCKET", "--save", "",
                            "--appendonly", "no", "--dir", self.folder)


def peak_bytes(process):
    with open(f"/proc/{process.pid}/status", encoding="utf-8") as file:
        return int(re.search(r"^VmHWM:\s+(\d+) kB$", file.read(), re.MULTILINE).group(1)) * 1024


def measure_library(bench, sizes):
    times = bench.case_times(sizes.seconds_a_case)
    yield from ((f"{name}/ns", value) for name, value in times.items() if name != "empty")


def measure_reinstalls(bench, sizes):
    for objects in sizes.reinstalled:
        for who, value in bench.values("reinstall_bench", objects).items():
            yield f"reinstall/{objects}/{who}/ns", value


def measure_window(bench, requests, window):
    for sender in ("client", "library"):
        with bench.hal() as (path, _):
            yield (f"{sender}/ns",
                   bench.values("socket_bench", path, requests, window, sender)["request"])
    for floor, server in (("floor", "store"), ("frames", "count")):
        with bench.serving(bench.path("raw_frames"), server, "SOCKET") as (path, _):
            yield (f"{floor}/ns",
                   bench.values("raw_frames", "send", path, requests, window)["request"])


def measure_socket(bench, sizes):
    yield from ((f"socket/{name}", value)
                for name, value in measure_window(bench, sizes.requests, WINDOW))
    for window in SMALL_WINDOWS:
        requests = min(sizes.requests, 10_000 * window)
        yield from ((f"socket/{window}/{name}", value)
                    for name, value in measure_window(bench, requests, window))


def measure_memory(bench, sizes):
    with bench.hal() as (path, server):
        before = peak_bytes(server)
        values = bench.values("manager_bench", "memory", path, sizes.large_site)
        for name in ("peak", "held"):
            yield f"memory/{name}/bytes", values[name]
        yield "memory/server/bytes", (peak_bytes(server) - before) / sizes.large_site
    for name, value in bench.values("manager_bench", "records", sizes.large_site).items():
        yield f"memory/{name}/bytes", value


def measure_large_site(bench, sizes):
    for name, value in bench.values("manager_bench", "install", sizes.large_site).items():
        yield f"large/{name}", value
    site = os.path.join(bench.folder, "site")
    if not os.path.exists(site):
        subprocess.run([bench.path("zuskux-generate-site"), "--objects", str(sizes.large_site),
                        "-o", site], check=True, timeout=TIMEOUT)
    yield "large/read-ns", bench.values("manager_bench", "read", site)["read-ns"]


def measure_peers(bench, sizes):
    objects = sizes.peer_requests
    for work in ("store", "carry"):
        for kind in ("list", "table"):
            with bench.redis() as (path, _), \
                    bench.serving(bench.path("redis_peer"), "serve", kind, work, "SOCKET",
                                  fresh=False):
                yield (f"peer/redis-{kind}/{work}/ns",
                       bench.values("redis_peer", "send", kind, path, objects)["request"])
        for batch in (1, 64):
            with bench.serving(bench.path("grpc_peer"), "serve", work, "SOCKET") as (path, _):
                yield (f"peer/grpc-{batch}/{work}/ns",
                       bench.values("grpc_peer", "send", path, objects, batch)["request"])


def progress(what):
    """Shows the current step in one line of the terminal, if there is one."""
    if sys.stderr.isatty():
        print(f"\r{what:40}\r", end="", file=sys.stderr, flush=True)


def measure_all(bench, sizes, rounds, peers):
    """The figures by name, each with its values in all rounds."""
    figures = {}
    for name, cost in costs.count(bench.path("count_cases")).items():
        figures[f"{name}/instructions"] = [cost.instructions]
        figures[f"{name}/allocations"] = [cost.allocations]
    for side in ("server", "client"):
        cost = costs.count_request(bench.path("count_requests"), side)
        figures[f"round-trip/{side}/instructions"] = [cost.instructions]
        figures[f"round-trip/{side}/allocations"] = [cost.allocations]
    for number in range(rounds):
        measures = [measure_library, measure_reinstalls, measure_socket]
        if peers:
            measures.append(measure_peers)
        if number < LONG_ROUNDS:
            measures += [measure_memory, measure_large_site]
        for measure in measures:
            progress(f"round {number + 1} of {rounds}: {measure.__name__[8:]}")
            for name, value in measure(bench, sizes):
                figures.setdefault(name, []).append(value)
    progress("")
    return {name: {"median": statistics.median(values), "least": min(values),
                   "greatest": max(values)} for name, values in figures.items()}


def first_line(*command):
    try:
        return subprocess.run(command, check=True, stdout=subprocess.PIPE,
                              text=True).stdout.splitlines()[0].strip()
    except (OSError, subprocess.CalledProcessError, IndexError):
        return ""


def package_version(package):
    return first_line("dpkg-query", "-W", "-f", "${Version}\n", package)


def describe_machine(peers):
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        model = re.search(r"^model name\s*:\s*(.*)$", file.read(), re.MULTILINE)
    with open("/proc/meminfo", encoding="utf-8") as file:
        kilobytes = int(re.search(r"^MemTotal:\s+(\d+) kB$", file.read(), re.MULTILINE).group(1))
    packages = {"protobuf": "libprotobuf-dev", "Boost": "libboost-dev", "valgrind": "valgrind"}
    if peers:
        packages |= {"Redis": "redis-server", "hiredis": "libhiredis-dev",
                     "gRPC": "libgrpc++-dev"}
    return {
        "cores": len(os.sched_getaffinity(0)),
        "processor": model.group(1) if model else "unknown",
        "memory": f"{kilobytes / 2 ** 20:.0f} GiB",
        "load": os.getloadavg()[0],
        "date": datetime.date.today().isoformat(),
        "versions": {"Linux": ".".join(os.uname().release.split(".")[:2]),
                     "g++": first_line("g++", "-dumpfullversion")}
        | {name: package_version(package) for name, package in packages.items()},
    }


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    parser = argparse.ArgumentParser(prog="bench", description=__doc__.split("\n", 1)[0])
    parser.add_argument("programs", help=argparse.SUPPRESS)
    parser.add_argument("--quick", action="store_true", help="only show that everything runs")
    parser.add_argument("--peers", action="store_true", help="also measure Redis and gRPC")
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--out", default=os.path.join(root, "build"), metavar="FOLDER",
                        help="where bench.json and bench.svg go (build)")
    parser.add_argument("--document", action="store_true", help="write docs/performance.md")
    arguments = parser.parse_args()
    if arguments.rounds < 1:
        parser.error("--rounds is at least 1")

    machine = describe_machine(arguments.peers)
    with tempfile.TemporaryDirectory() as folder:
        figures = measure_all(Bench(arguments.programs, folder), Sizes(arguments.quick),
                              1 if arguments.quick else arguments.rounds, arguments.peers)
    result = {"machine": machine, "rounds": 1 if arguments.quick else arguments.rounds,
              "quick": arguments.quick, "figures": figures}

    os.makedirs(arguments.out, exist_ok=True)
    with open(os.path.join(arguments.out, "bench.json"), "w", encoding="utf-8") as file:
        json.dump(result, file, indent=1)
    picture = report.picture(figures)
    with open(os.path.join(arguments.out, "bench.svg"), "w", encoding="utf-8") as file:
        file.write(picture)
    text = report.tables(result)
    print(text)
    if arguments.document:
        report.document(root, text, picture)
    return 0


if __name__ == "__main__":
    sys.exit(main())
