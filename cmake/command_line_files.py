#!/usr/bin/env python3
"""Writes a program's man page and its completions for bash, zsh and fish from what its --help says.

Usage: command_line_files.py PROGRAM VERSION FOLDER

The files are FOLDER/NAME.1, FOLDER/NAME.bash, FOLDER/_NAME and FOLDER/NAME.fish. A help text is read as a list of blocks:
a title that ends in a colon, and indented rows below it; rows of options begin with a dash.
"""
import dataclasses
import pathlib
import re
import subprocess
import sys


@dataclasses.dataclass
class Row:
    """A row of a help text's list: an option, an argument or a command."""
    names: list
    argument: str
    text: str

    @property
    def choices(self):
        found = re.search(r"(?<![\w-])[a-z-]+(?:\|[a-z-]+)+", self.argument)
        return found[0].split("|") if found else []

    @property
    def takes(self):
        """What completes the argument: "", "none", "file" or "folder"."""
        if not self.argument:
            return ""
        words = set(re.findall(r"[A-Z]+", self.argument))
        if words & {"DIR", "FOLDER"}:
            return "folder"
        return "file" if words & {"FILE", "PATH", "LIST", "MODULE", "RULES"} else "none"


@dataclasses.dataclass
class Help:
    """A help text taken apart."""
    about: list = dataclasses.field(default_factory=list)
    usage: list = dataclasses.field(default_factory=list)
    blocks: list = dataclasses.field(default_factory=list)  # (title, lines)

    def rows(self, wanted):
        return [row for title, lines in self.blocks for row in parse_rows(lines) if wanted(title, row)]

    def options(self):
        return self.rows(lambda _, row: row.names[0].startswith("-"))

    def commands(self):
        return self.rows(lambda title, row: title in ("Subcommands", "Commands") and re.match(r"[a-z]", row.names[0]))


def parse_rows(lines):
    rows = []
    for line in lines:
        option = re.match(r"  (-\S+(?: \S+)*?)(?:  +(\S.*))?$", line)
        other = re.match(r"  (\S+(?: \S+)*?)  +(\S.*)$", line)
        if option:
            words = option[1].split(" ")
            rows.append(Row(words[0].split(","), " ".join(words[1:]), option[2] or ""))
        elif other and not line.startswith("   "):
            rows.append(Row([other[1].split(" ")[0]], "", other[2]))
        elif rows and line.startswith("     "):
            rows[-1].text = f"{rows[-1].text} {line.strip()}".strip()
    return rows


def parse_help(text):
    result = Help()
    for line in text.splitlines():
        line = line.rstrip()
        title = re.match(r"(\S[^:]*):(?: (\S.*))?$", line)
        if line.startswith("Usage:"):
            result.usage.append(line[len("Usage:"):].strip())
        elif result.usage and not result.blocks and line.startswith("   "):
            result.usage.append(line.strip())
        elif title and result.usage:
            result.blocks.append((title[1], [title[2]] if title[2] else []))
        elif result.blocks:
            result.blocks[-1][1].append(line)
        else:
            result.about.append(line)
    return result


def ask(program, *arguments):
    return parse_help(subprocess.run([program, *arguments, "--help"], check=True, capture_output=True, text=True).stdout)


# ---- Man page --------------------------------------------------------------------------------------------------------


def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace("^", "\\(ha").replace("~", "\\(ti")
    return "\\&" + text if text.startswith(".") else text


def literal(lines):
    while lines and not lines[-1]:
        lines.pop()
    return [".nf"] + [roff(line) if line else "" for line in lines] + [".fi"] if lines else []


def man_block(lines):
    """A list of options becomes tagged paragraphs, any other text stays as it is laid out."""
    rows = parse_rows(lines)
    if not rows or not all(row.names[0].startswith("-") for row in rows):
        return literal(list(lines))
    out = []
    for row in rows:
        out += [".TP", ", ".join(f"\\fB{roff(name)}\\fR" for name in row.names)
                + (f" \\fI{roff(row.argument)}\\fR" if row.argument else ""), roff(row.text)]
    return out


def man_page(name, version, main, commands):
    out = [f'.TH {name.upper()} 1 "" "tavrik2 {version}" "User Commands"', ".SH NAME",
           f"{roff(name)} \\- {roff(main.about[0].rstrip('.'))}", ".SH SYNOPSIS"]
    out += literal(list(main.usage)) + [".SH DESCRIPTION"] + literal(list(main.about))
    for title, lines in main.blocks:
        if title not in ("Subcommands", "Commands"):
            out += [f".SH {roff(title.upper())}"] + man_block(lines)
    if commands:
        out.append(".SH COMMANDS")
    seen = [lines for _, lines in main.blocks]
    for command, text in commands.items():
        out += [f".SS {roff(command)}"] + literal(list(text.about) + [""] + text.usage)
        for _, lines in text.blocks:
            if lines not in seen:
                out += [".PP"] + man_block(lines)
    return "\n".join(out) + "\n"


