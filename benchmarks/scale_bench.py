#!/usr/bin/env python3
"""Measures sites of 1,000 to 10,000,000 objects: the manager and the HAL server, over the socket.
Started by ./bench --scale, which builds the programs.

    scale_bench.py PROGRAMS [--quick] [--document]

Prints a table; --document also writes it into docs/performance.md, with a picture. A size that takes
more than ten minutes or 16 GB fails, and the table says so. --quick only shows that everything runs.
"""

import argparse
import datetime
import os
import statistics
import subprocess
import sys
import tempfile

import bench as benchmark
import report

TIMEOUT = 600
GIGABYTE = 10 ** 9
SERVER_MEMORY = 3 * GIGABYTE
MANAGER_MEMORY = 13 * GIGABYTE
SIZES = [10 ** power for power in range(3, 8)]
QUICK_SIZES = [1_000, 10_000]
# Larger sites are measured once.
REPEATED = 100_000
ROUNDS = 3
BEGIN = "<!-- begin of what ./bench --scale --document writes -->"
END = "<!-- end of what ./bench --scale --document writes -->"


def processor_nanoseconds(process):
    """The time of all threads so far."""
    total = 0
    for thread in os.listdir(f"/proc/{process.pid}/task"):
        with open(f"/proc/{process.pid}/task/{thread}/schedstat", encoding="utf-8") as file:
            total += int(file.read().split()[0])
    return total


def measure(bench, objects):
    """The figures of one run, per object."""
    limit = ["prlimit", f"--as={SERVER_MEMORY}"]
    with bench.serving(*limit, bench.path("zuskux-hal"), "--socket", "SOCKET", "--quiet",
                       "--table-size", "10000000") as (path, server):
        before = benchmark.peak_bytes(server)
        spent = processor_nanoseconds(server)
        printed = subprocess.run(
            ["prlimit", f"--as={MANAGER_MEMORY}", bench.path("manager_bench"), "memory", path,
             str(objects)],
            check=True, stdout=subprocess.PIPE, text=True, timeout=TIMEOUT).stdout
        values = {name: float(value) for name, value in map(str.split, printed.splitlines())}
        return {
            "elapsed": values["seconds"] / objects * 1e9,
            "manager": values["processor-seconds"] / objects * 1e9,
            "server": (processor_nanoseconds(server) - spent) / objects,
            "manager-bytes": values["held"], "manager-peak": values["peak"],
            "server-bytes": (benchmark.peak_bytes(server) - before) / objects}


def rows(results):
    for objects, result in results.items():
        if isinstance(result, str):
            yield [f"{objects:,}", result, "", "", "", "", "", ""]
            continue
        yield [f"{objects:,}", f"{result['elapsed'] * objects / 1e9:,.3f}",
               *(f"{result[name]:,.0f}" for name in ("elapsed", "manager", "server",
                                                      "manager-bytes", "manager-peak",
                                                      "server-bytes"))]


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    parser = argparse.ArgumentParser(prog="bench --scale", description=__doc__.split("\n\n")[0])
    parser.add_argument("programs", help=argparse.SUPPRESS)
    parser.add_argument("--quick", action="store_true", help="only show that everything runs")
    parser.add_argument("--document", action="store_true", help="write docs/performance.md")
    arguments = parser.parse_args()
    load = os.getloadavg()[0]

    results = {}
    with tempfile.TemporaryDirectory() as folder:
        bench = benchmark.Bench(arguments.programs, folder)
        for objects in QUICK_SIZES if arguments.quick else SIZES:
            rounds = ROUNDS if objects <= REPEATED and not arguments.quick else 1
            try:
                runs = [measure(bench, objects) for _ in range(rounds)]
                results[objects] = {name: statistics.median(run[name] for run in runs)
                                    for name in runs[0]}
            except subprocess.TimeoutExpired:
                results[objects] = f"more than {TIMEOUT} s"
            except subprocess.CalledProcessError:
                results[objects] = "failed: more memory than allowed"
    text = (f"Measured {datetime.date.today().isoformat()} on "
            f"{len(os.sched_getaffinity(0))} cores, load {load:.1f} at the start.\n\n" +
            report.table(["objects", "seconds", "ns per object", "manager's processor, ns",
                          "server's processor, ns", "manager, bytes per object", "at its peak",
                          "server, bytes per object at its peak"], rows(results)) + "\n")
    if arguments.quick:
        text = "**A quick run: the figures mean nothing.**\n\n" + text
    print(text)
    picture = report.scale_picture(
        {objects: result for objects, result in results.items() if not isinstance(result, str)})
    if arguments.document:
        with open(os.path.join(root, "docs/pictures/scale.svg"), "w", encoding="utf-8") as file:
            file.write(picture)
        report.write_between(os.path.join(root, "docs/performance.md"), BEGIN, END, text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
