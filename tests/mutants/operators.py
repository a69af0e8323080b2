"""The changes that a mutation run makes, one at a time."""

import dataclasses
import re

from mutants.cpp import Source

_COMPARISONS = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"}
_LOGIC = {"&&": "||", "||": "&&"}
_INTEGER = re.compile(r"(0[xX][0-9a-fA-F']+|[0-9][0-9']*)[uUlL]*")
_TRUTH = {"true": "false", "false": "true"}
_DECLARING = {
    "alignas", "auto", "case", "catch", "class", "const", "constexpr", "default", "delete", "do", "else", "enum", "explicit",
    "extern", "for", "friend", "if", "inline", "namespace", "private", "protected", "public", "return", "static", "static_assert",
    "struct", "switch", "template", "try", "typedef", "union", "using", "virtual", "while",
}  # fmt: skip
_BEFORE_A_STATEMENT = {";", "{", "}", ")", "else", "do", ":"}
_SILENT = {"LogDebug", "LogTrace"}  # they write nothing, so that no test can miss them


@dataclasses.dataclass(frozen=True)
class Mutation:
    path: str
    line: int
    start: int  # offsets in the file
    end: int
    replacement: str
    kind: str

    def apply(self, text):
        return text[: self.start] + self.replacement + text[self.end:]

    def describe(self, text):
        def short(piece):
            return " ".join(piece.split())[:70] or "nothing"

        return f"{self.path}:{self.line}: {self.kind}: {short(text[self.start:self.end])}  ->  {short(self.replacement)}"


def mutations(path, text):
    """All mutations of one file, in the order of their places."""
    source = Source(text)
    skipped = _untestable(source)
    found = []
    for operator in (_comparisons, _constants, _negations, _conditions, _removals, _returns, _swaps):
        for index, last, replacement in operator(source):
            if index in skipped:
                continue
            first, end = source.tokens[index], source.tokens[last].end
            found.append(Mutation(path, source.line(first), first.start, end, replacement, operator.__name__.strip("_")))
    return sorted(found, key=lambda mutation: (mutation.start, mutation.end))


def _untestable(source):
    """Tokens of assertions that the compiler checks, and of log calls that write nothing."""
    skipped = set()
    for index, token in enumerate(source.tokens[:-1]):
        if token.text in _SILENT | {"static_assert", "alignas"} and index + 1 in source.partner:
            skipped.update(range(index, source.partner[index + 1] + 1))
    return skipped


# Each operator yields (first token, last token, replacement).


def _comparisons(source):
    for index, token in enumerate(source.tokens):
        change = {**_COMPARISONS, **_LOGIC}.get(token.text)
        if change and token.kind == "mark" and source.is_spaced(token):
            yield index, index, change


def _constants(source):
    for index, token in enumerate(source.tokens):
        if token.text in _TRUTH:
            yield index, index, _TRUTH[token.text]
        elif token.kind == "number" and _INTEGER.fullmatch(token.text):
            yield index, index, "1" if token.text == "0" else f"({token.text} + 1)"


def _negations(source):
    for index, token in enumerate(source.tokens[:-1]):
        if token.text == "!":
            yield index, index, ""


def _conditions(source):
    for index, token in enumerate(source.tokens[:-1]):
        if token.text not in ("if", "while") or index + 1 not in source.partner:
            continue
        first, last = index + 2, source.partner[index + 1] - 1
        for semicolon in range(first, last):
            if source.tokens[semicolon].text == ";":
                first = semicolon + 1
        inner = source.tokens[first:last + 1]
        if inner[0].text == "!" and not any(each.text in (*_COMPARISONS, *_LOGIC) for each in inner):
            continue  # the removal of the "!" is the same change
        assigned = [place for place, each in enumerate(inner) if each.text == "="]
        if assigned and inner[assigned[0] - 1].kind == "name":
            yield first, last, f"{source.slice(first, last)}; !({inner[assigned[0] - 1].text})"
        else:
            yield first, last, f"!({source.slice(first, last)})"


def _statements(source):
    """The first and the last token of each simple statement."""
    for index, token in enumerate(source.tokens):
        if not source.in_code[index] or token.kind not in ("name", "mark") or token.text in _BEFORE_A_STATEMENT:
            continue
        line_begin = source.text.rfind("\n", 0, token.start) + 1
        if source.text[line_begin:token.start].strip() or source.tokens[index - 1].text not in _BEFORE_A_STATEMENT:
            continue
        last = index
        while last < len(source.tokens) and source.tokens[last].text not in (";", "}"):
            last = source.partner.get(last, last) + 1 if source.tokens[last].text in ("(", "[", "{") else last + 1
        if last < len(source.tokens) and source.tokens[last].text == ";":
            yield index, last


# A declaration is left in: without it nothing compiles, and the loss of a lock is for ThreadSanitizer to find.
def _removals(source):
    for first, last in _statements(source):
        names = source.tokens[first].kind == "name"
        depth, declares = 0, False
        for here, following in zip(source.tokens[first:last], source.tokens[first + 1:last + 1]):
            depth += (here.text in ("(", "[", "{")) - (here.text in (")", "]", "}"))
            declares |= depth == 0 and here.text != "throw" and here.kind == following.kind == "name"
            declares |= depth == 0 and here.text == ">" and following.kind == "name"
        if not declares and not (names and source.tokens[first].text in _DECLARING):
            yield first, last, ";"


def _returns(source):
    for first, last in _statements(source):
        value = source.tokens[first + 1:last]
        if source.tokens[first].text != "return" or not value:
            continue
        if len(value) > 1 or (value[0].kind == "name" and value[0].text not in (*_TRUTH, "nullptr")):
            yield first, last, "return {};"


def _swaps(source):
    for index, token in enumerate(source.tokens[:-1]):
        opening = index + 1
        if token.kind != "name" or not source.in_code[index] or source.tokens[opening].text != "(":
            continue
        if token.text in _DECLARING or opening not in source.partner or source.tokens[index - 1].kind == "name":
            continue
        parts = source.split(opening + 1, source.partner[opening] - 1)
        for (first, end), (begin, last) in zip(parts, parts[1:]):
            one, other = source.slice(first, end), source.slice(begin, last)
            # The format of a log line comes first.
            if one != other and not {"{", "[", '"'} & set(one + other):
                yield first, last, f"{other}, {one}"
                break
