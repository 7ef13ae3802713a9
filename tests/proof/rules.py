"""Rules as formulas: the header and section conditions of each can be met; what `tavrik-rules check` says of conditions
that cannot (W503), of equal rules (W507) and of rules that others include (W508) is true, and what it does not say."""
import functools
import os
import random
import re
import subprocess
import tempfile
from collections import Counter, defaultdict

import z3

BYTES = {"MajorLinkerVersion", "MinorLinkerVersion"}
WORDS = {"Machine", "NumberOfSections", "Characteristics", "SizeOfOptionalHeader", "Magic", "Subsystem",
         "DllCharacteristics", "MajorOperatingSystemVersion", "MinorOperatingSystemVersion", "MajorImageVersion",
         "MinorImageVersion", "MajorSubsystemVersion", "MinorSubsystemVersion"}
ALWAYS = {"Machine", "NumberOfSections", "Characteristics"}  # what every PE file has
CONDITION = re.compile(r"(\S+) +(==|!=|<=|>=|<|>|has|in) (.+)")
SOLVED = ("header", "sections")
PE32_PLUS = 0x20B
FEW = 100  # rules that are all compared with each other


class Rule:
    """A rule of canonical text: conditions of its header and sections, and the lines of everything else."""

    def __init__(self, number, line):
        self.number, self.line = number, line
        self.conditions = []  # (field, operator, operands)
        self.other = set()

    @functools.cached_property
    def fields(self):
        return {field for field, _, _ in self.conditions}

    @functools.cached_property
    def values(self):
        return {field: values for field, operator, values in self.conditions if operator == "==" and len(values) == 1}

    def formula(self, variable):
        return z3.And([meaning(variable(field), operator, values) for field, operator, values in self.conditions])


def parse(text):
    rules, block = [], None
    other = []
    for place, line in enumerate(text.splitlines(), 1):
        match = re.match(r"rule (\d+) ", line)
        if match:
            rules.append(Rule(int(match[1]), place))
            rules[-1].other.add(line[line.index('" for ') if '" for ' in line else -1:])
            block = None
        elif line.startswith("    ") and not line.startswith("     ") and line.endswith("{"):
            block, other = line.split()[0], []
        elif line == "    }":
            if block not in SOLVED:
                rules[-1].other.add((block, "\n".join(other)))
            block = None
        elif block in SOLVED:
            match = CONDITION.fullmatch(line.strip())
            field, operator, wanted = match.groups()
            values = [tuple(int(end, 0) for end in part.split("..")) for part in wanted.split(" | ")]
            rules[-1].conditions.append((field, operator, tuple(values)))
        elif block:
            other.append(line)
        elif line.startswith("    "):
            if not line.startswith("    stored_flags"):
                rules[-1].other.add(line)
    return rules


def meaning(v, operator, values):
    first = values[0][0]
    if operator in ("<", "<=", ">", ">="):
        return {"<": z3.ULT, "<=": z3.ULE, ">": z3.UGT, ">=": z3.UGE}[operator](v, first)
    if operator == "in":
        return z3.And(z3.UGE(v, first), z3.ULE(v, values[0][1]))
    if operator == "has":
        return v & first == first
    equal = z3.Or([v == value[0] for value in values])
    return equal if operator == "==" else z3.Not(equal)


def most(field):
    """The greatest value of a field."""
    member = field.rsplit(".", 1)[-1]
    if member in BYTES:
        return 0xFF
    is_word = field in WORDS or (field.startswith("e_") and field != "e_lfanew")
    return 0xFFFF if is_word else 0xFFFFFFFF


def facts(rule):
    """What holds for every file that has the fields of the rule's conditions."""
    count = z3.BitVec("NumberOfSections", 32)
    for field in {field for field, _, _ in rule.conditions}:
        yield z3.ULE(z3.BitVec(field, 32), most(field))
        match = re.match(r"\[(\d+)\]\.", field)
        if match:
            yield z3.UGT(count, int(match[1]))
    if any(isinstance(line, str) and "visual_basic" in line for line in rule.other):
        yield z3.BitVec("Magic", 32) != PE32_PLUS


def is_possible(rule, known):
    """Fields without facts in common are independent, so that most answers are those of a field's conditions alone."""
    by_field = defaultdict(set)
    for field, operator, values in rule.conditions:
        by_field[field].add((operator, values))
    linked = [field for field in by_field if field == "NumberOfSections" or field.startswith("[") or field == "Magic"]
    for field, conditions in by_field.items():
        key = (most(field), frozenset(conditions))
        if len(conditions) == 1 and next(iter(conditions))[0] == "==":
            known[key] = any(value[0] <= most(field) for value in next(iter(conditions))[1])
        elif key not in known:
            v = z3.BitVec("v", 32)
            solver = z3.Solver()
            solver.add(z3.ULE(v, most(field)), *[meaning(v, operator, values) for operator, values in conditions])
            known[key] = solver.check() == z3.sat
        if not known[key]:
            return False
    if "NumberOfSections" not in by_field and "Magic" not in by_field:
        return True
    key = frozenset((field, frozenset(by_field[field])) for field in linked if field in ("NumberOfSections", "Magic")) | {
        max((int(re.match(r"\[(\d+)", field)[1]) for field in linked if field[0] == "["), default=-1),
        any(isinstance(line, str) and "visual_basic" in line for line in rule.other)}
    if key not in known:
        solver = z3.Solver()
        solver.add(rule.formula(lambda field: z3.BitVec(field, 32)), *facts(rule))
        known[key] = solver.check() == z3.sat
    return known[key]


