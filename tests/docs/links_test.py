#!/usr/bin/env python3
"""Checks that every link in Markdown files leads to a file and, after a #, to a heading of it.

    links_test.py FOLDER

Checks every *.md file below FOLDER except in hidden folders and in build/. Links to other hosts
are not followed.
"""

import pathlib
import re
import sys
import urllib.parse

FENCE = re.compile(r'^(```|~~~).*?^\1\s*$', re.MULTILINE | re.DOTALL)
INDENTED = re.compile(r'(?:(?<=\n\n)|\A)(?:(?: {4}|\t).*\n?)+')
CODE = re.compile(r'`[^`\n]*`')
LINK = re.compile(r'\]\(([^()\s]+)\)')
HEADING = re.compile(r'^#{1,6} +(.*?) *#*$', re.MULTILINE)


def without_blocks(text):
    return INDENTED.sub('', FENCE.sub('', text))


def anchors(path):
    """The anchors of the headings, as GitHub makes them."""
    found = set()
    for heading in HEADING.findall(without_blocks(path.read_text())):
        plain = re.sub(r'\[([^]]*)\]\([^)]*\)', r'\1', heading).lower()
        slug = re.sub(r'[^\w\- ]', '', plain).replace(' ', '-')
        candidate, count = slug, 0
        while candidate in found:
            count += 1
            candidate = f'{slug}-{count}'
        found.add(candidate)
    return found


def mistake(page, link):
    """What is wrong with the link, or None."""
    target, _, anchor = urllib.parse.unquote(link).partition('#')
    if re.match(r'[a-z]+:', target):
        return None
    path = (page.parent / target) if target else page
    if not path.exists():
        return f'{link}: there is no such file'
    if anchor and path.suffix == '.md' and anchor not in anchors(path):
        return f'{link}: there is no such heading'
    return None


def pages(folder):
    for page in sorted(folder.rglob('*.md')):
        parts = page.relative_to(folder).parts
        if parts[0] != 'build' and not any(part.startswith('.') for part in parts):
            yield page


def main():
    folder = pathlib.Path(sys.argv[1])
    links = mistakes = 0
    for page in pages(folder):
        for link in LINK.findall(CODE.sub('', without_blocks(page.read_text()))):
            links += 1
            wrong = mistake(page, link)
            if wrong:
                mistakes += 1
                print(f'{page.relative_to(folder)}: {wrong}')
    print(f'{links} links, {mistakes} mistakes')
    sys.exit(1 if mistakes or links == 0 else 0)


main()
