"""The installed package on the sample set, whose folder TAVRIK_SAMPLES names."""
import io
import json
import mmap
import os
import pathlib
import pickle
import tarfile

import pytest

import tavrik

SAMPLES = sorted(pathlib.Path(os.environ["TAVRIK_SAMPLES"]).glob("*.*"))
NULLSOFT = next(path for path in SAMPLES if path.name.startswith("entry07-"))
RULE = 'rule 7 "Test.Small" for program {\n    header {\n        SizeOfHeaders != 0\n    }\n}\n'


class Ranges(io.BytesIO):
    """A file object that is read in ranges only, and gives less than it could, as files without a buffer may."""

    def read(self, size=-1):
        assert 0 < size <= 64 * 1024
        return super().read(max(1, size // 2))


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
        assert by_path.json.encode() == scanner.scan_json(str(path)) == scanner.scan_json(data, name=str(path))
        with open(path, "rb") as file, mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as mapped:
            sources = [str(path), data, bytearray(data), memoryview(data), mapped, file, Ranges(data)]
            assert all(found(scanner.scan(source)) == found(by_path) for source in sources), path.name
        if path.name.startswith("entry"):
            assert int(path.name[5:7]) in {finding.entry for finding in by_path.findings}
            assert by_path
    assert scanner.scan(b"").outcome is tavrik.Outcome.NOT_PE


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
    # Any sources, by any number of threads; what a source raises comes at its place.
    data = NULLSOFT.read_bytes()
    mixed = [NULLSOFT, data, "is-not-there", io.BytesIO(data)] * 20
    alone = [scanner.scan(source) for source in mixed]
    assert list(scanner.scan_many(mixed, threads=1)) == list(scanner.scan_many(mixed, threads=3)) == alone
    got = scanner.scan_many([NULLSOFT] * 10 + [7], threads=2)
    assert [next(got) == alone[0] for _ in range(10)] == [True] * 10
    with pytest.raises(TypeError):
        next(got)


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
    assert missing.json.encode() == scanner.scan_json("is-not-there.exe")
    assert json.loads(missing.json)["error"]["text"] == missing.text
    assert missing.outcome is tavrik.Outcome.FAILED and missing.status is tavrik.Status.FILE
    assert missing.name == "is-not-there.exe" and missing.as_dict()["error"]["code"] == "not-found"
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
    said = tavrik.Rules(RULE.replace("{\n", '{\n    meta { author "N. N." }\n', 1))
    assert [(rule.number, rule.metadata) for rule in said] == [(7, {"authors": ["N. N."]})]
    both = tavrik.Scanner(said, add_rules=True)
    assert [one.metadata for one in both.scan(NULLSOFT).detections] == [{"authors": ["N. N."]}]
    assert "author: N. N." in both.explain(NULLSOFT, rule=7).text and not both.explain(NULLSOFT, rule=173)


def test_finds_near_misses_and_what_is_inside():
    scanner = tavrik.Scanner(near=2, inside=True)
    misses = [miss for path in SAMPLES for miss in scanner.scan(path).near_misses]
    assert misses and all(1 <= len(miss.conditions) <= 2 and miss.conditions[0] in miss.text for miss in misses)
    with io.BytesIO() as made:
        with tarfile.open(fileobj=made, mode="w") as archive:
            archive.add(NULLSOFT, "x.exe")
        data = made.getvalue()
    report = scanner.scan(data, name="a.tar")
    inner = report.inside[0]
    assert (inner.name, inner.parent, inner.findings) == ("a.tar!x.exe", "a.tar", scanner.scan(NULLSOFT).findings)
    again = pickle.loads(pickle.dumps(report))
    assert again == report and again.json == report.json and hash(again) == hash(report)
    del report
    assert inner.as_dict()["parent"] == "a.tar"  # what it belongs to is kept
    cut = tavrik.Scanner(inside=True, inside_bytes=1).scan(data)
    assert [inner.outcome for inner in cut.inside] == [tavrik.Outcome.SKIPPED] and "1 bytes" in cut.inside[0].text
    assert 0 < cut.bytes_read <= len(data)


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
