"""The mutants of a C++ text: the same text changed in one place.

Comparisons are turned round and moved by one, operators swapped, conditions negated, numbers and characters moved by one,
texts shortened, statements left out. Comments, preprocessor lines, templates' angle brackets, attributes and assertions
at compile time stay as they are. What is a binary operator is seen by the blanks that clang-format sets around it.
"""

import dataclasses
import re


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str  # word, number, text, character, sign
    text: str
    start: int

    @property
    def end(self):
        return self.start + len(self.text)


@dataclasses.dataclass(frozen=True)
class Mutant:
    file: str
    line: int
    column: int
    before: str
    after: str
    start: int
    end: int
    source: str  # the line's text

    def name(self):
        return f"{self.file}:{self.line}:{self.column}: {shown(self.before)} -> {shown(self.after) or 'nothing'}"

    # What finds the same mutant again in a source that has moved since.
    def key(self):
        return [self.file, self.source, self.column, self.before, self.after]


def shown(text):
    text = " ".join(text.split())
    return text if len(text) <= 60 else text[:40] + " ... " + text[-15:]


TOKEN = re.compile(
    r"""(?P<skip>\s+|//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*(?:\\\n(?:[^\n\\]|\\.)*)*)
    |(?P<raw>(?:u8|[uUL])?R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)")
    |(?P<text>(?:u8|[uUL])?"(?:[^"\\\n]|\\.)*")
    |(?P<character>(?:u8|[uUL])?'(?:[^'\\\n]|\\.[^']*)')
    |(?P<number>\.?\d(?:[eE][+-]|'?[\w.])*)
    |(?P<word>[A-Za-z_]\w*)
    |(?P<sign><<=|>>=|<=>|\.\.\.|->\*|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)


def tokens_of(text):
    tokens = []
    for match in TOKEN.finditer(text):
        kind = match.lastgroup if match.lastgroup != "mark" else "raw"
        if kind == "skip":
            continue
        part = match.group()
        # The ends of two templates are no shift.
        if part == ">>" and not text[match.start() - 1].isspace():
            tokens += [Token("sign", ">", match.start()), Token("sign", ">", match.start() + 1)]
        else:
            tokens.append(Token(kind, part, match.start()))
    return tokens


SWAPS = {
    "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"], "==": ["!="], "!=": ["=="],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["/"], "&": ["|"], "|": ["&"],
    "^": ["|"], "<<": [">>"], ">>": ["<<"], "+=": ["-="], "-=": ["+="], "*=": ["/="], "|=": ["&="], "&=": ["|="],
    "++": ["--"], "--": ["++"], "true": ["false"], "false": ["true"],
}  # fmt: skip
SIDES_CLEAR = set("< <= > >= == != && || + - * / % & | ^ << >>".split())  # binary, as clang-format sets them
CLOSING = {"(": ")", "[": "]", "{": "}"}
NO_EXPRESSION = set(
    """alignas asm case catch class concept const constexpr constinit default delete do else enum explicit extern for
    friend goto if inline mutable namespace operator private protected public static static_assert struct switch template
    try typedef typename union using virtual volatile while auto bool char double float int long short signed unsigned
    void""".split()
)
CONDITION_ENDS = {"(", ",", ";", "{", "}", "[", "?", ":", "=", "return", "+=", "-=", "|=", "&=", "[["}


class Mutator:
    """All mutants of one text. It knows no types, and what makes no sense to the compiler is dropped later."""

    def __init__(self, file, text):
        self._file = file
        self._text = text
        self._tokens = tokens_of(text)
        self._partners = self._match_brackets()
        self._quiet = self._find_quiet()
        self._in_parentheses = self._find_parentheses()
        self.mutants = []

    def make(self):
        for index, token in enumerate(self._tokens):
            if index in self._quiet:
                continue
            self._change_token(index, token)
            self._change_condition(index, token)
            self._drop_statement(index)
        return self.mutants

    def _match_brackets(self):
        partners, open_ones = {}, []
        for index, token in enumerate(self._tokens):
            if token.kind != "sign":
                continue
            if token.text in CLOSING:
                open_ones.append(index)
            elif token.text in CLOSING.values():
                start = open_ones.pop()
                partners[start], partners[index] = index, start
        return partners

    def _at(self, index):
        return self._tokens[index].text if 0 <= index < len(self._tokens) else ""

    def _end_of_angles(self, index):
        depth = 0
        while index < len(self._tokens):
            depth += {"<": 1, ">": -1}.get(self._at(index), 0)
            index += 1
            if depth == 0:
                return index
        return index

    # What is no code that runs: assertions at compile time, attributes, template heads, linkage, the names of operators.
    def _find_quiet(self):
        quiet = set()
        for index, token in enumerate(self._tokens):
            last = None
            if token.text in ("static_assert", "__attribute__", "alignas", "noexcept", "asm"):
                last = self._partners.get(index + 1) if self._at(index + 1) == "(" else None
            elif token.text == "template":
                last = self._end_of_angles(index + 1) - 1
            elif token.text == "[" and self._at(index + 1) == "[":
                last = self._partners[index]
            elif token.text in ("extern", "operator"):
                last = index + 1
            elif token.text == "using" or token.kind == "raw":
                last = index
            if last is not None:
                quiet.update(range(index, last + 1))
        return quiet

    # Directly inside them, as in the head of a loop; a lambda's body is not.
    def _find_parentheses(self):
        inside, open_ones = set(), []
        for index, token in enumerate(self._tokens):
            if token.kind == "sign" and token.text in CLOSING:
                open_ones.append(token.text)
            elif token.kind == "sign" and token.text in CLOSING.values():
                open_ones.pop()
            elif open_ones and open_ones[-1] == "(":
                inside.add(index)
        return inside

    def _add(self, start, end, after):
        begin = self._text.rfind("\n", 0, start) + 1
        line = self._text[begin : self._text.find("\n", start)]
        number = self._text.count("\n", 0, start) + 1
        before = self._text[start:end]
        self.mutants.append(
            Mutant(self._file, number, start - begin + 1, before, after, start, end, line.strip())
        )

    def _is_clear(self, token):
        around = self._text[token.start - 1] + self._text[token.end]
        return around[0].isspace() and around[1].isspace()

    def _change_token(self, index, token):
        if token.kind in ("sign", "word"):
            if token.text not in SIDES_CLEAR or self._is_clear(token):
                for after in SWAPS.get(token.text, []) if not self._joins_texts(index) else []:
                    self._add(token.start, token.end, after)
            if token.text == "!":
                self._add(token.start, token.end, "")
        elif token.kind == "number":
            self._move_number(token)
        elif token.kind == "character":
            self._move_character(token)
        elif token.kind == "text":
            self._shorten_text(token)

    def _joins_texts(self, index):
        return self._at(index) == "+" and '"' in self._at(index - 1) + self._at(index + 1)

    def _move_number(self, token):
        match = re.fullmatch(r"(0[xX][0-9a-fA-F']+|0[bB][01']+|[0-9']+)([uUlLzZ]*)", token.text)
        if not match:
            return
        digits, suffix = match.groups()
        is_octal = re.fullmatch(r"0[0-7']+", digits)
        value = int(digits.replace("'", ""), 8 if is_octal else 0)
        written = {"x": hex, "b": bin}.get(digits[1:2].lower(), (lambda number: f"0{number:o}") if is_octal else str)
        for moved in (value + 1, value - 1):
            if moved >= 0:
                self._add(token.start, token.end, written(moved) + suffix)

    def _move_character(self, token):
        content = token.text[token.text.index("'") + 1 : -1]
        moved = "~"
        if len(content) == 1 and content.isascii():
            moved = chr(ord(content) + 1)
            moved = chr(ord(content) - 1) if moved in "'\\\x7f" else moved
        self._add(token.start, token.end, f"'{moved}'")

    # Without its first and without its last character, prose only without its last one; a text of one becomes empty, an
    # empty one gets one.
    def _shorten_text(self, token):
        start = token.text.index('"')
        parts = re.findall(r"\\x[0-9a-fA-F]+|\\[0-7]{1,3}|\\.|[^\\]", token.text[start + 1 : -1])
        shorter = [parts[1:], parts[:-1]] if len(parts) > 1 else [[] if parts else ["~"]]
        if re.search(r"\w \w", token.text):
            shorter = [parts[:-1]]
        for left in shorter:
            self._add(token.start, token.end, token.text[:start] + '"' + "".join(left) + '"')

    def _change_condition(self, index, token):
        if token.text in ("if", "while") and token.kind == "word":
            first = index + 1 + (self._at(index + 1) == "constexpr")
            if self._at(first) == "(":
                self._negate_from(first + 1, self._partners[first])
        elif token.text == "for" and self._at(index + 1) == "(":
            parts = self._split(index + 2, self._partners[index + 1])
            if len(parts) == 3 and parts[1][0] < parts[1][1]:
                self._negate(*parts[1])
        elif token.text == "?":
            first = index
            while first > 0 and self._at(first - 1) not in CONDITION_ENDS:
                first -= 1
                if self._at(first) in CLOSING.values():
                    first = self._partners[first]
            if first < index:
                self._negate(first, index)

    # The ranges between the semicolons at the top level.
    def _split(self, first, last):
        parts, start, index = [], first, first
        while index < last:
            if self._at(index) == ";":
                parts.append((start, index))
                start = index + 1
            index = self._partners[index] + 1 if self._at(index) in CLOSING else index + 1
        return parts + [(start, last)]

    def _negate_from(self, first, last):
        first, last = self._split(first, last)[-1]
        words = [token.text for token in self._tokens[first:last]]
        if "=" not in words:  # no declaration
            self._negate(first, last)

    # One comparison or one '!' is turned round by the change of the sign itself.
    def _negate(self, first, last):
        signs = [token.text for token in self._tokens[first:last] if self._turns(token)]
        if len(signs) == 1 and (signs != ["!"] or self._at(first) == "!"):
            return
        start, end = self._tokens[first].start, self._tokens[last - 1].end
        self._add(start, end, f"!({self._text[start:end]})")

    def _turns(self, token):
        comparison = token.text in ("<", "<=", ">", ">=") and self._is_clear(token)
        return token.kind == "sign" and (comparison or token.text in ("==", "!=", "&&", "||", "!"))

    def _drop_statement(self, index):
        if not self._starts_statement(index):
            return
        end = self._end_of_statement(index)
        if end is None:
            return
        token = self._tokens[index]
        if token.text == "return" and self._at(index - 1) == "{" and self._at(end + 1) == "}" and self._is_body(index - 1):
            return  # all that a function does
        if token.text in ("break", "continue", "return", "throw") or self._is_expression(index, end):
            self._add(token.start, self._tokens[end].end, ";")

    def _is_body(self, index):
        if self._at(index - 1) != ")":
            return self._at(index - 1) in ("const", "noexcept", "override")
        return self._at(self._partners[index - 1] - 1) not in ("if", "for", "while", "switch", "constexpr", "catch")

    def _starts_statement(self, index):
        before = self._at(index - 1)
        if index in self._in_parentheses:
            return False
        if before in (";", "}", "else", "do"):
            return True
        if before == "{":  # of a block, not of a list
            return self._at(index - 2) in (")", "else", "do", "try", "const", "noexcept", "override", ";", "}", "{", "]")
        if before == ")":
            opening = self._partners[index - 1]
            return self._at(opening - 1) in ("if", "for", "while", "switch", "constexpr")
        return before == ":" and self._at(index - 2) == "default"

    def _end_of_statement(self, index):
        while index < len(self._tokens):
            if self._at(index) == ";":
                return index
            if self._at(index) in CLOSING.values():
                return None
            index = self._partners[index] + 1 if self._at(index) in CLOSING else index + 1
        return None

    # A call, an assignment or a step, and no declaration: those begin with two names, or a name and a template's angles.
    def _is_expression(self, index, end):
        if self._at(end - 1) in ("default", "delete"):
            return False
        while self._at(index) in ("*", "(", "++", "--"):
            if self._at(index) == "(":
                return True
            index += 1
        if self._tokens[index].kind != "word" or self._at(index) in NO_EXPRESSION:
            return False
        while index < end:
            following = self._at(index + 1)
            if following in ("::", ".", "->"):
                index += 2
            elif following in ("(", "["):
                index = self._partners[index + 1]
            elif following == "<" and not self._text[self._tokens[index + 1].start - 1].isspace():
                index = self._end_of_angles(index + 1) - 1
                if self._at(index + 1) not in ("(", "::"):
                    return False
            else:
                kind = self._tokens[index + 1].kind
                return kind == "sign" and following not in ("{", "&", "*", "&&")
        return True
