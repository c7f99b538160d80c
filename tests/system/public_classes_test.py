#!/usr/bin/env python3
"""Compares the layout and the virtual tables of the public classes with the checked-in description.

    public_classes_test.py LIBRARY            fails with the difference
    public_classes_test.py LIBRARY --accept   accepts the current state as the expected one

LIBRARY is what public_classes.cc compiles to; its debug information is read with abidw. A line with
a number and a colon is a member at that offset in bytes; "virtual N" is slot N of the virtual table,
after the two destructors.
"""

import difflib
import pathlib
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

EXPECTED = pathlib.Path(__file__).with_name("public_classes.txt")


class Types:
    """The types of an abidw document, by id."""

    def __init__(self, root):
        self._types = {}
        self._names = {}
        self._enter(root, "")

    def _enter(self, parent, scope):
        for node in parent:
            name = node.get("name", "")
            inner = scope
            if node.tag in ("namespace-decl", "class-decl"):
                inner = scope + name + "::"
            if node.get("id") and node.get("is-declaration-only") != "yes":
                self._types[node.get("id")] = node
            if node.get("id"):
                self._names[node.get("id")] = scope + name.split("<")[0]
            self._enter(node, inner)

    def node(self, type_id):
        return self._types[type_id]

    def target(self, type_id):
        return self._types[type_id].get("type-id")

    def text(self, type_id):
        node = self._types.get(type_id)
        tag = node.tag if node is not None else ""
        if tag == "pointer-type-def":
            return self.text(node.get("type-id")) + "*"
        if tag == "reference-type-def":
            return self.text(node.get("type-id")) + "&"
        if tag == "qualified-type-def":
            return self.text(node.get("type-id"))
        return self._names[type_id]


def members(node):
    """The data members with their offsets, and the virtual functions with their slots."""
    for member in node.findall("data-member"):
        if member.get("static") != "yes":
            yield int(member.get("layout-offset-in-bits")), member.find("var-decl")


def virtual_functions(node):
    found = {}
    for member in node.findall("member-function"):
        slot = member.get("vtable-offset")
        if slot is None:
            continue
        function = member.find("function-decl")
        # A destructor has two slots; not every compiler reports that.
        found[0 if member.get("destructor") else int(slot), function.get("name")] = function
    return [(slot, name, found[slot, name]) for slot, name in sorted(found)]


def describe(types, type_id):
    node = types.node(type_id)
    yield f"{types.text(type_id)}: {int(node.get('size-in-bits')) // 8} bytes"
    for base in node.findall("base-class"):
        offset = int(base.get("layout-offset-in-bits")) // 8
        yield f"  {offset}: {types.text(base.get('type-id'))} (base)"
    for offset, variable in members(node):
        yield f"  {offset // 8}: {variable.get('name')}, {types.text(variable.get('type-id'))}"
    for slot, name, function in virtual_functions(node):
        if name.startswith("~"):
            yield "  virtual destructor"
            continue
        parameters = [types.text(parameter.get("type-id"))
                      for parameter in function.findall("parameter")
                      if parameter.get("is-artificial") != "yes"]
        result = types.text(function.find("return").get("type-id"))
        yield f"  virtual {slot}: {result} {name}({', '.join(parameters)})"


def description(library):
    document = subprocess.run(
        ["abidw", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", library],
        check=True, stdout=subprocess.PIPE).stdout
    root = ElementTree.fromstring(document)
    types = Types(root)
    listed = root.find(".//function-decl[@name='PublicClasses']")
    lines = []
    for parameter in listed.findall("parameter"):
        lines += describe(types, types.target(parameter.get("type-id")))
    return [line + "\n" for line in lines]


def main():
    present = description(sys.argv[1])
    if sys.argv[2:] == ["--accept"]:
        EXPECTED.write_text("".join(present), encoding="utf-8")
        return
    expected = EXPECTED.read_text(encoding="utf-8").splitlines(keepends=True)
    if present == expected:
        return
    sys.stderr.writelines(difflib.unified_diff(expected, present, "expected", "present"))
    sys.exit(f"The public classes changed. If that is intended: {sys.argv[0]} {sys.argv[1]} --accept")


if __name__ == "__main__":
    main()
