#!/usr/bin/env python3
"""Changes the library one place at a time and lets the tests find out: mutation testing.

  mutate.py [--count N] [--seed S] [--all] [--file PART] [--again] [--fresh]
  mutate.py --report [--file PART]
  mutate.py --list [--file PART]

  --count N    how many mutants are chosen (500), from every file in proportion to its size
  --seed S     which ones (1); the same seed chooses the same mutants
  --all        all of them
  --file PART  only those in files whose path contains PART
  --again      tries those again that survived without an explanation
  --fresh      forgets earlier results; without it, what has a result is not tried again
  --report     only prints what the results so far say
  --list       only prints the mutants

Each mutant is built (without optimisation; a warning does not save it) and the test programs that
hold the library are run, the likely killers first, until one fails. A mutant is killed when a test
fails, crashes or takes too long; it survives when all pass. What the compiler rejects is not
counted. All of that happens in a copy of the tree, build/mutation/tree; results are in
build/mutation/results.jsonl. Survivors that no test can tell from the original are explained in
tests/mutation/equivalent.txt.

Exits with 1 when fewer than 95 % were killed or a survivor is not explained.
"""
import argparse
import collections
import hashlib
import json
import os
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import time

from mutations import mutations

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutation"
TREE = WORK / "tree"
BUILD = WORK / "build"
RESULTS = WORK / "results.jsonl"
EXPLAINED = ROOT / "tests" / "mutation" / "equivalent.txt"
SOURCES = ("src", "include/zuskux")
OUTCOMES = ("killed", "survived", "does not compile")
TARGET = 0.95
TIME_LIMIT = 60  # seconds for a program that takes a fraction of one
MEMORY_LIMIT = 4 << 30  # bytes


class Mutant:
    def __init__(self, file, text, mutation):
        self.file, self.text, self.mutation = file, text, mutation
        self.old, self.new = changed_lines(text, mutation)
        self.key = hashlib.sha256(f"{file}\0{mutation.apply(text)}".encode()).hexdigest()[:16]

    def explanation_key(self):
        return self.file, tuple(self.old), tuple(self.new)

    def __str__(self):
        return (f"{self.file}:{self.mutation.line} ({self.mutation.operator})\n"
                + difference(self.old, self.new))


def changed_lines(text, mutation):
    """The lines that a mutation changes, before and after."""
    start = text.rfind("\n", 0, mutation.start) + 1
    end = text.find("\n", mutation.end)
    before = text[start:end]
    after = text[start : mutation.start] + mutation.replacement + text[mutation.end : end]
    return [[line.strip() for line in lines.split("\n")] for lines in (before, after)]


def difference(old, new):
    return "\n".join([f"- {line}" for line in old] + [f"+ {line}" for line in new])


def all_mutants(part):
    files = sorted(path.relative_to(ROOT).as_posix() for source in SOURCES
                   for path in (ROOT / source).rglob("*") if path.suffix in (".h", ".cc"))
    for file in files:
        if part in file:
            text = (ROOT / file).read_text()
            for mutation in mutations(text):
                yield Mutant(file, text, mutation)


def choose(mutants, count, seed):
    """`count` of them, of each file its share, but at least a few."""
    by_file = collections.defaultdict(list)
    for mutant in mutants:
        by_file[mutant.file].append(mutant)
    chosen = []
    for of_file in by_file.values():
        share = max(4, round(count * len(of_file) / len(mutants)))
        of_file.sort(key=lambda mutant: hashlib.sha256(f"{seed}{mutant.key}".encode()).digest())
        chosen += of_file[:share]
    return sorted(chosen, key=lambda mutant: (mutant.file, mutant.mutation.start))


class Results:
    """What became of each mutant, on disk after each."""

    def __init__(self):
        self.of = {}
        if RESULTS.exists():
            for line in RESULTS.read_text().splitlines():
                result = json.loads(line)
                self.of[result["key"]] = result

    def add(self, mutant, outcome, by, seconds):
        result = {"key": mutant.key, "file": mutant.file, "line": mutant.mutation.line,
                  "operator": mutant.mutation.operator, "old": mutant.old, "new": mutant.new,
                  "outcome": outcome, "by": by, "seconds": round(seconds, 2)}
        self.of[mutant.key] = result
        with RESULTS.open("a") as file:
            file.write(json.dumps(result) + "\n")


