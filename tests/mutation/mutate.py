#!/usr/bin/env python3
"""Mutation testing: changes one place of the sources at a time and checks that a test fails.

  mutate.py [--of SUBJECT] [--count N] [--seed S] [--all] [--file PART] [--again] [--fresh]
            [--jobs N] [--minutes N] [--seconds N] [--programs N]
  mutate.py [--of SUBJECT] --report [--file PART]
  mutate.py [--of SUBJECT] --list [--file PART]

  --of SUBJECT   library (default) or reference: the HAL, its server and client, the wire and the
                 manager's engine
  --count N      number of mutants to choose, from each file in proportion to its size (default: 500
                 for the library, 760 for the reference system)
  --seed S       seed of the choice (default: 1)
  --all          chooses all mutants
  --file PART    limits the choice to files whose path contains PART
  --again        retries the mutants that survived without an explanation
  --fresh        discards earlier results; by default, a mutant with a result is not retried
  --jobs N       number of mutants tried in parallel, each in its own tree (default: one per
                 processor)
  --minutes N    starts no mutant after N minutes; the next run continues
  --seconds N    skips test programs that take longer than N seconds, so more mutants survive;
                 --again without it then retries those with every program
  --programs N   runs only the N likeliest test programs of each file, with the same effect
  --report       prints a report of the results so far, and tries nothing
  --list         prints the mutants, and tries nothing

Up to 50 mutants of a source are compiled together: each function holds its mutated bodies, and an
environment variable chooses one when a test program runs. Mutants of headers, and those outside
functions or in constexpr ones, are compiled one by one. A mutant is built with warnings allowed and
with the assertions of the standard library, everything else as for development. It runs with new
and freed memory overwritten, so that a use of either shows.

For each mutant, the test programs that contain the file run until one fails, the most likely first.
Of each program, the tests that killed mutants of the file before run first. A mutant is killed if a
test fails or crashes twice, or times out, and survives if all tests pass. Mutants that do not
compile do not count. A test program that fails when no mutant is chosen is skipped, and the run
fails.

Everything happens in copies of the tree below build/mutation/SUBJECT; results.jsonl there holds the
results. You can interrupt a run at any time: the next one continues. tests/mutation/equivalent.txt
explains the survivors that no test can distinguish from the original.

Exit status: 0 enough mutants were killed (95 % of the library, 90 % of the reference system) and
every survivor is explained, 1 otherwise, 2 some of the chosen mutants were not tried.
"""
import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from dataclasses import dataclass

import combined
from mutations import OPERATORS, mutations

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXPLAINED = ROOT / "tests" / "mutation" / "equivalent.txt"
OUTCOMES = ("killed", "survived", "does not compile")
MEMORY_LIMIT = 4 << 30  # bytes
FILE_LIMIT = 1 << 30  # bytes
TOGETHER = 50  # the maximum number of mutants in one build
INCOMPLETE = 2
TIMEOUT = "takes too long"
# Last on the command line, so that they replace those of the build.
MUTANT_FLAGS = "-w -O0 -g0 -D_GLIBCXX_ASSERTIONS"
# glibc overwrites new and freed memory, also the small pieces that it would otherwise keep aside.
MEMORY = {"GLIBC_TUNABLES": "glibc.malloc.perturb=165:glibc.malloc.tcache_count=0"}
LAUNCHER = f"""#!/bin/sh
# Runs the compiler on what the variable names, a mutant, or on an original through the cache, if
# there is one.
case "$*" in *"${{MUTATED:-none}}"*) exec "$@" {MUTANT_FLAGS} ;; esac
if command -v ccache >/dev/null; then exec ccache "$@"; fi
exec "$@"
"""


@dataclass(frozen=True)
class Subject:
    """What to mutate: folders and files, the operators that are meaningless there, and the required
    score."""

    name: str
    sources: tuple
    left_out: frozenset
    options: tuple
    count: int
    target: float

    @property
    def work(self):
        return ROOT / "build" / "mutation" / self.name

    @property
    def results(self):
        return self.work / "results.jsonl"


SUBJECTS = {
    subject.name: subject
    for subject in (
        Subject("library", ("src", "include/zuskux"), frozenset(),
                ("-DZUSKUX_BUILD_REFERENCE=OFF",), 500, 0.95),
        # Spelling the texts for operators differently, reordering members, or an operation that
        # could be static, is not a mistake here.
        Subject("reference",
                ("reference/hal", "reference/server", "reference/socket_client", "reference/wire",
                 "reference/manager/engine"),
                frozenset(("text", "layout", "static", "setter")), (), 760, 0.90),
    )
}


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


