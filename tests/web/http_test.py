#!/usr/bin/env python3
"""The programs as HTTP servers: what the manager tells while its HAL comes and goes, and what both
refuse.

    http_test.py FOLDER-OF-THE-PROGRAMS
"""

import os
import re
import signal
import stat
import subprocess
import sys

from web_programs import Api, Failure, Programs, UnixConnection, check, wait_until

OBJECTS = 200


def await_status(api, condition, what):
    wait_until(lambda: condition(api.json("/api/status")), what)
    return api.json("/api/status")


def lines_of(events):
    return [data["text"] for name, data in events if name == "log"]


def manager_events(programs, site):
    """The HAL goes and comes back; a client that follows sees all of it."""
    hal_path = programs.path("hal.sock")
    hal = programs.start("hal-1", "zuskux-hal", "--socket", hal_path)
    hal.await_lines("listening", 1)
    manager = programs.start(
        "manager", "zuskux-manager", site, "--stay", "--hal", f"unix:{hal_path}",
        "--control", programs.path("control"), "--http", "127.0.0.1:0")
    api = Api.of(manager)
    status = await_status(api, lambda s: s["settled"], "settled")
    check(status["summary"]["objects"] == OBJECTS, status["summary"])
    check(status["reinstall"]["last"]["objects"] == OBJECTS, status["reinstall"])
    check(status["reinstall"]["running"] is False, status["reinstall"])
    check(status["connection"]["server"].startswith("zuskux-hal "), status["connection"])
    first_generation = status["connection"]["generation"]

    events = api.follow()
    name, hello = next(events)
    check(name == "hello" and hello["instance"] == status["instance"], hello)
    before = hello["seq"]
    check(before >= OBJECTS, hello)
    name, data = next(events)
    check(name == "status" and data["settled"], (name, data))

    hal.end(signal.SIGKILL)
    seen = events.until(lambda n, d: n == "status" and not d["connected"], "the loss of the HAL")
    check("HAL server lost" in lines_of(seen), lines_of(seen))

    hal = programs.start("hal-2", "zuskux-hal", "--socket", hal_path)
    seen = events.until(lambda n, d: n == "status" and d["settled"], "the end of the reinstall")
    lines = lines_of(seen)
    texts = ["connected to HAL server", "reinstall started", "reinstall finished: 200 objects in",
             "in sync"]
    found = [next((i for i, line in enumerate(lines) if line.startswith(text)), -1)
             for text in texts]
    check(-1 not in found and found.index(min(found)) <= 1, lines)
    settled = seen[-1][1]

    # Changes go out in batches, which may come after the status.
    def all_told():
        missed = sum(data["count"] for name, data in seen if name == "missed")
        told = {row["key"] for name, data in seen if name == "objects" for row in data
                if row["state"] in ("installed", "inactive", "sent")}
        return missed > 0 or len(told) == OBJECTS

    while not all_told():
        seen.append(next(events))
    objects = [row for name, data in seen if name == "objects" for row in data]
    check([row["seq"] for row in objects] == sorted(row["seq"] for row in objects), "order")
    check(settled["connection"]["generation"] != first_generation, "the generation")
    check(settled["hal"]["restarts"] == 1, settled["hal"])
    events.close()

    # A client that comes back learns how much happened meanwhile; one of another run does not.
    again = api.follow(f"{hello['instance']}-{before}")
    name, back = next(again)
    name, data = next(again)
    check((name, data) == ("missed", {"count": back["seq"] - before}), (name, data))
    again.close()
    for last in (f"{hello['instance']}-{back['seq']}", "0000000000000000-1", "x", "-"):
        other = api.follow(last)
        names = [next(other)[0], next(other)[0]]
        check(names == ["hello", "status"], (last, names))
        other.close()

    samples = api.json("/api/rates")["samples"]
    check(len(samples) >= 1, samples)
    check(all(a["requests"] <= b["requests"] for a, b in zip(samples, samples[1:])), samples)
    check(manager.end(signal.SIGTERM) == 0, "the manager's end")
    hal.end(signal.SIGTERM)


def manager_history(programs, site):
    """What was refused can be looked up later."""
    manager = programs.start(
        "small", "zuskux-manager", site, "--stay", "--table-size", "10", "--control",
        programs.path("small-control"), "--http", "127.0.0.1:0")
    api = Api.of(manager)
    status = await_status(api, lambda s: s["finished"], "finished")
    failed = status["summary"]["failed"]
    check(failed > 0, status["summary"])
    listed = api.json("/api/objects", state="failed", limit=1000)["objects"]
    check(len(listed) == failed, (len(listed), failed))
    wait_until(lambda: {c["key"] for c in api.json("/api/changes", state="failed", limit=1000)["changes"]}
               == {row["key"] for row in listed}, "the refusals in the history")
    refused = api.json("/api/changes", state="failed", limit=1000)["changes"]
    check([c["seq"] for c in refused] == sorted((c["seq"] for c in refused), reverse=True), "order")
    key = listed[0]["key"]
    path = "/api/objects/" + key.replace(":", "/")
    # The end of the reinstall tries it once more; changes go out in batches.
    wait_until(lambda: api.json(path)["history"][0]["state"] == "failed", "the last refusal")
    history = api.json(path)["history"]
    check(history[0]["reason"], history)
    check(api.json("/api/changes", key=key)["changes"][0]["seq"] == history[0]["seq"], key)

    pages, before = [], None
    while True:
        page = api.json("/api/changes", limit=7, **({"before": before} if before else {}))
        pages += page["changes"]
        before = page["next"]
        if before is None:
            break
    numbers = [change["seq"] for change in pages]
    check(numbers == list(range(len(numbers), 0, -1)), numbers)
    # Some objects have failed.
    check(manager.end(signal.SIGTERM) == 3, "the manager's end")


