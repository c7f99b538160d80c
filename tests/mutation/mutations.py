"""The changes that mutation testing makes to a source, one place at a time.

`mutations(text)` lists them in the order of the source, and only one of those with the same result.
Each operator below is a generator of (start, end, replacement) over a `Source`; its docstring says
what it changes.
"""
import re
from dataclasses import dataclass

from cpp_source import JUMPS, Source, Statement

OPERATORS = {}
COMPARISONS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">"], "<=": ["<", ">"], ">": [">=", "<"],
               ">=": [">", "<"]}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "&": "|", "|": "&", "&&": "||", "||": "&&",
              "+=": "-=", "-=": "+=", "<<=": ">>=", ">>=": "<<=", "++": "--", "--": "++"}
# Parts of names that are easily confused with each other.
RELATED = [("Install", "Destroy", "Replace"), ("Created", "Updated", "Deleted"),
           ("Success", "Error"), ("TraceLevel", "ErrorLevel"), ("db_id", "secondary_id", "vrf_id"),
           ("AppDestVlan", "AppDestHost", "AppDestMpls", "AppDestEcmp"), ("release", "get")]
# Functions that change nothing, and functions that change only their object. None may run a
# destructor.
READERS = {"static_cast", "duration_cast", "now", "min", "max", "size", "empty", "begin", "end",
           "data", "c_str", "count", "added", "table", "ActionOf", "HalKindName", "HasResult",
           "KindOf", "OperationName", "Printable", "WithoutPayload"}
GROWERS = {"push_back", "emplace", "emplace_back", "append"}
CASTS = {"static_cast", "duration_cast"}
ASSIGNMENTS = {"=", "++", "--", *(sign + "=" for sign in "+-*/%&|^"), "<<=", ">>="}
NO_EFFECTS_OF = JUMPS | {"new", "delete", "while", "do", "case", "static"}
SPECIAL = {"virtual", "static", "explicit", "operator", "override", "=", "~"}
LOGS = {"ZUSKUX_TRACE": "ZUSKUX_LOG", "ZUSKUX_LOG": "ZUSKUX_TRACE"}


@dataclass(frozen=True)
class Mutation:
    operator: str
    start: int
    end: int
    replacement: str
    line: int

    def apply(self, text):
        return text[: self.start] + self.replacement + text[self.end :]


def mutations(text, operators=None):
    """Those of the named operators, or of all."""
    source = Source(text)
    found = {}
    compiler_only = list(compiler_only_spans(source))
    for name in operators or OPERATORS:
        for start, end, replacement in OPERATORS[name](source):
            if not any(first <= start < last for first, last in compiler_only):
                mutation = Mutation(name, start, end, replacement, source.line(start))
                found.setdefault(mutation.apply(text), mutation)
    found.pop(text, None)
    return sorted(found.values(), key=lambda mutation: (mutation.start, mutation.end,
                                                        mutation.replacement))


def operator(function):
    OPERATORS[function.__name__] = function
    return function


@operator
def comparison(source):
    """== for !=, < for <= and >, and so on."""
    for place, token in signs(source):
        if token.text in COMPARISONS and source.spaced(place):
            for other in COMPARISONS[token.text]:
                yield token.start, token.end, other


@operator
def arithmetic(source):
    """+ for -, & for |, && for ||, += for -=, ++ for -- and so on."""
    for place, token in signs(source):
        if token.text in ARITHMETIC and (source.spaced(place) or token.text in ("++", "--")):
            yield token.start, token.end, ARITHMETIC[token.text]


@operator
def negation(source):
    """A ! removed."""
    for _, token in signs(source):
        if token.text == "!":
            yield token.start, token.end, ""


@operator
def log_line(source):
    """The line number of a log site, one higher."""
    for token in source.tokens:
        if token.kind == "number" and is_log_site(source, token):
            yield token.start, token.end, str(int(token.text) + 1)