class Tree:
    """A copy of the sources, built with the tests of the library."""

    def __init__(self):
        self.copy()
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith("CMAKE_")}
        run(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
             "-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_CXX_FLAGS=-w", "-DCMAKE_CXX_FLAGS_DEBUG=-O0",
             "-DCCACHE=OFF", "-DZUSKUX_BUILD_REFERENCE=OFF"], env=environment)
        run(["cmake", "--build", BUILD])
        self.programs = self.holding_the_library()
        self.killers = collections.Counter()
        for program in self.programs:
            if failure := self.test(program):
                sys.exit(f"{program} fails without a mutation: {failure}")

    def copy(self):
        """Brings the copy up to date; what did not change keeps its time."""
        listed = run(["git", "-C", ROOT, "ls-files", "-z"]).split("\0")
        wanted = {file for file in listed if file and (ROOT / file).is_file()}
        for path in TREE.rglob("*"):
            if path.is_file() and path.relative_to(TREE).as_posix() not in wanted:
                path.unlink()
        for file in wanted:
            source, target = ROOT / file, TREE / file
            if not target.exists() or target.read_bytes() != source.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(source, target)
                shutil.copymode(source, target)

    def holding_the_library(self):
        """The test programs that link the library's objects or load the library."""
        targets = run(["ninja", "-C", BUILD, "-t", "targets", "all"])
        programs = re.findall(r"^bin/(\w+_test): CXX_EXECUTABLE", targets, re.MULTILINE)
        return sorted(program for program in programs
                      if "src/CMakeFiles/zuskux_core.dir"
                      in run(["ninja", "-C", BUILD, "-t", "inputs", f"bin/{program}"]))

    def try_mutant(self, mutant):
        """What became of it, and which test that is owed to."""
        target = TREE / mutant.file
        target.write_text(mutant.mutation.apply(mutant.text))
        try:
            for program in self.in_order(mutant.file):
                if errors := self.build(program):
                    if re.search(r"tree/tests/.*static assertion failed", errors):
                        return "killed", f"{program}: static assertion"
                    return "does not compile", ""
                if failure := self.test(program):
                    self.killers[mutant.file, program] += 1
                    return "killed", f"{program}: {failure}"
            return "survived", ""
        finally:
            target.write_text(mutant.text)

    def in_order(self, file):
        """The programs, those that killed mutants of the file, or are named like it, first."""
        words = set(re.findall(r"[a-z]+", file))

        def likelihood(program):
            return self.killers[file, program], len(words & set(program.split("_")))

        return sorted(self.programs, key=likelihood, reverse=True)

    def build(self, program):
        """What was wrong, or nothing."""
        done = subprocess.run(["ninja", "-C", BUILD, f"bin/{program}"], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, errors="replace", check=False)
        return done.stdout if done.returncode != 0 else ""

    def test(self, program):
        """The first failure of a test program, or nothing."""
        try:
            done = subprocess.run(
                [BUILD / "bin" / program, "--gtest_fail_fast", "--gtest_color=no"], cwd=BUILD,
                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=TIME_LIMIT,
                preexec_fn=limit, errors="replace", check=False)
        except subprocess.TimeoutExpired:
            return "takes too long"
        if done.returncode == 0:
            return ""
        failed = re.findall(r"^\[  FAILED  \] ([\w/.]+)", done.stdout, re.MULTILINE)
        running = re.findall(r"^\[ RUN      \] ([\w/.]+)", done.stdout, re.MULTILINE)
        return failed[0] if failed else f"{(running or ['?'])[-1]} ends with {done.returncode}"


