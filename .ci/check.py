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
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/structure"))
import compilation  # noqa: E402
# The module runs nothing at its start: a constructor or destructor of a global would.
MODULE = ("tavrik2/", "platform/", "companions/")
BATCH = 12  # sources that clang-tidy reads as one
# What findings are wanted of beside the file that is named: a batch includes its sources.
OURS = re.search(r"^HeaderFilterRegex: '(.*)'$", (ROOT / ".clang-tidy").read_text(), re.M)[1].replace("h|def", "h|def|c|cc|cpp")
# Warnings that only the compiler of the build knows.
ONLY_GCC = ("-Wno-subobject-linkage",)
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
    for command in compilation.commands(build):
        path = pathlib.Path(command["directory"], command["file"]).resolve()
        if path.is_relative_to(ROOT):
            commands[str(path.relative_to(ROOT))] = command
    return commands


def options(command):
    """The compiler's options, without what says what is read and written."""
    words = shlex.split(command["command"])
    while words[0].rsplit("/", 1)[-1] in ("ccache", "sccache"):
        words.pop(0)
    for option in ("-o", "-MT", "-MF"):
        if option in words:
            del words[words.index(option):words.index(option) + 2]
    return [word for word in words[1:] if word not in ("-MD", "-c", command["file"], *ONLY_GCC)]


def by_clang(command):
    """The same compilation with clang, without output."""
    compiler = "clang-14" if command["file"].endswith(".c") else "clang++-14"
    return [compiler, *options(command), "-c", command["file"], "-o", os.devnull, *NO_INITIALISERS]


def batches(build, names, commands):
    """Sources of one folder and the same options, up to BATCH of them in a file that includes them: the headers that they
    share, most of the work, are read once. What two sources of a batch call alike is no shadow."""
    groups = {}
    for name in names:
        key = (os.path.dirname(name), name.endswith(".c"), tuple(options(commands[name])), commands[name]["directory"])
        groups.setdefault(key, []).append(name)
    folder = build / "tidy"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    (folder / "compile_commands.json").write_text(json.dumps(list(commands.values())))
    for (place, is_c, words, directory), group in groups.items():
        parts = -(-len(group) // BATCH)
        for part in range(parts):
            chosen = group[part::parts]
            if len(chosen) == 1:
                yield chosen, ["clang-tidy-14", "-p", str(folder), "--quiet", chosen[0]], ROOT
                continue
            batch = folder / f"{place.replace('/', '_')}_{len(list(folder.iterdir()))}.{'c' if is_c else 'cpp'}"
            batch.write_text("".join(f'#include "{ROOT / name}" // NOLINT(bugprone-suspicious-include)\n' for name in chosen))
            yield chosen, ["clang-tidy-14", "--quiet", f"--config-file={ROOT / '.clang-tidy'}", f"--header-filter={OURS}",
                           str(batch), "--", *words, "-Wno-shadow"], directory


def tidy(build, names, command, folder):
    """A batch's findings; those of each source where they cannot be compiled as one, for a name that two of them have."""
    code, output = run(command, folder)
    if len(names) > 1 and "[clang-diagnostic-error]" in output:
        results = [run(["clang-tidy-14", "-p", str(build / "tidy"), "--quiet", name], ROOT) for name in names]
        return max(code for code, _ in results), "".join(output for _, output in results)
    return code, output


def jobs(build, chosen, with_tidy):
    """(what a failure is called, how many sources, function, its arguments)"""
    sources = tracked("*.h", "*.c", "*.cc", "*.cpp")
    commands = compiled(build)
    ours = [name for name in commands if name in sources]
    generated = [name for name in commands if f"/{name}".find("/generated/") >= 0]
    if chosen:
        sources, ours, generated = ([name for name in names if name in chosen] for names in (sources, ours, []))
    else:
        yield "format", len(sources), run, (["clang-format-14", "--dry-run", "-Werror", *sources], ROOT)
    # The longest ones first, so that no core waits at the end.
    tidied = sorted(batches(build, ours, commands) if with_tidy else [], key=lambda batch: -len(batch[0]))
    for names, command, folder in tidied:
        yield "clang-tidy", len(names), tidy, (build, names, command, folder)
    for name in ours + generated:
        if name.startswith(MODULE) or name in generated:
            yield "clang", 1, run, (by_clang(commands[name]), commands[name]["directory"])


def main():
    build, chosen = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2:]
    with_tidy = "--without-tidy" not in chosen
    chosen = [name for name in chosen if name != "--without-tidy"]
    counts, shown = {}, set()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        started = [(label, size, pool.submit(function, *arguments))
                   for label, size, function, arguments in jobs(build, chosen, with_tidy)]
        for label, size, future in started:
            code, output = future.result()
            done, failed = counts.get(label, (0, 0))
            counts[label] = (done + size, failed + (code != 0))
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
