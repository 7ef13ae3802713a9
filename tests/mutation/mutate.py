#!/usr/bin/env python3
"""Seeds small faults into copies of the tree and says which of them the tests catch.

Each worker has a copy of the sources and a build tree of its own in build/mutate. For every fault it builds and runs the
test programs of the fault's area, in stages, until one fails. A fault that the compiler rejects does not count; another
is tried in its place. The faults are the same for the same sources, seed and count.
"""
import argparse
import collections
import fnmatch
import hashlib
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time

import faults

ROOT = pathlib.Path(__file__).resolve().parents[2]
HERE = pathlib.Path(__file__).resolve().parent
WORK = ROOT / "build" / "mutate"
PRESET = "linux-release"  # with a shared ccache, what a developer's own build has compiled is not compiled again
# Compiles files with a fault faster than others. A fault counts though the compiler warns of it, unless a function has
# lost its result: the caller may read what the result would have been from where it was made.
LAUNCHER = """#!/bin/sh
changed=
read -r changed 2>/dev/null <"$0.changed"
case "$changed" in
'') ;;
*.cpp | *.c) case " $* " in *"/$changed "*) set -- "$@" -O1 -g0 -Wno-error -Werror=return-type ;; esac ;;
*) set -- "$@" -O1 -g0 -Wno-error -Werror=return-type ;;
esac
exec {cache} "$@"
"""
SLOW_SECONDS = 0.5  # a test that takes longer runs after all others have passed
BUILD_CPU_SECONDS = 300  # of one process
BUILD_SECONDS = 1800
MEMORY_BYTES = 8 << 30

UNCOMPILED, CAUGHT, SURVIVED = "does not compile", "caught", "survived"


class Failure(Exception):
    """Why faults cannot be tried at all."""


def tracked_files():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=ROOT, check=True,
                            capture_output=True).stdout.decode()
    return sorted(name for name in listed.split("\0") if name and (ROOT / name).is_file())


def run(command, worker, seconds, cpu_seconds):
    """Runs a command in a build folder and in a process group of its own: (exit code or None when it took too long, its
    output)."""
    def limit():
        resource.setrlimit(resource.RLIMIT_CPU, (int(cpu_seconds), int(cpu_seconds) + 5))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY_BYTES, MEMORY_BYTES))

    environment = dict(os.environ, TMPDIR=str(worker.folder / "tmp"), CCACHE_BASEDIR=str(worker.tree), CCACHE_NOHASHDIR="1")
    (worker.folder / "tmp").mkdir(exist_ok=True)
    with subprocess.Popen(command, cwd=worker.build_folder, env=environment, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, start_new_session=True,
                          preexec_fn=limit) as process:
        Worker.groups.add(process.pid)
        try:
            output, _ = process.communicate(timeout=seconds)
            code = process.returncode
        except subprocess.TimeoutExpired:
            code = None
            output = b""
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            Worker.groups.discard(process.pid)
        if code is None:
            process.communicate()
    return code, output.decode(errors="replace")


