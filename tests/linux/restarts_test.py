#!/usr/bin/env python3
"""Sends numbered packets through what zuskux-hal programs, while server and manager are killed, builds
change, the site changes, a link flaps and somebody else deletes objects. No packet may be missing.

    restarts_test.py PROGRAMS [--long]

Works in network namespaces of its own. Exits with 77 if it cannot create them.
"""

import contextlib
import ctypes
import os
import random
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

PROGRAMS = os.path.abspath(sys.argv[1])
LONG = "--long" in sys.argv or "ZUSKUX_LONG_TESTS" in os.environ
KILLS, MANAGER_KILLS, CHANGES, FLAPS, DRIFTS = (100, 20, 500, 200, 50) if LONG else (5, 2, 10, 5, 4)
BUILDS = 10 if LONG else 1
# Packets a second, and at a time: few enough that no queue of the kernel overflows.
RATE = 2000
BURST = 4
PATIENCE = 60
SKIPPED = 77
# Not in Python's socket module.
SO_RCVBUFFORCE = 33

ROUTER_MAC = bytes.fromhex("020000000110")
# One flow goes to a host, the other to a group that has two hosts, one of them three times.
FLOWS = ("203.0.113.1", "203.0.114.1")

INTERFACES = """
interface { name: "eth1" lim_id: 1 type: 1 ifindex: 1 }
interface { name: "eth2" lim_id: 2 type: 1 ifindex: 2 }
interface { name: "eth3" lim_id: 3 type: 1 ifindex: 3 }
"""


def site(version):
    """The odd versions change a member of the group, a host without packets, and a name."""
    odd = version % 2
    return INTERFACES + f"""
vlan {{ id: 10 name: "in" interface: "eth1" source_mac: "02:00:00:00:01:10" capability: "routed" }}
vlan {{ id: 20 name: "out" interface: "eth2" capability: "routed" list_value: "v{odd}" }}
vlan {{ id: 30 name: "idle" interface: "eth3" }}
host {{ id: 100 name: "sender" interface: "eth1" vlan: "in" mac: "02:00:00:00:02:00" ip: "198.51.100.1" }}
host {{ id: 101 name: "a" interface: "eth2" vlan: "out" mac: "02:00:00:00:02:01" ip: "192.0.2.1" }}
host {{ id: 102 name: "b{odd}" interface: "eth2" vlan: "out" mac: "02:00:00:00:02:0{2 + odd}" ip: "192.0.2.2" }}
host {{ id: 103 name: "c" interface: "eth3" vlan: "idle" mac: "02:00:00:00:02:0{4 + odd}" ip: "192.0.2.3" }}
ecmp {{ id: 301 name: "group" member: "a" member: "a" member: "a" member: "b{odd}" }}
"""


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def wait_until(true, what):
    end = time.monotonic() + PATIENCE
    while not true():
        if time.monotonic() > end:
            raise SystemExit(f"FAILED: {what} takes more than {PATIENCE} s")
        time.sleep(0.02)


def enter(namespace):
    with open(f"/run/netns/{namespace}") as file:
        if ctypes.CDLL(None, use_errno=True).setns(file.fileno(), 0) != 0:
            raise OSError(ctypes.get_errno(), "setns")


def frame(number):
    """A numbered UDP packet of one of the flows, as it arrives at eth1."""
    payload = struct.pack("!I", number)
    source, target = (socket.inet_aton(a) for a in ("198.51.100.1", FLOWS[number % len(FLOWS)]))
    udp = struct.pack("!HHHH", 1000 + number % 64, 9, 8 + len(payload), 0) + payload
    header = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0, 64, 17, 0, source, target)
    total = sum(struct.unpack("!10H", header))
    total = (total & 0xFFFF) + (total >> 16)
    header = header[:10] + struct.pack("!H", ~total & 0xFFFF) + header[12:]
    return ROUTER_MAC + bytes.fromhex("020000000200") + b"\x08\x00" + header + udp


