#!/usr/bin/env python3
"""Checks that docs/porting.md names every symbol that libzuskux.so leaves to its host, and that the
skeleton in examples/vendor_platform defines each one and agrees on whether it may throw. Also checks that
the page names the fields of the records that the library reads, and no others.

    porting_test.py PORTING_MD SYMBOLS_LEFT_UNDEFINED SKELETON LIBRARY

Ignores the schemas' symbols, since the schemas are separate libraries, and virtual tables and type
information, which come with a destructor.
"""

import pathlib
import re
import sys

OTHERS = re.compile(r'encapsulation::|(typeinfo|vtable) for |dest_mng::(Dest\w+|Vrf)Message::')
HANDLER = re.compile(r'(dest_mng::(?:MessageController\w+|VrfController))::(\w+)\(\)$')


def is_named(symbol, page):
    handler = HANDLER.match(symbol)
    if handler:
        row = re.search(rf'^\| `{handler[1]}` \|(.*)$', page, re.MULTILINE)
        return row is not None and f'`{handler[2]}`' in row[1]
    return f'`{symbol}`' in page


def may_throw(page):
    """Each symbol of a table whose last column is "may throw", and whether that says yes."""
    answers, answer, in_table = {}, None, False
    for line in page.splitlines():
        cells = [cell.strip() for cell in line.strip('|').split('|')]
        if not line.startswith('|'):
            in_table = False
        elif cells[-1] == 'may throw':
            in_table = True
        elif in_table and cells[0].startswith('`'):
            answer = answer if cells[-1] == 'the same' else cells[-1].partition(',')[0]
            answers[cells[0].strip('`')] = answer
    return answers


def contradictions(page, skeleton):
    texts = [path.read_text() for path in sorted(skeleton.rglob('*.cc'))]
    for symbol, answer in may_throw(page).items():
        # The class, if any, and the name.
        name = '::'.join(re.sub(r'\(.*', '', symbol).split('::')[-2:])
        definition = re.compile(r'((?:^//.*\n)*)^[^\n/]*\b' + re.escape(name) + r'\b([^;{]*)',
                                re.MULTILINE)
        found = [(text, match) for text in texts for match in definition.finditer(text)]
        if len(found) != 1:
            yield f'{name}: {len(found)} definitions in the skeleton'
            continue
        # Destructors do not throw, whatever a comment above one says about the class.
        if '~' in name:
            continue
        text, match = found[0]
        promised = 'noexcept' in match[2]
        # A comment at the top of a file holds for all of it.
        top = re.match(r'(//.*\n)*', text)[0]
        warned = 'may throw' in re.sub(r'\s*\n// ', ' ', top + match[1]).lower()
        if answer == 'no' and not promised:
            yield f'{name}: docs/porting.md says that it must not throw; declare it noexcept'
        if answer == 'yes' and (promised or not warned):
            yield f'{name}: docs/porting.md says that it may throw; the skeleton does not'
        if answer != 'yes' and warned:
            yield f'{name}: the skeleton says that it may throw; docs/porting.md does not'


def wrong_fields(page, library):
    """What differs between the fields of a record that the page lists and those that the library reads."""
    for kind in ('vlan', 'host', 'mpls'):
        text = (library / f'dest_{kind}/hai/hai_dest_{kind}.cc').read_text()
        read = set(re.findall(r'\brecord\.(?!has_)([a-z_]+)\(', text))
        row = re.search(rf'^\| \w+ \| `Dest{kind.capitalize()}Message` \|(.*)$', page, re.MULTILINE)
        listed = set(re.findall(r'`(\w+)`', row[1])) if row else set()
        for field in sorted(read - listed):
            yield f'docs/porting.md does not list {field}, which the library reads of a {kind} record'
        for field in sorted(listed - read):
            yield f'docs/porting.md lists {field}, which the library does not read of a {kind} record'


def main():
    page = pathlib.Path(sys.argv[1]).read_text()
    symbols = [line[2:].replace('[abi:cxx11]', '')
               for line in pathlib.Path(sys.argv[2]).read_text().splitlines()]
    symbols = [symbol for symbol in symbols if not OTHERS.match(symbol)]
    missing = [symbol for symbol in symbols if not is_named(symbol, page)]
    for symbol in missing:
        print(f'{symbol} is not named')
    differences = [*contradictions(page, pathlib.Path(sys.argv[3])),
                   *wrong_fields(page, pathlib.Path(sys.argv[4]))]
    for difference in differences:
        print(difference)
    print(f'{len(symbols)} symbols, {len(missing)} not named')
    sys.exit(1 if missing or differences or not symbols else 0)


main()