def unix_socket(programs, site):
    path = programs.path("http.sock")
    manager = programs.start(
        "unix", "zuskux-manager", site, "--stay", "--control", programs.path("unix-control"),
        "--http", f"unix:{path}")
    manager.await_lines(f"http: listening on unix:{path}; only this user can read", 1)
    check(stat.S_IMODE(os.stat(path).st_mode) == 0o600, oct(os.stat(path).st_mode))
    await_status(Api(lambda: UnixConnection(path)), lambda s: s["settled"], "settled")
    check(manager.end(signal.SIGTERM) == 0, "the manager's end")
    check(not os.path.exists(path), "the socket is left behind")


def hal_tables(programs, site):
    path = programs.path("served.sock")
    hal = programs.start("served", "zuskux-hal", "--socket", path, "--http", "127.0.0.1:0")
    api = Api.of(hal)
    check(api.json("/") == {"paths": ["/metrics", "/api/status", "/api/tables"]}, "the paths")
    empty = api.json("/api/status")
    check(empty["writer"] is False and empty["kernel_writes"] is None, empty)
    programs.run("zuskux-manager", site, "--hal", f"unix:{path}")
    status = api.json("/api/status")
    check(status["generation"] in hal.lines("listening")[0][1], status)
    counts = {kind: table["count"] for kind, table in status["tables"].items()}
    check(sum(counts.values()) == OBJECTS, counts)
    check(status["requests"] >= OBJECTS, status)

    for kind in [None, *counts]:
        wanted = {"kind": kind} if kind else {}
        entries, after = [], None
        while True:
            page = api.json("/api/tables", limit=9, **wanted, **({"after": after} if after else {}))
            entries += page["entries"]
            after = page["next"]
            if after is None:
                break
        keys = [(entry["kind"], entry["id"]) for entry in entries]
        check(len(keys) == len(set(keys)) == (counts[kind] if kind else OBJECTS), (kind, len(keys)))
        check(all(entry["fields"] for entry in entries), kind)
    for bad in ("kind=x", "limit=0", "after=x", "after=9.1", "after=1", "after=1.x", "x=1"):
        check(api.response(f"/api/tables?{bad}")[0] == 400, bad)
    check(api.response("/api/tables/vlan")[0] == 404, "a path below")

    text = api.response("/metrics")[2]
    for line in (rf'zuskux_hal_entries{{kind="vlan"}} {counts["vlan"]}',
                 rf'zuskux_hal_requests_total {status["requests"]}',
                 r'zuskux_hal_manager_connected 0',
                 rf'zuskux_hal_results_total{{code="0",meaning="success"}} {OBJECTS}'):
        check(re.search(rf"^{re.escape(line)}$", text, re.MULTILINE), line)
    check(hal.end(signal.SIGTERM) == 0, "the HAL's end")


def refusals(programs, site):
    """Wrong addresses are refused before anything is sent to a HAL."""
    hal = programs.start("occupant", "zuskux-hal", "--socket", programs.path("o.sock"),
                         "--http", "127.0.0.1:0")
    port = Api.of(hal).connect().port
    stay = ("zuskux-manager", site, "--stay", "--control", programs.path("r"))
    serve = ("zuskux-hal", "--socket", programs.path("r.sock"))
    for status, text, words in (
            (2, "--http needs --stay", ("zuskux-manager", site, "--http", "127.0.0.1:0")),
            (2, "add --http-allow-remote", (*stay, "--http", "0.0.0.0:0")),
            (2, "is no address", (*stay, "--http", "8080")),
            (2, "--http-allow-remote needs --http", (*stay, "--http-allow-remote")),
            (1, "choose another address or port", (*stay, "--http", f"127.0.0.1:{port}")),
            (2, "add --http-allow-remote", (*serve, "--http", "[::]:0")),
            (2, "--http-allow-remote needs --http", (*serve, "--http-allow-remote")),
            (2, "cannot be combined with tables", ("zuskux-hal", "tables", "--http", "x")),
            (1, "choose another address or port", (*serve, "--http", f"127.0.0.1:{port}"))):
        ended = subprocess.run(programs.command(*words), capture_output=True, text=True, timeout=60)
        check(ended.returncode == status and text in ended.stderr,
              f"{words}: {ended.returncode} {ended.stderr}")
        check(ended.stderr.count("\n") == 1, ended.stderr)

    remote = programs.start("remote", *serve, "--http", "0.0.0.0:0", "--http-allow-remote")
    wait_until(lambda: "WARNING" in remote.error(), "a warning")
    check("; everyone who reaches this address, without a password or encryption, can read"
          in remote.error(), remote.error())
    remote.end(signal.SIGTERM)
    hal.end(signal.SIGTERM)


def main():
    with Programs(sys.argv[1]) as programs:
        site = programs.site(OBJECTS)
        for test in (manager_events, manager_history, unix_socket, hal_tables, refusals):
            try:
                test(programs, site)
            except Failure as failure:
                sys.exit(f"{test.__name__}: {failure}")
            print(f"{test.__name__}: passed")


main()
