#!/usr/bin/env python3
"""Checks that the tests which documents name exist.

    test_names_test.py ROOT

A document names a test in backticks, as `Suite` or `Suite.Name`, where a suite ends in "Test". In a list of
tests in parentheses, on a page that explains `./test -R NAME`, any part of a name will do.
"""

import pathlib
import re
import sys

DEFINITION = re.compile(r'^(?:TYPED_)?TEST(?:_F|_P|_SUITE)?\(\s*(\w+),\s*(\w+)\)', re.MULTILINE)
NAMED = re.compile(r'`(\w+Test)(?:\.(\w+))?`')
LIST = re.compile(r'\((`[\w.]+`(?:,\s`[\w.]+`)*)\)')


def exists(names, suite, name):
    return suite in names and (not name or name in names[suite])


def main():
    root = pathlib.Path(sys.argv[1])
    names = {}
    for source in sorted((root / 'tests').rglob('*.cc')):
        for suite, name in DEFINITION.findall(source.read_text()):
            names.setdefault(suite, set()).add(name)
    everything = ' '.join(f'{suite}.{name}' for suite in names for name in names[suite])
    checked, missing = 0, []
    for page in sorted([*root.glob('*.md'), *(root / 'docs').rglob('*.md')]):
        text = page.read_text()
        wrong = [match[0] for match in NAMED.finditer(text) if not exists(names, match[1], match[2])]
        if './test -R NAME' in text:
            listed = re.findall(r'`([A-Z][\w.]*)`', ' '.join(LIST.findall(text)))
            wrong += [f'`{name}`' for name in listed if name not in everything]
            checked += len(listed)
        checked += len(NAMED.findall(text))
        missing += [f'{page.relative_to(root)}: there is no test {name}' for name in dict.fromkeys(wrong)]
    for line in missing:
        print(line, file=sys.stderr)
    print(f'{checked} tests named, {len(missing)} missing')
    sys.exit(1 if missing or not checked else 0)


if __name__ == '__main__':
    main()
