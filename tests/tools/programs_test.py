#!/usr/bin/env python3
"""What all programs have in common, and the forms of what they print for other programs.

Usage: programs_test.py FOLDER_OF_PROGRAMS FOLDER_OF_DOCUMENTS LIBRARY_OF_FAILING_READS
"""
import fcntl
import hashlib
import io
import json
import os
import pathlib
import pty
import re
import resource
import signal
import struct
import subprocess
import sys
import tarfile
import tempfile
import termios

import jsonschema

programs, docs, failing_reads = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
failures = []
has_corpus = (programs / "tavrik-corpus").exists()  # where the libraries that it needs are


def check(holds, text):
    if not holds:
        failures.append(text)


def run(name, *arguments, stdin=b""):
    return subprocess.run([programs / name, *arguments], input=stdin, capture_output=True, check=False)


def lines(name, *arguments, stdin=b""):
    return [json.loads(line) for line in run(name, *arguments, stdin=stdin).stdout.splitlines()]


def unwritable_output(samples):
    """The exit codes where nothing can be written, and where nobody reads."""
    table = [("tavrik-scan", ["--help"], 2), ("tavrik-scan", ["--version"], 2), ("tavrik-scan", ["help", "explain"], 2),
             ("tavrik-scan", ["locators"], 2), ("tavrik-scan", ["-r", "--format", "csv", samples], 2),
             ("tavrik-rules", ["--help"], 3), ("tavrik-rules", ["check", "--help"], 3), ("tavrik-rules", ["dump"], 3),
             ("tavrik-rulegen", ["--help"], 1), ("tavrik-names", ["--help"], 2), ("tavrik-names", ["--version"], 2),
             ("tavrik-samples", ["--help"], 1), ("tavrik-samples", [samples], 1)]
    if has_corpus:
        table += [("tavrik-corpus", ["--help"], 2), ("tavrik-corpus", ["hunt", "--help"], 2)]
    for name, arguments, code in table:
        what = f"{name} {' '.join(arguments)}"
        with open("/dev/full", "wb") as full:
            ended = subprocess.run([programs / name, *arguments], stdout=full, stderr=subprocess.PIPE, check=False)
        check(ended.returncode == code and b"No space left" in ended.stderr, f"{what} >/dev/full: {ended}")
        reader, writer = os.pipe()
        os.close(reader)
        ended = subprocess.run([programs / name, *arguments], stdout=writer, stderr=subprocess.PIPE, check=False)
        os.close(writer)
        check((ended.returncode, ended.stderr) == (141, b""), f"{what} into a closed pipe: {ended}")


def files_below(folder):
    """The bytes of each file by its path."""
    return {str(path.relative_to(folder)): path.read_bytes() for path in pathlib.Path(folder).rglob("*") if path.is_file()}


def no_longer_files():
    """From here on no file of the process grows beyond 20 bytes: a disk that is full."""
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    resource.setrlimit(resource.RLIMIT_FSIZE, (20, 20))


def full_disk(samples):
    """Each output fails with a word about it, and nothing is left of it; what was there before stays."""
    installer = str(next(pathlib.Path(samples).glob("entry39-*")))
    minimal = str(pathlib.Path(samples, "clean-minimal.exe"))
    rules = pathlib.Path("long.rules")
    rules.write_text('rule 1 "A" for program{header{SizeOfHeaders!=0}}\n', encoding="utf-8")
    with tarfile.open("long.tar", "w") as archive:
        archive.add(rules)
    table = [("tavrik-scan", ["--carve", "FULL", installer], 2),
             ("tavrik-scan", ["unpack", "long.tar", "-o", "FULL"], 2),
             ("tavrik-scan", ["map", minimal, "-o", "FULL/map.svg"], 2),
             ("tavrik-scan", ["--report", "FULL/report.html", minimal], 2),
             ("tavrik-rules", ["compile", "-o", "FULL", str(rules)], 3),
             ("tavrik-rules", ["fmt", "FULL/old.rules"], 3),
             ("tavrik-samples", ["FULL"], 1)]
    for name, arguments, code in table:
        what = f"{name} {' '.join(arguments)} on a full disk"
        with tempfile.TemporaryDirectory() as folder:
            old = {"old.rules": rules.read_bytes()}
            pathlib.Path(folder, "old.rules").write_bytes(old["old.rules"])
            arguments = [argument.replace("FULL", folder) for argument in arguments]
            ended = subprocess.run([programs / name, *arguments], capture_output=True, preexec_fn=no_longer_files, check=False)
            check(ended.returncode == code and b"File too large" in ended.stderr, f"{what}: {ended}")
            check(files_below(folder) == old, f"{what} leaves {list(files_below(folder))}")


