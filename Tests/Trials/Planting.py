"""Single mistakes that a hand could make in a C++ source, found by its tokens.

A source is only cut into tokens, not parsed: what a kind takes for its own is recognised by how the project's formatting
writes it (a comparison has blanks around it, a template's bracket has none). A place that was taken wrongly does not
compile and is counted as that.
"""

import re
from dataclasses import dataclass

TOKEN = re.compile(
    r"""(?P<blank>\s+)
      | (?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<directive>(?<![^\n])\#(?:[^\n\\]|\\.)*)
      | (?P<text>"(?:[^"\\\n]|\\.)*")
      | (?P<char>'(?:[^'\\\n]|\\.)*')
      | (?P<number>\d[\w.']*)
      | (?P<name>[A-Za-z_]\w*)
      | (?P<sign><<=|>>=|->\*|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)""",
    re.VERBOSE | re.DOTALL,
)

OPENING = {"(": ")", "[": "]", "{": "}"}
CLOSING = {closing: opening for opening, closing in OPENING.items()}


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    begin: int

    @property
    def end(self):
        return self.begin + len(self.text)


@dataclass(frozen=True)
class Mistake:
    """One change of one source: the text from begin to end gives way to another."""

    kind: str
    begin: int
    end: int
    text: str

    def plant(self, source):
        return source[: self.begin] + self.text + source[self.end :]


def tokens_of(source):
    """The tokens that the compiler acts on; macros' definitions and other directives are left out."""
    found = []
    for match in TOKEN.finditer(source):
        if match.lastgroup not in ("blank", "comment", "directive"):
            found.append(Token(match.lastgroup, match.group(), match.start()))
    return found


def neighbours(names):
    """Each name's next one, the last one's previous."""
    return {name: names[i + 1] if i + 1 < len(names) else names[i - 1] for i, name in enumerate(names)}