class Worker:
    groups = set()  # process groups under way

    def __init__(self, number, jobs):
        self.folder = WORK / f"worker{number}"
        self.tree, self.launcher, self.jobs = self.folder / "tree", self.folder / "compile", jobs
        self.build_folder = self.tree / "build" / PRESET

    def prepare(self, names):
        """Brings the copy of the sources up to date, and configures the build once."""
        self.tree.mkdir(parents=True, exist_ok=True)
        for name in names:
            copy, content = self.tree / name, (ROOT / name).read_bytes()
            if not copy.is_file() or copy.read_bytes() != content:
                copy.parent.mkdir(parents=True, exist_ok=True)
                copy.write_bytes(content)
                shutil.copymode(ROOT / name, copy)
        wanted = set(names)
        for path in list(self.tree.rglob("*")):
            name = str(path.relative_to(self.tree))
            if path.is_file() and name not in wanted and not name.startswith("build/"):
                path.unlink()
        self.build_folder.mkdir(parents=True, exist_ok=True)
        self.launcher.write_text(LAUNCHER.format(cache=shutil.which("ccache") or ""))
        self.launcher.chmod(0o755)
        self.mark("")
        options = [f"-DCMAKE_{language}_COMPILER_LAUNCHER={self.launcher}" for language in ("C", "CXX")]
        options += [f"-DCMAKE_{kind}_LINKER_FLAGS=-Wl,--strip-debug" for kind in ("EXE", "SHARED", "MODULE")]
        code, output = run(["cmake", "-S", str(self.tree), "--preset", PRESET, *options], self, BUILD_SECONDS,
                           BUILD_CPU_SECONDS)
        if code != 0:
            raise Failure("the configuration fails:\n" + output)

    def mark(self, name):
        """Tells the launcher which file has a fault."""
        self.launcher.with_name("compile.changed").write_text(name + "\n")

    def build(self, targets):
        return run(["ninja", "-j", str(self.jobs), *targets], self, BUILD_SECONDS, BUILD_CPU_SECONDS)

    def try_fault(self, fault, stage, baseline):
        """(verdict, which test gave it)"""
        path = self.tree / fault.file
        original = path.read_bytes()
        text = original.decode()
        path.write_bytes((text[:fault.start] + fault.new + text[fault.end:]).encode())
        self.mark(fault.file)
        try:
            return (self.build_verdict(*self.build(targets_of(stage))) or self.run_stage(stage, baseline)
                    or (SURVIVED, ""))
        finally:
            self.mark("")
            path.write_bytes(original)

    def build_verdict(self, code, output):
        if code == 0:
            return None
        if code is None:
            return CAUGHT, "the build does not end"
        if "static assertion failed" in output:
            return CAUGHT, "static_assert"
        generated = re.search(r"^(?:\S*/)?(generated|small|rule|name)\S*\.cpp:\d+:\d+: error:", output, re.M)
        if not generated and re.search(r": (fatal )?error: |undefined reference|ld returned", output):
            return UNCOMPILED, ""
        step = re.search(r"^FAILED: (\S+)", output, re.M)
        return CAUGHT, f"the build of {step[1] if step else '?'}"

    def run_stage(self, stage, baseline):
        programs = [name for name in stage.get("programs", [])]
        for slow in (False, True):
            for name in programs:
                expected = baseline.tests(name)
                picked = [test for test, seconds in expected.items() if (seconds > SLOW_SECONDS) == slow]
                if not picked:
                    continue
                slow_names = [test for test, seconds in expected.items() if seconds > SLOW_SECONDS]
                chosen = ":".join(slow_names) if slow else "*" + ("-" + ":".join(slow_names) if slow_names else "")
                needed = sum(expected[test] for test in picked)
                code, output = run([f"bin/{name}", "--gtest_fail_fast", "--gtest_brief=1", f"--gtest_filter={chosen}"],
                                   self, 60 + 10 * needed, 20 + 5 * needed)
                if code != 0:
                    failed = re.search(r"^\[  FAILED  \] (\S+?)(?:, .*)? \(\d+ ms\)", output, re.M)
                    return CAUGHT, failed[1] if failed else f"{name} {'does not end' if code is None else 'breaks off'}"
            if not slow and stage.get("ctest"):
                code, output = run(["ctest", "-R", f"^({'|'.join(stage['ctest'])})$"], self, 300, 120)
                if code != 0:
                    return CAUGHT, "/".join(stage["ctest"])
        return None


def targets_of(stage):
    return stage.get("programs", []) + (["tavrik-rules", "rule_sources"] if stage.get("ctest") else [])


class Outcomes:
    """What came of the faults that have been tried, as long as the file that they change stays."""

    def __init__(self, names):
        self.file = WORK / "outcomes.json"
        self.known = json.loads(self.file.read_text()) if self.file.is_file() else {}
        self.digests = {name: hashlib.sha256((ROOT / name).read_bytes()).hexdigest() for name in names}

    def key(self, fault):
        return f"{fault.file} {self.digests[fault.file]} {fault.start} {fault.end} {fault.new}"

    def put(self, fault, verdict, test):
        self.known[self.key(fault)] = [verdict, test]
        self.file.write_text(json.dumps(self.known))

    def caught_before(self, fault):
        """(verdict, which test gave it), None for faults that survived or have not been tried."""
        known = self.known.get(self.key(fault))
        return tuple(known) if known and known[0] != SURVIVED else None


