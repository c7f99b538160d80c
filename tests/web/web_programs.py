"""What the tests of the programs' HTTP servers share: asking them, and following their events."""

import http.client
import json
import os
import re
import socket
import sys
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "programs"))

from programs import Failure, Program, Programs, wait_until  # noqa: E402,F401

PATIENCE = 60


def check(condition, what):
    if not condition:
        raise Failure(what)


def address_of(program):
    """The host and port at which a started program serves HTTP."""

    def found():
        return re.search(r"http: listening on http://([^:/]+):(\d+)/;", program.error())

    wait_until(found, f"an address in {program.error_path}")
    return found()[1], int(found()[2])


class UnixConnection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost", timeout=PATIENCE)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self.path)


class Api:
    """The answers of a program's HTTP server."""

    def __init__(self, connect):
        self.connect = connect

    @classmethod
    def of(cls, program):
        host, port = address_of(program)
        return cls(lambda: http.client.HTTPConnection(host, port, timeout=PATIENCE))

    def response(self, path, method="GET", headers=None):
        """Status, headers and body."""
        connection = self.connect()
        try:
            connection.request(method, path, headers=headers or {})
            answer = connection.getresponse()
            return answer.status, answer.headers, answer.read().decode()
        finally:
            connection.close()

    def json(self, path, **parameters):
        if parameters:
            path += "?" + urllib.parse.urlencode(parameters)
        status, _, body = self.response(path)
        check(status == 200, f"{path}: {status} {body}")
        return json.loads(body)

    def follow(self, last_event_id=None):
        return Events(self.connect(), last_event_id)


class Events:
    """A client of the events; iterates over pairs of name and JSON."""

    def __init__(self, connection, last_event_id):
        self.connection = connection
        headers = {"Last-Event-ID": last_event_id} if last_event_id else {}
        connection.request("GET", "/api/events", headers=headers)
        self.answer = connection.getresponse()
        check(self.answer.status == 200, f"/api/events: {self.answer.status}")
        self.last_id = None

    def __iter__(self):
        return self

    def __next__(self):
        fields = {}
        while line := self.answer.readline().decode().rstrip("\n"):
            name, _, value = line.partition(": ")
            fields[name] = value
        if not fields:
            raise StopIteration
        if "event" not in fields:
            return next(self)
        self.last_id = fields["id"]
        return fields["event"], json.loads(fields["data"])

    def until(self, condition, what):
        """Reads until an event for which the condition holds. Returns all events read."""
        seen = []
        for name, data in self:
            seen.append((name, data))
            if condition(name, data):
                return seen
        raise Failure(f"the events ended before {what}; seen: {[name for name, _ in seen]}")

    def close(self):
        self.connection.close()
