"""The installed package on the sample set, whose folder TAVRIK_SAMPLES names."""
import io
import mmap
import os
import pathlib
import sys
import threading
import time

import pytest

import tavrik

SAMPLES = sorted(pathlib.Path(os.environ["TAVRIK_SAMPLES"]).glob("*.*"))
NULLSOFT = next(path for path in SAMPLES if path.name.startswith("entry07-"))
RULE = 'rule 7 "Test.Small" for program {\n    header {\n        SizeOfHeaders != 0\n    }\n}\n'


class Ranges(io.BytesIO):
    """A file object that counts its reads."""

    reads = 0

    def read(self, size=-1):
        assert 0 < size <= 64 * 1024
        self.reads += 1
        return super().read(size)


@pytest.fixture(scope="module")
def scanner():
    with tavrik.Scanner() as made:
        yield made


def found(report):
    return report.outcome, report.detections, report.findings, report.payloads


def test_finds_the_same_in_every_source(scanner):
    for path in SAMPLES:
        data = path.read_bytes()
        by_path = scanner.scan(path)
        assert by_path.status is tavrik.Status.OK
        with open(path, "rb") as file, mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as mapped:
            sources = [str(path), data, bytearray(data), memoryview(data), mapped, file, Ranges(data)]
            assert all(found(scanner.scan(source)) == found(by_path) for source in sources), path.name
        if path.name.startswith("entry"):
            assert int(path.name[5:7]) in {finding.entry for finding in by_path.findings}
            assert by_path
    assert scanner.scan(b"").outcome is tavrik.Outcome.NOT_PE


def test_reads_little_of_clean_files(scanner):
    programs = [path for path in SAMPLES if path.name.startswith(("clean-", "near-miss-"))]
    for folder in (sys.prefix, "/usr/share", "/usr/lib"):
        programs += [path for end in ("exe", "dll") for path in pathlib.Path(folder).rglob(f"*.{end}") if path.is_file()]
    reads = []
    for path in programs:
        file = Ranges(path.read_bytes())
        report = scanner.scan(file)
        if report.outcome is tavrik.Outcome.SCANNED and not report:
            reads.append(file.reads)
    few = sum(count <= 3 for count in reads)
    print(f"{few} of {len(reads)} clean PE files cost at most 3 reads")
    assert len(reads) >= 4 and few >= 0.95 * len(reads)


def test_scans_many_in_order_and_lazily(scanner):
    asked = []

    def paths():
        for path in SAMPLES * 3:
            asked.append(path)
            yield path

    reports = scanner.scan_many(paths(), threads=2)
    assert next(reports).name == str(SAMPLES[0])
    assert len(asked) < len(SAMPLES)
    assert [report.name for report in reports] == [str(path) for path in (SAMPLES * 3)[1:]]


def test_releases_the_lock_in_scans(scanner):
    """Threads get through a number of scans faster than one; the bound counts where nothing else runs."""
    data = next(path for path in SAMPLES if path.name.startswith("entry01-")).read_bytes()

    def work(count):
        for _ in range(count):
            scanner.scan(data)

    def seconds(threads):
        started = time.perf_counter()
        workers = [threading.Thread(target=work, args=(400 // threads,)) for _ in range(threads)]
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
        return time.perf_counter() - started

    idle = (os.cpu_count() or 1) >= 2 and os.getloadavg()[0] < 0.5
    ratio = max(seconds(1) / seconds(2) for _ in range(3))
    print(f"2 threads are {ratio:.2f} times as fast as 1")
    assert not idle or ratio >= 1.8


def test_raises_what_files_and_callers_do_wrong(scanner):
    class Broken(io.BytesIO):
        def read(self, size=-1):
            raise OSError("the disk is gone")

    with pytest.raises(OSError, match="the disk is gone"):
        scanner.scan(Broken(b"MZ" * 100))
    with pytest.raises(TypeError):
        scanner.scan(7)
    with pytest.raises(ValueError):
        scanner.scan("a\0b")
    missing = scanner.scan("is-not-there.exe")
    assert missing.outcome is tavrik.Outcome.FAILED and missing.status is tavrik.Status.FILE
    assert "is-not-there.exe" in missing.text
    with pytest.raises(tavrik.Error, match="install the module") as failure:
        tavrik.Scanner(module="/no/such/tavrik2.hbx")
    assert failure.value.status is tavrik.Status.MODULE_MISSING
    closed = tavrik.Scanner()
    closed.close()
    with pytest.raises(ValueError, match="closed"):
        closed.scan(b"")


def test_ends_by_limits_and_cancel():
    data = NULLSOFT.read_bytes()
    assert tavrik.Scanner(max_size=10).scan(data).outcome is tavrik.Outcome.SKIPPED
    cancel = tavrik.Cancel()
    cancel.request()
    assert tavrik.Scanner().scan(data, cancel=cancel).status is tavrik.Status.CANCELLED
    assert len(tavrik.Scanner(sha256=True).scan(data).sha256) == 64


def test_compiles_and_checks_rules(tmp_path):
    assert not any(one.is_error for one in tavrik.check(RULE))
    wrong = tavrik.check(RULE.replace("SizeOfHeaders", "NoSuchField"), "mine.rules")
    assert [one.is_error for one in wrong] == [True]
    assert wrong[0].line == 3 and "mine.rules" in str(wrong[0])
    path = tmp_path / "small.rules"
    path.write_text(RULE)
    for rules in (RULE, path, tavrik.Rules(RULE)):
        small = tavrik.Scanner(rules)
        assert [one.name for one in small.scan(NULLSOFT).detections] == ["Test.Small"]
    assert small.explain(NULLSOFT, rule=7)
    with pytest.raises(tavrik.Error):
        tavrik.Scanner("no rules at all\n")


def test_explains_and_tells_features(scanner):
    assert scanner.explain(NULLSOFT, locator=7).holds
    lost = scanner.explain(NULLSOFT, locator=42)
    assert not lost and "FAIL" in str(lost)
    features = scanner.features(NULLSOFT)
    sections = features["NumberOfSections"]
    assert isinstance(sections, int) and f"section[{sections - 1}].Name" in features
    assert scanner.features(b"no PE file") == {}
    locators = scanner.locators()
    assert len(locators) == 50 and scanner.gates()[7] == locators[7].gate != ""
    assert any(rule.number == 173 and rule.name == "Worm.Autorun.LD4" for rule in scanner.rules())
