#!/usr/bin/env python3
"""Reports what is not covered, and fails below the targets: report.py ROOT LINES.json BRANCHES.json

LINES is gcovr's, BRANCHES llvm-cov's export. A line of a template, or of a function that several
programs hold, is reached when one of its copies is. Lines listed in unreachable.txt, and branches
that begin on them, are not counted. A paragraph of that list is
    FILE
    | LINE ...
    REASON
"""
import collections
import json
import pathlib
import re
import sys

# The areas by folder, and the line and branch coverage that each must reach.
AREAS = {
    "library": (("src/", "include/"), 1.00, 0.98),
    "reference": (("reference/",), 0.95, 0.88),
}
NO_CODE = re.compile("#|namespace|$")


def main(root, lines_file, branches_file):
    root = pathlib.Path(root)
    lines = read_lines(root, lines_file)
    branches = read_branches(root, branches_file)
    unreachable = read_unreachable(root)
    missed = collections.defaultdict(list)
    reached = True
    for area, (folders, *targets) in AREAS.items():
        for what, counts, target in zip(("lines", "branches"), (lines, branches), targets):
            counted = {place: count for place, count in counts.items()
                       if place[0].startswith(folders) and place[:2] not in unreachable}
            hit = sum(count > 0 for count in counted.values())
            enough = bool(counted) and hit >= target * len(counted)
            reached = reached and enough
            share = 100 * hit / max(1, len(counted))
            print(f"{area:10}{what:9}{hit:6} of {len(counted):6}{share:8.2f} %"
                  f"   at least {100 * target:.0f} %{'' if enough else '   MISSED'}")
            for place, count in counted.items():
                if count == 0:
                    missed[place[:2]].append("never runs" if what == "lines" else
                                             f"column {place[2]} never {place[3]}")
    print(f"{len(unreachable)} lines are listed as unreachable\n")
    for (file, line), reasons in sorted(missed.items()):
        text = (root / file).read_text().splitlines()[line - 1].strip()
        print(f"{file}:{line}: {', '.join(reasons)}: {text}")
    return 0 if reached else 1


def read_lines(root, path):
    """How often each (file, line) ran."""
    counts = {}
    for file in json.load(open(path, encoding="utf-8"))["files"]:
        text = (root / file["file"]).read_text().splitlines()
        for line in file["lines"]:
            number = line["line_number"]
            # gcovr may attribute a header's line to the same line of the file that includes it.
            if not line["gcovr/noncode"] and not NO_CODE.match(text[number - 1]):
                counts[file["file"], number] = line["count"]
    return counts


def read_branches(root, path):
    """How often each (file, line, column, outcome) was taken."""
    counts = collections.Counter()
    for function in json.load(open(path, encoding="utf-8"))["data"][0]["functions"]:
        files = [relative(root, file) for file in function["filenames"]]
        for line, column, _, _, taken, not_taken, file, *_ in function["branches"]:
            counts[files[file], line, column, "true"] += taken
            counts[files[file], line, column, "false"] += not_taken
    return counts


def relative(root, file):
    """The compiler may have recorded a path relative to the build folder."""
    path = pathlib.Path(re.sub(r"^.*/build/coverage/\.\./\.\.", str(root), file))
    return path.relative_to(root).as_posix() if path.is_relative_to(root) else file


def read_unreachable(root):
    """The listed (file, line number); a listed line may occur more than once in its file."""
    listed = set()
    paragraphs = (root / "tests/coverage/unreachable.txt").read_text().split("\n\n")
    for paragraph in paragraphs:
        file, *rest = paragraph.strip().split("\n")
        if file.startswith("#"):
            continue
        texts = {line[2:].strip() for line in rest if line.startswith("| ")}
        numbers = {(file, number) for number, line in
                   enumerate((root / file).read_text().splitlines(), 1) if line.strip() in texts}
        if not texts or not numbers:
            sys.exit(f"unreachable.txt lists lines that do not exist: {file}: {texts}")
        listed |= numbers
    return listed


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