def heed_signals():
    """Tests that run in the background of a shell pass on that SIGINT is ignored."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)


def interrupted(samples):
    """A scan that is ended after any of its files has written whole files only."""
    files = sorted(str(path) for path in pathlib.Path(samples).glob("entry*"))[:12]
    run("tavrik-scan", "--carve", "whole", *files)
    whole = files_below("whole")
    check(len(whole) >= 10, f"{len(whole)} carved")
    for number in (signal.SIGINT, signal.SIGTERM):
        for after in range(1, 4):
            folder = f"ended-{number}-{after}"
            with subprocess.Popen([programs / "tavrik-scan", "--carve", folder, "--files-from", "-"], stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=heed_signals) as scan:
                for file in files[:after]:
                    scan.stdin.write(os.fsencode(file) + b"\n")
                scan.stdin.flush()
                scan.stdout.readline()
                scan.send_signal(number)
                try:
                    scan.communicate("\n".join(files[after:]).encode(), timeout=30)
                except BrokenPipeError:
                    pass
            check(scan.returncode == 128 + number, f"{folder}: {scan.returncode}")
            check(files_below(folder).items() <= whole.items(), f"{folder}: {list(files_below(folder))}")


def run_on_bad_disk(first, name, *arguments):
    """A run in which the read of that number and all after it fail."""
    environment = {**os.environ, "LD_PRELOAD": str(failing_reads), "TAVRIK_FAILING_READ": str(first)}
    return subprocess.run([programs / name, *arguments], capture_output=True, env=environment, check=False)


def bad_disk(samples):
    """Each read fails in turn, and so do those after it: that is told, and nothing half is carved."""
    file = str(next(pathlib.Path(samples).glob("entry07-*")))
    arguments = ["tavrik-scan", "--json", "-q", file, "--carve"]
    whole = run(*arguments, "good-disk")
    carved = files_below("good-disk")
    number, ended = 0, None
    while ended is None or ended.returncode == 2 and number < 1000:
        number += 1
        folder = f"bad-disk-{number}"
        ended = run_on_bad_disk(number, *arguments, folder)
        if ended.returncode == 2:
            check(b"Input/output error" in ended.stdout + ended.stderr, f"read {number}: {ended}")
            check(files_below(folder).items() <= carved.items(), f"read {number}: {list(files_below(folder))}")
    check(number > 3 and ended.returncode == whole.returncode == 1 and files_below(folder) == carved != {},
          f"after {number} failing reads: {ended}")


def ending_file():
    """A file that ends the program is found by the next run, told, and read again only when that is asked for."""
    os.mkdir("many")
    for number in range(20):
        pathlib.Path("many", str(number)).write_bytes(bytes(102 + number))
    ending = {**os.environ, "LD_PRELOAD": str(failing_reads), "TAVRIK_ENDING_READ": "107"}
    aside = f"set aside: {os.getcwd()}/many/5: a program that reads it ends: signal 11, Segmentation fault"
    for environment, arguments, code, counts in [
            (ending, [], -signal.SIGSEGV, ()), (ending, [], 1, (19, 0, 1)), (ending, [], 1, (0, 19, 1)),
            (ending, ["--retry"], 1, (0, 19, 1)), (os.environ, [], 1, (0, 19, 1)),
            (os.environ, ["--retry"], 0, (1, 19, 0)), (os.environ, [], 0, (0, 20, 0))]:
        ended = subprocess.run([programs / "tavrik-corpus", "add", "many.store", "many", "-j", "2", *arguments],
                               capture_output=True, env=environment, check=False, text=True)
        check(ended.returncode == code and tuple(int(word) for word in re.findall(r"(\d+) (?:files? added|unchanged|set)",
                                                                                  ended.stdout)) == counts
              and (aside in ended.stderr) == (code == 1), f"{arguments}: {ended}")
        check(pathlib.Path("many.store-work").exists() == (code < 0), f"{arguments}: the journal")


def bad_store(samples):
    """Each read of a store fails in turn, and so do those after it, or the disk is full: that is told, and the next run finds
    the store as it was, or makes it."""
    files = [str(next(pathlib.Path(samples).glob(name))) for name in ("entry07-*", "clean-minimal.exe")]
    rules = pathlib.Path("all.rules")
    rules.write_text('rule 1 "A" for program{header{SizeOfHeaders!=0}}\n', encoding="utf-8")
    run("tavrik-corpus", "add", "good.store", *files)
    verify, hunt = ["tavrik-corpus", "verify"], ["tavrik-corpus", "hunt", "--rules", str(rules)]
    whole = [run(*command, "good.store") for command in (verify, hunt)]
    check([ended.returncode for ended in whole] == [0, 1] and whole[0].stdout.startswith(b"2 files in 1 segment"), f"{whole}")
    for command, good in zip((verify, hunt), whole):
        number, ended = 0, None
        while ended is None or ended.returncode != good.returncode and number < 200:
            number += 1
            ended = run_on_bad_disk(number, *command, "good.store")
            check(ended.returncode in (2, good.returncode) and (ended.stderr != b"") == (ended.returncode == 2), f"{ended}")
        check(number > 5 and ended.stdout == good.stdout, f"{command} after {number} failing reads: {ended}")
    number, ended = 0, None
    while ended is None or ended.returncode != 0 and number < 50:
        store = f"bad-{number}.store"
        if number == 0:
            ended = subprocess.run([programs / "tavrik-corpus", "add", store, *files], capture_output=True,
                                   preexec_fn=no_longer_files, check=False)
        else:
            ended = run_on_bad_disk(number, "tavrik-corpus", "add", store, *files)
        check(ended.returncode in (0, 2) and (ended.stderr != b"") == (ended.returncode == 2), f"add {number}: {ended}")
        again = run("tavrik-corpus", "add", store, *files)
        check((again.returncode, run(*verify, store).stdout) == (0, whole[0].stdout), f"add after {number}: {again}")
        number += 1
    check(number > 4, f"{number} failing reads of add")


def versions():
    dump = hashlib.sha256(b"".join(line for line in run("tavrik-rules", "dump").stdout.splitlines(keepends=True)
                                   if not line.startswith(b"    stored_flags "))).hexdigest()
    module = hashlib.sha256((programs / "tavrik2.hbx").read_bytes()).hexdigest()
    numbers = set()
    names = ["tavrik-scan", "tavrik-rules", "tavrik-rulegen", "tavrik-names", "tavrik-samples"]
    for name in names + ["tavrik-corpus"] * has_corpus:
        text = run(name, "--version").stdout.decode()
        first, *rest = text.splitlines()
        check(first.startswith(name + " ") and any(line.startswith("libraries: CLI11 ") for line in rest), text)
        check(("nlohmann-json" in text) == (name in ("tavrik-rules", "tavrik-corpus")), text)
        numbers.add(first.removeprefix(name))
        if name in ("tavrik-scan", "tavrik-rules"):
            check(f"tavrik2.hbx, SHA-256 {module}\n" in text and f"database: 6528 rules, SHA-256 {dump}\n" in text, text)
    check(len(numbers) == 1, f"versions {numbers}")


def on_terminal(columns, *command):
    """What a program prints on a terminal of so many columns, without colours."""
    process, terminal = pty.fork()
    if process == 0:
        fcntl.ioctl(1, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        os.execv(command[0], command)
    output = b""
    try:
        while block := os.read(terminal, 65536):
            output += block
    except OSError:  # how Linux tells that the other side is closed
        pass
    os.close(terminal)
    os.waitpid(process, 0)
    return re.sub(r"\x1b\[[0-9;]*m", "", output.decode())


def terminal(samples):
    """A map fits a terminal of any width, also confined."""
    for columns in (60, 100):
        drawn = on_terminal(columns, str(programs / "tavrik-scan"), "map", f"{samples}/entry07-nullsoft-after-section-4.exe")
        widths = [len(line) for line in drawn.splitlines() if line.startswith("entropy")]
        check(widths == [columns - 1], f"{columns} columns: {drawn}")


def scan_output(samples):
    schema = json.loads((docs / "scan-report.schema.json").read_text(encoding="utf-8"))
    validator = jsonschema.Draft202012Validator(schema)
    rules = pathlib.Path("two.rules")
    rules.write_text('rule 1 "All" { header { SizeOfHeaders != 0 } }\nrule 2 "None" { header { Machine == 1 } }\n',
                     encoding="utf-8")
    odd = os.fsencode(samples) + b"/odd\xff\n.exe"
    some = pathlib.Path(samples, "clean-minimal.exe")
    with open(odd, "wb") as file:
        file.write(some.read_bytes()[:-1])
    objects = lines("tavrik-scan", "-r", "--json", "--sha256", samples, "missing")
    objects += lines("tavrik-scan", "--json", "--max-size", "1K", str(some), "-", stdin=b"x" * 2000)
    objects += lines("tavrik-scan", "--json", "-", samples, stdin=b"MZ")
    objects += lines("tavrik-scan", "-r", "--json", "--near", "3", samples)
    carved = lines("tavrik-scan", "-r", "--json", "--carve", "out", samples)
    check(any("carved" in payload for value in carved for payload in value["payloads"]), "nothing was carved")
    tried = lines("tavrik-rules", "try", "--json", "-v", "--summary", "-r", str(rules), samples, "missing")
    check("explanations" in tried[0] and "summary" in tried[-1], f"{tried[0]}")
    objects += carved + tried
    for entry in range(50):
        objects += lines("tavrik-scan", "--json", "explain", f"entry:{entry}", str(some))
    objects += lines("tavrik-scan", "--json", "explain", "rule:173", str(some))
    objects += lines("tavrik-scan", "--json", "explain", "2", "missing")
    check(len(objects) > 100, f"only {len(objects)} objects")
    for value in objects:
        for error in validator.iter_errors(value):
            failures.append(f"{error.message}: {json.dumps(value)[:300]}")
    check(not validator.is_valid({**objects[0], "status": "odd"}), "the schema takes anything")
    check({code for value in objects for code in [value.get("error", value.get("reason", {})).get("code")]}
          >= {None, "not-found", "too-large", "is-folder"}, "not all kinds of errors")
    check({value["schema"] for value in lines("tavrik-rules", "list", "--json")} == {1}, "tavrik-rules list --json")
    cut = next(value for value in objects if "file_b64" in value)
    check(cut["truncated"] and cut["missing"] == 1, f"{cut}")
    text = (docs / "json.md").read_text(encoding="utf-8")
    for definition in ("report", "detection", "finding", "payload", "carved", "near", "explanation", "explainedEntry",
                       "explainedRule", "ruleCondition", "summarisedRule"):
        for key in schema["$defs"][definition]["properties"]:
            check(f"`{key}" in text or f"{key}," in text or f"{key}}}" in text, f"docs/json.md does not tell of {key}")
    for code in schema["$defs"]["error"]["properties"]["code"]["enum"]:
        check(f"`{code}`" in text, f"docs/json.md does not tell of the error {code}")


def contents_output(samples):
    """Lists of contents against their schema, from files and from standard input."""
    schema = json.loads((docs / "contents.schema.json").read_text(encoding="utf-8"))
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    stream = io.BytesIO()
    with tarfile.open(fileobj=stream, mode="w") as archive:
        for name, content in (("folder/a.txt", b"text"), ("b\x1b", b"")):
            info = tarfile.TarInfo(name)
            info.size = len(content)
            archive.addfile(info, io.BytesIO(content))
    installer = next(pathlib.Path(samples).glob("entry39-*"))
    objects = lines("tavrik-scan", "--json", "contents", "-", str(installer), samples, "missing", stdin=stream.getvalue())
    objects += lines("tavrik-scan", "--json", "contents", "-", stdin=stream.getvalue()[:700])
    for value in objects:
        for error in validator.iter_errors(value):
            failures.append(f"{error.message}: {json.dumps(value)[:300]}")
    check([member["path"] for member in objects[0]["containers"][0]["members"]] == ["folder/a.txt", "b\x1b"],
          f"{objects[0]}")
    codes = [value.get("error", *(place.get("error") for place in value["containers"])) for value in objects]
    check([code and code["code"] for code in codes] == [None, None, "is-folder", "not-found", "not-unpacked"], f"{codes}")
    check(not validator.is_valid({"schema": 1}), "the schema takes anything")
    check(run("tavrik-scan", "-q", "unpack", "-", "-o", "unpacked", stdin=stream.getvalue()).returncode == 0
          and pathlib.Path("unpacked/folder/a.txt").read_bytes() == b"text", "unpack -")
    text = (docs / "json.md").read_text(encoding="utf-8")
    for definition in ("container", "member"):
        for key in schema["$defs"][definition]["properties"]:
            check(f"`{key}`" in text, f"docs/json.md does not tell of {key}")


def sarif(folder):
    """What SARIF 2.1.0 asks of a log, of those properties that it has."""
    path = pathlib.Path(folder, "a b%.rules")
    path.write_text('rule 1 "A" for program {\n    header { Machina == 1 }\n}\nrule 2 "A" for program {\n}\n', encoding="utf-8")
    plain = lines("tavrik-rules", "check", "--format", "json", str(path))
    ended = run("tavrik-rules", "check", "--format", "sarif", str(path))
    log = json.loads(ended.stdout)
    check(ended.returncode == 1 and log["version"] == "2.1.0" and len(log["runs"]) == 1, f"{log}")
    results, driver = log["runs"][0]["results"], log["runs"][0]["tool"]["driver"]
    check(driver["name"] == "tavrik-rules" and len(plain) == len(results) > 0, f"{len(plain)} and {len(results)} results")
    check(log["runs"][0]["columnKind"] in ("utf16CodeUnits", "unicodeCodePoints"), "columnKind")
    for one, other in zip(plain, results):
        place = other["locations"][0]["physicalLocation"]
        check(driver["rules"][other["ruleIndex"]]["id"] == other["ruleId"] == one["code"], f"{other}")
        check(other["level"] == one["severity"] and other["message"]["text"].startswith(one["message"]), f"{other}")
        check((place["region"]["startLine"], place["region"]["startColumn"]) == (one["line"], one["column"]), f"{place}")
        check(place["artifactLocation"]["uri"] == path.as_uri(), f"{place}")


def main():
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        samples = str(pathlib.Path(folder, "samples"))
        check(run("tavrik-samples", samples).returncode == 0, "tavrik-samples")
        unwritable_output(samples)
        full_disk(samples)
        interrupted(samples)
        bad_disk(samples)
        if has_corpus:
            ending_file()
            bad_store(samples)
        versions()
        terminal(samples)
        check(run("tavrik-scan", "help").stdout == run("tavrik-scan", "--help").stdout != b"", "tavrik-scan help")
        scan_output(samples)
        contents_output(samples)
        sarif(folder)
    for failure in failures:
        print(failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
