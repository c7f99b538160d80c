#!/usr/bin/env python3
"""Checks that a program's --help and its man page list the same options and exit statuses, and that
the help fits a screen.

    help_test.py PROGRAM MAN_PAGE
"""

import pathlib
import re
import subprocess
import sys

MAX_LINES = 40
MAX_COLUMNS = 80


def options_of_help(text):
    """The options at the start of a line, as `--long` or `-s [ --long ]`."""
    return set(re.findall(r'^ +(?:-\w \[ )?(--[a-z][a-z-]*)', text, re.MULTILINE))


def options_of_page(text):
    """The options that the paragraphs of the page's section OPTIONS begin with."""
    section = re.search(r'^\.SH OPTIONS\n(.*?)^\.SH ', text, re.MULTILINE | re.DOTALL)[1]
    return set(re.findall(r'^\.TP\n\.\w+ .*?(--[a-z][a-z-]*)', section, re.MULTILINE))


def statuses_of_page(text):
    section = re.search(r'^\.SH EXIT STATUS\n(.*?)^\.SH ', text, re.MULTILINE | re.DOTALL)[1]
    return set(re.findall(r'^\.TP\n\.B (\d+)$', section, re.MULTILINE))


def statuses_of_help(text):
    paragraph = re.search(r'^Exit status: (.*)\Z', text, re.MULTILINE | re.DOTALL)
    return set(re.findall(r'\b\d+\b', paragraph[1])) if paragraph else None


def run(*words):
    return subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)


def mistakes(program, page):
    shown = run(program, '--help')
    if shown.returncode != 0:
        yield f'--help ends with {shown.returncode}'
    lines = shown.stdout.splitlines()
    if len(lines) > MAX_LINES:
        yield f'--help has {len(lines)} lines, more than {MAX_LINES}'
    for line in lines:
        if len(line) > MAX_COLUMNS:
            yield f'--help has a line of {len(line)} columns: {line}'

    in_help, in_page = options_of_help(shown.stdout), options_of_page(page)
    if not in_help:
        yield '--help names no option'
    for option in sorted(in_help - in_page):
        yield f'{option} is not in the man page'
    for option in sorted(in_page - in_help):
        yield f'{option} is not in --help'

    in_help, in_page = statuses_of_help(shown.stdout), statuses_of_page(page)
    if in_help is None:
        yield '--help does not end with the exit statuses'
    elif in_help != in_page:
        yield f'exit statuses {sorted(in_help)} in --help, {sorted(in_page)} in the man page'
    if run(program, '--no-such-option').returncode != 2:
        yield 'an unknown option does not end with 2'


def main():
    page = pathlib.Path(sys.argv[2]).read_text().replace('\\-', '-').replace('\\fR', '')
    found = list(mistakes(sys.argv[1], page.replace('\\fB', '')))
    for mistake in found:
        print(mistake)
    sys.exit(1 if found else 0)


main()
