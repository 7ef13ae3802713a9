"""Small faults that can be seeded into C++ sources, found by a lexer and the layout that clang-format gives them."""
import random
import re
from dataclasses import dataclass

KINDS = ["bound", "bit", "arguments", "condition", "comparison", "logic", "arithmetic", "statement", "return removed",
         "return added", "string", "row"]

LEXER = re.compile(
    r'(?P<comment>//[^\n]*|/\*.*?\*/)'
    r'|(?P<directive>^[ \t]*\#(?:\\\n|[^\n])*)'
    r'|(?P<raw>(?:u8)?R"(?P<delimiter>[^(\s]*)\(.*?\)(?P=delimiter)")'
    r'|(?P<string>"(?:\\.|[^"\\\n])*")'
    r"|(?P<char>'(?:\\.|[^'\\\n])+')"
    r"|(?P<number>0[xX][0-9a-fA-F']+[uUlLzZ]*|\d[\d'.]*(?:[eE][+-]?\d+)?[uUlLzZfF]*)"
    r'|(?P<name>[A-Za-z_]\w*)'
    r'|(?P<mark><<=|>>=|<=>|->\*|\.\.\.|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|[-+*/%&|^~!<>=?:;,.(){}\[\]])',
    re.M | re.S)
SWAPPED = {
    "comparison": {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="},
    "logic": {"&&": "||", "||": "&&"},
    "arithmetic": {"+": "-", "-": "+", "&": "|", "|": "&", "<<": ">>", ">>": "<<", "+=": "-=", "-=": "+="},
}
NOT_EXPRESSIONS = {"if", "for", "while", "switch", "do", "else", "return", "case", "default", "using", "static", "try",
                   "constexpr", "const", "auto", "struct", "class", "enum", "typedef", "template", "typename", "catch",
                   "public", "private", "protected", "goto", "namespace", "static_assert"}
UNORDERED = {"gate", "either", "any", "profile"}  # calls that mean the same in whatever order their arguments are
OPENING, CLOSING = "({[", ")}]"


@dataclass(frozen=True)
class Fault:
    """`text[start:end]` of `file` becomes `new`."""
    file: str
    line: int
    kind: str
    start: int
    end: int
    new: str
    before: str  # the changed lines, in one, without indentation
    after: str


@dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int
    match: int = -1  # of brackets: the index of the other one
    role: str = ""  # of an opening brace: namespace, type, body or data


class Source:
    """A file's tokens, with the role of each pair of braces."""

    def __init__(self, file, text):
        self.file, self.text = file, text
        self.tokens = []
        for found in LEXER.finditer(text):
            kind = found.lastgroup if found.lastgroup != "delimiter" else "raw"
            if kind not in ("comment", "directive"):
                self.tokens.append(Token(kind, found[0], found.start(), found.end()))
        self._match_brackets()
        self._skipped = self._skipped_spans()

    def _match_brackets(self):
        stack, start = [], 0  # start: of the declaration or statement that the token is in
        for index, token in enumerate(self.tokens):
            if token.text in OPENING and token.kind == "mark":
                if token.text == "{":
                    token.role = self._role(index, start, [self.tokens[i] for i in stack])
                stack.append(index)
            elif token.text in CLOSING and token.kind == "mark" and stack:
                opening = stack.pop()
                token.match, self.tokens[opening].match = opening, index
                token.role = self.tokens[opening].role
            if token.text in ";}" or (token.text == "{" and token.role != "data"):
                start = index + 1

    def _role(self, index, start, open_brackets):
        braces = [bracket.role for bracket in open_brackets if bracket.text == "{"]
        outer = braces[-1] if braces else "namespace"
        in_parentheses = bool(open_brackets) and open_brackets[-1].text != "{"
        previous = self.tokens[index - 1].text if index else ""
        head = [token.text for token in self.tokens[start:index]]
        if head[:1] in (["namespace"], ["extern"]) and "(" not in head:
            return "namespace"
        if not in_parentheses and set(head[:3]) & {"struct", "class", "union"} and "(" not in head and "=" not in head:
            return "type"
        if previous in (")", "]", "const", "noexcept", "override", "mutable", "else", "do", "try", "final"):
            # A capture list is the only pair of square brackets that braces of a body follow.
            return "data" if previous == "]" and not in_parentheses and "=" not in head else "body"
        if "->" in head and previous != "=" and self.tokens[index - 1].kind == "name" and in_parentheses:
            return "body"
        if not in_parentheses and outer == "body" and previous in (";", "{", "}", ":"):
            return "body"
        if not in_parentheses and outer in ("namespace", "type") and previous == "}" and ":" in head:
            return "body"  # after the initialisers of a constructor
        return "data"

    def _skipped_spans(self):
        spans = []
        for index, token in enumerate(self.tokens[:-1]):
            following = self.tokens[index + 1]
            if token.text == "static_assert" and following.match > 0:
                spans.append((token.start, self.tokens[following.match].end))
            if token.text == "extern" and following.kind == "string":
                spans.append((token.start, following.end))
        return spans

    def skipped(self, token):
        return any(start <= token.start < end for start, end in self._skipped)

    def spaced(self, token):
        """Whether this is a binary operator: only those have space on both sides."""
        return self.text[token.start - 1] == " " and self.text[token.end] in " \n"

    def fault(self, kind, start, end, new):
        first, last = self.text.rfind("\n", 0, start) + 1, self.text.find("\n", end)
        last = len(self.text) if last < 0 else last
        before = self.text[first:last]
        after = self.text[first:start] + new + self.text[end:last]
        return Fault(self.file, self.text.count("\n", 0, start) + 1, kind, start, end, new, " ".join(before.split()),
                     " ".join(after.split()))

    def in_header(self, index):
        """Whether a token is in parentheses, as the header of a loop."""
        opening = max((i for i in range(index) if self.tokens[i].text in OPENING and self.tokens[i].match > index),
                      default=None)
        return opening is not None and self.tokens[opening].text != "{"

    def scope(self, index):
        """The roles of the braces around a token, from the outermost."""
        return [token.role for token in self.tokens[:index] if token.text == "{" and token.match > index]


def numbers(source):
    for token in source.tokens:
        found = re.fullmatch(r"(0[xX][0-9a-fA-F']+|\d[\d']*)([uUlLzZ]*)", token.text)
        if token.kind != "number" or source.skipped(token) or not found:
            continue
        digits = found[1].replace("'", "")
        base = 16 if digits[:2] in ("0x", "0X") else 10
        value = int(digits, base)
        width = len(digits) - 2 if base == 16 else 0

        def written(number):
            return (f"0x{number:0{width}X}" if base == 16 else str(number)) + found[2]

        yield source.fault("bound", token.start, token.end, written(value + 1))
        if value > 0:
            yield source.fault("bound", token.start, token.end, written(value - 1))
        if value > 1:
            choice = random.Random(f"{source.file}:{token.start}")
            flipped = value ^ (1 << choice.randrange(1, value.bit_length()))
            yield source.fault("bit", token.start, token.end, written(flipped))


def operators(source):
    for token in source.tokens:
        if token.kind != "mark" or source.skipped(token):
            continue
        for kind, others in SWAPPED.items():
            if token.text in others and source.spaced(token):
                yield source.fault(kind, token.start, token.end, others[token.text])


def arguments(source):
    """Neighbouring arguments of calls swapped, and the operands of subtractions."""
    for index, token in enumerate(source.tokens):
        if source.skipped(token):
            continue
        if token.text == "-" and source.spaced(token):
            left, right = source.tokens[index - 1], source.tokens[index + 1]
            simple = {"name", "number"}
            after = source.tokens[index + 2].text if index + 2 < len(source.tokens) else ""
            before = source.tokens[index - 2].text
            if left.kind in simple and right.kind in simple and after not in ("(", ".", "->", "[", "::", "{") \
                    and before not in (".", "->", "::"):
                yield source.fault("arguments", left.start, right.end, f"{right.text} - {left.text}")
        if token.text != "(" or token.match < 0 or index == 0 or source.tokens[index - 1].kind != "name" \
                or source.tokens[index - 1].text in NOT_EXPRESSIONS | UNORDERED:
            continue
        spans, at, depth = [], index + 1, 0
        for inner in range(index + 1, token.match + 1):
            text = source.tokens[inner].text
            if inner == token.match or (text == "," and depth == 0):
                spans.append((at, inner - 1))
                at = inner + 1
            elif text in OPENING:
                depth += 1
            elif text in CLOSING:
                depth -= 1
        for (a, b), (c, d) in zip(spans, spans[1:]):
            if b < a or d < c or any(declares(source.tokens[x:y + 1]) for x, y in ((a, b), (c, d))):
                continue
            first, between, second = (source.text[source.tokens[x].start:source.tokens[y].end]
                                      for x, y in ((a, b), (b + 1, b + 1), (c, d)))
            if first != second and len(first) + len(second) < 100 and "\n" not in first + second:
                yield source.fault("arguments", source.tokens[a].start, source.tokens[d].end,
                                   f"{second}{between} {first}")


def declares(tokens):
    """Whether an argument is the declaration of a parameter, or a lambda expression."""
    if tokens[0].text in ("const", "[", "auto", "typename", "class"):
        return True
    return any(one.kind == "name" and (two.kind == "name" or (two.text in "*&" and two.start > one.end and
                                                               two.end == three.start and three.kind == "name"))
               for one, two, three in zip(tokens, tokens[1:], tokens[2:] + [Token("", "", 0, 0)]))


def conditions(source):
    for index, token in enumerate(source.tokens[:-1]):
        opening = source.tokens[index + 1]
        if token.text not in ("if", "while") or opening.text != "(" or opening.match < 0:
            continue
        inside = source.text[opening.end:source.tokens[opening.match].start]
        if ";" not in inside and " = " not in inside:
            yield source.fault("condition", opening.end, source.tokens[opening.match].start, f"!({inside})")


def statements(source):
    """Statements dropped, early returns removed, and returns put before statements."""
    tokens = source.tokens
    for index, token in enumerate(tokens):
        if index == 0 or source.skipped(token):
            continue
        previous = tokens[index - 1]
        if not (previous.text in ("{", "}", ";", "else") or previous.text == ")" and is_control(tokens, previous.match)):
            continue
        if (previous.text in "{}" and previous.role == "data") or (previous.text == ";" and source.in_header(index)):
            continue
        scope = source.scope(index)
        if not scope or scope[-1] != "body":
            continue
        end = statement_end(tokens, index)
        if end is None:
            continue
        text = source.text[token.start:tokens[end].end]
        last = tokens[end + 1].text == "}" and (len(scope) < 2 or scope[-2] != "body")
        if token.text == "return":
            if not last:
                yield source.fault("return removed", token.start, tokens[end].end, "{}")
        elif token.text not in NOT_EXPRESSIONS and not re.match(r"[\w:]+(<[^;=]*>)?(::\w+)* [*&]*\w+( =|[;({\[]|$)", text):
            yield source.fault("statement", token.start, tokens[end].end, "{}")
        if len(scope) >= 1 and scope.count("body") == 1 and previous.text in "{};" and not (token.text == "return" and last):
            result = result_of(source, index)
            if result:
                yield source.fault("return added", token.start, token.start, result + " ")


def is_control(tokens, opening):
    before = tokens[opening - 1].text
    return before in ("if", "while", "for") or (before == "constexpr" and tokens[opening - 2].text == "if")


def statement_end(tokens, index):
    while index < len(tokens):
        token = tokens[index]
        if token.text == ";":
            return index
        if token.text in CLOSING and token.kind == "mark":
            return None
        if token.text in OPENING and token.kind == "mark":
            if token.match < 0 or (token.text == "{" and token.role == "body" and tokens[index - 1].text == ")"
                                   and is_control(tokens, tokens[index - 1].match)):
                return None
            index = token.match
        index += 1
    return None


def result_of(source, index):
    """The return statement for the function around a token; empty for what is no plain function."""
    opening = next(i for i in range(index - 1, -1, -1)
                   if source.tokens[i].text == "{" and source.tokens[i].match > index)
    line_start = max(source.text.rfind(end, 0, source.tokens[opening].start) for end in ("\n\n", ";\n", "}\n", ":\n"))
    head = source.text[line_start + 1:source.tokens[opening].start].strip()
    found = re.match(r"(?:\[\[.*?\]\] |template <[^{]*?>\s|inline |static |constexpr |virtual |extern \"C\" )*"
                     r"([\w:<>, ]+?)[ *&]+[\w:~]+\(", head)
    if not found or "consteval" in head or "=" in head.split("(")[0]:
        return ""
    return "return;" if found[1] == "void" and "*" not in head.split("(")[0] else "return {};"


def strings(source):
    for token in source.tokens:
        if token.kind not in ("string", "char") or source.skipped(token):
            continue
        letters = [found.start() for found in re.finditer(r"\\.[0-9a-fA-F]*|([A-Za-z0-9])", token.text) if found[1]]
        if letters:
            at = random.Random(f"{source.file}:{token.start}").choice(letters)
            old = token.text[at]
            new = {"z": "a", "Z": "A", "9": "0"}.get(old, chr(ord(old) + 1))
            yield source.fault("string", token.start, token.end, token.text[:at] + new + token.text[at + 1:])


def rows(source):
    """Rows of tables left out: lines of their own that end with a comma, outside of functions, and calls in .def files."""
    if source.file.endswith(".def"):
        for found in re.finditer(r"^[A-Z_]+\([^\n]*\)\n", source.text, re.M):
            yield source.fault("row", found.start(), found.end() - 1, "")
        return
    starts = {token.start: index for index, token in enumerate(source.tokens)}
    for found in re.finditer(r"^[ \t]+((?:\{|[a-z_]+\()[^\n]*),\n", source.text, re.M):
        index = starts.get(found.start(1))
        if index is None or "body" in source.scope(index):
            continue
        opening = index if source.tokens[index].text == "{" else index + 1
        if source.tokens[opening].match > 0 and source.tokens[source.tokens[opening].match].end == found.end(1):
            yield source.fault("row", found.start(1), found.end(1) + 1, "")


def parts(source):
    """The spans of a locator file's constants: (start, end, gates | tables | markers)."""
    spans, index, tokens = [], 0, source.tokens
    if source.file.endswith(("markers.def", "places.def")):
        return [(0, len(source.text), "markers")]
    if source.file.endswith(("_table.cpp", ".def")):
        return [(0, len(source.text), "tables")]
    while index < len(tokens):
        token = tokens[index]
        if token.role in ("namespace",) or token.text in (";", "}"):
            index += 1
            continue
        if token.text == "namespace":
            index = next((i for i in range(index, len(tokens)) if tokens[i].text in "{;"), len(tokens)) + 1
            continue
        start = end = index
        while end < len(tokens) and tokens[end].text != ";" and tokens[end].role not in ("body", "type"):
            end = tokens[end].match if tokens[end].text in OPENING and tokens[end].match > end else end
            end += 1
        if end < len(tokens) and tokens[end].text == "{":
            index = tokens[end].match + 1 if tokens[end].match > 0 else end + 1
            continue
        text = source.text[tokens[start].start:tokens[min(end, len(tokens) - 1)].end]
        if re.match(r"(inline |static )*const(expr|init)? ", text) and "=" in text:
            part = "gates" if re.search(r"= gate\(", text) else "tables" if re.search(r"\{\s*\{|\n\s*\{", text) else "markers"
            spans.append((tokens[start].start, tokens[min(end, len(tokens) - 1)].end, part))
        index = end + 1
    return spans


def faults_of(file, text):
    """All faults that can be seeded into a file."""
    source = Source(file, text)
    found = []
    for finder in (numbers, operators, arguments, conditions, statements, strings, rows):
        found += finder(source)
    return source, found
