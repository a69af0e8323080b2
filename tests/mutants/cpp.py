"""Splits C++ source into tokens, and marks those in the body of a function, as far as the mutation operators need it.

It relies on the layout that clang-format enforces: a binary operator has a space on both sides, a template's bracket has none.
"""

import dataclasses
import re

_TOKEN = re.compile(
    r"""
    (?P<skip>//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:\\\n|[^\n])*|\s+)
  | (?P<string>(?:u8|[uLU])?R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|(?:u8|[uLU])?"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*')
  | (?P<number>\.?\d(?:[eEpP][+-]|[\w.']|)*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<mark_>::|->\*?|<<=|>>=|<=>|<<|>>|[-+*/%&|^=!<>]=|&&|\|\||\+\+|--|\.\.\.|.)
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
_OPENING = {"(": ")", "[": "]", "{": "}"}
_TYPES = {"struct", "class", "enum", "union"}
_BEFORE_A_BLOCK = {")", "]", "const", "noexcept", "override", "final", "mutable", "else", "do", "try", ";", "{", "}", ":"}


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str  # "string", "number", "name" or "mark"
    text: str
    start: int
    end: int


class Source:
    """The tokens of one file. `partner` maps the index of each bracket to that of its counterpart; `in_code` has one
    entry for each token: whether it belongs to the body of a function."""

    def __init__(self, text):
        self.text = text
        self.tokens = [
            Token(match.lastgroup.rstrip("_"), match.group(), match.start(), match.end())
            for match in _TOKEN.finditer(text)
            if match.lastgroup != "skip"
        ]
        self.partner = {}
        self.in_code = []
        self._match_brackets()

    def line(self, token):
        return self.text.count("\n", 0, token.start) + 1

    def is_spaced(self, token):
        """Whether the token is laid out like a binary operator."""
        return self.text[token.start - 1].isspace() and self.text[token.end].isspace()

    def slice(self, first, last):
        """The text from token `first` to token `last`, both included."""
        return self.text[self.tokens[first].start:self.tokens[last].end]

    def split(self, first, last):
        """The ranges between the commas of a list of tokens, brackets respected."""
        parts, begin, index = [], first, first
        while index <= last:
            if self.tokens[index].text in _OPENING and index in self.partner:
                index = self.partner[index]
            elif self.tokens[index].text == ",":
                parts.append((begin, index - 1))
                begin = index + 1
            index += 1
        return [*parts, (begin, last)]

    def _match_brackets(self):
        open_brackets = []  # index, and whether what it encloses is code
        boundary = 0  # the first token of the current declaration
        for index, token in enumerate(self.tokens):
            code = open_brackets[-1][1] if open_brackets else False
            self.in_code.append(code)
            if token.kind != "mark":
                continue
            if token.text in _OPENING:
                inner = self._begins_code(index, boundary) if token.text == "{" else code
                open_brackets.append((index, inner))
            elif open_brackets and _OPENING[self.tokens[open_brackets[-1][0]].text] == token.text:
                opening = open_brackets.pop()[0]
                self.partner[opening], self.partner[index] = index, opening
            if token.text in ";{}":
                boundary = index + 1

    def _begins_code(self, index, boundary):
        declaration = [token.text for token in self.tokens[boundary:index]]
        if "namespace" in declaration or (_TYPES & set(declaration) and "(" not in declaration):
            return False
        return index > 0 and self.tokens[index - 1].text in _BEFORE_A_BLOCK