def includes(wide, narrow):
    """Whether every file that `narrow` matches is one of `wide`, by what is solved here and by equal lines."""
    if not wide.other - {None} <= narrow.other:
        return False
    if not wide.fields - ALWAYS <= narrow.fields or any(narrow.values.get(field, value) != value
                                               for field, value in wide.values.items()):
        return False
    solver = z3.Solver()
    variable = lambda field: z3.BitVec(field, 32)
    solver.add(narrow.formula(variable), z3.Not(wide.formula(variable)), *facts(narrow))
    return solver.check() == z3.unsat


def exact(rule):
    return [condition for condition in rule.conditions if condition[1] == "==" and len(condition[2]) == 1]


def included(rules, possible):
    """All pairs (wide, narrow); of many rules only those of which both ask for the wide one's rarest value."""
    counts = Counter(condition for rule in rules for condition in exact(rule))
    by_value, without = defaultdict(list), []
    for rule in rules:
        rarest = min(exact(rule), key=counts.__getitem__, default=None)
        (by_value[rarest] if rarest else without).append(rule)
    pairs = set()
    for narrow in possible:
        candidates = without + [rule for condition in set(narrow.conditions) for rule in by_value.get(condition, ())]
        pairs |= {(wide.line, narrow.line) for wide in (rules if len(rules) <= FEW else candidates)
                  if wide is not narrow and includes(wide, narrow)}
    return pairs


def said(program, text):
    """The rules (by their line) that check says W503 of, and the pairs of W507 and W508."""
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "x.rules")
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        out = subprocess.run([program, "check", path], capture_output=True, text=True, check=False)
    starts = [place for place, line in enumerate(text.splitlines(), 1) if line.startswith("rule ")]
    rule_at = lambda line: max(start for start in starts if start <= line)
    impossible, pairs = set(), set()
    for line in (out.stdout + out.stderr).splitlines():
        match = re.match(r".*x\.rules:(\d+):\d+: warning\[(W50[378])\].*?(?:\(.*x\.rules:(\d+):\d+\).*)?$", line)
        if match and match[2] == "W503":
            impossible.add(rule_at(int(match[1])))
        elif match:
            pairs.add((int(match[3]), int(match[1])))
    return impossible, pairs


def random_rules(count, seed):
    """Rules of few fields and small numbers, so that many contradict themselves or include others."""
    draw = random.Random(seed)
    text = ""
    for number in range(1, count + 1):
        lines, fields = [], []
        for _ in range(draw.choice((1, 2, 2, 3))):
            fields.append(draw.choice(("Machine", "Subsystem", "NumberOfSections")))
            field = fields[-1]
            operator = draw.choice(("==", "==", "!=", "<", "<=", ">", ">=", "has", "in"))
            low = draw.randrange(6)
            value = {"in": f"{low}..{low + draw.randrange(3)}", "==": f"{low}" if field in fields[:-1] else f"{low} | {low + 2}"}
            lines.append(f"        {field} {operator} {value.get(operator, low)}\n")
        section = f"    sections {{\n        [{draw.randrange(4)}].VirtualSize > 0\n    }}\n" if draw.random() < 0.3 else ""
        text += f'rule {number} "R{number}" for program {{\n    header {{\n{"".join(lines)}    }}\n{section}}}\n\n'
    return text


def compare(program, text, name, wrong):
    rules = parse(text)
    known = {}
    impossible = {rule.line for rule in rules if not is_possible(rule, known)}
    possible = [rule for rule in rules if rule.line not in impossible]
    pairs = included(rules, possible)
    lint_impossible, lint_pairs = said(program, text)
    for line in sorted(lint_impossible - impossible):
        wrong.append(f"{name}: W503 of the rule in line {line} is wrong")
    for wide, narrow in sorted(lint_pairs):
        if (wide, narrow) not in pairs and narrow not in impossible:
            wrong.append(f"{name}: W507 or W508 of the rules in lines {wide} and {narrow} is wrong")
    print(f"{name}: {len(rules)} rules, {len(impossible)} cannot be met (W503 says {len(lint_impossible)}); "
          f"{len({narrow for _, narrow in pairs})} are included in others "
          f"(W507 and W508 say {len({narrow for _, narrow in lint_pairs} - impossible)})")
    return impossible


def prove(folder):
    """Prints what was proved. Returns what is wrong, a line each."""
    program = f"{folder}/tavrik-rules"
    wrong = []
    database = subprocess.run([program, "dump"], capture_output=True, text=True, check=True).stdout
    for line in compare(program, database, "database", wrong):
        wrong.append(f"database: no file meets the rule in line {line} of tavrik-rules dump")
    compare(program, random_rules(40, 1), "random rules", wrong)
    return wrong
