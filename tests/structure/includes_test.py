#!/usr/bin/env python3
"""The tree's own rules: includes run one way, one namespace a folder, no source compiled twice, no long files.

Usage: includes_test.py SOURCE_FOLDER BUILD_FOLDER
"""
import collections
import html
import pathlib
import re
import subprocess
import sys

import compilation

# What the files of each component may include besides their own. A component is a folder with all below it; the
# longest name that fits a file is its component. Whoever wants a new edge writes it here and in docs/architecture.md.
ALLOWED = {
    "include/tavrik2": [],
    "tavrik2/lifecycle": ["include/tavrik2", "tavrik2/rules"],
    "tavrik2/rules": ["include/tavrik2"],
    "tavrik2/pe": ["include/tavrik2", "tavrik2"],
    "tavrik2/clean": ["include/tavrik2"],
    "tavrik2/locators": ["include/tavrik2", "tavrik2", "tavrik2/pe", "tavrik2/lifecycle"],
    "tavrik2": ["include/tavrik2", "tavrik2/lifecycle"],
    "platform": ["include/tavrik2", "tavrik2/lifecycle"],
    "companions": ["include/tavrik2"],
    "base": [],
    "pe": ["include/tavrik2", "base"],
    "pe/builder": ["include/tavrik2", "base", "pe"],
    "rules": ["base", "pe"],
    "rules/text": ["base", "rules"],
    "rules/record": ["include/tavrik2", "base", "rules"],
    "rules/analysis": ["base", "pe", "rules", "rules/text"],
    "rules/yara": ["base", "pe", "rules"],
    "evaluation": ["include/tavrik2", "base", "pe", "rules", "rules/text", "rules/record"],
    "store": ["include/tavrik2", "base", "pe", "rules", "evaluation"],
    "draft": ["include/tavrik2", "base", "pe", "rules", "rules/text", "rules/record", "rules/analysis", "evaluation"],
    "scanner/payloads": ["include/tavrik2", "base"],
    "scanner": ["include/tavrik2", "tavrik2", "tavrik2/locators", "base", "pe", "rules", "rules/text", "rules/record",
                "evaluation", "scanner/payloads"],
    "include/tavrik": [],
    "engine": ["include/tavrik2", "include/tavrik", "base", "pe", "rules", "rules/text", "rules/record", "rules/analysis",
               "evaluation", "store", "scanner", "tavrik2/locators"],
    "scanner/map": ["include/tavrik2", "base", "pe", "rules", "evaluation", "scanner", "scanner/payloads"],
    "scanner/html": ["include/tavrik2", "base", "pe", "evaluation", "scanner", "scanner/payloads", "scanner/map"],
    "database/profile": ["include/tavrik2", "base", "rules"],
    "database/name_compiler": ["base", "tavrik2/rules"],
    "database/generator": ["include/tavrik2", "base", "pe", "pe/builder", "rules", "rules/text", "database/profile"],
    "samples": ["include/tavrik2", "tavrik2/locators", "base", "pe", "pe/builder"],
    "tools/tavrik-corpus": ["include/tavrik2", "base", "rules", "rules/text", "rules/record", "evaluation", "scanner",
                            "store"],
    "tools/tavrik-names": ["base", "database/name_compiler"],
    "tools/tavrik-rulegen": ["base", "rules", "rules/text", "database/profile", "database/generator"],
    "tools/tavrik-rules": ["include/tavrik2", "base", "rules", "rules/text", "rules/record", "rules/analysis",
                           "rules/yara", "evaluation", "store", "draft", "scanner", "tools/scanning",
                           "database/profile", "database/generator"],
    "tools/tavrik-samples": ["base", "samples"],
    "tools/scanning": ["include/tavrik2", "base", "rules", "rules/text", "rules/record", "evaluation", "scanner",
                       "scanner/map", "scanner/html"],
    "tools/tavrik-scan": ["include/tavrik2", "base", "rules/text", "evaluation", "scanner", "scanner/payloads",
                          "scanner/map", "tools/scanning"],
}
# These may include anything; nothing may include them.
OUTSIDE = ["tests", "bench", "fuzz", "cmake", "examples"]

NAMESPACES = {
    "base": "tavrik::base",
    "pe": "tavrik::pe",
    "pe/builder": "tavrik::pe::builder",
    "rules": "tavrik::rules",
    "rules/text": "tavrik::rules::text",
    "rules/record": "tavrik::rules::record",
    "rules/analysis": "tavrik::rules::analysis",
    "rules/yara": "tavrik::rules::yara",
    "evaluation": "tavrik::evaluation",
    "store": "tavrik::store",
    "draft": "tavrik::draft",
    "scanner": "tavrik::scanner",
    "engine": "tavrik::engine",
    "scanner/payloads": "tavrik::scanner::payloads",
    "scanner/map": "tavrik::scanner::map",
    "scanner/html": "tavrik::scanner::html",
    "database/profile": "tavrik::profile",
    "database/name_compiler": "tavrik::name_compiler",
    "database/generator": "tavrik::generator",
    "samples": "tavrik::samples",
    "platform": "tavrik::platform",
    "tools/scanning": "tavrik::scanning",
    "tools/tavrik-corpus": "tavrik::corpus_tool",
    "tools/tavrik-rules": "tavrik::rules_tool",
    "tools/tavrik-scan": "tavrik::scan_tool",
    "tavrik2": "tavrik2",
}

