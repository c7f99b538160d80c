#!/usr/bin/env python3
"""Sends numbered packets through what zuskux-hal programs, while server and manager are killed, builds
change, the site changes, a link flaps and somebody else deletes objects. No packet may be missing.

    restarts_test.py PROGRAMS [--few | --long]

The packets go to a host and to a group and, as far as the kernel has VRFs and MPLS, to a host in a VRF and
through a virtual circuit on a tunnel. Works in network namespaces of its own. Exits with 77 if it cannot
create them. If ZUSKUX_SKIP_NOTHING is set, it fails when anything is missing.
"""

import contextlib
import ctypes
import json
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

from commands import SKIP_NOTHING, run, skip_without_namespaces, wait_until

PROGRAMS = os.path.abspath(sys.argv[1])
LONG = "--long" in sys.argv or "ZUSKUX_LONG_TESTS" in os.environ
FEW = "--few" in sys.argv
KILLS, MANAGER_KILLS, BUILDS, CHANGES, FLAPS, DRIFTS = (
    (100, 20, 10, 500, 200, 50) if LONG else (2, 1, 1, 4, 1, 1) if FEW else (5, 2, 1, 10, 5, 4))
# Packets a second, and at a time: few enough that no queue of the kernel overflows.
RATE = 2000
BURST = 4
PATIENCE = 60
# Not in Python's socket module.
SO_RCVBUFFORCE = 33
ETH_P_ALL = 3

INTERFACES = """
interface { name: "eth1" lim_id: 1 type: 1 ifindex: 1 }
interface { name: "eth2" lim_id: 2 type: 1 ifindex: 2 }
interface { name: "eth3" lim_id: 3 type: 1 ifindex: 3 }
"""


class Flow:
    """Packets to a prefix, which a route sends to a destination."""

    def __init__(self, prefix, destination, router_mac="02:00:00:00:01:10", vrf=""):
        self.address, self.router_mac = prefix + ".1", bytes.fromhex(router_mac.replace(":", ""))
        self.route = f"{prefix}.0/24 {vrf} nhid {destination}"


# The version of the site changes these.
def host_mac(version):
    return f"02:00:00:00:02:1{version % 2}"


def members(version):
    return ("aaab", "aaac", "aab", "aaac")[version % 4]


def labels(version):
    """Those of the tunnel and of the circuit."""
    return 100 + version % 3, 500 + version % 2


MEMBER_MACS = {"b": "02:00:00:00:02:02", "c": "02:00:00:00:02:03"}
RED_MAC = "02:00:00:00:02:05"


def site(version, has_vrf, has_mpls):
    odd = version % 2
    text = INTERFACES + f"""
vlan {{ id: 10 name: "in" interface: "eth1" source_mac: "02:00:00:00:01:10" capability: "routed" }}
vlan {{ id: 20 name: "out" interface: "eth2" capability: "routed" list_value: "v{odd}" }}
vlan {{ id: 30 name: "idle" interface: "eth3" }}
host {{ id: 100 name: "sender" interface: "eth1" vlan: "in" mac: "02:00:00:00:02:00" ip: "198.51.100.1" }}
host {{ id: 101 name: "a" interface: "eth2" vlan: "out" mac: "{host_mac(version)}" ip: "192.0.2.1" }}
host {{ id: 102 name: "b" interface: "eth2" vlan: "out" mac: "{MEMBER_MACS['b']}" ip: "192.0.2.2" }}
host {{ id: 104 name: "c" interface: "eth2" vlan: "out" mac: "{MEMBER_MACS['c']}" ip: "192.0.2.4" }}
host {{ id: 103 name: "idle-{odd}" interface: "eth3" vlan: "idle" mac: "02:00:00:00:02:0{6 + odd}" ip: "192.0.2.3" }}
ecmp {{ id: 301 name: "group" {" ".join(f'member: "{name}"' for name in members(version))} }}
"""
    if has_vrf:
        text += f"""
vrf {{ id: 1 name: "red-{odd}" vrf_id: 7 }}
vlan {{ id: 11 name: "red-in" interface: "eth1" vrf: 7 source_mac: "02:00:00:00:01:11" capability: "routed" }}
vlan {{ id: 21 name: "red-out" interface: "eth2" vrf: 7 capability: "routed" }}
host {{ id: 105 name: "red" interface: "eth2" vrf: 7 vlan: "red-out" mac: "{RED_MAC}" ip: "192.0.2.5" }}
"""
    if has_mpls:
        tunnel, circuit = labels(version)
        text += f"""
mpls {{ id: 201 name: "tunnel" interface: "eth2" mac: "{MEMBER_MACS['b']}" vlan: "out" neighbor: "b"
       capability: "push" label: {tunnel} }}
mpls {{ id: 221 name: "circuit" interface: "eth2" mac: "{MEMBER_MACS['b']}" label: {circuit} vc_label: {circuit}
       tunnel: "tunnel" neighbor: "b" capability: "vc-label" }}
"""
    return text


