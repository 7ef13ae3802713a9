"""Gates as formulas: each can be met, each of its rows can decide, and the module's are those of the tables."""
import ctypes
import re

import z3

SECTION_WIDTHS = {"Name": 8}
DIRECTORIES = ["export", "import", "resource", "exception", "certificate table", "base relocation", "debug",
               "architecture", "global pointer", "TLS", "load config", "bound import", "import address table"]
INT32_MAX = 0x7FFFFFFF

# Ranges that later rows imply: both gates begin with a span of section counts, of which their columns name each.
IMPLIED = {(6, 0), (24, 0)}


class Locator(ctypes.Structure):
    _fields_ = [("size", ctypes.c_uint32), ("entry", ctypes.c_uint32), ("kind", ctypes.c_uint32),
                ("flags", ctypes.c_uint32), ("kind_name", ctypes.c_char_p), ("description", ctypes.c_char_p),
                ("gate", ctypes.c_char_p)]


def compiled(folder):
    """The gates of the module, as the library shows their rows."""
    library = ctypes.CDLL(f"{folder}/libtavrik.so")
    module = ctypes.c_void_p()
    if library.tavrik_module_open(f"{folder}/tavrik2.hbx".encode(), ctypes.byref(module), None) != 0:
        raise SystemExit("the module cannot be loaded")
    library.tavrik_module_locator_count.restype = ctypes.c_size_t
    texts = []
    for entry in range(library.tavrik_module_locator_count(module)):
        locator = Locator(size=ctypes.sizeof(Locator))
        library.tavrik_module_locator(module, ctypes.c_size_t(entry), ctypes.byref(locator))
        texts.append(locator.gate.decode())
    library.tavrik_module_close(module)
    return texts


# ---- Formulas: a list of nodes that must all be met; a node is ("row", field, [predicate of a value, ...]) or
# ("either", [(nodes of an alternative), ...]) --------------------------------------------------------------------------


def field_of(shown):
    """A field's name in the tables for the name that users see."""
    match = re.fullmatch(r"(first|last) section (\w+)", shown)
    if match:
        return f"{match[1]}_section.{match[2]}"
    match = re.fullmatch(r"entry code byte (\d+)", shown)
    if match:
        return f"entry_code[{match[1]}]"
    match = re.fullmatch(r"(.+) (VirtualAddress|Size)", shown)
    if match:
        return f"data_dirs[{2 * DIRECTORIES.index(match[1]) + (match[2] == 'Size')}]"
    return {"file size": "file_size", "file stream": "stream"}.get(shown, shown)


def text_of(name, any_case):
    """The bytes of a name and its NUL, with the mask of the bits that count."""
    value = mask = 0
    for place, letter in enumerate(name.encode() + b"\0"):
        free = any_case and chr(letter).isalpha()
        mask |= (0xDF if free else 0xFF) << (8 * place)
        value |= (letter & (0xDF if free else 0xFF)) << (8 * place)
    return lambda v: v & mask == value


def between(low, high):
    return lambda v: z3.And(z3.UGE(v, low), z3.ULE(v, high))


def masked(bits):
    return lambda v: v & bits == bits


def predicate(words, field, base=0):
    """What one range says: of the tables ("a..b", "all M", ...) or as users see it ("a..b", "all bits of M set")."""
    most = INT32_MAX if field == "file_size" else 0xFFFFFFFF
    text = " ".join(words)
    text = re.sub(r"(\d+) \(0x[0-9a-fA-F]+\)", r"\1", text)
    number = lambda digits: int(digits, base)
    if text == "present":
        return lambda v: v != 0
    match = re.fullmatch(r'(?:name(_ignoring_case)? )?"(.*)"( in any case)?', text)
    if match:
        return text_of(match[2], bool(match[1] or match[3]))
    match = re.fullmatch(r"all (?:bits of )?(\w+)(?: set)?", text)
    if match:
        return masked(number(match[1]))
    match = re.fullmatch(r"wrapping \+ (\w+) > (\w+)", text)
    if match:  # in 32 bits, as signed values
        return lambda v: z3.Extract(31, 0, v) + number(match[1]) > number(match[2])
    match = re.fullmatch(r"(?:at least (\w+)|at most (\w+)|(\w*)\.\.(\w*))", text)
    if match:
        low, high = match[1] or match[3], match[2] or match[4]
        return between(number(low) if low else 0, number(high) if high else most)
    return lambda v: v == number(text)


def rows_of_table(lines):
    """The lines of an entry of gates.txt, each (indent, words)."""
    nodes = []
    while lines:
        indent, words = lines.pop(0)
        inner = []
        if words[0] in ("any", "either"):
            while lines and lines[0][0] > indent:
                inner.append(lines.pop(0))
        if words[0] == "any":
            nodes.append(("either", [rows_of_table([line]) for line in inner]))
        elif words[0] == "either":
            columns = []
            while inner:
                head = inner.pop(0)
                column = []
                while inner and inner[0][0] > head[0]:
                    column.append(inner.pop(0))
                column = rows_of_table(column)
                if head[1][1:2] == ["sections"]:
                    column.insert(0, ("row", "NumberOfSections", [predicate([head[1][2]], "")]))
                columns.append(column)
            nodes.append(("either", columns))
        else:
            ranges = " ".join(words[1:]).split(" | ")
            base = 16 if words[0].startswith("entry_code") and not ranges[0].startswith("0x") else 0
            nodes.append(("row", words[0], [predicate(part.split(), words[0], base) for part in ranges]))
    return nodes


