"""Compiles many mutants of a source at once.

Each function holds its mutated bodies besides its own, and the environment variable MUTANT chooses
one of them when the program runs. Without the variable, the program behaves like the original.
"""
import collections

from cpp_source import Source

VARIABLE = "MUTANT"
CHOICE = (
    "#include <cstdlib>\n"
    "namespace { int ChosenMutant() { static const int chosen = [] {"
    f' const char* const text = std::getenv("{VARIABLE}");'
    " return text == nullptr ? 0 : std::atoi(text); }(); return chosen; } }\n"
)
STATEMENTS = {"if", "for", "while", "switch", "catch"}


class Combinable:
    """The function bodies of a source that can hold mutated ones."""

    def __init__(self, text):
        self.text = text
        source = Source(text)
        self.bodies = [source.span(body.block.first, body.block.last) for body in source.bodies
                       if is_evaluated_at_run_time(source, body)]

    def body_of(self, mutation):
        """The start and end of the body with the place that the mutation changes, or nothing."""
        return next((body for body in self.bodies
                     if body[0] < mutation.start and mutation.end < body[1]), None)

    def combine(self, mutations):
        """The source with all mutations, which are numbered from 1, and for each of its lines the
        number of the mutation that it belongs to, or nothing."""
        of_body = collections.defaultdict(list)
        for number, mutation in enumerate(mutations, 1):
            of_body[self.body_of(mutation)].append((number, mutation))
        pieces, owners = [], []

        def add(piece, number=None):
            pieces.append(piece)
            owners.extend([number] * piece.count("\n"))

        add(CHOICE)
        done = 0
        for start, end in self.bodies:
            if (start, end) not in of_body:
                continue
            add(self.text[done:start] + "{ switch (ChosenMutant()) {\n")
            for number, mutation in of_body[start, end]:
                body = (self.text[start : mutation.start] + mutation.replacement
                        + self.text[mutation.end : end])
                add(f"case {number}: {body} break;\n", number)
            add(f"default: {self.text[start:end]}\n}} }}")
            done = end
        add(self.text[done:] + "\n")
        return "".join(pieces), owners


def is_evaluated_at_run_time(source, body):
    """Whether it is a function's, not a statement's, and the function is not constexpr."""
    opening = next((one for one, other in source.partner.items() if other == body.block.first - 1),
                   body.block.first)
    return (source.word(opening - 1) not in STATEMENTS
            and "constexpr" not in source.slice(body.head, body.block.first))
