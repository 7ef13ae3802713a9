"""Stores of features as Arrow streams."""
import csv
import gc
import os
import pathlib
import subprocess

import pytest

import tavrik
import tavrik.corpus

pyarrow = pytest.importorskip("pyarrow")
SAMPLES = sorted(pathlib.Path(os.environ["TAVRIK_SAMPLES"]).glob("*.*"), key=os.fsencode)
PROGRAM = pathlib.Path(os.environ["TAVRIK_TOOLS"], "tavrik-corpus")


@pytest.fixture(scope="module")
def path(tmp_path_factory):
    """A store of two segments and of files that are gone, of files that are none of PE, and of odd names."""
    folder = tmp_path_factory.mktemp("corpus")
    files = folder / "files"
    files.mkdir()
    for sample in SAMPLES[::4]:
        (files / sample.name).write_bytes(sample.read_bytes())
    (files / "text, \"quoted\"").write_text("text")
    store = folder / "a.store"
    subprocess.run([PROGRAM, "add", store, files], check=True)
    (files / "later").write_text("text")
    subprocess.run([PROGRAM, "add", store, files, "--no-digests"], check=True)
    subprocess.run([PROGRAM, "forget", store, files / SAMPLES[0].name], check=True)
    return store


def test_stream_has_what_the_export_has(path, tmp_path):
    exported = subprocess.run([PROGRAM, "export", path], check=True, capture_output=True, text=True).stdout
    expected = list(csv.DictReader(exported.splitlines()))
    tavrik.corpus.Store(path).write_parquet(tmp_path / "a.parquet")
    for table in (pyarrow.table(tavrik.corpus.Store(path)), pyarrow.parquet.read_table(tmp_path / "a.parquet")):
        table.validate(full=True)
        rows = [{name: "" if value is None else str(int(value) if isinstance(value, bool) else value)
                 for name, value in row.items()} for row in table.to_pylist()]
        assert len(rows) > 10 and rows == expected
    assert len(pyarrow.RecordBatchReader.from_stream(tavrik.corpus.Store(path)).read_next_batch()) < len(expected)


def test_columns_outlive_the_stream(path):
    unused = tavrik.corpus.Store(path).__arrow_c_stream__()
    sizes = pyarrow.table(tavrik.corpus.Store(path)).column("FileSize")
    reader = pyarrow.RecordBatchReader.from_stream(tavrik.corpus.Store(path))
    first = reader.read_next_batch().column("FileSize")
    del reader, unused
    gc.collect()
    assert not tavrik.corpus._streams
    assert first.to_pylist() == sizes.to_pylist()[:len(first)] and any(first.to_pylist())


def test_no_store(path, tmp_path):
    (tmp_path / "text").write_text("text" * 1000)
    cut = tmp_path / "cut"
    cut.write_bytes(path.read_bytes()[:-5000])
    for name, words in [("missing", "cannot be opened"), ("text", "not a database"), ("cut", "malformed")]:
        with pytest.raises((tavrik.Error, OSError), match=words):
            pyarrow.table(tavrik.corpus.Store(tmp_path / name))