def files_of(subject):
    for source in map(ROOT.joinpath, subject.sources):
        for path in [source] if source.is_file() else source.rglob("*"):
            if path.suffix in (".h", ".cc"):
                yield path.relative_to(ROOT).as_posix()


def all_mutants(subject, part):
    for file in sorted(files_of(subject)):
        if part in file:
            text = (ROOT / file).read_text()
            for mutation in mutations(text, [name for name in OPERATORS
                                             if name not in subject.left_out]):
                yield Mutant(file, text, mutation)


def choose(mutants, count, seed):
    """`count` of them, a share from each file, but at least a few."""
    by_file = collections.defaultdict(list)
    for mutant in mutants:
        by_file[mutant.file].append(mutant)
    chosen = []
    for of_file in by_file.values():
        share = max(4, round(count * len(of_file) / len(mutants)))
        of_file.sort(key=lambda mutant: hashlib.sha256(f"{seed}{mutant.key}".encode()).digest())
        chosen += of_file[:share]
    return sorted(chosen, key=lambda mutant: (mutant.file, mutant.mutation.start))


def grouped(mutants):
    """Lists of mutants to compile together, then those to compile one by one."""
    together, alone = collections.defaultdict(list), []
    for mutant in mutants:
        combinable = mutant.file.endswith(".cc") and combined.Combinable(mutant.text)
        if combinable and combinable.body_of(mutant.mutation):
            together[mutant.file].append(mutant)
        else:
            alone.append([mutant])
    return [of_file[first : first + TOGETHER] for of_file in together.values()
            for first in range(0, len(of_file), TOGETHER)] + alone


class Results:
    """The outcome of each mutant, written to disk immediately. Used by all workers."""

    def __init__(self, path):
        self.path = path
        self.of = {}
        self.lock = threading.Lock()
        if path.exists():
            for line in path.read_text().splitlines():
                try:
                    result = json.loads(line)
                except json.JSONDecodeError:
                    continue  # a line cut off when a run was interrupted
                self.of[result["key"]] = result

    def killers(self):
        """For each file and program, the tests that have killed mutants, and how many of them."""
        killers = collections.defaultdict(collections.Counter)
        for result in self.of.values():
            if result["outcome"] == "killed":
                program, _, test = result["by"].partition(": ")
                killers[result["file"], program][test.split()[0]] += 1
        return killers

    def add(self, mutant, outcome, by, seconds):
        result = {"key": mutant.key, "file": mutant.file, "line": mutant.mutation.line,
                  "operator": mutant.mutation.operator, "old": mutant.old, "new": mutant.new,
                  "outcome": outcome, "by": by, "seconds": round(seconds, 2)}
        with self.lock:
            self.of[mutant.key] = result
            with self.path.open("a") as file:
                file.write(json.dumps(result) + "\n")