# ---- Completions -----------------------------------------------------------------------------------------------------


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


def bash_completion(name, main, commands):
    function = "_" + name.replace("-", "_")

    def words(text):
        return " ".join(option for row in text.options() for option in row.names)

    def arguments(text):
        out = []
        for row in text.options():
            action = {"folder": 'COMPREPLY=($(compgen -d -- "$word"))', "none": "COMPREPLY=()",
                      "file": 'COMPREPLY=($(compgen -f -- "$word"))'}.get(row.takes)
            if row.choices:
                action = f'COMPREPLY=($(compgen -W {quoted(" ".join(row.choices))} -- "$word"))'
            if action:
                out.append(f"    {' | '.join(row.names)}) {action}; return ;;")
        return out

    out = [f"# Completion of {name} for bash.", f"{function}() {{",
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command= candidate",
           "    compopt -o filenames",
           '    for candidate in "${COMP_WORDS[@]:1:COMP_CWORD - 1}"; do',
           f"        case $candidate in {' | '.join(commands) or 'none'}) command=$candidate; break ;; esac", "    done",
           "    local options"]
    out.append("    case $command in")
    for command, text in commands.items():
        out.append(f"    {command}) options={quoted(words(text))} ;;")
    out += [f"    *) options={quoted(words(main))} ;;", "    esac"]
    out.append("    case $before in")
    seen = []
    for text in [main, *commands.values()]:
        seen += [line for line in arguments(text) if line not in seen]
    out += seen + ["    esac", '    if [[ $word == -* ]]; then', '        COMPREPLY=($(compgen -W "$options" -- "$word"))',
                   "        return", "    fi", '    COMPREPLY=($(compgen -f -- "$word"))',
                   '    [[ $command ]] || COMPREPLY+=($(compgen -W ' + quoted(" ".join(commands)) + ' -- "$word"))', "}",
                   f"complete -F {function} {name}"]
    return "\n".join(out) + "\n"


def zsh_completion(name, main, commands):
    def spec(row):
        text = re.sub(r"([\[\]:])", r"\\\1", row.text)
        action = ":value:(" + " ".join(row.choices) + ")" if row.choices else \
            {"": "", "file": ":file:_files", "folder": ":folder:_files -/", "none": ":value: "}[row.takes]
        return [quoted(f"{option}[{text}]{action}") for option in row.names]

    def arguments(text, rest):
        return " \\\n        ".join([item for row in text.options() for item in spec(row)] + rest)

    out = [f"#compdef {name}", "local context state state_descr line", "typeset -A opt_args", "local -a commands",
           "commands=("]
    out += ["    " + quoted(f"{command}:{text.about[0]}") for command, text in commands.items()]
    out += [")", "local command=${words[(r)(" + ("|".join(commands) or "none") + ")]}", "case $command in"]
    for command, text in commands.items():
        out += [f"{command})", "    _arguments " + arguments(text, ["'*:file:_files'"]), "    ;;"]
    out += ["*)", "    _arguments " + arguments(main, ["'*: :->operand'"]),
            "    [[ $state == operand ]] && { _describe command commands; _files; }", "    ;;", "esac"]
    return "\n".join(out) + "\n"


def fish_completion(name, main, commands):
    def lines(text, condition):
        out = []
        for row in text.options():
            flags = [f"-s {option[1:]}" if not option.startswith("--") else f"-l {option[2:]}" for option in row.names]
            argument = f"-x -a {quoted(' '.join(row.choices))}" if row.choices else \
                {"": "", "file": "-r -F", "folder": "-x -a '(__fish_complete_directories)'", "none": "-x"}[row.takes]
            out.append(" ".join(part for part in ["complete -c", name, condition, *flags, argument, "-d",
                                                  quoted(row.text)] if part))
        return out

    out = [f"# Completion of {name} for fish."]
    out += lines(main, "-n __fish_use_subcommand" if commands else "")
    for command, text in commands.items():
        out.append(f"complete -c {name} -n __fish_use_subcommand -a {command} -d {quoted(text.about[0])}")
        out += lines(text, f"-n '__fish_seen_subcommand_from {command}'")
    return "\n".join(out) + "\n"


def main():
    program, version, folder = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
    name = pathlib.Path(program).name
    text = ask(program)
    commands = {row.names[0]: ask(program, row.names[0]) for row in text.commands()}
    folder.mkdir(parents=True, exist_ok=True)
    for file, content in {f"{name}.1": man_page(name, version, text, commands),
                          f"{name}.bash": bash_completion(name, text, commands),
                          f"_{name}": zsh_completion(name, text, commands),
                          f"{name}.fish": fish_completion(name, text, commands)}.items():
        (folder / file).write_text(content, encoding="utf-8")


if __name__ == "__main__":
    main()
