#!/usr/bin/env python3
"""Checks that `zuskux-manager help states` and the man page's section STATES say the same.

    states_test.py PROGRAM MAN_PAGE
"""

import pathlib
import re
import subprocess
import sys


def main():
    page = pathlib.Path(sys.argv[2]).read_text()
    section = re.search(r'^\.SH STATES\n(.*?)^\.SH ', page, re.MULTILINE | re.DOTALL)[1]
    in_page = {name: ' '.join(text.split())
               for name, text in re.findall(r'^\.TP\n\.B (\w+)\n((?:[^.].*\n)+)', section, re.MULTILINE)}
    shown = subprocess.run([sys.argv[1], 'help', 'states'], stdout=subprocess.PIPE, check=True,
                           text=True).stdout
    in_help = dict(line.split(maxsplit=1) for line in shown.splitlines())
    if len(in_help) < 6:
        sys.exit(f'help states names only {sorted(in_help)}')
    wrong = [name for name in sorted(in_help.keys() | in_page.keys())
             if in_help.get(name) != in_page.get(name)]
    for name in wrong:
        print(f'{name}: help says {in_help.get(name)!r}, the man page {in_page.get(name)!r}')
    sys.exit(1 if wrong else 0)


main()