class Tree:
    """A copy of the sources in which the test programs are built on demand. Used by one worker."""

    def __init__(self, subject, number, killers, options):
        self.subject = subject
        self.longest = options.seconds  # slower test programs are skipped
        self.programs = options.programs  # the maximum number of test programs per mutant
        self.folder = subject.work / str(number)
        self.tree = self.folder / "tree"
        # Where a developer's build is, relative to the sources, so that both share a cache.
        self.build_folder = self.tree / "build" / "mutants"
        self.killers = killers
        self.chosen = 0  # which mutant of several that were compiled together runs, or none
        self.checked = set()  # the programs that pass when no mutant is chosen
        self.seconds = {}  # the run time of each program that was built
        self.tests = {}  # the run time of each of its tests
        self.failing = {}  # the programs that fail without a mutation, and how
        self.copy()
        self.configure()
        self.programs_of = self.find_programs()

    def copy(self):
        """Brings the copy up to date; unchanged files keep their timestamps."""
        listed = run(["git", "-C", ROOT, "ls-files", "-z"]).split("\0")
        wanted = {file for file in listed if file and (ROOT / file).is_file()}
        for path in self.sources():
            if path.relative_to(self.tree).as_posix() not in wanted:
                path.unlink()
        for file in wanted:
            source, target = ROOT / file, self.tree / file
            if not target.exists() or target.read_bytes() != source.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(source, target)
                shutil.copymode(source, target)

    def sources(self):
        """The files of the copy."""
        return [path for path in self.tree.rglob("*")
                if path.is_file() and self.build_folder not in path.parents]

    def configure(self):
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith("CMAKE_")}
        # The standard library comes first, because an object with assertions also defines parts of
        # it, and a program must not link that object for those.
        flags = "-lstdc++" + (" -fuse-ld=lld" if shutil.which("ld.lld") else "")
        linker = [f"-DCMAKE_{kind}_LINKER_FLAGS={flags}" for kind in ("EXE", "SHARED")]
        launcher = self.folder / "launcher"
        launcher.write_text(LAUNCHER)
        launcher.chmod(0o755)
        run(["cmake", "--preset", "development", "-S", self.tree, "-B", self.build_folder,
             "-DZUSKUX_GROUP_SOURCES=OFF", f"-DCMAKE_C_COMPILER_LAUNCHER={launcher}",
             f"-DCMAKE_CXX_COMPILER_LAUNCHER={launcher}", *linker, *self.subject.options],
            cwd=self.tree, env=environment)

    def find_programs(self):
        """For each file, the test programs that contain it or start one that does."""
        users = collections.defaultdict(set)
        for path in self.sources():
            if path.suffix in (".h", ".cc"):
                for name in re.findall(r'^#include ["<](.+)[">]', path.read_text(), re.MULTILINE):
                    for folder in ("", "include/", "src/"):
                        users[folder + name].add(path.relative_to(self.tree).as_posix())
        targets = run(["ninja", "-C", self.build_folder, "-t", "targets", "all"])
        programs_of = collections.defaultdict(set)
        for program in re.findall(r"^bin/(\w+_test): CXX_EXECUTABLE", targets, re.MULTILINE):
            inputs = run(["ninja", "-C", self.build_folder, "-t", "inputs", f"bin/{program}"])
            for file in inputs.splitlines():
                if file.startswith(f"{self.tree}/"):
                    programs_of[file[len(f"{self.tree}/") :]].add(program)
        for file in files_of(self.subject):
            including = [file]
            for one in including:
                including += [user for user in sorted(users[one]) if user not in including]
                programs_of[file] = programs_of[file] | programs_of.get(one, set())
            if not programs_of[file]:
                sys.exit(f"no test program contains {file}")
        return programs_of

    def try_group(self, group):
        """Yields mutants of a file with their outcomes, each with the test that decided it."""
        target = self.tree / group[0].file
        try:
            yield from self.try_together(group) if len(group) > 1 else self.try_alone(group[0])
        finally:
            self.chosen = 0
            write(target, group[0].text)

    def try_alone(self, mutant):
        target = self.tree / mutant.file
        for program in self.programs_for(mutant.file, mutant.text):
            write(target, mutant.mutation.apply(mutant.text))
            if errors := self.build(program, target):
                if re.search(r"tree/tests/.*static assertion failed", errors):
                    yield mutant, "killed", f"{program}: static assertion"
                else:
                    yield mutant, "does not compile", ""
                return
            if failure := self.failure_of(program, self.killers[mutant.file, program]):
                yield mutant, "killed", f"{program}: {failure}"
                return
        yield mutant, "survived", ""

    def try_together(self, group):
        file = group[0].file
        combinable = combined.Combinable(group[0].text)
        first = self.in_order(file)[0]
        while True:
            text, owners = combinable.combine([mutant.mutation for mutant in group])
            write(self.tree / file, text)
            if not (errors := self.build(first, self.tree / file)):
                break
            places = re.findall(
                rf"{re.escape(file)}:(\d+):\d+: +(?:error|fatal error|required from)", errors)
            rejected = {owners[int(line) - 1] for line in places} - {None}
            if not rejected:
                sys.exit(f"{file} does not compile with all mutants: {errors}")
            for number in rejected:
                yield group[number - 1], "does not compile", ""
            group = [mutant for number, mutant in enumerate(group, 1) if number not in rejected]
        self.checked.clear()
        for number, mutant in enumerate(group, 1):
            outcome = "survived", ""
            self.chosen = 0
            for program in self.programs_for(file, text, self.tree / file):
                self.chosen = number
                if failure := self.failure_of(program, self.killers[file, program]):
                    outcome = "killed", f"{program}: {failure}"
                    break
                self.chosen = 0
            yield mutant, *outcome

    def programs_for(self, file, text, mutated=None):
        """Yields the test programs of a file, the likeliest first. `text` is the file without a
        mutation, or, if it is `mutated`, with none chosen."""
        tried = set()
        while len(tried) < self.programs:
            program = next((program for program in self.in_order(file) if program not in tried),
                           None)
            if program is None:
                return
            tried.add(program)
            if program not in self.checked:
                write(self.tree / file, text)
                if not self.prepare(program, mutated):
                    continue
            if self.seconds[program] <= self.longest:
                yield program

    def failure_of(self, program, killers):
        """The first failure of a test program, which must happen twice unless it is a timeout."""
        likely = [test for test, _ in killers.most_common(10) if test in self.tests[program]]
        failure = (likely and self.test(program, likely)) or self.test(program)
        if not failure:
            return ""
        test = failure.split()[0]
        if test in self.tests[program] and not failure.endswith(TIMEOUT) and not self.test(
            program, [test]):
            print(f"{program}: {failure}, but not when it runs again", flush=True)
            return ""
        killers[test] += 1
        return failure

    def prepare(self, program, mutated):
        """Builds a program without a mutation and measures its time; returns whether it passes."""
        if errors := self.build(program, mutated):
            sys.exit(f"{program} does not build without a mutation: {errors}")
        for _ in range(2):  # in case a busy machine is the reason
            start = time.monotonic()
            failure = self.test(program, limit=min(600, self.longest))
            self.seconds[program] = time.monotonic() - start
            self.tests[program] = {test: int(ms) / 1000 for test, ms in re.findall(
                r"^\[       OK \] (\S+) \((\d+) ms\)", self.output(), re.MULTILINE)}
            if not failure or self.seconds[program] > self.longest:
                self.checked.add(program)
                return True
        self.failing[program] = failure
        return False

    def in_order(self, file):
        """The programs: first those that killed mutants of the file, then those named like it, then
        those named like its folder, then the quick ones."""
        folder, name = (set(re.findall(r"[a-z]+", part)) for part in os.path.split(file))

        def unlikelihood(program):
            words = set(program.split("_"))
            return (-self.killers[file, program].total(), -len(words & name), -len(words & folder),
                    self.seconds.get(program, float("inf")), program)

        return sorted(self.programs_of[file] - self.failing.keys(), key=unlikelihood)

    def build(self, program, mutated=None):
        """The errors, or nothing. `mutated` is the file that differs from the original."""
        environment = {"CCACHE_BASEDIR": str(self.folder), "CCACHE_NOHASHDIR": "1"}
        if mutated:  # a header, and with it what includes it, or a source
            environment["MUTATED"] = " -c " if mutated.suffix == ".h" else f" -c {mutated}"
        done = subprocess.run(["ninja", "-C", self.build_folder, f"bin/{program}"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, errors="replace",
                              env={**os.environ, **environment}, check=False)
        return done.stdout if done.returncode != 0 else ""

    def output(self):
        """What the test program that ran last has printed."""
        return (self.folder / "output").read_text(errors="replace")

    def test(self, program, tests=(), limit=None):
        """The first failure of a test program, or of the named tests of it, or nothing."""
        if limit is None:  # Far more than it needs, for a busy machine.
            limit = 15 + 5 * (sum(map(self.tests[program].get, tests)) or self.seconds[program])
        temporary = tempfile.mkdtemp(prefix="mutate-")
        os.chmod(temporary, 0o755)  # as /tmp, for tests that become another user
        choice = {combined.VARIABLE: str(self.chosen)} if self.chosen else {}
        with open(self.folder / "output", "w") as file:
            process = subprocess.Popen(
                [self.build_folder / "bin" / program, "--gtest_fail_fast", "--gtest_color=no",
                 f"--gtest_filter={':'.join(tests) or '*'}"],
                cwd=self.build_folder, env={**os.environ, **MEMORY, "TMPDIR": temporary, **choice},
                stdin=subprocess.DEVNULL, stdout=file, stderr=subprocess.STDOUT,
                start_new_session=True)
            try:
                code = process.wait(limit)
            except subprocess.TimeoutExpired:
                code = None
            end_group(process.pid)
            process.wait()
        shutil.rmtree(temporary, ignore_errors=True)
        if code == 0:
            return ""
        failed = re.findall(r"^\[  FAILED  \] ([\w/.]+)", self.output(), re.MULTILINE)
        running = re.findall(r"^\[ RUN      \] ([\w/.]+)", self.output(), re.MULTILINE)
        if failed:
            return failed[0]
        end = TIMEOUT if code is None else f"ends with {code}"
        return f"{(running or ['?'])[-1]} {end}"


def write(path, text):
    """Writes a file unless it has that text, so that what was compiled from it stays valid."""
    if path.read_text() != text:
        path.write_text(text)


def end_group(leader):
    """Ends a test program and its child processes."""
    try:
        os.killpg(leader, signal.SIGKILL)
    except ProcessLookupError:
        pass


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


def report(results, target):
    """Prints the outcome by file and the survivors. Returns whether the target is reached."""
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
    return share >= target and unexplained == 0


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__, usage=argparse.SUPPRESS,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    hidden = {"help": argparse.SUPPRESS}
    parser.add_argument("--of", choices=SUBJECTS, default="library", **hidden)
    parser.add_argument("--count", type=int, **hidden)
    parser.add_argument("--seed", default="1", **hidden)
    parser.add_argument("--file", default="", **hidden)
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)), **hidden)
    for name in ("minutes", "seconds", "programs"):
        parser.add_argument(f"--{name}", type=float, default=float("inf"), **hidden)
    for name in ("all", "again", "fresh", "report", "list"):
        parser.add_argument(f"--{name}", action="store_true", **hidden)
    return parser.parse_args()