class Baseline:
    """The tests of the programs with their seconds, from a run that passed; kept for as long as the sources stay."""

    def __init__(self, digest):
        self.file = WORK / "baseline.json"
        known = json.loads(self.file.read_text()) if self.file.is_file() else {}
        self.known = known if known.get("digest") == digest else {"digest": digest, "programs": {}}

    def prepare(self, stage, workers):
        """Builds what a stage needs of the tree as it is, and runs what has not been run."""
        for worker in workers:
            jobs, worker.jobs = worker.jobs, os.cpu_count()
            code, output = worker.build(targets_of(stage))
            worker.jobs = jobs
            if code != 0:
                raise Failure("the tree does not build as it is:\n" + output[-4000:])
        worker = workers[0]
        for test in stage.get("ctest", []):
            code, output = run(["ctest", "-R", f"^{test}$"], worker, 600, 300)
            if code != 0:
                raise Failure(f"{test} fails as the tree is:\n" + output[-4000:])
        for name in stage.get("programs", []):
            if name in self.known["programs"]:
                continue
            report = worker.folder / "tests.json"
            code, output = run([f"bin/{name}", f"--gtest_output=json:{report}"], worker, 1800, 1800)
            if code != 0:
                raise Failure(f"{name} fails as the tree is:\n" + output[-4000:])
            self.known["programs"][name] = {
                f"{suite['name']}.{test['name']}": float(test["time"].rstrip("s"))
                for suite in json.loads(report.read_text())["testsuites"] for test in suite["testsuite"]}
            self.file.write_text(json.dumps(self.known))

    def tests(self, program):
        return self.known["programs"][program]


def faults_of_area(area, names, built):
    found = []
    for name in names:
        if not any(matches(name, pattern) for pattern in area["sources"]) or "_windows" in name:
            continue
        if not (name.endswith(".h") or (name.endswith(".def") and not name.startswith("platform/")) or (name.endswith((".cpp", ".c")) and name in built)):
            continue
        source, here = faults.faults_of(name, (ROOT / name).read_bytes().decode())
        part = area.get("part")
        if part:
            spans = faults.parts(source)
            here = [fault for fault in here
                    if next((span[2] for span in spans if span[0] <= fault.start < span[1]), "code") == part]
        found += here
    return found


def matches(name, pattern):
    if pattern.endswith("/**"):
        return name.startswith(pattern[:-2])
    return fnmatch.fnmatchcase(name, pattern) and name.count("/") == pattern.count("/")


def drawn(found, seed):
    """The faults in the order in which they are tried: the kinds take turns."""
    order = random.Random(seed)
    by_kind = {kind: [fault for fault in found if fault.kind == kind] for kind in faults.KINDS}
    for kind in faults.KINDS:
        order.shuffle(by_kind[kind])
    while any(by_kind.values()):
        for kind in faults.KINDS:
            if by_kind[kind]:
                yield by_kind[kind].pop()


def read_equivalent():
    entries, entry = [], {}
    for line in (HERE / "equivalent.txt").read_text().splitlines():
        key, _, value = line.partition(": ")
        if line.startswith("#") or not line.strip():
            continue
        entry[key] = " ".join(value.split())
        if key == "reason":
            entries.append(entry)
            entry = {}
    return entries


def equivalent_of(fault, entries):
    return next((entry for entry in entries if entry["file"] == fault.file and entry["line"] == fault.before
                 and entry["change"] in ("*", fault.after)), None)