@operator
def constant(source):
    """A number one higher and one lower, a character the next one, true for false."""
    for token in source.tokens:
        if token.kind == "number" and not is_log_site(source, token):
            digits = token.text.rstrip("uUlL")
            suffix = token.text[len(digits) :]
            value = int(digits.replace("'", ""), 0)
            form = "0x{:X}" if digits.lower().startswith("0x") else "{}"
            yield token.start, token.end, form.format(value + 1) + suffix
            if value > 0:
                yield token.start, token.end, form.format(value - 1) + suffix
    for token in source.tokens:
        if token.kind == "char" and len(token.text) == 3:
            yield token.start, token.end, f"'{chr(ord(token.text[1]) + 1)}'"
        elif token.text in ("true", "false"):
            yield token.start, token.end, "false" if token.text == "true" else "true"


@operator
def text(source):
    """A text with a different letter in the middle; an empty text."""
    for token in source.tokens:
        if token.kind != "text" or token.text == '""':
            continue
        yield token.start, token.end, '""'
        places = [place for place in range(1, len(token.text) - 1)
                  if token.text[place].isalnum() and token.text[place - 1] not in "%\\"]
        place = places[len(places) // 2] if places else 1
        other = "q" if token.text[place] != "q" else "z"
        yield token.start, token.end, token.text[:place] + other + token.text[place + 1 :]


@operator
def condition(source):
    """A condition (of presence, of tracing, ...) that always or never holds, or the reverse."""
    for statement in statements(source):
        if statement.kind == "if":
            start, end = source.span(*statement.condition)
            yield start, end, "true"
            yield start, end, "false"
            yield start, end, f"!({source.text[start:end]})"


@operator
def alternatives(source):
    """The two results of a ?: swapped."""
    for place, token in signs(source):
        if token.text == "?":
            colon = next(at for at in range(place, len(source.tokens)) if source.word(at) == ":")
            last = colon + 1
            while source.word(last + 1) not in (";", ")", ","):
                last += 1
                last = source.partner.get(last, last)
            yield swap(source, (place + 1, colon - 1), (colon + 1, last))


@operator
def removal(source):
    """A call, assignment, loop or jump removed, unless the jump leads to where the removal does, or
    the call only reserves memory."""
    idle = set(idle_breaks(source)) | set(idle_continues(source))
    for statement in statements(source):
        if statement.first in idle or reserves(source, statement):
            continue
        if statement.kind in ("expression", "loop") or source.slice(
            statement.first, statement.last) in ("return;", "continue;", "break;"):
            yield *source.span(statement.first, statement.last), ";"


@operator
def order(source):
    """Two neighbouring statements swapped, unless they only set different things, or the second one
    is a guard before which the first one only reads."""
    for statement in statements(source):
        if statement.kind == "block":
            for one, other in zip(statement.parts, statement.parts[1:]):
                if moves(source, one) and moves(source, other) and not (
                    commute(source, one, other) or is_read_before(source, one, other)
                    or reserves(source, one)):
                    yield swap(source, (one.first, one.last), (other.first, other.last))


@operator
def result(source):
    """What a function returns: the opposite truth, or an empty value."""
    for body in source.bodies:
        head = source.slice(body.head, body.block.first)
        for statement in body.block.all():
            if source.word(statement.first) != "return" or statement.last == statement.first + 1:
                continue
            start, end = source.span(statement.first + 1, statement.last - 1)
            if re.match(r"(inline |constexpr |static )*bool ", head):
                yield start, end, f"!({source.text[start:end]})"
            elif (source.tokens[statement.first + 1].kind != "number"
                  and source.text[start:end] not in ("false", "nullptr", "std::nullopt")):
                yield start, end, "{}"


@operator
def arguments(source):
    """Two neighbouring arguments, rows of a table or initial values swapped; for min and max, they
    are equivalent. Parameters, also those of a lambda, keep their order."""
    blocks = {statement.first for statement in statements(source) if statement.kind == "block"}
    bodies = [(body.block.first, body.block.last) for body in source.bodies]
    for place, token in signs(source):
        call = (token.text == "(" and source.word(place - 1) != "]"
                and any(first < place < last for first, last in bodies))
        values = (token.text == "{" and place not in blocks and not is_namespace(source, place)
                  and not is_enumeration(source, place))
        if (call or values) and name_before(source, place) not in ("for", "min", "max"):
            pieces = source.split(place + 1, source.partner[place] - 1)
            for one, other in zip(pieces, pieces[1:]):
                yield swap(source, one, other)


@operator
def related_name(source):
    """A name replaced by an easily confused one: Destroy for Install, Error for Success."""
    for token in code(source):
        for group in RELATED:
            for part in group:
                if token.kind == "word" and part in token.text:
                    for other in group:
                        if other != part:
                            yield token.start, token.end, token.text.replace(part, other)


@operator
def constant_name(source):
    """A constant of the file replaced by the next one."""
    names = [token.text for place, token in enumerate(source.tokens)
             if re.fullmatch(r"k[A-Z]\w*", token.text) and source.word(place + 1) in "{=["]
    for token in code(source):
        if token.text in names:
            yield token.start, token.end, names[(names.index(token.text) + 1) % len(names)]


@operator
def accessor(source):
    """A field replaced by the next one that the function reads from the same object."""
    for body in source.bodies:
        reads = {}
        for place in range(body.block.first, body.block.last):
            if source.word(place + 1) == "." and source.word(place + 3) == "(" and source.word(
                place + 4) == ")":
                reads.setdefault(source.word(place), []).append(place + 2)
        for places in reads.values():
            names = list(dict.fromkeys(source.word(place) for place in places))
            for place in places:
                name = names[(names.index(source.word(place)) + 1) % len(names)]
                yield *source.span(place, place), name


@operator
def initialiser(source):
    """A member or local variable without its initial value."""
    for one in source.classes:
        for first, last in members(source, one):
            for place in range(first, last):
                if source.word(place) == "=" and is_data(source, first, last):
                    yield source.tokens[place - 1].end, source.tokens[last].end, ""
    for statement in statements(source):
        if statement.kind == "declaration" and source.slice(
            statement.last - 2, statement.last) == "{};":
            yield *source.span(statement.last - 2, statement.last - 1), ""


@operator
def storage(source):
    """A static local variable created again on each call."""
    for statement in statements(source):
        if source.word(statement.first) == "static" and source.word(
            statement.first + 1) != "constexpr":
            yield source.tokens[statement.first].start, source.tokens[statement.first + 1].start, ""


@operator
def virtual(source):
    """An operation or destructor that is no longer virtual."""
    for place, token in enumerate(source.tokens):
        if token.text == "virtual":
            yield token.start, source.tokens[place + 1].start, ""


@operator
def static(source):
    """An operation that is not virtual made static."""
    for one in source.classes:
        for first, last in members(source, one):
            words = [source.word(place) for place in range(first, last + 1)]
            if ("(" in words[2:] and not SPECIAL & set(words)
                    and words[-1] == ")"):
                start = source.tokens[first].start
                yield start, start, "static "


@operator
def logging(source):
    """A trace that is written at any level; a line that is written at the trace level only."""
    for token in code(source):
        if token.text in LOGS:
            yield token.start, token.end, LOGS[token.text]


@operator
def setter(source):
    """A value added to a repeated field past the setter, which checks it."""
    for token in code(source):
        if added := re.fullmatch(r"add_(\w+)", token.text):
            yield token.start, token.end, f"mutable_{added[1]}()->Add"


@operator
def layout(source):
    """Two neighbouring base classes, data members or virtual operations swapped."""
    for one in source.classes:
        bases = [place for place in range(one.head, one.opening) if source.word(place) == "public"]
        for base, other in zip(bases, bases[1:]):
            last = next(place for place in range(other, one.opening + 1)
                        if source.word(place + 1) in ("{", ","))
            yield swap(source, (base, other - 2), (other, last))
        for chosen in (is_data, is_virtual):
            found = [member for member in members(source, one) if chosen(source, *member)]
            for member, other in zip(found, found[1:]):
                yield swap(source, member, other)


def signs(source):
    return [(place, token) for place, token in enumerate(source.tokens) if token.kind == "sign"]


def compiler_only_spans(source):
    """Code without meaning at run time: attributes, static assertions, the 0 of pure virtual."""
    for place, token in enumerate(source.tokens):
        if token.text in ("__attribute__", "static_assert"):
            yield token.start, source.tokens[source.partner[place + 1]].end
        elif token.text in ("override", "const", ")") and source.word(place + 1) == "=":
            yield source.tokens[place + 1].start, source.tokens[place + 2].end


def reserves(source, statement):
    """Whether a statement only reserves memory."""
    return re.fullmatch(r"[\w.>-]+\.reserve\(.*\);", source.slice(statement.first, statement.last))


def name_before(source, opening):
    """The name of what is called, also with template arguments."""
    if source.word(opening - 1) != ">":
        return source.word(opening - 1)
    place = opening - 1
    while place > 0 and source.word(place) != "<":
        place -= 1
    return source.word(place - 1)


def is_enumeration(source, opening):
    return "enum" in [source.word(place) for place in range(opening - 6, opening)]


def is_namespace(source, opening):
    """Whether a brace opens a namespace, in which commas separate members' initialisers."""
    place = opening - 1
    while source.tokens[place].kind == "word" and source.word(place) != "namespace" or source.word(
        place) == "::":
        place -= 1
    return source.word(place) == "namespace"


def is_log_site(source, token):
    statement = source.text[source.text.rfind(";", 0, token.start) + 1 : token.start]
    return "constexpr LogSite" in statement


def statements(source):
    for body in source.bodies:
        yield from body.block.all()


def code(source):
    """The tokens of all function bodies."""
    for body in source.bodies:
        yield from source.tokens[body.block.first : body.block.last]


def moves(source, statement):
    """Whether it matters when a statement runs: jumps stay last, plain declarations do nothing, and
    clang's thread-safety analysis refuses a lock in another place."""
    if statement.kind == "declaration":
        if "MutexLock" in source.slice(statement.first, statement.last):
            return False
        return "(" in source.slice(statement.first, statement.last)
    return statement.kind != "jump"


def idle_breaks(source):
    """The tokens of the breaks of a switch that another break or the switch's end follows."""
    for statement in statements(source):
        if statement.kind == "switch":
            parts = statement.parts[0].parts
            for one, other in zip(parts, parts[1:] + [None]):
                if source.word(one.first) == "break" and (
                    other is None or source.word(other.first) == "break"):
                    yield one.first


def idle_continues(source):
    """The tokens of the continues that end the body of a loop."""
    for statement in statements(source):
        if statement.kind == "loop":
            body = statement.parts[0]
            last = body.parts[-1] if body.kind == "block" and body.parts else body
            if source.word(last.first) == "continue":
                yield last.first


def is_read_before(source, one, other):
    """Whether a declaration only reads, and a guard follows that neither uses what it declares nor
    changes what it reads. Behind the guard, it is the same. (A guard may protect what follows it,
    so the reverse is not true.)"""
    if one.kind != "declaration" or other.kind != "if" or len(other.parts) != 1 or not (
        ends_with_jump(other.parts[0])):
        return False
    declared = effects_of(source, one)
    condition = effects_of(source, Statement("expression", *other.condition))
    if declared is None or condition is None or len(declared[1]) != 1:
        return False
    names = {path[0] for path in declared[1]}
    return not (overlap(condition[1], declared[0]) or names & {
        source.word(place) for place in range(other.first, other.last)})


def ends_with_jump(statement):
    while statement.kind == "block" and statement.parts:
        statement = statement.parts[-1]
    return statement.kind == "jump"


def commute(source, one, other):
    """Whether two statements only set different things, and neither reads what the other sets."""
    effects = [effects_of(source, statement) for statement in (one, other)]
    if None in effects:
        return False
    (reads, writes), (other_reads, other_writes) = effects
    return not (overlap(writes, other_reads | other_writes) or overlap(other_writes, reads))


def effects_of(source, statement):
    """What a statement reads and sets, as sets of paths such as ("a", "b") for a->b; nothing if it
    jumps or may call anything but READERS, GROWERS, setters and the clear of a member. Output to a
    stream sets the stream, and what all streams have in common."""
    reads, writes = set(), set()
    place = statement.first
    stream = re.match(r"\*?(\w+) <<", source.slice(statement.first, statement.last))
    if stream:
        writes |= {(stream[1],), ("<<",)}
    while place <= statement.last:
        word, before = source.word(place), source.word(place - 1)
        capture = source.word(place + 1) if source.word(place + 2) == "]" else ""
        if word == "[" and before == "=" and capture in ("&", "this"):
            # A lambda that is assigned does not run now.
            while source.word(place) != "{":
                place = source.partner.get(place, place) + 1
            place = source.partner[place] + 1
            continue
        if (word == ">>" or word == "<<" and not stream
                or word == "(" and before in (">", ")", "]")
                or word == "[" and source.tokens[place - 1].kind != "word"):
            return None
        if source.tokens[place].kind != "word":
            place += 1
            continue
        path = [word]
        while source.word(place + 1) in (".", "->", "::") and (
            source.tokens[place + 2].kind == "word"):
            place += 2
            path.append(source.word(place))
        place += 1
        if path[-1] in CASTS:
            while source.word(place) != "(":
                place += 1
        if word in NO_EFFECTS_OF:
            return None
        if source.word(place) == "(" and word not in ("if", "for", "switch"):
            name = path.pop()
            field = re.fullmatch(r"(?:set|add)_(\w+)", name)
            if path and field:
                writes.add((*path, field[1]))
            elif path and (name in GROWERS or name == "clear" and is_member(path)):
                writes.add(tuple(path))
            elif name not in READERS:
                return None
            elif path:
                reads.add(tuple(path))
            place += 1
            continue
        end = source.partner[place] + 1 if source.word(place) == "[" else place
        if source.word(end) in ASSIGNMENTS or before in ("++", "--"):
            writes.add(tuple(path))
        elif source.word(place) == "{" and word != "else":
            return None
        # The address of something does not depend on its value.
        if source.word(end) != "=" and (before != "&" or source.word(place) not in (")", ",")):
            reads.add(tuple(path))
    return reads, writes


def is_member(path):
    """Whether a path names a member of the own object. What a container of this project holds does
    not reach the object that holds the container, so clearing it changes only the container."""
    return len(path) == 1 and path[0].endswith("_")


def overlap(paths, others):
    """Whether a path is one of the others, a part of it or contains it."""
    return any(one[: len(other)] == other[: len(one)] for one in paths for other in others)


def members(source, one):
    """The declarations of a class, each without its semicolon."""
    first = place = one.opening + 1
    while place < one.closing:
        text = source.word(place)
        if source.is_access(place):
            first = place + 1
        elif text == ";":
            yield first, place - 1
            first = place + 1
        elif text == "{" and source.word(place - 1) in (")", "const", "noexcept", "override"):
            first = source.partner[place] + 1
        place = source.partner.get(place, place) + 1


def is_data(source, first, last):
    words = [source.word(place) for place in range(first, last + 1)]
    return "(" not in words and not {"using", "static", "friend"} & set(words)


def is_virtual(source, first, _):
    return source.word(first) == "virtual"


def swap(source, one, other):
    """Swaps two pieces and keeps what is between them."""
    start, end = source.span(one[0], other[1])
    between = source.text[source.tokens[one[1]].end : source.tokens[other[0]].start]
    return start, end, source.slice(*other) + between + source.slice(*one)