def try_all(subject, waiting, results, options, end):
    """Tries the mutants until `end`, with a worker for each tree. Returns whether all test programs
    pass without a mutation."""
    killers = results.killers()
    trees = [Tree(subject, number, killers, options)
             for number in range(1, min(options.jobs, len(waiting)) + 1)]
    groups = iter(grouped(waiting))
    lock = threading.Lock()
    done = 0

    def work(tree):
        nonlocal done
        while time.monotonic() < end:
            with lock:
                group = next(groups, None)
            if group is None:
                return
            start = time.monotonic()
            for mutant, outcome, by in tree.try_group(group):
                seconds = time.monotonic() - start
                start = time.monotonic()
                results.add(mutant, outcome, by, seconds)
                with lock:
                    done += 1
                print(f"{done}/{len(waiting)} {outcome} in {seconds:.1f} s: "
                      f"{mutant.file}:{mutant.mutation.line} ({mutant.mutation.operator}) {by}",
                      flush=True)
                if start > end:
                    break

    with concurrent.futures.ThreadPoolExecutor(len(trees)) as pool:
        for worker in [pool.submit(work, tree) for tree in trees]:
            worker.result()
    failing = {program: failure for tree in trees for program, failure in tree.failing.items()}
    for program, failure in failing.items():
        print(f"{program} was skipped because it fails without a mutation: {failure}")
    return not failing