def try_stage(batch, workers, stage, baseline, outcomes, say):
    """Tries the faults, neighbours in a file one after the other, so that little is built again, and headers last."""
    queue = collections.deque(sorted(batch, key=lambda fault: (not fault.file.endswith((".cpp", ".c")), fault.file,
                                                               fault.start)))
    results, lock, errors = [], threading.Lock(), []

    def work(worker, take):
        while True:
            with lock:
                if not queue or errors:
                    return
                fault = take()
            try:
                began = time.monotonic()
                verdict = worker.try_fault(fault, stage, baseline)
            except Exception as error:  # of this program, not of a fault
                errors.append(error)
                return
            with lock:
                results.append((fault, *verdict))
                outcomes.put(fault, *verdict)
                say(f"{time.monotonic() - began:6.1f} s  {verdict[0]:16}  {fault.file}:{fault.line}  {fault.kind}  {verdict[1]}")

    threads = [threading.Thread(target=work, args=(worker, queue.popleft))
               for number, worker in enumerate(workers)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if errors:
        raise errors[0]
    return results


def try_area(name, area, found, workers, baseline, outcomes, options):
    entries = read_equivalent()
    order = drawn(found, f"{options.seed}:{name}")
    results, excluded = [], []
    counted = 0
    while counted < options.count:
        batch = []
        for fault in order:
            entry = equivalent_of(fault, entries)
            if entry:
                excluded.append((fault, entry))
                continue
            batch.append(fault)
            if counted + len(batch) == options.count:
                break
        if not batch:
            break
        if options.again:
            before = [(fault, outcomes.caught_before(fault)) for fault in batch]
            results += [(fault, *outcome) for fault, outcome in before if outcome]
            batch = [fault for fault, outcome in before if not outcome]
        stages = area["stages"][:options.stages]
        for number, stage in enumerate(stages):
            if not batch:
                break
            baseline.prepare(stage, workers)
            tried = try_stage(batch, workers, stage, baseline, outcomes, lambda text: print(f"{name:10} {text}", file=sys.stderr, flush=True))
            is_last = number == len(stages) - 1
            results += [result for result in tried if is_last or result[1] != SURVIVED]
            batch = [result[0] for result in tried if result[1] == SURVIVED]
        counted = sum(result[1] != UNCOMPILED for result in results)
    results.sort(key=lambda result: (result[0].file, result[0].start))
    return results, excluded


def print_table(title, rows):
    print(f"\n{title:18} {'caught':>8} {'of':>6} {'%':>6}")
    for name, (caught, counted) in rows.items():
        print(f"{name:18} {caught:8} {counted:6} {100 * caught / counted if counted else 100:6.1f}")


def print_report(outcomes):
    rows = {"area": collections.OrderedDict(), "kind": collections.OrderedDict((kind, [0, 0]) for kind in faults.KINDS)}
    for name, (results, excluded) in outcomes.items():
        rows["area"][name] = [0, 0]
        for fault, verdict, _ in results:
            if verdict != UNCOMPILED:
                for row in (rows["area"][name], rows["kind"][fault.kind]):
                    row[0] += verdict == CAUGHT
                    row[1] += 1
        survivors = [result[0] for result in results if result[1] == SURVIVED]
        if survivors:
            print(f"\nsurvivors of {name}:")
        for fault in survivors:
            print(f"{fault.file}:{fault.line}: {fault.kind}\n    - {fault.before}\n    + {fault.after}")
        for fault, entry in excluded:
            print(f"left out, equivalent: {fault.file}:{fault.line}: {fault.after or 'left out'}: {entry['reason']}")
    rows["area"]["all"] = [sum(row[i] for row in rows["area"].values()) for i in (0, 1)]
    for title, of_title in rows.items():
        print_table(title, of_title)
    rejected = sum(result[1] == UNCOMPILED for results, _ in outcomes.values() for result in results)
    print(f"\n{rejected} more did not compile.")


def parse_arguments(areas):
    parser = argparse.ArgumentParser(prog="./run mutate", description=__doc__.splitlines()[0])
    parser.add_argument("area", nargs="?", default="all", choices=["all", *areas], help="default: all")
    parser.add_argument("count", nargs="?", type=int, default=20, help="faults to count in each area (default: 20)")
    parser.add_argument("--seed", type=int, default=1, help="which faults are drawn (default: 1)")
    parser.add_argument("--workers", type=int, default=os.cpu_count(), help="build trees used at once (default: one for each core)")
    parser.add_argument("--again", action="store_true",
                        help="try only faults that have not been caught before; the others count as they did")
    parser.add_argument("--stages", type=int, help="use only so many stages of programs (default: all)")
    parser.add_argument("--list", action="store_true", help="only list the faults that would be tried first")
    return parser.parse_args()


def main():
    areas = json.loads((HERE / "areas.json").read_text())
    options = parse_arguments(areas)
    chosen = {name: area for name, area in areas.items() if options.area in ("all", name)}
    names = tracked_files()
    WORK.mkdir(parents=True, exist_ok=True)
    workers = [Worker(number, max(1, os.cpu_count() // options.workers)) for number in range(options.workers)]
    digest = hashlib.sha256(LAUNCHER.encode())
    for name in names:
        digest.update(name.encode() + b"\0" + (ROOT / name).read_bytes())
    workers[0].prepare(names)
    built = {os.path.relpath(command["file"], workers[0].tree)
             for command in json.loads((workers[0].build_folder / "compile_commands.json").read_text())}
    outcomes = Outcomes(names)
    found = {name: faults_of_area(area, names, built) for name, area in chosen.items()}
    if options.list:
        for name in chosen:
            for fault, _ in zip(drawn(found[name], f"{options.seed}:{name}"), range(options.count)):
                print(f"{name} {fault.file}:{fault.line}: {fault.kind}\n    - {fault.before}\n    + {fault.after}")
        return 0
    for worker in workers[1:]:
        worker.prepare(names)
    baseline = Baseline(digest.hexdigest())
    print_report({name: try_area(name, area, found[name], workers, baseline, outcomes, options)
                  for name, area in chosen.items()})
    return 0


def end(number, _):
    """Ends what is under way; the threads would go on with it."""
    for group in list(Worker.groups):
        try:
            os.killpg(group, signal.SIGKILL)
        except ProcessLookupError:
            pass
    os._exit(128 + number)


if __name__ == "__main__":
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)
    try:
        sys.exit(main())
    except Failure as failure:
        print(f"mutate: {failure}", file=sys.stderr)
        sys.exit(2)
