#!/usr/bin/env python3
"""Sources that hold several mutants: what they compile to, and which bodies can hold mutants."""
import os
import pathlib
import subprocess
import tempfile
import unittest

from combined import VARIABLE, Combinable
from mutations import mutations

PROGRAM = """#include <cstdio>
struct Counter {
  explicit Counter(int start) : value(start) { ++value; }
  int Next() const { return value + 1; }
  int value;
};
constexpr int Limit() { return 7; }
constexpr int kTable[] = {4, 5};
int main() {
  std::printf("%d %d", Counter(1).Next(), Limit() + kTable[0]);
  return 0;
}
"""


def output_of(program, mutant=None):
    environment = {name: value for name, value in os.environ.items() if name != VARIABLE}
    if mutant:
        environment[VARIABLE] = str(mutant)
    return subprocess.run([program], env=environment, capture_output=True, text=True,
                          check=True).stdout


class CombinedTest(unittest.TestCase):
    def mutation(self, source, old, new):
        """The mutation that makes `new` of `old`, a part of the source."""
        self.assertEqual(source.count(old), 1)
        return next(mutation for mutation in mutations(source)
                    if mutation.apply(source) == source.replace(old, new))

    def test_the_environment_chooses_the_mutant(self):
        chosen = [self.mutation(PROGRAM, "{ ++value; }", "{ --value; }"),
                  self.mutation(PROGRAM, "value + 1", "value - 1"),
                  self.mutation(PROGRAM, "Limit() + k", "Limit() - k"),
                  self.mutation(PROGRAM, "value + 1", "value + 2")]
        text, _ = Combinable(PROGRAM).combine(chosen)
        with tempfile.TemporaryDirectory() as folder:
            source = pathlib.Path(folder, "program.cc")
            source.write_text(text)
            program = pathlib.Path(folder, "program")
            subprocess.run(["g++", "-w", source, "-o", program], check=True)
            self.assertEqual(output_of(program), "3 11")
            self.assertEqual([output_of(program, number) for number in range(1, 6)],
                             ["1 11", "1 11", "3 3", "4 11", "3 11"])

    def test_each_line_of_a_mutated_body_belongs_to_its_mutant(self):
        source = "int F() {\n  return 1;\n}\n\nint G() {\n  return 2;\n}\n"
        chosen = [self.mutation(source, "return 2", "return 3"),
                  self.mutation(source, "return 1", "return 0")]
        text, owners = Combinable(source).combine(chosen)
        lines = text.split("\n")
        self.assertEqual(owners[lines.index("  return 3;")], 1)
        self.assertEqual(owners[lines.index("  return 0;")], 2)
        self.assertEqual(owners[lines.index("  return 1;")], None)
        self.assertEqual(len(owners), text.count("\n"))

    def test_only_bodies_of_functions_hold_mutants(self):
        for source, old, new, inside in (
            ("int F() { return 1; }", "1", "2", True),
            ("class A { int F() const { return 1; } };", "1", "2", True),
            ("constexpr int F() { return 1; }", "1", "2", False),
            ("const int kA = 1;", "1", "2", False),
            ("class A { A() : a_(1) { F(); } };", "1", "2", False),
            ("class A { int a_ = 1; };", "1", "2", False),
            # The body of an unknown kind of function, in which a loop must keep its break.
            ("auto F() -> int { for (;;) { G(1); break; } }", "1", "2", False),
        ):
            with self.subTest(source):
                body = Combinable(source).body_of(self.mutation(source, old, new))
                self.assertEqual(body is not None, inside)


if __name__ == "__main__":
    unittest.main()
