#!/usr/bin/env python3
"""Checks that the rooms of the tree include headers in one direction only, and that nothing
includes protobuf's internal headers, which later releases do not have.

    layers_test.py FOLDER

CONTRIBUTING.md shows the same order.
"""

import pathlib
import re
import sys

LIBRARY = {"platform", "zuskux"}
# Each room, and the rooms whose headers it may include besides its own.
SEES = {
    "reference/support": set(),
    "reference/text": set(),
    "reference/log": {"reference/text"},
    "reference/site": {"reference/text"},
    "reference/hal": {"reference/support", "reference/text"} | LIBRARY,
    "reference/data_plane/linux": {"reference/data_plane", "reference/support"},
    "reference/data_plane": {"reference/hal", "reference/log", "platform"},
    "reference/wire": {"reference/hal"},
    "reference/web": {"reference/hal", "reference/text", "reference/wire"},
    "reference/socket_client": {"reference/hal", "reference/log", "reference/support",
                                "reference/text", "reference/wire"},
    "reference/record": {"reference/hal", "reference/log", "reference/socket_client",
                         "reference/text", "reference/wire", "platform"},
    "reference/server": {"reference/data_plane", "reference/data_plane/linux", "reference/hal",
                         "reference/log", "reference/record", "reference/site",
                         "reference/socket_client", "reference/support", "reference/text",
                         "reference/web", "reference/wire"},
    "reference/manager/engine": {"reference/hal", "reference/site", "reference/support"} | LIBRARY,
    "reference/manager/views": {"reference/hal", "reference/log", "reference/manager/engine",
                                "reference/site", "reference/text", "reference/wire"},
    "reference/manager/web": {"reference/hal", "reference/manager/engine",
                              "reference/manager/views", "reference/support", "reference/text",
                              "reference/web"},
    "reference/manager/program": {"reference/hal", "reference/log", "reference/manager/engine",
                                  "reference/manager/views", "reference/manager/web",
                                  "reference/record", "reference/site", "reference/socket_client",
                                  "reference/support", "reference/text", "reference/web",
                                  "reference/wire"} | LIBRARY,
}
PROTOBUF_INTERNAL = "#include <google/protobuf/stubs/"
INCLUDE = re.compile(r'^#include "([^"]+)"', re.MULTILINE)


def main(root):
    # The folders from which the library's and the platform's headers are included.
    roots = {"zuskux": "zuskux", **{f.name: "platform" for f in (root / "platform").iterdir()}}

    def room_of(path):
        rooms = [room for room in SEES if path.startswith(room + "/")]
        return rooms[0] if rooms else roots.get(path.split("/")[0])

    wrong, files = [], 0
    for path in sorted((root / "reference").rglob("*")):
        if path.suffix not in (".h", ".cc"):
            continue
        files += 1
        name = path.relative_to(root).as_posix()
        room = room_of(name)
        if room is None:
            wrong.append(f"{name}: no room; add its folder to SEES")
            continue
        for included in INCLUDE.findall(path.read_text()):
            other = room_of(included)
            # A generated header has no folder.
            if other not in {None, room} | SEES[room]:
                wrong.append(f"{name}: {room} must not include {included}")
    for folder in ("src", "include", "platform", "reference", "examples", "benchmarks", "tests"):
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in (".h", ".cc") and PROTOBUF_INTERNAL in path.read_text():
                wrong.append(f"{path.relative_to(root)}: must not include google/protobuf/stubs/")
    for line in wrong:
        print(line)
    if files < 100:
        sys.exit(f"only {files} files found in {root / 'reference'}")
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve())
