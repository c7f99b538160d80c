#!/usr/bin/env python3
"""Writes the seeds of the fuzz targets that take binary input: tests/fuzz/make_seeds.py

Each is a small valid input, or one step away from one. The top of each target's source describes the
format of its input.
"""

import pathlib
import struct

SEEDS = pathlib.Path(__file__).parent / "seeds"


def varint(value):
    out = b""
    while value > 0x7F:
        out += bytes([value & 0x7F | 0x80])
        value >>= 7
    return out + bytes([value])


def field(number, value):
    """A protobuf field: an integer, or bytes."""
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    return varint(number << 3 | 2) + varint(len(value)) + value


def fixed64(number, value):
    return varint(number << 3 | 1) + struct.pack("<Q", value)


LIM_ID = struct.pack("<I", 0x01000005)
MAC = bytes.fromhex("02000000010a")

VLAN = (field(1, LIM_ID) + field(2, MAC) + field(3, 12) + field(4, 7) + field(5, 1500) +
        field(6, 1) + field(7, b"ge-0/0/1"))
HOST = field(1, 20) + field(2, 12) + field(3, LIM_ID) + field(4, 2) + field(5, MAC)
MPLS = (field(1, 41) + field(2, 12) + field(3, LIM_ID) + field(4, MAC) + field(5, 1000) +
        field(6, 4) + field(7, 1) + field(8, 9))
ECMP = field(1, 30) + field(2, 20) + field(2, 41)
VRF = field(1, 7)
MESSAGES = {"vlan": VLAN, "host": HOST, "mpls": MPLS, "ecmp": ECMP, "vrf": VRF}


def frame(kind, payload=b"", sequence=1, length=None):
    size = len(payload) if length is None else length
    return struct.pack(">II", kind << 24 | sequence, size) + payload


HELLO = frame(1, field(1, 1) + field(2, b"seed") + fixed64(3, 5) + field(4, 64) + field(5, 65536))
REQUESTS = (frame(3, VRF, 1) + frame(5, VLAN, 2) + frame(8, HOST, 3) + frame(13, MPLS, 4) +
            frame(11, ECMP, 5))


def result(sequence, code, number, secondary=0):
    return frame(16, struct.pack(">IIII", code, number, secondary, 1000), sequence)