LONGEST_FILE = 500  # lines, of files that are not data
DATA = re.compile(r"^database/(names|rules)/|^tests/data/|_corpus/|\.(md|json|txt|svg)$")

failures = []


def reach(name):
    """All components that `name` may include, directly or through others."""
    seen, waiting = set(), list(ALLOWED[name])
    while waiting:
        other = waiting.pop()
        if other not in seen:
            seen.add(other)
            waiting += ALLOWED[other]
    return seen


def drawn_edges():
    """The allowed edges that do not follow from others, without those to the boundary headers: what the picture shows."""
    edges = set()
    for name, others in ALLOWED.items():
        wanted = [other for other in others if other != "include/tavrik2" or not set(others) - {other}]
        edges |= {(name, other) for other in wanted if not any(other in reach(third) for third in wanted if third != other)}
    return edges


def component(path, names):
    fitting = [name for name in names if path.startswith(name + "/")]
    return max(fitting, key=len, default=None)


def tracked(root):
    listed = subprocess.run(["git", "ls-files", "-z"], cwd=root, check=True, capture_output=True).stdout
    return [name for name in listed.decode().split("\0") if name and (root / name).is_file()]


def check_includes(root, files):
    edges = collections.defaultdict(set)
    sources = [name for name in files if re.search(r"\.(h|c|cc|cpp|def)$", name)]
    for name in sources:
        own = component(name, list(ALLOWED) + OUTSIDE)
        if own is None:
            failures.append(f"{name}: belongs to no component: add its folder to ALLOWED")
            continue
        for number, line in enumerate((root / name).read_text(encoding="utf-8").splitlines(), 1):
            found = re.match(r'\s*#\s*include\s+"([^"]+)"', line)
            if not found:
                continue
            target = next((place for place in (f"{name.rsplit('/', 1)[0]}/{found[1]}", found[1], f"include/{found[1]}")
                           if (root / place).is_file()), None)
            if target is None:
                continue  # made by the build
            other = component(target, list(ALLOWED) + OUTSIDE)
            if other != own:
                edges[own].add(other)
            if own not in OUTSIDE and other != own and other not in ALLOWED[own]:
                failures.append(f"{name}:{number}: {own} may not include {other}")
    return edges


def check_cycles(edges):
    done, path = set(), []

    def visit(node):
        if node in path:
            failures.append("a cycle of components: " + " -> ".join(path[path.index(node):] + [node]))
            return
        if node in done:
            return
        path.append(node)
        for other in sorted(edges.get(node, ())):
            visit(other)
        path.pop()
        done.add(node)

    for node in sorted(edges):
        visit(node)


def check_namespaces(root, files):
    for name in files:
        wanted = NAMESPACES.get(component(name, list(NAMESPACES)))
        if wanted is None or not re.search(r"\.(h|cpp)$", name):
            continue
        for opened in re.findall(r"^namespace (\w[\w:]*) \{", (root / name).read_text(encoding="utf-8"), re.M):
            if opened != wanted and not opened.startswith(wanted + "::") and "::" in opened:
                failures.append(f"{name}: opens the namespace {opened}; its folder's is {wanted}")


def check_builds(root, files, build):
    for name in files:
        if name.endswith("CMakeLists.txt") and re.search(r"^[^#]*\.\./", (root / name).read_text(), re.M):
            failures.append(f"{name}: names a source of another folder by ../: link that folder's library")
    seen = collections.Counter(
        pathlib.Path(command["directory"], command["file"]).resolve() for command in compilation.commands(build))
    for source, times in seen.items():
        if times > 1 and source.is_relative_to(root.resolve()) and not source.is_relative_to(root.resolve() / "build"):
            failures.append(f"{source.relative_to(root.resolve())}: is compiled {times} times: put it into one library")


def check_lengths(root, files):
    for name in files:
        if not DATA.search(name) and (root / name).suffix != ".png":
            lines = len((root / name).read_bytes().splitlines())
            if lines > LONGEST_FILE:
                failures.append(f"{name}: has {lines} lines; {LONGEST_FILE} are the most")


def check_picture(root):
    picture = html.unescape((root / "docs/components.svg").read_text(encoding="utf-8"))
    shown = set(re.findall(r"<title>([^<]+)->([^<]+)</title>", picture))
    if shown != drawn_edges():
        failures.append("docs/components.svg: shows other edges than ALLOWED; tests/structure/picture.py | dot -Tsvg makes it: "
                        f"{sorted(shown ^ drawn_edges())}")


def main():
    root, build = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    files = tracked(root)
    check_cycles(check_includes(root, files))
    check_namespaces(root, files)
    check_builds(root, files, build)
    check_lengths(root, files)
    check_picture(root)
    for failure in failures:
        print(failure)
    print(f"{len(files)} files, {len(failures)} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
