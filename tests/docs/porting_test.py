#!/usr/bin/env python3
"""Checks that docs/porting.md names every symbol that libzuskux.so leaves to its host.

    porting_test.py PORTING_MD SYMBOLS_LEFT_UNDEFINED

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


def main():
    page = pathlib.Path(sys.argv[1]).read_text()
    symbols = [line[2:].replace('[abi:cxx11]', '')
               for line in pathlib.Path(sys.argv[2]).read_text().splitlines()]
    symbols = [symbol for symbol in symbols if not OTHERS.match(symbol)]
    missing = [symbol for symbol in symbols if not is_named(symbol, page)]
    for symbol in missing:
        print(f'{symbol} is not named')
    print(f'{len(symbols)} symbols, {len(missing)} not named')
    sys.exit(1 if missing or not symbols else 0)


main()
