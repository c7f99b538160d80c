#!/usr/bin/env python3
"""Checks that the man page of the site file documents the messages and fields of the schema, in their
order and no others, with the words and limits that the schema's comments give, and that its example has
no mistakes.

    site_page_test.py SCHEMA PAGE ZUSKUX_MANAGER
"""

import pathlib
import re
import subprocess
import sys
import tempfile


def schema_of(text):
    """{message: {field: its comment}}."""
    return {message: {name: comment for comment, name in
                      re.findall(r'((?:^ *//[^\n]*\n)*)^ +(?:optional|repeated) \w+ (\w+) =', body,
                                 re.MULTILINE)}
            for message, body in re.findall(r'^message (\w+) \{\n(.*?)^\}', text,
                                            re.MULTILINE | re.DOTALL)}


def page_of(text):
    """{section: {field: its text}} for the sections that list fields."""
    sections = re.findall(r'^\.SH ([^\n]+)\n(.*?)(?=^\.SH |\Z)', text, re.MULTILINE | re.DOTALL)
    fields = {name: dict(re.findall(r'^\.TP\n\.B (\w+)\n(.*?)(?=^\.TP\n|\Z)', body,
                                    re.MULTILINE | re.DOTALL)) for name, body in sections}
    return {name: found for name, found in fields.items() if found}


def values_in(text):
    """The words and upper limits in a text."""
    return set(re.findall(r'"[a-z-]+"', text)) | set(re.findall(r' to (\d+)', text))


def mistakes(schema, page):
    wanted = {message.upper(): fields for message, fields in schema.items()}
    if list(wanted) != list(page):
        yield f'the schema has the messages {list(wanted)}, the page {list(page)}'
        return
    for message, fields in wanted.items():
        if list(fields) != list(page[message]):
            yield f'{message} has the fields {list(fields)}, in the page {list(page[message])}'
            continue
        for field, comment in fields.items():
            missing = values_in(comment) - values_in(page[message][field])
            if missing:
                yield f'{message}: {field} takes {sorted(missing)}, which the page does not say'


def example_of(text):
    return re.search(r'^\.SH EXAMPLES\n\.nf\n(.*?)^\.fi', text, re.MULTILINE | re.DOTALL)[1]


def main():
    schema, page = (pathlib.Path(path).read_text() for path in sys.argv[1:3])
    found = list(mistakes(schema_of(schema), page_of(page)))
    with tempfile.NamedTemporaryFile('w') as site:
        site.write(example_of(page))
        site.flush()
        check = subprocess.run([sys.argv[3], '--check', site.name], capture_output=True, text=True)
    if check.returncode != 0 or check.stderr:
        found.append('the example has mistakes: ' + check.stderr)
    for mistake in found:
        print(mistake)
    sys.exit(1 if found else 0)


if __name__ == '__main__':
    main()