def expected(version, has_vrf, has_mpls):
    """What must arrive with this version: the number of the flow, the receiver's MAC address, and the labels."""
    packets = {(0, host_mac(version), ()), (1, host_mac(version), ()), (1, MEMBER_MACS[members(version)[-1]], ())}
    if has_vrf:
        packets.add((2, RED_MAC, ()))
    if has_mpls:
        packets.add((2 + has_vrf, MEMBER_MACS["b"], labels(version)))
    return packets


def enter(namespace):
    with open(f"/run/netns/{namespace}") as file:
        if ctypes.CDLL(None, use_errno=True).setns(file.fileno(), 0) != 0:
            raise OSError(ctypes.get_errno(), "setns")


def set_sysctls(namespace, **values):
    def write():
        enter(namespace)
        for name, value in values.items():
            with open("/proc/sys/net/ipv4/" + name.replace("__", "/"), "w") as file:
                file.write(str(value))

    thread = threading.Thread(target=write)
    thread.start()
    thread.join()


def frame(number, flow):
    """A numbered UDP packet, as it arrives at eth1."""
    payload = struct.pack("!I", number)
    source, target = (socket.inet_aton(a) for a in ("198.51.100.1", flow.address))
    udp = struct.pack("!HHHH", 1000 + number % 64, 9, 8 + len(payload), 0) + payload
    header = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0, 64, 17, 0, source, target)
    total = sum(struct.unpack("!10H", header))
    total = (total & 0xFFFF) + (total >> 16)
    header = header[:10] + struct.pack("!H", ~total & 0xFFFF) + header[12:]
    return flow.router_mac + bytes.fromhex("020000000200") + b"\x08\x00" + header + udp


def parse(data):
    """The receiver's MAC address, the labels, and the number of a packet of ours; nothing for any other one."""
    kind, start, labels = data[12:14], 14, ()
    while kind == b"\x88\x47" and start + 4 <= len(data):
        entry = struct.unpack_from("!I", data, start)[0]
        labels, start = labels + (entry >> 12,), start + 4
        if entry & 0x100:
            kind = b"\x08\x00"
    ip = data[start:]
    if kind != b"\x08\x00" or len(ip) < 32 or ip[9] != 17 or ip[22:24] != b"\x00\x09":
        return None
    return data[:6].hex(":"), labels, struct.unpack_from("!I", ip, 28)[0]