def seeds():
    for index, (name, message) in enumerate(MESSAGES.items()):
        kind = bytes([index])
        yield "unserialize", name, kind + frame(0, message)
        yield "unserialize", name + "_cut", kind + frame(0, message[:-1])
        yield "rendering", name, kind + LIM_ID + b"\x05" + struct.pack("<I", 9) + b"\x04ge-1" + message
    yield "unserialize", "length_of_32_bits", b"\x00" + frame(0, VLAN, length=0xFFFFFFFF)
    yield "unserialize", "empty", b"\x00" + frame(0)
    yield "rendering", "nothing", bytes(11)
    yield "rendering", "unknown_values", b"\x02" + bytes(10) + field(6, 77) + field(7, 9)

    stream = HELLO + REQUESTS + result(5, 0, 30)
    yield "frame_splitter", "conversation", b"\xff\x00" + stream
    yield "frame_splitter", "large_reads", b"\xff\xff" + stream
    yield "frame_splitter", "too_long", b"\x01\x03" + stream
    yield "frame_splitter", "unknown_type", b"\xff\xff" + HELLO + frame(24)
    yield "frame_splitter", "cut", b"\xff\x07" + stream[:-1]

    request = field(1, 1) + field(2, 5) + field(3, 12) + field(5, VLAN) + fixed64(7, 0x1000)
    answer = field(1, 1) + field(2, 5) + field(3, 12)
    interface = field(1, 5) + field(2, b"ge-1") + field(3, 6) + field(4, 9)
    entries = b"".join(
        varint(len(entry)) + entry for entry in [
            field(1, 10) + field(6, b""),
            field(1, 20) + field(4, b""),
            field(1, 30) + field(8, interface),
            field(1, 40) + field(2, request),
            field(1, 50) + field(3, answer),
            field(1, 60) + field(5, b""),
            field(1, 70) + field(7, b"in sync"),
        ])
    for what, name in enumerate(["show", "steps", "read"]):
        yield "recording", name, bytes([what << 1 | 1]) + entries
    yield "recording", "cut", b"\x05" + entries[:-3]
    yield "recording", "no_schema", b"\x04" + (
        lambda header: varint(len(header)) + header)(field(1, b"zuskux recording") + field(2, 1))
    yield "recording", "other_version", b"\x04" + (
        lambda header: varint(len(header)) + header)(field(1, b"zuskux recording") + field(2, 2))

    present = b"\xff"
    text = lambda value: bytes([len(value)]) + value
    number = lambda value: struct.pack("<I", value)
    integer = lambda value, form=4: bytes([form]) + number(value)
    for trace, suffix in ((0, ""), (0x80, "_traced")):
        yield "translation", "vlan" + suffix, (
            bytes([trace]) + text(b"lims") + present + text(LIM_ID) + text(MAC) + number(12) +
            number(7) + number(1500) + b"\x02" + number(1) + number(9) + b"\x01\x02" +
            b"\x05" + text(b"ge-1") + b"\x01" + text(b"absent"))
        yield "translation", "host" + suffix, (
            bytes([trace + 1]) + present + number(20) + text(LIM_ID) + text(MAC) +
            text(b"\xc0\x00\x02\x01") + b"\x01" + number(2) + b"\x01" + integer(12))
        yield "translation", "tunnel" + suffix, (
            bytes([trace + 2]) + b"\x3d" + number(40) + text(LIM_ID) + text(MAC) + number(1000) +
            number(3) + b"\x02" + number(3) + number(4) + b"\x01" + integer(12) + b"\x01" + integer(20))
        yield "translation", "circuit" + suffix, (
            bytes([trace + 2]) + b"\x43" + number(41) + number(40) + number(16) + b"\x00\x00\x00")
        yield "translation", "ecmp" + suffix, bytes([trace + 3]) + number(30) + number(20) + number(41)
        yield "translation", "vrf" + suffix, bytes([trace + 4]) + number(7) + number(1)
    yield "translation", "vlan_of_another_type", b"\x00\x00\x00\x00\x01\x01" + integer(5)
    yield "translation", "host_of_another_type", b"\x01\x00\x00\x01\x05" + text(b"12")
    yield "translation", "host_of_an_absent_type", b"\x01\x00\x00\x01\x01" + text(b"12")
    yield "translation", "tunnel_of_another_type", b"\x02\x00\x00\x00\x01\x07" + text(b"12")

    marks = frame(17) + REQUESTS + frame(18, sequence=6) + frame(20, sequence=7) + frame(21, sequence=8)
    yield "server_session", "conversation", b"\x01" + marks
    yield "server_session", "small_writes", b"\x0f" + marks
    yield "server_session", "own_hello", b"\x00" + HELLO + REQUESTS
    yield "server_session", "no_hello", b"\x00" + REQUESTS
    yield "server_session", "other_version", b"\x00" + frame(1, field(1, 2))
    yield "server_session", "second_hello", b"\x01" + HELLO
    yield "server_session", "undecodable", b"\x01" + frame(5, VLAN[:-1]) + frame(20)
    yield "server_session", "too_long", b"\x01" + frame(5, length=1025)
    yield "server_session", "cut", b"\x01" + REQUESTS[:-1]

    two = b"\x05"
    in_sync = frame(19, field(1, field(1, b"ecmp") + field(2, 2)), 2)
    yield "socket_client", "answers", two + result(0, 0, 1) + result(1, 3, 2) + in_sync
    yield "socket_client", "out_of_order", two + result(1, 0, 2) + result(0, 0, 1)
    yield "socket_client", "twice", two + result(0, 0, 1) + result(0, 0, 1)
    yield "socket_client", "another_id", two + result(0, 0, 2)
    yield "socket_client", "goodbye", two + frame(2, b"\x1b[2Jbye")
    yield "socket_client", "no_hello", b"\x04" + result(0, 0, 1)
    yield "socket_client", "heartbeat", two + frame(20)
    yield "socket_client", "silent", two
    yield "socket_client", "not_the_servers", two + frame(17)
    early = b"\xf5"
    yield "socket_client", "early", early + result(0, 0, 1) + result(1, 3, 2) + in_sync
    yield "socket_client", "early_for_no_server", b"\xf4"
    yield "socket_client", "early_too_large", b"\xf4" + frame(1, field(1, 1) + field(5, 1))

    # The kinds of eight ids after the numbers of three VRFs, then the objects' own bytes.
    site = lambda kinds, *rest: b"\x00\x01\x02\x00" + bytes(kinds) + bytes(rest)
    def with_tunnel_label(label):
        return site([1, 1, 2, 2, 3, 3, 4, 0],
                    1, 5, 1, 6,                              # VLANs 1 and 2
                    1, 0, 1, 1,                              # hosts 3 and 4
                    1, 0, label, 0, 0, 1, 1, 2, 1, 0,        # tunnel 5, circuit 6
                    3, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 2)   # ECMP group 7

    all_kinds = with_tunnel_label(1)
    other = site([2, 1, 1, 3, 0, 4, 4, 1],
                 1, 9, 1, 9, 1, 9,        # VLANs 2, 3 and 8
                 2, 0,                    # host 1
                 1, 0, 1, 0, 0,           # tunnel 4
                 1, 0, 0, 0, 1, 0)        # ECMP groups 6 and 7
    find, forget, lose, work, some, many = b"\x04", b"\x02", b"\x03", b"\x0c", b"\x1a", b"\xfa"
    yield "manager", "start", b"\x01" + all_kinds + find + work + many + work
    yield "manager", "restarts", (b"\x01" + all_kinds + find + work + some + forget + find + work +
                                  some + work + forget + find + many)
    yield "manager", "disconnects", (b"\x00" + all_kinds + find + work + many + work + other + work +
                                     some + lose + work + find + work + many)
    yield "manager", "stale_tables", b"\x00" + all_kinds + find + work + many + work + other
    yield "manager", "refused_in_a_reinstall", (b"\x00" + all_kinds + find + work + (many + work) * 3 +
                                                with_tunnel_label(3))
    yield "manager", "refusals", (b"\x00" + all_kinds + find + work +
                                  b"".join(b"\x08" + bytes([code]) + work for code in range(9)))
    yield "manager", "late_answers", b"\x00" + all_kinds + find + work + (b"\x09" + work) * 8 + other
    yield "manager", "little_room", b"\x00\x07" + all_kinds + find + (work + some) * 4 + other + work
    yield "manager", "nothing", b""


for target, name, content in seeds():
    (SEEDS / target).mkdir(parents=True, exist_ok=True)
    (SEEDS / target / name).write_bytes(content)
