#!/usr/bin/env python3
"""Measures how fast zuskux-hal repairs the kernel, and how fast it is in sync after a start. Prints the
rows for docs/trust.md.

    recovery_times.py PROGRAMS [--drifts N] [--objects N]...

Works in a network namespace of its own; exits with 77 if it cannot create one. Without options: 200
drifts, 10,000 and 100,000 objects.
"""

import argparse
import contextlib
import itertools
import os
import re
import signal
import subprocess
import tempfile
import threading
import time

from commands import run, skip_without_namespaces, wait_until

VLANS = 10
PATIENCE = 900


def site(objects):
    """VLAN destinations, hosts on them and, for a small site, a group."""
    lines = ['interface { name: "eth1" lim_id: 1 type: 1 ifindex: 1 }']
    lines += [f'vlan {{ id: {i} name: "v{i}" interface: "eth1" }}' for i in range(1, VLANS + 1)]
    for i in range(objects - VLANS):
        mac = ":".join(f"{byte:02x}" for byte in (0x020000000000 + i).to_bytes(6, "big"))
        lines.append(f'host {{ id: {1000 + i} name: "h{i}" interface: "eth1" vlan: "v{1 + i % VLANS}" '
                     f'mac: "{mac}" ip: "10.{i >> 16 & 255}.{i >> 8 & 255}.{i & 255}" }}')
    lines.append('ecmp { id: 900 name: "group" member: "h0" member: "h1" }')
    return "\n".join(lines) + "\n"


class System:
    """Both programs in a network namespace."""

    def __init__(self, programs, folder, namespace, objects):
        self.programs, self.namespace = programs, namespace
        self.path = lambda name: os.path.join(folder, name)
        self.server = self.manager = None
        with open(self.path("site"), "w") as file:
            file.write(site(objects))
        with open(self.path("log"), "w"):
            pass

    def wait_until(self, true, what):
        def true_or_ended():
            if self.server.poll() is not None:
                with open(self.path("log")) as log:
                    raise SystemExit(f"FAILED: {what}: the server has ended: {log.read()[-2000:]}")
            return true()

        wait_until(true_or_ended, what, PATIENCE)

    def start(self, *arguments):
        with open(self.path("log"), "a") as log:
            return subprocess.Popen(arguments, stdout=log, stderr=log)

    def start_server(self):
        self.server = self.start(
            f"{self.programs}/zuskux-hal", "--socket", self.path("hal.sock"), "--data-plane", "linux",
            "--interfaces", self.path("site"), "--netns", self.namespace)

    def start_manager(self):
        self.manager = self.start(
            f"{self.programs}/zuskux-manager", "--stay", "--hal", "unix:" + self.path("hal.sock"),
            "--control", self.path("control.sock"), self.path("site"))

    def stop(self):
        for process in (self.manager, self.server):
            if process is not None:
                process.send_signal(signal.SIGKILL)
                process.wait()

    def kill_server(self):
        self.server.send_signal(signal.SIGKILL)
        self.server.wait()

    def in_sync(self):
        with open(self.path("log")) as log:
            return log.read().count(": in sync after ")

    def time_to_in_sync(self):
        """From the start of the server, in seconds."""
        before, start = self.in_sync(), time.monotonic()
        self.start_server()
        if self.manager is None:
            self.start_manager()
        self.wait_until(lambda: self.in_sync() > before, "in sync")
        return time.monotonic() - start

    def tables(self):
        return run(f"{self.programs}/zuskux-hal", "tables", "--socket", self.path("hal.sock")).split("\n")[0]

    def writes(self):
        return int(re.search(r"(\d+) kernel writes", self.tables())[1])

    def memory(self):
        with open(f"/proc/{self.server.pid}/status") as status:
            return int(re.search(r"VmRSS:\s*(\d+) kB", status.read())[1]) // 1024

    def nexthops(self):
        return run("ip", "-n", self.namespace, "nexthop", "show", "protocol", "171").count("\n")

    def check(self):
        """Fails if the kernel differs from the tables."""
        run(f"{self.programs}/zuskux-hal", "tables", "--socket", self.path("hal.sock"), "--check",
            "--interfaces", self.path("site"), "--netns", self.namespace)

    def empty_kernel(self):
        subprocess.run(["ip", "-n", self.namespace, "nexthop", "flush", "proto", "171"], capture_output=True)
        subprocess.run(["ip", "-n", self.namespace, "link", "del", "group", "171"], capture_output=True)


def percentile(times, share):
    return times[min(len(times) - 1, int(len(times) * share))]


