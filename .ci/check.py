#!/usr/bin/env python3
"""Checks every source file of a built tree: its format, clang-tidy's checks, and the module by clang's warnings.

Usage: check.py BUILD_FOLDER [--without-tidy] [FILE...]: only these files, named from the top of the tree, if there are
any; without clang-tidy, which takes minutes, if so asked
"""
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
# The module runs nothing at its start: a constructor or destructor of a global would.
MODULE = ("tavrik2/", "platform/", "companions/")
NO_INITIALISERS = ["-Wglobal-constructors", "-Wexit-time-destructors", "-Werror"]


def tracked(*patterns):
    listed = subprocess.run(["git", "ls-files", "-z", *patterns], cwd=ROOT, check=True, capture_output=True).stdout
    return [name for name in listed.decode().split("\0") if name and (ROOT / name).is_file()]


def run(command, folder):
    done = subprocess.run(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return done.returncode, done.stdout


def compiled(build):
    """The commands that compile our sources: {name from the top of the tree: command}"""
    commands = {}
    for command in json.loads((build / "compile_commands.json").read_text()):
        path = pathlib.Path(command["directory"], command["file"]).resolve()
        if path.is_relative_to(ROOT):
            commands[str(path.relative_to(ROOT))] = command
    return commands


def by_clang(command):
    """The same compilation with clang, without output."""
    words = shlex.split(command["command"])
    while words[0].rsplit("/", 1)[-1] in ("ccache", "sccache"):
        words.pop(0)
    words[0] = "clang-14" if command["file"].endswith(".c") else "clang++-14"
    words[words.index("-o") + 1] = os.devnull
    for option in ("-MT", "-MF"):
        if option in words:
            del words[words.index(option):words.index(option) + 2]
    return [word for word in words if word != "-MD"] + NO_INITIALISERS


def jobs(build, chosen, with_tidy):
    """(what a failure is called, command, folder)"""
    sources = tracked("*.h", "*.c", "*.cc", "*.cpp")
    commands = compiled(build)
    ours = [name for name in commands if name in sources]
    generated = [name for name in commands if f"/{name}".find("/generated/") >= 0]
    if chosen:
        sources, ours, generated = ([name for name in names if name in chosen] for names in (sources, ours, []))
    else:
        yield "format", ["clang-format-14", "--dry-run", "-Werror", *sources], ROOT
    # The longest ones first, so that no core waits at the end.
    tidied = sorted(ours, key=lambda name: (not name.startswith("tests/"), -(ROOT / name).stat().st_size))
    for name in tidied if with_tidy else []:
        yield "clang-tidy", ["clang-tidy-14", "-p", str(build), "--quiet", name], ROOT
    for name in ours + generated:
        if name.startswith(MODULE) or name in generated:
            yield "clang", by_clang(commands[name]), commands[name]["directory"]


def main():
    build, chosen = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2:]
    with_tidy = "--without-tidy" not in chosen
    chosen = [name for name in chosen if name != "--without-tidy"]
    counts, shown = {}, set()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        started = [(label, pool.submit(run, command, folder)) for label, command, folder in jobs(build, chosen, with_tidy)]
        for label, future in started:
            code, output = future.result()
            done, failed = counts.get(label, (0, 0))
            counts[label] = (done + 1, failed + (code != 0))
            # A finding in a header comes once for every file that includes it.
            for block in re.split(r"^(?=\S+:\d+:\d+: (?:error|warning))", output, flags=re.M) if code != 0 else []:
                block = re.sub(r"^\d+ warnings?.* generated\.\n|^Suppressed .*\n|^\d+ warnings? treated as errors?\n", "", block,
                               flags=re.M)
                if block.strip() and block not in shown:
                    shown.add(block)
                    print(block, end="" if block.endswith("\n") else "\n", flush=True)
    for label, (done, failed) in counts.items():
        print(f"{label}: {done} checked, {failed} failed")
    return 1 if any(failed for _, failed in counts.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