def rows_of_text(lines):
    """The same for the lines that users see."""
    nodes = []
    while lines:
        indent, words = lines.pop(0)
        line = " ".join(words)
        if line == "one of these:":
            columns = []
            while lines and lines[0][0] > indent:
                head = lines.pop(0)
                column = []
                while lines and lines[0][0] > head[0]:
                    column.append(lines.pop(0))
                column = rows_of_text(column)
                match = re.fullmatch(r"files of (\d+) sections:", " ".join(head[1]))
                if match:
                    column.insert(0, ("row", "NumberOfSections", [predicate([match[1]], "")]))
                columns.append(column)
            nodes.append(("either", columns))
            continue
        shown, _, wanted = line.partition(": ")
        field = field_of(shown)
        base = 16 if field.startswith("entry_code") else 0
        nodes.append(("row", field, [predicate(part.split(), field, base) for part in wanted.split(" or ")]))
    return nodes


def lines_of(text):
    return [(len(line) - len(line.lstrip()), line.split()) for line in text.splitlines() if line.strip()]


class Formula:
    """A gate over variables of 64 bits; each range is a row that can be replaced by a constant."""

    def __init__(self, nodes, widths):
        self.nodes, self.widths = nodes, widths
        self.fields = set()
        self.count = 0
        self.whole = self.of(None, None)

    def variable(self, field):
        self.fields.add(field)
        return z3.BitVec(field, 64)

    def of(self, replaced, value):
        self.count = 0
        return self.all_of(self.nodes, replaced, value)

    def all_of(self, nodes, replaced, value):
        return z3.And([self.node(node, replaced, value) for node in nodes])

    def node(self, node, replaced, value):
        if node[0] == "either":
            return z3.Or([self.all_of(column, replaced, value) for column in node[1]])
        parts = []
        for range_of in node[2]:
            is_it = self.count == replaced
            self.count += 1
            parts.append(z3.BoolVal(value) if is_it else range_of(self.variable(node[1])))
            if is_it:
                self.row = range_of(self.variable(node[1]))
        return z3.Or(parts)

    def domains(self):
        bits = {field: 8 * self.widths(field) for field in self.fields}
        return [z3.ULT(z3.BitVec(field, 64), 1 << width) for field, width in bits.items() if width < 64]


def decides(gate, row):
    """Whether the row changes the gate's answer for some file that it accepts, and for some that it refuses."""
    with_it, without = gate.of(row, True), gate.of(row, False)
    solver = z3.Solver()
    solver.add(with_it, z3.Not(without), *gate.domains())
    return solver.check(gate.row) == z3.sat, solver.check(z3.Not(gate.row)) == z3.sat


def prove(source, folder):
    """Prints what was proved. Returns what is wrong, a line each."""
    widths = {}
    for line in open(f"{source}/tests/data/host_records.txt", encoding="utf-8"):
        words = line.split()
        if len(words) == 4 and words[0] in ("file_header", "opt_header"):
            widths[words[3]] = int(words[2])

    def width(field):
        if "section." in field:
            return SECTION_WIDTHS.get(field.split(".")[1], 4)
        return 1 if field.startswith("entry_code") or field == "stream" else widths.get(field, 4)

    tables, entry = {}, None
    for line in open(f"{source}/tests/data/gates.txt", encoding="utf-8"):
        if line.startswith("entry "):
            entry = int(line.split()[1])
            tables[entry] = []
        elif line.strip() and not line.startswith("#"):
            words = re.findall(r'"[^"]*"|\S+', line)
            tables[entry].append((len(line) - len(line.lstrip()), words))
    wrong, rows, idle = [], 0, []
    for number, text in enumerate(compiled(folder)):
        if not text and not tables.get(number):
            continue  # the entry that declines every file
        table = Formula(rows_of_table(list(tables[number])), width)
        module = Formula(rows_of_text(lines_of(text)), width)
        solver = z3.Solver()
        solver.add(*table.domains(), *module.domains())
        if solver.check(table.whole) != z3.sat:
            wrong.append(f"gate {number}: no file passes it")
        if solver.check(z3.Xor(table.whole, module.whole)) != z3.unsat:
            wrong.append(f"gate {number}: the module's differs from the table's: {solver.model()}")
        total = table.count
        for row in range(total):
            accepts, refuses = decides(table, row)
            if not (accepts and refuses):
                idle.append(f"gate {number}, range {row}")
            if (accepts and refuses) == ((number, row) in IMPLIED):
                wrong.append(f"gate {number}, range {row}: {'decides' if accepts and refuses else 'never decides'}")
        rows += total
    print(f"gates: {len(tables)} can be met and are those of the tables; {rows} ranges, of which {len(idle)} never decide"
          + (": " + "; ".join(idle) if idle else ""))
    return wrong