def repair_times(system, drifts):
    """Deletes something for each (next hop, arguments of ip), and waits until the next hop is there again.
    Returns the times from the deletion to the kernel's notification of the repair, in ms, ascending."""
    monitor = subprocess.Popen(["ip", "-n", system.namespace, "monitor", "nexthop"],
                               stdout=subprocess.PIPE, text=True)
    events, times = [], []
    changed = threading.Condition()

    def read():
        for line in monitor.stdout:
            with changed:
                events.append((time.monotonic(), line))
                changed.notify()

    threading.Thread(target=read, daemon=True).start()
    time.sleep(0.5)
    for nexthop, command in drifts:
        with changed:
            events.clear()
        start = time.monotonic()
        run("ip", "-n", system.namespace, *command)

        def time_of(start):
            return next((at for at, line in events if line.startswith(start + nexthop + " ")), None)

        with changed:
            if not changed.wait_for(lambda: time_of("id "), 60):
                raise SystemExit(f"FAILED: no repair of {' '.join(command)}")
            # The kernel does not notify of next hops that it removes with their device.
            times.append((time_of("id ") - (time_of("Deleted id ") or start)) * 1000)
        # Repairs are limited to five a second.
        time.sleep(0.3)
    monitor.kill()
    return sorted(times)


def measure_drifts(system, count):
    system.time_to_in_sync()
    system.wait_until(lambda: system.nexthops() == VLANS + 4, "the installation")
    drifts = itertools.cycle([("1000", ("nexthop", "del", "id", "1000")),
                              ("900", ("nexthop", "del", "id", "900")), ("5", ("link", "del", "zd5"))])
    times = repair_times(system, itertools.islice(drifts, count))
    print(f"| {count} drifts: time from the deletion to the repair | "
          f"p50 {percentile(times, 0.5):.1f} ms, p99 {percentile(times, 0.99):.1f} ms, max {times[-1]:.1f} ms |",
          flush=True)


def measure_start(system, objects):
    wanted = objects + 1
    everything = system.time_to_in_sync()
    if system.nexthops() != wanted:
        raise SystemExit(f"FAILED: {system.nexthops()} next hops instead of {wanted}")
    memory, writes = system.memory(), system.writes()
    system.kill_server()
    nothing = system.time_to_in_sync()
    if system.writes() != 0:
        raise SystemExit(f"FAILED: {system.writes()} writes of a restart without a change")
    start = time.monotonic()
    system.empty_kernel()
    emptied = time.monotonic()
    system.wait_until(lambda: system.nexthops() == wanted, "the repair")
    repaired = time.monotonic() - emptied
    system.check()
    drifts = repair_times(system, [(id, ("nexthop", "del", "id", id)) for id in ("1000", "1007") * 5])
    system.check()
    print(f"| {objects:,} objects: start to in sync, everything to write ({writes:,} writes) | {everything:.2f} s |\n"
          f"| the same, nothing to write (0 writes) | {nothing:.2f} s |\n"
          f"| the kernel emptied behind the server's back (in {emptied - start:.2f} s): complete again after | "
          f"{repaired:.2f} s |\n"
          f"| one next hop deleted, {len(drifts)} times: time to the repair | {drifts[0]:.1f} to {drifts[-1]:.1f} ms |\n"
          f"| the server's memory with these objects | {memory} MiB |", flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("programs")
    parser.add_argument("--drifts", type=int)
    parser.add_argument("--objects", type=int, action="append")
    options = parser.parse_args()
    skip_without_namespaces()
    every = options.drifts is None and options.objects is None
    programs = os.path.abspath(options.programs)
    sizes = options.objects or ([10_000, 100_000] if every else [])
    for objects in [None] * bool(every or options.drifts) + sizes:
        with contextlib.ExitStack() as stack:
            folder = stack.enter_context(tempfile.TemporaryDirectory())
            namespace = f"zuskux-times-{os.getpid()}"
            run("ip", "netns", "add", namespace)
            stack.callback(run, "ip", "netns", "del", namespace)
            run("ip", "-n", namespace, "link", "set", "lo", "up")
            run("ip", "-n", namespace, "link", "add", "eth1", "type", "veth", "peer", "far1")
            for device in ("eth1", "far1"):
                run("ip", "-n", namespace, "link", "set", device, "up")
            system = System(programs, folder, namespace, objects or VLANS + 3)
            stack.callback(system.stop)
            if objects is None:
                measure_drifts(system, options.drifts or 200)
            else:
                measure_start(system, objects)


if __name__ == "__main__":
    main()