class Traffic:
    """Sends into eth1 and receives from eth2, in the outside namespace."""

    def __init__(self, outside):
        self.sent, self.received = 0, set()
        self.listens, self.ended = threading.Event(), threading.Event()
        self.threads = [threading.Thread(target=f, args=(outside,)) for f in (self.send, self.receive)]
        for thread in self.threads:
            thread.start()

    @staticmethod
    def open(outside, device):
        enter(outside)
        packets = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x0800))
        packets.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 64 << 20)
        packets.bind((device, 0x0800))
        packets.settimeout(0.5)
        return packets

    def send(self, outside):
        packets = self.open(outside, "out1")
        self.listens.wait()
        while not self.ended.is_set():
            for _ in range(BURST):
                packets.send(frame(self.sent))
                self.sent += 1
            time.sleep(BURST / RATE)

    def receive(self, outside):
        packets = self.open(outside, "out2")
        self.listens.set()
        while True:
            try:
                data = packets.recv(2048)
            except TimeoutError:
                if self.ended.is_set():
                    return
                continue
            if len(data) >= 46 and data[23] == 17 and data[36:38] == b"\x00\x09":
                self.received.add(struct.unpack("!I", data[42:46])[0])

    def end(self):
        self.ended.set()
        for thread in self.threads:
            thread.join()
        return sorted(set(range(self.sent)) - self.received)


class OlderBuilds:
    """Passes on between the manager and the server, each of which takes the other for an older build,
    with minor version 1 of the protocol."""

    def __init__(self, path, server_path):
        self.server_path, self.connections = server_path, []
        with contextlib.suppress(FileNotFoundError):
            os.unlink(path)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen()
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                client = self.listener.accept()[0]
            except OSError:
                return
            server = socket.socket(socket.AF_UNIX)
            self.connections += [client, server]
            try:
                server.connect(self.server_path)
            except OSError:
                client.close()
                continue
            for ends in ((client, server), (server, client)):
                threading.Thread(target=self.pass_on, args=ends, daemon=True).start()

    @staticmethod
    def pass_on(source, target):
        try:
            header = source.recv(8, socket.MSG_WAITALL)
            size = struct.unpack("!I", header[4:])[0]
            # Of a field that occurs twice, the last one counts.
            hello = source.recv(size, socket.MSG_WAITALL) + b"\x30\x01"
            target.sendall(header[:4] + struct.pack("!I", size + 2) + hello)
            while data := source.recv(65536):
                target.sendall(data)
        except (OSError, struct.error):
            pass
        for end in (source, target):
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)

    def end(self):
        # A thread that waits in accept() does not notice a mere close().
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        for connection in self.connections:
            with contextlib.suppress(OSError):
                connection.shutdown(socket.SHUT_RDWR)


class System:
    """Both programs, in a router's network namespace."""

    def __init__(self, folder, router):
        self.path, self.router, self.version = lambda name: os.path.join(folder, name), router, 0
        self.server = self.manager = None
        self.write_site()
        self.start_server()
        self.start_manager()
        self.settle()

    def write_site(self):
        with open(self.path("site.new"), "w") as file:
            file.write(site(self.version))
        os.rename(self.path("site.new"), self.path("site"))

    def start(self, *arguments):
        with open(self.path("log"), "a") as log:
            return subprocess.Popen(arguments, stdout=log, stderr=log)

    def start_server(self, socket="hal.sock"):
        self.server = self.start(
            f"{PROGRAMS}/zuskux-hal", "--socket", self.path(socket), "--data-plane", "linux",
            "--interfaces", self.path("site"), "--netns", self.router)

    def start_manager(self):
        self.manager = self.start(
            f"{PROGRAMS}/zuskux-manager", "--stay", "--hal", "unix:" + self.path("hal.sock"),
            "--control", self.path("control.sock"), self.path("site"))

    @staticmethod
    def kill(process):
        process.send_signal(signal.SIGKILL)
        process.wait()

    def ask(self, *arguments):
        return subprocess.run(
            [f"{PROGRAMS}/zuskux-manager", *arguments, "--control", self.path("control.sock")],
            capture_output=True, text=True)

    def settle(self):
        wait_until(lambda: self.ask("status").returncode == 0, "settling")

    def writes(self):
        tables = run(f"{PROGRAMS}/zuskux-hal", "tables", "--socket", self.path("hal.sock"))
        return int(tables.split("\n")[0].split(" kernel writes")[0].split()[-1])

    def restart_server(self):
        self.kill(self.server)
        self.start_server()
        self.settle()

    def change_builds(self):
        self.kill(self.server)
        older = OlderBuilds(self.path("hal.sock"), self.path("older.sock"))
        self.start_server("older.sock")
        self.settle()
        self.kill(self.server)
        older.end()
        self.start_server()
        self.settle()

    def restart_manager(self):
        self.kill(self.manager)
        self.start_manager()
        self.settle()

    def change_site(self):
        self.version += 1
        self.write_site()
        reload = self.ask("reload")
        if reload.returncode != 0:
            raise SystemExit(f"FAILED: reload: {reload.stderr}")
        self.settle()

    def flap(self):
        run("ip", "-n", self.router, "link", "set", "eth3", "down")
        run("ip", "-n", self.router, "link", "set", "eth3", "up")

    def drift(self):
        # Nobody else may delete it at the same moment.
        deleted = random.choice((("nexthop", "del", "id", "103"), ("link", "del", "zd30")))
        subprocess.run(["ip", "-n", self.router, *deleted], capture_output=True)
        self.await_idle_host()

    def await_idle_host(self):
        wait_until(lambda: "id 103 " in run("ip", "-n", self.router, "nexthop"), "a repair")


