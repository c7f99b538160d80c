#!/usr/bin/env python3
"""Prints where the instructions for a request and its result go, and the cache misses of data, by
stage, for the HAL server and the HAL client, and for the floor that only stores.

    profile_requests.py COUNT_REQUESTS

COUNT_REQUESTS is the program of that name in build/benchmarks/bin, which ./bench builds. A stage is the
functions that its expression matches, with everything that they call. What no stage has is the rest.
"""

import collections
import os
import re
import sys
import tempfile

import costs

STAGES = {
    "server": {
        "split the frames": r"FrameSplitter::(Next|Feed)",
        "decode": r"RequestDecoder::Decode",
        "check and store": r"HalTables::Apply\(",
        "answer": r"Session::Answer\(",
    },
    "client": {
        "ask for room": r"SocketHal::HasRoom",
        "serialise the message": r"MakeRequest\(",
        "queue, write": r"Client::Submit\(|::TakeFrames\(|::ConfirmWritten\(|SendAtOnce|::WriteQueued\(",
        "split the frames": r"FrameSplitter::(Next|Feed)",
        "find the requests, report": r"Client::DeliverAnswers\(",
    },
    "floor": {
        "decode": r"MessageLite::ParseFromArray",
    },
}

# Sizes, ways and lines of the simulated caches: fixed, so that runs on different machines compare.
CACHES = ["--cache-sim=yes", "--I1=32768,8,64", "--D1=49152,12,64", "--LL=8388608,16,64"]


class Cost:
    """Instructions, and data accesses that miss the first-level and the last-level cache."""

    def __init__(self, counts):
        """`counts` are a profile's numbers by the name of the event."""
        self.instructions = counts["Ir"]
        self.first_level = counts["D1mr"] + counts["D1mw"]
        self.last_level = counts["DLmr"] + counts["DLmw"]

    def __sub__(self, other):
        result = Cost(collections.Counter())
        result.instructions = self.instructions - other.instructions
        result.first_level = self.first_level - other.first_level
        result.last_level = self.last_level - other.last_level
        return result

    def line(self, name, requests):
        return (f"  {name:32} {self.instructions / requests:7.0f} {self.first_level / requests:7.2f}"
                f" {self.last_level / requests:7.2f}")


class Profile:
    """A profile of callgrind: what each function costs, with what it calls, and the calls."""

    def __init__(self, path):
        self._names = {}
        self._calls = []
        self._events = []
        caller = callee = None
        of_call = False
        with open(path, encoding="utf-8") as file:
            for line in file:
                if line.startswith("events: "):
                    self._events = line.split()[1:]
                elif line.startswith("fn="):
                    caller = self._name(line)
                elif line.startswith("cfn="):
                    callee = self._name(line)
                elif line.startswith("calls="):
                    of_call = True
                elif line.startswith("totals: "):
                    self.total = Cost(self._counts(line))
                elif of_call:
                    self._calls.append((caller, callee, self._counts(line)))
                    of_call = False

    def _name(self, line):
        number, name = re.fullmatch(r"c?fn=\((\d+)\)(?: (.*))?", line.rstrip("\n")).groups()
        return self._names.setdefault(number, name)

    def _counts(self, line):
        # After a position; zeros at the end are left out.
        return collections.Counter(dict(zip(self._events, map(int, line.split()[1:]))))

    def inclusive(self, expression):
        """The cost of calls of matching functions by others."""
        stage = re.compile(expression)
        counts = collections.Counter()
        for caller, callee, cost in self._calls:
            if stage.search(callee) and not stage.search(caller):
                counts.update(cost)
        return Cost(counts)


def main():
    for side, stages in STAGES.items():
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "profile")
            cost = costs.count_request(sys.argv[1], side, path, CACHES)
            profile = Profile(path)
        requests = profile.total.instructions / cost.instructions
        print(f"{side}: {cost.allocations:.2f} allocations; instructions, first-level misses, "
              "last-level misses")
        rest = profile.total
        for stage, expression in stages.items():
            of_stage = profile.inclusive(expression)
            rest -= of_stage
            print(of_stage.line(stage, requests))
        if stages:
            print(rest.line("the rest", requests))
        print(profile.total.line("sum", requests))
    return 0


if __name__ == "__main__":
    sys.exit(main())
