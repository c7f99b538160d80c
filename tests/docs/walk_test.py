#!/usr/bin/env python3
"""Checks that each function in the tables of a page is in the file that its row names.

    walk_test.py PAGE ROOT

A row is `| step | `Class::Function` | `path/in/the/tree` |`.
"""

import pathlib
import re
import sys

ROW = re.compile(r'^\| .* \| `([\w:]+)` \| `([\w./]+)` \|$', re.MULTILINE)


def mistake(root, function, path):
    """What is wrong with the row, or None."""
    file = root / path
    if not file.is_file():
        return f'{path}: there is no such file'
    if not re.search(rf'\b{function}\(', file.read_text()):
        return f'{path}: there is no {function} in it'
    return None


def main():
    page, root = map(pathlib.Path, sys.argv[1:])
    rows = ROW.findall(page.read_text())
    if not rows:
        sys.exit(f'{page}: there is no row with a function and a file')
    mistakes = [found for row in rows if (found := mistake(root, *row))]
    for found in mistakes:
        print(f'{page}: {found}', file=sys.stderr)
    sys.exit(1 if mistakes else 0)


if __name__ == '__main__':
    main()
