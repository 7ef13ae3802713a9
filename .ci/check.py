#!/usr/bin/env python3
"""Checks every source file of a built tree: its format, clang-tidy's checks, and the module by clang's warnings.

Usage: check.py BUILD_FOLDER [FILE...]: only these files, named from the top of the tree, if there are any
"""
import concurrent.futures
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
BATCH = 40  # sources that clang-tidy reads as one
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


def reading(command):
    """(the language and options in which clang-tidy reads a source, the definitions of optional libraries): what only the
    generated code depends on is left out, so that sources of several folders can be read as one."""
    words = [word for word in options(command) if not re.match(r"-(W|O|g|fvisibility|fPI)", word)]
    optional = {word for word in words if word.startswith("-DTAVRIK_HAS_")}
    return (command["file"].endswith(".c"), tuple(word for word in words if word not in optional)), optional


def batches(build, names, commands):
    """Sources that are read with the same options, up to BATCH of them in a file that includes them: the headers that they
    share, most of the work, are read once. What two sources of a batch call alike is no shadow."""
    groups = {}
    for name in sorted(names):
        key, optional = reading(commands[name])
        # The folders of tests and of locators share a namespace, programs' main.cpp the global one.
        shared = name.startswith(("tests/", "tavrik2/")) or name.endswith("/main.cpp")
        key = (*key, os.path.dirname(name) if shared else "")
        group, definitions = groups.setdefault(key, ([], set()))
        group.append(name)
        definitions |= optional
    folder = build / "tidy"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    for (_, words, _), (group, definitions) in groups.items():
        parts = -(-len(group) // BATCH)
        size = -(-len(group) // parts)
        for start in range(0, len(group), size):
            yield group[start:start + size], [*words, *sorted(definitions)]


def tidy(build, names, words):
    """clang-tidy's findings in sources that are read as one; those that call something as another does are read apart."""
    batch = build / "tidy" / f"{names[0].replace('/', '_')}_{len(names)}{pathlib.Path(names[0]).suffix}"
    batch.write_text("".join(f"#define main main_of_{number} // NOLINT(readability-identifier-naming)\n"
                             f'#include "{ROOT / name}" // NOLINT(bugprone-suspicious-include)\n'
                             "#undef main\n" for number, name in enumerate(names)))
    code, output = run(["clang-tidy-14", "--quiet", f"--config-file={ROOT / '.clang-tidy'}", f"--header-filter={OURS}", str(batch),
                        "--", *words], build)
    wrong = set(re.findall(r"^(\S+?):\d+:\d+: error: .*\[clang-diagnostic-error\]$", output, re.M))
    if len(names) > 1 and wrong:
        apart = [name for name in names if str(ROOT / name) in wrong]
        if len(apart) in (0, len(names)):
            apart = names[len(names) // 2:]
        results = [tidy(build, some, words) for some in ([name for name in names if name not in apart], apart)]
        return max(code for code, _ in results), "".join(output for _, output in results)
    return code, output


def jobs(build, chosen):
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
    tidied = sorted(batches(build, ours, commands), key=lambda batch: -len(batch[0]))
    for names, words in tidied:
        yield "clang-tidy", len(names), tidy, (build, names, words)
    for name in ours + generated:
        if name.startswith(MODULE) or name in generated:
            yield "clang", 1, run, (by_clang(commands[name]), commands[name]["directory"])


def main():
    build, chosen = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2:]
    counts, shown = {}, set()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        started = [(label, size, pool.submit(function, *arguments))
                   for label, size, function, arguments in jobs(build, chosen)]
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
