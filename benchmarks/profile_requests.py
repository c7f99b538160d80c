#!/usr/bin/env python3
"""Prints where the instructions for a request and its result go, by stage, for the HAL server and the
HAL client.

    profile_requests.py COUNT_REQUESTS

COUNT_REQUESTS is the program of that name in build/benchmarks/bin, which ./bench builds. A stage is the
functions that its expression matches, with everything that they call. What no stage has is the rest.
"""

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
        "queue, write": r"SocketHal::Submit\(|::TakeFrames\(|::ConfirmWritten\(|SendAtOnce",
        "split the frames": r"FrameSplitter::(Next|Feed)",
        "find the request, its latencies": r"::TakeAnswered\(",
        "report the result": r"HalReporter::Result\(",
    },
}


class Profile:
    """A profile of callgrind: what each function costs, with what it calls, and the calls."""

    def __init__(self, path):
        self._names = {}
        self._calls = []
        self.total = 0
        caller = callee = None
        of_call = False
        with open(path, encoding="utf-8") as file:
            for line in file:
                if line.startswith("fn="):
                    caller = self._name(line)
                elif line.startswith("cfn="):
                    callee = self._name(line)
                elif line.startswith("calls="):
                    of_call = True
                elif line.startswith("totals: "):
                    self.total = int(line.split()[1])
                elif of_call:
                    self._calls.append((caller, callee, int(line.split()[-1])))
                    of_call = False

    def _name(self, line):
        number, name = re.fullmatch(r"c?fn=\((\d+)\)(?: (.*))?", line.rstrip("\n")).groups()
        return self._names.setdefault(number, name)

    def inclusive(self, expression):
        """The cost of calls of matching functions by others."""
        stage = re.compile(expression)
        return sum(cost for caller, callee, cost in self._calls
                   if stage.search(callee) and not stage.search(caller))


def main():
    for side, stages in STAGES.items():
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "profile")
            cost = costs.count_request(sys.argv[1], side, path)
            profile = Profile(path)
        requests = profile.total / cost.instructions
        print(f"{side}: {cost.instructions:.0f} instructions, {cost.allocations:.2f} allocations")
        rest = profile.total
        for stage, expression in stages.items():
            instructions = profile.inclusive(expression)
            rest -= instructions
            print(f"  {stage:32} {instructions / requests:7.0f}")
        print(f"  {'the rest':32} {rest / requests:7.0f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