class Planter:
    """Finds the mistakes that a source has room for.

    codes: the result codes in the order of their values.
    """

    def __init__(self, source, codes):
        self.source = source
        self.codes = neighbours(codes)
        self.tokens = tokens_of(source)
        self.partner = self._pair()
        self.mistakes = []

    def find(self):
        for step in (
            self._codes,
            self._signs,
            self._numbers,
            self._texts,
            self._statements,
            self._conditions,
            self._choices,
            self._returns,
            self._arguments,
            self._exchanged_checks,
            self._initialisers,
        ):
            step()
        unique = {}
        asserted = list(self._assertions())
        for mistake in self.mistakes:
            if any(begin <= mistake.begin < end for begin, end in asserted):
                continue
            if mistake.plant(self.source) != self.source:
                unique.setdefault((mistake.begin, mistake.end, mistake.text), mistake)
        return sorted(unique.values(), key=lambda mistake: (mistake.begin, mistake.end, mistake.kind, mistake.text))

    # What the tokens tell

    def _pair(self):
        partner, open_ones = {}, []
        for i, token in enumerate(self.tokens):
            if token.kind != "sign":
                continue
            if token.text in OPENING:
                open_ones.append(i)
            elif token.text in CLOSING and open_ones:
                begin = open_ones.pop()
                partner[begin], partner[i] = i, begin
        return partner

    def _text(self, i):
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def _spaced(self, i):
        token = self.tokens[i]
        return self.source[token.begin - 1 : token.begin].isspace() and self.source[token.end : token.end + 1].isspace()

    def _is_operand_end(self, i):
        return 0 <= i and (self.tokens[i].kind in ("name", "number", "text", "char") or self._text(i) in (")", "]"))

    def _add(self, kind, first, last, text):
        """Replaces the tokens from first to last. Lines keep their numbers."""
        begin, end = self.tokens[first].begin, self.tokens[last].end
        lost = self.source.count("\n", begin, end) - text.count("\n")
        self.mistakes.append(Mistake(kind, begin, end, text + "\n" * max(0, lost)))

    def _assertions(self):
        """What the compiler holds itself: a mistake there is no mistake of the program."""
        for i, token in enumerate(self.tokens):
            if token.text == "static_assert" and i + 1 in self.partner:
                yield token.begin, self.tokens[self.partner[i + 1]].end

    def _piece(self, first, last):
        return self.source[self.tokens[first].begin : self.tokens[last].end]

    def _arguments_of(self, opening):
        """The first and last token of each argument between a bracket and its partner."""
        closing = self.partner.get(opening)
        if closing is None or closing == opening + 1:
            return []
        pieces, begin, i = [], opening + 1, opening + 1
        while i < closing:
            if self._text(i) in OPENING and i in self.partner:
                i = self.partner[i]
            elif self._text(i) == ",":
                pieces.append((begin, i - 1))
                begin = i + 1
            i += 1
        pieces.append((begin, closing - 1))
        return [(first, last) for first, last in pieces if first <= last]

    def _is_call(self, opening):
        """Whether a bracket holds a call's arguments, not a condition or a declaration's parameters."""
        name = opening - 1
        if self._text(opening) != "(" or name < 0 or self.tokens[name].kind != "name":
            return False
        if self._text(name) in ("if", "while", "for", "switch", "return", "sizeof", "catch", "noexcept", "operator"):
            return False
        after = self.partner.get(opening, len(self.tokens)) + 1
        if self._text(after) in ("const", "override", "noexcept"):
            return False
        if self._text(after) == "{":
            return False
        return True

    def _traces(self):
        """The opening bracket of every trace, with how many arguments stand before its text."""
        before = {"AF_TRACE": 1, "AF_TRACE_AS": 2}
        for i, token in enumerate(self.tokens):
            if token.kind == "name" and token.text in before and self._text(i + 1) == "(":
                yield i + 1, before[token.text]

    # The kinds

    def _codes(self):
        for i, token in enumerate(self.tokens):
            if token.kind == "name" and token.text in self.codes:
                self._add("code", i, i, self.codes[token.text])
        for opening, position in self._traces():
            arguments = self._arguments_of(opening)
            first, last = arguments[position - 1]
            if first == last:
                levels = {"eAF_E": "eAF_W_WARNING", "eAF_W": "eAF_I_INFO", "eAF_I": "eAF_DEBUG", "eAF_D": "eAF_I_INFO"}
                other = levels.get(self._text(first)[:5])
                if other:
                    self._add("trace-level", first, last, other)

    def _signs(self):
        turned = {"<": (">=", "<="), "<=": (">", "<"), ">": ("<=", ">="), ">=": ("<", ">"), "==": ("!=",), "!=": ("==",)}
        exchanged = {"&&": ("logic", "||"), "||": ("logic", "&&"), "+": ("arithmetic", "-"), "-": ("arithmetic", "+"),
                     "*": ("arithmetic", "+"), "/": ("arithmetic", "*"), "%": ("arithmetic", "/"), "|": ("bits", "&"),
                     "&": ("bits", "|"), "+=": ("arithmetic", "-="), "-=": ("arithmetic", "+="), "<<": ("bits", ">>"),
                     ">>": ("bits", "<<")}
        for i, token in enumerate(self.tokens):
            if token.kind != "sign":
                continue
            if token.text in turned and self._spaced(i) and self._text(i - 1) not in ("template", "operator"):
                self._add("comparison", i, i, turned[token.text][0])
                for other in turned[token.text][1:]:
                    self._add("off-by-one", i, i, other)
            elif token.text in exchanged and self._spaced(i) and self._is_operand_end(i - 1):
                kind, other = exchanged[token.text]
                self._add(kind, i, i, other)
            elif token.text == "!" and self._text(i + 1) != "=":
                self._add("condition", i, i, "")

    def _numbers(self):
        for i, token in enumerate(self.tokens):
            if token.kind == "number" and re.fullmatch(r"(0[xX][0-9a-fA-F']+|\d+)[uUlL]*", token.text):
                self._add("off-by-one", i, i, f"({token.text} + 1)")
            elif token.text == "[" and self._is_operand_end(i - 1) and i in self.partner and self.partner[i] > i + 1:
                first, last = i + 1, self.partner[i] - 1
                if self.tokens[first].kind == "name":
                    self._add("off-by-one", first, last, f"{self._piece(first, last)} + 1")

    def _texts(self):
        traced = set()
        for opening, position in self._traces():
            arguments = self._arguments_of(opening)
            for first, last in arguments[position : position + 1]:
                traced.update(range(first, last + 1))
            self._format_arguments(arguments[position:])
        for i, token in enumerate(self.tokens):
            if token.kind != "text" or len(token.text) < 3 or self._text(i - 1) == "extern":
                continue
            letters = [at for at in range(1, len(token.text) - 1) if self._is_plain_letter(token.text, at)]
            if letters:
                at = letters[len(letters) // 2]
                other = "x" if token.text[at] != "x" else "y"
                kind = "trace-text" if i in traced else "text"
                self._add(kind, i, i, token.text[:at] + other + token.text[at + 1 :])

    @staticmethod
    def _is_plain_letter(text, at):
        """Not one of a placeholder or of an escape."""
        return text[at].isalpha() and not re.search(r"(%[#0-9.*lzh]*|\\)$", text[:at])

    def _format_arguments(self, arguments):
        if len(arguments) < 2:
            return
        first, last = arguments[0]
        placeholders = re.findall(r"%[#0-9.lzh]*([a-zA-Z])", self._piece(first, last))
        for placeholder, (first, last) in zip(placeholders, arguments[1:]):
            piece = self._piece(first, last)
            self._add("trace-argument", first, last, '"?"' if placeholder == "s" else f"({piece}) + 1")

    def _statements(self):
        """Calls, assignments, locks and steps that stand alone."""
        for i in range(len(self.tokens)):
            if self._text(i - 1) not in (";", "{", "}") or self._text(i) in OPENING or self._text(i) in CLOSING:
                continue
            end = self._end_of_statement(i)
            if end is None:
                continue
            words = [self._text(j) for j in range(i, end)]
            if not words or words[0] in (",", ":", "return", "case", "default", "using", "break", "continue", "goto", "throw",
                                         "static_assert", "namespace", "struct", "class", "if", "for", "while", "do",
                                         "else", "try", "extern", "friend", "public", "private", "template"):
                continue
            if any("lock_guard" in word for word in words):
                self._add("lock", i, end, ";")
            elif any("unique_lock" in word for word in words) and words[-1] == ")":
                self._add("lock", end - 1, end, ", std::defer_lock);")
            elif words[0] in ("++", "--") or words[-1] in ("++", "--"):
                self._add("step", i, end, ";")
            elif self._is_assignment(i, end):
                self._add("assignment", i, end, ";")
            elif words[-1] == ")" and self._is_call_chain(i, end):
                kind = "lock" if words[-3:-2] == ["lock"] or words[-3:-2] == ["unlock"] else "call"
                self._add(kind, i, end, ";")
        for i, token in enumerate(self.tokens):
            # The step of a loop's head.
            if token.text in ("++", "--") and self._text(i - 1) == ";" and self._text(i + 2) == ")":
                self._add("step", i, i + 1, "")

    def _end_of_statement(self, i):
        while i < len(self.tokens):
            if self._text(i) == ";":
                return i
            if self._text(i) in CLOSING:
                return None
            if self._text(i) in OPENING:
                if i not in self.partner:
                    return None
                i = self.partner[i]
            i += 1
        return None

    def _is_assignment(self, first, end):
        """`place = value`, no declaration: what stands before the sign holds no two names in a row."""
        depth_zero = []
        i = first
        while i < end:
            if self._text(i) in OPENING and i in self.partner:
                depth_zero.append(i)
                i = self.partner[i]
            elif self._text(i) in ("=", "+=", "-=", "|=", "&="):
                break
            else:
                depth_zero.append(i)
            i += 1
        else:
            return False
        names = [self.tokens[j].kind == "name" for j in depth_zero]
        if any(a and b for a, b in zip(names, names[1:])):
            return False
        return not any(self._text(j) in ("const", "auto", "&", "<", ">") or
                       (self._text(j) == "*" and j != first) for j in depth_zero)

    def _is_call_chain(self, first, end):
        i = first
        while i < end:
            if self._text(i) in OPENING and i in self.partner:
                i = self.partner[i]
            elif self.tokens[i].kind == "name":
                if i + 1 < end and self.tokens[i + 1].kind == "name":
                    return False
            elif self._text(i) not in ("::", ".", "->", "<", ">"):
                return False
            i += 1
        return True

    def _conditions(self):
        for i, token in enumerate(self.tokens):
            if token.text in ("if", "while") and self._text(i + 1) == "(" and i + 1 in self.partner:
                first, last = i + 2, self.partner[i + 1] - 1
                if ";" not in [self._text(j) for j in range(first, last)]:
                    self._add("condition", first, last, f"!({self._piece(first, last)})")

    def _choices(self):
        """The two sides of `condition ? one : other` exchanged."""
        for i, token in enumerate(self.tokens):
            if token.text != "?":
                continue
            middle, depth = None, 0
            j = i + 1
            while j < len(self.tokens):
                text = self._text(j)
                if text in OPENING and j in self.partner:
                    j = self.partner[j]
                elif text == "?":
                    depth += 1
                elif text == ":" and depth:
                    depth -= 1
                elif text == ":" and middle is None:
                    middle = j
                elif text in CLOSING or text in (";", ","):
                    break
                j += 1
            if middle is not None:
                one, other = self._piece(i + 1, middle - 1), self._piece(middle + 1, j - 1)
                self._add("condition", i + 1, j - 1, f"{other} : {one}")

    def _returns(self):
        for i, token in enumerate(self.tokens):
            if token.text != "return" or self._text(i + 2) != ";":
                continue
            value = self._text(i + 1)
            if value.startswith("eAF_E_"):
                self._add("return", i + 1, i + 1, "eAF_S_OK")
            elif value in ("true", "false"):
                self._add("return", i + 1, i + 1, "false" if value == "true" else "true")

    def _arguments(self):
        for opening in self.partner:
            if not self._is_call(opening) or self._text(opening - 1).startswith("AF_TRACE"):
                continue
            arguments = self._arguments_of(opening)
            if any(self._is_declaration(first, last) for first, last in arguments):
                continue
            for (a, b), (c, d) in zip(arguments, arguments[1:]):
                one, other = self._piece(a, b), self._piece(c, d)
                between = self.source[self.tokens[b].end : self.tokens[c].begin]
                self._add("exchanged-arguments", a, d, other + between + one)

    def _is_declaration(self, first, last):
        """A parameter, no argument: a type and a name beside each other."""
        words = [self.tokens[i] for i in range(first, last + 1) if self._text(i) not in ("*", "&", "&&")]
        if any(a.kind == "name" == b.kind and a.text not in ("new", "sizeof") for a, b in zip(words, words[1:])):
            return True
        return len(words) > 1 and self._text(last - 1) in ("*", "&") and not self._spaced(last - 1)

    def _exchanged_checks(self):
        """Two `if (...) {...}` that follow each other, none with an else; each keeps its line."""
        for i, token in enumerate(self.tokens):
            if token.text != "if" or self._text(i - 1) == "else":
                continue
            end = self._end_of_check(i)
            if end is None or self._text(end + 1) != "if":
                continue
            last = self._end_of_check(end + 1)
            if last is None:
                continue
            one, other = self._piece(i, end), self._piece(end + 1, last)
            begins = [self.source.count("\n", 0, self.tokens[j].begin) + 1 for j in (i, end + 1)]
            after = self.source.count("\n", 0, self.tokens[last].end) + 2
            text = f"\n#line {begins[1]}\n{other}\n#line {begins[0]}\n{one}\n#line {after - 1}\n"
            self.mistakes.append(Mistake("exchanged-checks", token.begin, self.tokens[last].end, text))

    def _end_of_check(self, i):
        closing = self.partner.get(i + 1)
        if closing is None or self._text(closing + 1) != "{" or closing + 1 not in self.partner:
            return None
        end = self.partner[closing + 1]
        return None if self._text(end + 1) == "else" else end

    def _initialisers(self):
        for i, token in enumerate(self.tokens):
            if token.text in ("true", "false") and self._text(i - 1) != "return":
                self._add("initialiser", i, i, "false" if token.text == "true" else "true")