def main():
    options = parse_arguments()
    end = time.monotonic() + 60 * options.minutes
    subject = SUBJECTS[options.of]
    mutants = list(all_mutants(subject, options.file))
    if options.list:
        print("\n\n".join(map(str, mutants)))
        return 0
    subject.work.mkdir(parents=True, exist_ok=True)
    if options.fresh:
        subject.results.unlink(missing_ok=True)
    results = Results(subject.results)
    if options.report:
        return not report([results.of[mutant.key] for mutant in mutants
                           if mutant.key in results.of], subject.target)

    count = options.count or subject.count
    chosen = mutants if options.all else choose(mutants, count, options.seed)
    reasons = explanations()
    waiting = [mutant for mutant in chosen if mutant.key not in results.of
               or options.again and results.of[mutant.key]["outcome"] == "survived"
               and mutant.explanation_key() not in reasons]
    # A header takes longest, because everything that includes it is compiled again. Survivors run
    # every test.
    waiting.sort(key=lambda mutant: (mutant.file.endswith(".h"),
                                     mutant.explanation_key() in reasons))
    os.nice(19)
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
    resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_LIMIT, FILE_LIMIT))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    print(f"{len(chosen)} mutants chosen of {len(mutants)}, {len(waiting)} to try", flush=True)
    sound = not waiting or try_all(subject, waiting, results, options, end)
    good = report([results.of[mutant.key] for mutant in chosen if mutant.key in results.of],
                  subject.target)
    untried = sum(mutant.key not in results.of for mutant in chosen)
    if untried:
        print(f"{untried} of {len(chosen)} not tried yet; run again to continue")
        return INCOMPLETE
    return not (sound and good)


if __name__ == "__main__":
    sys.exit(main())