def limit():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run(command, **options):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def explanations():
    """The reasons in equivalent.txt, by file, old and new lines. A paragraph is
        FILE
        - OLD LINE ...
        + NEW LINE ...
        REASON
    where the file, once given, also holds for the paragraphs that follow."""
    reasons, file = {}, ""
    for paragraph in re.split(r"\n\n+", EXPLAINED.read_text() if EXPLAINED.exists() else ""):
        old, new, reason = [], [], []
        for line in paragraph.splitlines():
            if line.startswith(("-", "+")):
                (old if line[0] == "-" else new).append(line[2:])
            elif not old and re.fullmatch(r"\S+\.(h|cc)", line):
                file = line
            elif not line.startswith("#"):
                reason.append(line)
        if old:
            reasons[file, tuple(old), tuple(new)] = " ".join(reason)
    return reasons


def report(results):
    """Prints the outcome by file and the survivors; whether the target is reached."""
    reasons = explanations()
    of_file = collections.defaultdict(collections.Counter)
    survivors = []
    for result in results:
        key = result["file"], tuple(result["old"]), tuple(result["new"])
        of_file[result["file"]][result["outcome"]] += 1
        if result["outcome"] == "survived":
            survivors.append((result, reasons.get(key)))
        elif key in reasons and result["outcome"] == "killed":
            print(f"Explained as equivalent, but killed by {result['by']}: {key}")
    total = sum(of_file.values(), collections.Counter())
    compiled = total["killed"] + total["survived"]
    print(f"{'compiled':>9}{'killed':>8}{'survived':>10}{'rejected':>10}  file")
    for file, counts in [*sorted(of_file.items()), ("total", total)]:
        killed, survived, rejected = (counts[outcome] for outcome in OUTCOMES)
        print(f"{killed + survived:9}{killed:8}{survived:10}{rejected:10}  {file}")
    for result, reason in survivors:
        print(f"\n{result['file']}:{result['line']} ({result['operator']})")
        print(difference(result["old"], result["new"]))
        print(f"= {reason}" if reason else "NOT EXPLAINED")
    unexplained = sum(reason is None for _, reason in survivors)
    share = total["killed"] / compiled if compiled else 0
    print(f"\n{compiled} mutants: {total['killed']} killed ({100 * share:.1f} %), "
          f"{total['survived']} survived, {unexplained} of them not explained")
    return share >= TARGET and unexplained == 0


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__, usage=argparse.SUPPRESS,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    hidden = {"help": argparse.SUPPRESS}
    parser.add_argument("--count", type=int, default=500, **hidden)
    parser.add_argument("--seed", default="1", **hidden)
    parser.add_argument("--file", default="", **hidden)
    for name in ("all", "again", "fresh", "report", "list"):
        parser.add_argument(f"--{name}", action="store_true", **hidden)
    return parser.parse_args()


def main():
    options = parse_arguments()
    mutants = list(all_mutants(options.file))
    if options.list:
        print("\n\n".join(map(str, mutants)))
        return 0
    WORK.mkdir(parents=True, exist_ok=True)
    if options.fresh:
        RESULTS.unlink(missing_ok=True)
    results = Results()
    if options.report:
        return not report(results.of[mutant.key] for mutant in mutants if mutant.key in results.of)

    chosen = mutants if options.all else choose(mutants, options.count, options.seed)
    reasons = explanations() if options.again else {}
    waiting = [mutant for mutant in chosen if mutant.key not in results.of
               or options.again and results.of[mutant.key]["outcome"] == "survived"
               and mutant.explanation_key() not in reasons]
    os.nice(19)
    print(f"{len(chosen)} mutants chosen of {len(mutants)}, {len(waiting)} to try", flush=True)
    tree = Tree() if waiting else None
    for number, mutant in enumerate(waiting, 1):
        start = time.monotonic()
        outcome, by = tree.try_mutant(mutant)
        results.add(mutant, outcome, by, time.monotonic() - start)
        print(f"{number}/{len(waiting)} {outcome}: {mutant.file}:{mutant.mutation.line} "
              f"({mutant.mutation.operator}) {by}", flush=True)
    return not report([results.of[mutant.key] for mutant in chosen])


if __name__ == "__main__":
    sys.exit(main())
