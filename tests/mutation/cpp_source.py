"""A minimal C++ parser, just enough for this project's format: tokens, blocks, statements."""
import bisect
import re
from dataclasses import dataclass, field

TOKEN = re.compile(
    r"""(?P<skip>\s+|//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*)
      |(?P<raw>R"(?P<mark>[^(]*)\(.*?\)(?P=mark)")
      |(?P<text>"(?:[^"\\]|\\.)*")
      |(?P<char>'(?:[^'\\]|\\.)+')
      |(?P<number>0[xX][0-9a-fA-F']+[uUlL]*|\d[\d']*[uUlL]*(?![\d.]))
      |(?P<real>\d[\d']*\.\d+(?:[eE][-+]?\d+)?[fFlL]?)
      |(?P<word>[A-Za-z_]\w*)
      |(?P<sign>->\*|\.\.\.|<<=|>>=|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
BRACKETS = {"(": ")", "[": "]", "{": "}"}
# What can precede the brace of a function's body.
BEFORE_BODY = {")", "const", "noexcept", "override"}
ACCESS = {"public", "protected", "private"}
JUMPS = {"return", "break", "continue", "throw"}


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclass
class Statement:
    """The tokens `first` to `last`, both included. `kind` is block, if, loop, switch, try, jump,
    declaration or expression; an if has the bracketed `condition`, compound statements have
    `parts`."""

    kind: str
    first: int
    last: int
    condition: tuple = ()
    parts: list = field(default_factory=list)

    def all(self):
        yield self
        for part in self.parts:
            yield from part.all()


@dataclass
class Body:
    """A function's body: the first token of the function's head, and the block."""

    head: int
    block: Statement


@dataclass
class Class:
    """A class: the token of `class` or `struct`, and those of the braces."""

    head: int
    opening: int
    closing: int


class Source:
    def __init__(self, text):
        self.text = text
        self.tokens = [
            Token(match.lastgroup, match[0], *match.span())
            for match in TOKEN.finditer(text)
            if match.lastgroup != "skip"
        ]
        self.partner = self._match_brackets()
        self.bodies, self.classes = [], []
        self._find_bodies_and_classes()
        self._line_starts = [0] + [match.end() for match in re.finditer("\n", text)]

    def line(self, offset):
        return bisect.bisect_right(self._line_starts, offset)

    def line_of(self, place):
        return self.text.count("\n", 0, self.tokens[place].start) + 1

    def word(self, place):
        """The text of a token; nothing beyond the ends."""
        return self.tokens[place].text if 0 <= place < len(self.tokens) else ""

    def is_access(self, place):
        return self.word(place) == ":" and self.word(place - 1) in ACCESS

    def span(self, first, last):
        return self.tokens[first].start, self.tokens[last].end

    def slice(self, first, last):
        start, end = self.span(first, last)
        return self.text[start:end]

    def spaced(self, place):
        """Whether a sign has space on both sides: binary operators do, template brackets do not."""
        token = self.tokens[place]
        return self.text[token.start - 1].isspace() and self.text[token.end].isspace()

    def split(self, first, last, separator=","):
        """The non-empty pieces between `first` and `last`, both included, as pairs of tokens."""
        pieces, start, place = [], first, first
        while place <= last:
            if self.word(place) == separator:
                pieces.append((start, place - 1))
                start = place + 1
            place = self.partner.get(place, place) + 1
        pieces.append((start, last))
        return [piece for piece in pieces if piece[0] <= piece[1]]

    def _match_brackets(self):
        partner, opened = {}, []
        for place, token in enumerate(self.tokens):
            if token.kind == "sign" and token.text in BRACKETS:
                opened.append(place)
            elif token.kind == "sign" and token.text in BRACKETS.values():
                partner[opened.pop()] = place
        return partner

    def _find_bodies_and_classes(self):
        place, head = 0, 0
        while place < len(self.tokens):
            text = self.word(place)
            if text in ("class", "struct") and self.word(place - 1) != "enum":
                opening = self._class_opening(place)
                if opening:
                    self.classes.append(Class(place, opening, self.partner[opening]))
                    head, place = opening + 1, opening
            elif text == "{" and self.word(place - 1) in BEFORE_BODY:
                self.bodies.append(Body(head, self._block(place)))
                place = self.partner[place]
                head = place + 1
            elif text in (";", "}") or self.is_access(place):
                head = place + 1
            place += 1

    def _class_opening(self, place):
        while self.word(place) not in ("{", ";", ">", ",", ""):
            place = self.partner.get(place, place) + 1
            if self.word(place) == "," and self.word(place + 1) == "public":
                place += 1  # the next base
        return place if self.word(place) == "{" else None

    def _block(self, opening):
        block = Statement("block", opening, self.partner[opening])
        place = self._behind_labels(opening + 1)
        while place < block.last:
            block.parts.append(self._statement(place))
            place = self._behind_labels(block.parts[-1].last + 1)
        return block

    def _behind_labels(self, place):
        while self.word(place) in ("case", "default"):
            while self.word(place) != ":":
                place += 1
            place += 1
        return place

    def _statement(self, first):
        text = self.word(first)
        if text == "{":
            return self._block(first)
        if text in ("if", "for", "while", "switch"):
            return self._compound(first)
        if text == "do":
            body = self._statement(first + 1)
            return Statement("loop", first, self._semicolon(body.last), parts=[body])
        if text == "try":
            return self._try(first)
        last = self._semicolon(first)
        kind = "jump" if text in JUMPS else "expression"
        if kind == "expression" and self._is_declaration(first, last):
            kind = "declaration"
        return Statement(kind, first, last)

    def _semicolon(self, first):
        last = first
        while self.word(last) != ";":
            if not self.word(last):
                raise ValueError(f"no end of the statement in line {self.line_of(first)}")
            last = self.partner.get(last, last) + 1
        return last

    def _try(self, first):
        statement = Statement("try", first, first, parts=[self._block(first + 1)])
        statement.last = statement.parts[0].last
        while self.word(statement.last + 1) == "catch":
            statement.parts.append(self._block(self.partner[statement.last + 2] + 1))
            statement.last = statement.parts[-1].last
        return statement

    def _compound(self, first):
        opening = first + (2 if self.word(first + 1) == "constexpr" else 1)
        body = self._statement(self.partner[opening] + 1)
        kind = "switch" if self.word(first) == "switch" else "loop"
        statement = Statement(kind, first, body.last, parts=[body])
        if self.word(first) == "if":
            statement.kind = "if"
            statement.condition = (opening + 1, self.partner[opening] - 1)
            if self.word(body.last + 1) == "else":
                statement.parts.append(self._statement(body.last + 2))
                statement.last = statement.parts[-1].last
        return statement

    def _is_declaration(self, first, last):
        """Whether a name follows a type before anything is called or assigned."""
        if self.word(first) in ("using", "static_assert", "static", "constexpr"):
            return True
        for place in range(first + 1, last + 1):
            if self.word(place) in ("(", "=", ".", "->", "[", "+=", "-=", "{"):
                return False
            if self.tokens[place].kind == "word" and self.word(first) != "delete":
                before = self.tokens[place - 1]
                if before.kind == "word" or before.text in (">", "&", "*"):
                    return True
        return False