class Traffic:
    """Sends into eth1 and receives from eth2, in the outside namespace."""

    def __init__(self, outside, flows):
        self.flows, self.sent, self.received = flows, 0, set()
        # The number of the flow, the MAC address and the labels of each packet since the last change.
        self.seen = set()
        self.listens, self.ended = threading.Event(), threading.Event()
        self.threads = [threading.Thread(target=f, args=(outside,)) for f in (self.send, self.receive)]
        for thread in self.threads:
            thread.start()

    @staticmethod
    def open(outside, device):
        enter(outside)
        packets = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
        packets.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 64 << 20)
        packets.bind((device, ETH_P_ALL if device == "out2" else 0))
        packets.settimeout(0.5)
        return packets

    def send(self, outside):
        packets = self.open(outside, "out1")
        self.listens.wait()
        while not self.ended.is_set():
            for _ in range(BURST):
                packets.send(frame(self.sent, self.flows[self.sent % len(self.flows)]))
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
            if packet := parse(data):
                mac, labels, number = packet
                self.received.add(number)
                self.seen.add((number % len(self.flows), mac, labels))

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

    def __init__(self, folder, router, features):
        self.path, self.router, self.version = lambda name: os.path.join(folder, name), router, 0
        self.features, self.server, self.manager, self.traffic = features, None, None, None
        self.write_site()
        self.start_server()
        self.start_manager()
        self.settle()

    def write_site(self):
        with open(self.path("site.new"), "w") as file:
            file.write(site(self.version, *self.features))
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

    def ask(self, request):
        """As the command of that name does, but without starting a program. Nothing if there is no manager."""
        with socket.socket(socket.AF_UNIX) as control:
            try:
                control.connect(self.path("control.sock"))
                control.sendall(json.dumps({"request": request}).encode() + b"\n")
                return json.loads(control.makefile().read())
            except (OSError, ValueError):
                return None

    def settle(self, servers=0):
        """Waits until the manager has settled, with that number of servers since its start at least."""
        def settled():
            answer = self.ask("status")
            return answer and answer["exit_status"] == 0 and answer["status"]["hal"]["restarts"] + 1 >= servers

        wait_until(settled, "settling", PATIENCE)

    def servers(self):
        return self.ask("status")["status"]["hal"]["restarts"] + 1

    def writes(self):
        tables = run(f"{PROGRAMS}/zuskux-hal", "tables", "--socket", self.path("hal.sock"))
        return int(tables.split("\n")[0].split(" kernel writes")[0].split()[-1])

    def restart_server(self):
        servers = self.servers()
        self.kill(self.server)
        self.start_server()
        self.settle(servers + 1)

    def change_builds(self):
        servers = self.servers()
        self.kill(self.server)
        older = OlderBuilds(self.path("hal.sock"), self.path("older.sock"))
        self.start_server("older.sock")
        self.settle(servers + 1)
        self.kill(self.server)
        older.end()
        self.start_server()
        self.settle(servers + 2)

    def restart_manager(self):
        self.kill(self.manager)
        self.start_manager()
        self.settle()

    def change_site(self):
        self.version += 1
        self.write_site()
        reload = self.ask("reload")
        if not reload or reload["exit_status"] != 0:
            raise SystemExit(f"FAILED: reload: {reload}")
        self.traffic.seen = set()
        wait_until(lambda: expected(self.version, *self.features) <= self.traffic.seen,
                   f"the effect of version {self.version} on the packets", PATIENCE)
        self.settle()

    def flap(self):
        subprocess.run(("ip", "-n", self.router, "-batch", "-"), check=True, capture_output=True, text=True,
                       input="link set eth3 down\nlink set eth3 up\n")

    def drift(self):
        # Nobody else may delete it at the same moment.
        deleted = random.choice((("nexthop", "del", "id", "103"), ("link", "del", "zd30")))
        subprocess.run(["ip", "-n", self.router, *deleted], capture_output=True)
        self.await_idle_host()

    def await_idle_host(self):
        wait_until(lambda: "id 103 " in run("ip", "-n", self.router, "nexthop"), "a repair", PATIENCE)


def has(router, *command):
    """Whether the kernel takes the command."""
    return subprocess.run(["ip", "-n", router, *command], capture_output=True).returncode == 0


def main():
    skip_without_namespaces()
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
        set_sysctls(router, fib_multipath_hash_policy=1, conf__all__rp_filter=0, conf__default__rp_filter=0)
        has_vrf = has(router, "link", "add", "probe", "type", "vrf", "table", "4000")
        has_mpls = has(router, "nexthop", "add", "id", "1", "encap", "mpls", "16", "dev", "lo")
        has(router, "link", "del", "probe")
        has(router, "nexthop", "del", "id", "1")
        missing_features = [name for name, there in (("VRFs", has_vrf), ("MPLS", has_mpls)) if not there]
        if SKIP_NOTHING and missing_features:
            sys.exit(f"FAILED: this kernel lacks {missing_features}")
        flows = [Flow("203.0.113", 101), Flow("203.0.114", 301)]
        if has_vrf:
            flows.append(Flow("203.0.116", 105, router_mac="02:00:00:00:01:11", vrf="vrf zv7"))
        if has_mpls:
            flows.append(Flow("203.0.115", 221))
        system = System(folder, router, (has_vrf, has_mpls))
        stack.callback(lambda: system.kill(system.server))
        stack.callback(lambda: system.kill(system.manager))
        for route in ["198.51.100.0/24 nhid 100", *(flow.route for flow in flows)]:
            run("ip", "-n", router, "route", "add", *route.split())

        system.traffic = traffic = Traffic(outside, flows)
        stack.callback(traffic.ended.set)
        start = time.monotonic()
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
        print(f"{traffic.sent} packets in {time.monotonic() - start:.0f} s, {len(missing)} missing; "
              f"{'without ' + ' and '.join(missing_features) + '; ' if missing_features else ''}"
              f"{KILLS} kills of the server, "
              f"{MANAGER_KILLS} of the manager, {BUILDS} changes of builds, {CHANGES} of the site, {FLAPS} flaps, "
              f"{DRIFTS} drifts; {writes} kernel writes of a restart without a change; seed {seed}")
        if missing or writes or not traffic.sent:
            with open(os.path.join(folder, "log")) as log:
                print(log.read()[-4000:])
            sys.exit(f"FAILED: missing {missing[:20]}, {writes} writes, {traffic.sent} sent")


if __name__ == "__main__":
    main()
