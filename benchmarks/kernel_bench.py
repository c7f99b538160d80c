#!/usr/bin/env python3
"""Measures next hops written into the Linux kernel. Started by ./bench --kernel, which builds the
programs; needs root.

    kernel_bench.py PROGRAMS [--quick] [--rounds N] [--document]

Hosts and groups are written in a network namespace of this kernel, MPLS destinations in a virtual
machine, since this kernel may lack MPLS. Every round measures everything once; what is shown is the
median of the rounds. Prints a table; --document also writes it into docs/performance.md. --quick
only shows that everything runs.
"""

import argparse
import datetime
import os
import re
import statistics
import subprocess
import sys

import report

TIMEOUT = 1800
ZEBRA = "/usr/lib/frr/zebra"
BEGIN = "<!-- begin of what ./bench --kernel --document writes -->"
END = "<!-- end of what ./bench --kernel --document writes -->"
NAMES = {"host": "hosts", "mpls": "MPLS destinations", "group": "groups of 4"}


def measure(command):
    """The median of each figure that the program prints."""
    printed = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True,
                             timeout=TIMEOUT).stdout
    figures = {}
    # The virtual machine prints what programs log there too.
    for name, value in re.findall(r"^([a-z]+/[a-z/-]+) (-?[0-9.]+)$", printed, re.MULTILINE):
        figures.setdefault(name, []).append(float(value))
    return {name: statistics.median(values) for name, values in figures.items()}


def rates(figures, kind, objects, where):
    """The rows about the rate of a kind: by elapsed time and by processor time."""
    for unit, title in (("ns", "elapsed"), ("cpu-ns", "processor")):
        raw, server = figures[f"{kind}/raw/{unit}"], figures[f"{kind}/server/{unit}"]
        zebra = figures.get(f"{kind}/zebra/{unit}")
        yield [f"{objects:,} {NAMES[kind]}{where}", title, f"{raw:,.0f}", f"{server:,.0f}",
               f"{raw / server:.2f}", f"{zebra:,.0f}" if zebra else "",
               f"{zebra / server:.1f}" if zebra else ""]


def memory(figures, kind, objects):
    """The row about the memory of a kind."""
    simulation, server = figures[f"{kind}/simulation/bytes"], figures[f"{kind}/server/bytes"]
    return [f"{objects:,} {NAMES[kind]}", f"{simulation:,.0f}", f"{server:,.0f}",
            f"{server - simulation:,.0f}"]


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    parser = argparse.ArgumentParser(prog="bench --kernel", description=__doc__.split("\n\n")[0])
    parser.add_argument("programs", help=argparse.SUPPRESS)
    parser.add_argument("--quick", action="store_true", help="only show that everything runs")
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--document", action="store_true", help="write docs/performance.md")
    arguments = parser.parse_args()
    if arguments.rounds < 1:
        parser.error("--rounds is at least 1")
    rounds = 1 if arguments.quick else arguments.rounds
    # Emulated, the virtual machine is many times slower.
    objects, in_machine = (1_000, 200) if arguments.quick else (100_000, 10_000)
    bench, server = (os.path.join(arguments.programs, name) for name in ("kernel_bench",
                                                                         "zuskux-hal"))
    load = os.getloadavg()[0]

    direct = measure([bench, "host,group", str(objects), str(rounds), server, ZEBRA])
    machine = measure([os.path.join(root, "tests/linux/vm"), "--timeout", str(TIMEOUT), "--with",
                       server, bench, "mpls", str(in_machine), str(rounds), server])

    release = ".".join(os.uname().release.split(".")[:2])
    text = "\n\n".join([
        f"Measured {datetime.date.today().isoformat()} in {rounds} rounds on Linux {release}, "
        f"{len(os.sched_getaffinity(0))} cores, load {load:.1f} at the start. Nanoseconds per "
        "object.",
        report.table(["objects", "time", "libmnl", "zuskux-hal", "rate relative to libmnl",
                      "zebra", "rate relative to zebra"],
                     [*rates(direct, "host", objects, ""), *rates(direct, "group", objects, ""),
                      *rates(machine, "mpls", in_machine, ", emulated")]),
        "Resident memory of `zuskux-hal`, in bytes per object:",
        report.table(["objects", "simulation", "Linux", "difference"],
                     [memory(direct, "host", objects), memory(direct, "group", objects)])])
    if arguments.quick:
        text = "**A quick run: the figures mean nothing.**\n\n" + text
    print(text)
    if arguments.document:
        report.write_between(os.path.join(root, "docs/performance.md"), BEGIN, END, text + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