def main():
    # `ip netns add` needs mounts of its own, which a chroot does not have.
    needs = ("unshare", "--net", "--mount", "--propagation", "slave", "true")
    if subprocess.run(needs, capture_output=True).returncode != 0:
        print("skipped: needs permission to create network namespaces and mounts of its own")
        sys.exit(SKIPPED)
    seed = random.randrange(1 << 32)
    random.seed(seed)
    router, outside = (f"zuskux-{name}-{os.getpid()}" for name in ("router", "outside"))
    with contextlib.ExitStack() as stack:
        folder = stack.enter_context(tempfile.TemporaryDirectory())
        for namespace in (router, outside):
            run("ip", "netns", "add", namespace)
            stack.callback(run, "ip", "netns", "del", namespace)
            run("ip", "-n", namespace, "link", "set", "lo", "up")
        for port in "123":
            run("ip", "-n", router, "link", "add", "eth" + port, "type", "veth", "peer", "out" + port,
                "netns", outside)
            run("ip", "-n", router, "link", "set", "eth" + port, "up")
            run("ip", "-n", outside, "link", "set", "out" + port, "up")
        system = System(folder, router)
        stack.callback(lambda: system.kill(system.server))
        stack.callback(lambda: system.kill(system.manager))
        for route in ("198.51.100.0/24 nhid 100", "203.0.113.0/24 nhid 101", "203.0.114.0/24 nhid 301"):
            run("ip", "-n", router, "route", "add", *route.split())

        traffic = Traffic(outside)
        stack.callback(traffic.ended.set)
        events = ([system.restart_server] * KILLS + [system.restart_manager] * MANAGER_KILLS +
                  [system.change_builds] * BUILDS + [system.change_site] * CHANGES +
                  [system.flap] * FLAPS + [system.drift] * DRIFTS)
        random.shuffle(events)
        for event in events:
            event()
            time.sleep(random.uniform(0, 0.05))
        system.await_idle_host()
        system.restart_server()
        writes = system.writes()
        time.sleep(0.2)
        missing = traffic.end()
        print(f"{traffic.sent} packets, {len(missing)} missing; {KILLS} kills of the server, "
              f"{MANAGER_KILLS} of the manager, {BUILDS} changes of builds, {CHANGES} of the site, {FLAPS} flaps, "
              f"{DRIFTS} drifts; {writes} kernel writes of a restart without a change; seed {seed}")
        if missing or writes or not traffic.sent:
            with open(os.path.join(folder, "log")) as log:
                print(log.read()[-4000:])
            sys.exit(f"FAILED: missing {missing[:20]}, {writes} writes, {traffic.sent} sent")


main()
