"""Instructions and allocations of every case of the program count_cases, and of a request."""

import os
import re
import subprocess
import tempfile


class Cost:
    """The cost of one run of a case."""

    def __init__(self, instructions, allocations):
        self.instructions = instructions
        self.allocations = allocations


def count(program):
    """The costs of the cases of `program` by name, minus the overhead of calling a case."""
    with tempfile.TemporaryDirectory() as folder:
        profile = os.path.join(folder, "profile")
        printed = subprocess.run(
            ["valgrind", "--quiet", "--tool=callgrind", "--combine-dumps=yes",
             "--callgrind-out-file=" + profile, program],
            check=True, stdout=subprocess.PIPE, text=True).stdout
        with open(profile, encoding="utf-8") as file:
            totals = dict(re.findall(
                r"^desc: Trigger: Client Request: (\S+)$.*?^totals: (\d+)$", file.read(),
                re.MULTILINE | re.DOTALL))
    allocations = {name: int(number) for name, number in map(str.split, printed.splitlines())}
    runs = allocations.pop("runs")
    if totals.keys() != allocations.keys():
        raise RuntimeError("callgrind's profile has other cases than the program")

    empty = int(totals["empty"])
    return {name: Cost((int(total) - empty) / runs, allocations[name])
            for name, total in totals.items() if name != "empty"}


def count_request(program, side, profile=None, options=()):
    """The cost of a request and its result on a side, "server", "client" or "floor". Keeps
    callgrind's profile if the path of one is given; `options` are for callgrind."""
    with tempfile.TemporaryDirectory() as folder:
        profile = profile or os.path.join(folder, "profile")
        printed = subprocess.run(
            ["valgrind", "--quiet", "--tool=callgrind", "--collect-atstart=no",
             *options, "--callgrind-out-file=" + profile, program, side],
            check=True, stdout=subprocess.PIPE, text=True).stdout
        with open(profile, encoding="utf-8") as file:
            total = int(re.search(r"^totals: (\d+)", file.read(), re.MULTILINE).group(1))
    numbers = {name: int(number) for name, number in map(str.split, printed.splitlines())}
    requests = numbers["requests"]
    return Cost(total / requests, numbers["allocations"] / requests)


def pairs(costs):
    """GROUP/KIND, the library's cost and its floor's, for each case with a floor."""
    for name, floor in costs.items():
        if name.endswith("/floor"):
            case = name[:-len("/floor")]
            yield case, costs[case + "/library"], floor
