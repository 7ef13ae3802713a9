"""tavrik.cluster on real clusters of this machine: workers and schedulers that are killed, files that kill, stores."""
import http.server
import itertools
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import threading
import time

import pytest

import tavrik

distributed = pytest.importorskip("distributed")
import tavrik.cluster  # noqa: E402
from tavrik.cluster._plan import Plan, Range, cover, cut  # noqa: E402
from tavrik.cluster.__main__ import local_cluster, main  # noqa: E402

SAMPLES = sorted(pathlib.Path(os.environ["TAVRIK_SAMPLES"]).glob("*.*"), key=os.fsencode)


class Slow(tavrik.cluster.ScanJob):
    """Takes its time, and ends its process at the files that are named so."""

    def line(self, name):
        time.sleep(0.01)
        if "poison" in name:
            os.kill(os.getpid(), signal.SIGKILL)
        return super().line(name)


@pytest.fixture(autouse=True)
def bounded():
    def late(*_):
        raise TimeoutError("a test of the cluster took longer than three minutes")

    signal.signal(signal.SIGALRM, late)
    signal.alarm(180)
    yield
    signal.alarm(0)


@pytest.fixture(scope="module")
def client():
    with local_cluster(2) as made:
        yield made


@pytest.fixture(scope="module")
def scanner():
    return tavrik.Scanner()


@pytest.fixture
def folder(tmp_path):
    """A folder of 400 files by other names."""
    made = tmp_path / "files"
    for index, path in zip(range(400), itertools.cycle(SAMPLES)):
        (made / f"{index % 7}").mkdir(parents=True, exist_ok=True)
        (made / f"{index % 7}" / f"{index:04}").write_bytes(path.read_bytes())
    return made


def single(scanner, folder):
    """What one scanner says, sorted."""
    return sorted(scanner.scan_json(str(path)) for path in folder.rglob("*") if path.is_file())


def results(output, manifest=None):
    manifest = manifest or json.loads((output / "manifest.json").read_text())
    assert sorted(manifest["parts"]) == sorted(f"parts/{path.name}" for path in (output / "parts").iterdir())
    return b"".join((output / name).read_bytes() for name in manifest["parts"]).splitlines()


def test_goes_on_when_workers_are_killed_and_names_files_that_kill(client, scanner, folder, tmp_path):
    expected = single(scanner, folder)
    poison = folder / "3" / "poison.exe"
    poison.write_bytes(SAMPLES[0].read_bytes())
    client.wait_for_workers(2)
    victims = list(client.run(os.getpid).values())

    def kill(done, _):
        if victims and done > 50:
            os.kill(victims.pop(), signal.SIGKILL)

    output = tmp_path / "out"
    summary = tavrik.cluster.run(client, [str(folder)], str(output), Slow(), files=8, progress=kill)
    assert not victims and summary.poison == (str(poison),)
    lines = results(output)
    names = [json.loads(line)["file"] for line in lines]
    assert names == sorted(names) and len(names) == 401
    kept = [line for line in lines if b"poison" not in line]
    assert sorted(kept) == expected
    assert all(json.loads(line)["error"]["code"] == "worker-ended" for line in set(lines) - set(kept))


def test_goes_on_where_a_killed_run_was(scanner, folder, tmp_path, capfdbinary):
    output = tmp_path / "out"
    arguments = ["scan", "--workers", "2", "--partition-files", "1", "-o", str(output), str(folder)]
    with subprocess.Popen([sys.executable, "-m", "tavrik.cluster", *arguments], start_new_session=True) as running:
        while running.poll() is None and (not (output / "parts").is_dir() or len(os.listdir(output / "parts")) < 30):
            time.sleep(0.005)
        os.killpg(running.pid, signal.SIGKILL)  # command, scheduler and workers
    done = sorted(path for path in (output / "parts").iterdir() if path.suffix == ".jsonl")
    assert 30 <= len(done) < 400 and not (output / "manifest.json").exists()
    done[3].write_bytes(done[3].read_bytes()[:-5])  # what a power failure may leave
    (folder / "later").write_bytes(b"")  # not in the list of the run
    assert main(["scan", *arguments[1:]]) == 0
    (folder / "later").unlink()
    resumed = int(re.search(rb"(\d+) of them by earlier", capfdbinary.readouterr().err)[1])
    assert len(done) - 1 <= resumed < 400
    assert sorted(results(output)) == single(scanner, folder)
    assert main(["cat", str(output)]) == 0
    assert capfdbinary.readouterr().out.splitlines() == results(output)
    assert main(["scan", "--sha256", *arguments[1:]]) == 2, "another job must not mix with it"
    assert b"another job" in capfdbinary.readouterr().err


def test_writes_parquet(client, scanner, tmp_path):
    parquet = pytest.importorskip("pyarrow.parquet")
    summary = tavrik.cluster.run(client, [str(SAMPLES[0].parent)], str(tmp_path), tavrik.cluster.ParquetScanJob(),
                                 files=20)
    rows = [row for name in summary.parts for row in parquet.read_table(tmp_path / name).to_pylist()]
    assert [row["json"].encode() for row in rows] == [scanner.scan_json(str(path)) for path in SAMPLES]
    for row in rows:
        plain = json.loads(row["json"])
        assert (row["file"], row["size"], row["findings"]) == (plain["file"], plain["size"], plain["findings"])
        assert [one["offset"] for one in row["payloads"]] == [one["offset"] for one in plain["payloads"]]


def test_keeps_features_in_stores(client, tmp_path):
    program = pathlib.Path(os.environ.get("TAVRIK_TOOLS", ""), "tavrik-corpus")
    if not program.is_file():
        pytest.skip("tavrik-corpus is not there")
    job = tavrik.cluster.StoreJob(str(program))
    summary = tavrik.cluster.run(client, [str(SAMPLES[0].parent)], str(tmp_path), job, files=20)
    merged = subprocess.run([program, "merge", tmp_path / "all.store", *(tmp_path / name for name in summary.parts)],
                            capture_output=True, text=True)
    assert f"{len(SAMPLES)} files added" in merged.stdout and merged.returncode == 0
    part = (tmp_path / summary.parts[0]).read_bytes()
    assert job.is_whole(part, 20) and not job.is_whole(part[:3000], 20)
    assert job.is_whole(job.poison("x"), 1)


class Ranges(http.server.SimpleHTTPRequestHandler):
    """Serves ranges, of files but those with `whole` in their name."""

    protocol_version = "HTTP/1.1"
    asked = []

    def do_GET(self):
        data = (SAMPLES[0].parent / self.path.rsplit("/", 1)[-1]).read_bytes()
        span = re.fullmatch(r"bytes=(\d+)-(\d+)", self.headers.get("Range", ""))
        if span and "whole" not in self.path:
            self.asked.append(int(span[2]) + 1 - int(span[1]))
            self.send_response(206)
            self.send_header("Content-Range", f"bytes {span[1]}-{min(int(span[2]), len(data) - 1)}/{len(data)}")
            data = data[int(span[1]):int(span[2]) + 1]
        else:
            self.send_response(200)
        if "whole" not in self.path:
            self.send_header("Accept-Ranges", "bytes")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        if self.command == "GET":
            self.wfile.write(data)

    do_HEAD = do_GET

    def log_message(self, *_):
        pass


def test_reads_stores_in_ranges(scanner, tmp_path):
    fsspec = pytest.importorskip("fsspec")
    pytest.importorskip("aiohttp")
    store = fsspec.filesystem("memory")
    for path in SAMPLES:
        store.pipe_file(f"/bucket/{path.name}", path.read_bytes())
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Ranges)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    base = f"http://127.0.0.1:{server.server_address[1]}"
    urls = [f"{base}/{kind}/{path.name}" for path in SAMPLES for kind in ("ranges", "whole")] + [f"{base}/no-such-file"]
    try:
        with distributed.Client(processes=False, n_workers=1, threads_per_worker=2, dashboard_address=":0") as near:
            summary = tavrik.cluster.run(near, ["memory://bucket"], "memory://out", listed=urls, files=40)
    finally:
        server.shutdown()
    lines = b"".join(store.cat_file(f"/out/{name}") for name in summary.parts).splitlines()
    found = {json.loads(line)["file"]: line for line in lines}
    assert len(lines) == len(found) == 3 * len(SAMPLES) + 1
    assert json.loads(found.pop(urls[-1]))["error"]["code"] == "read"
    by_name = {path.name: path for path in SAMPLES}
    for name, line in found.items():
        assert line == scanner.scan_json(by_name[name.rsplit("/", 1)[-1]].read_bytes(), name=name)
    assert 0 < max(Ranges.asked) <= 64 * 1024


@pytest.mark.parametrize("there, chosen, gaps", [
    ([], [], [(0, 10)]),
    ([(0, 4), (4, 10)], [(0, 4), (4, 10)], []),
    ([(0, 2), (0, 4), (2, 4)], [(0, 4)], [(4, 10)]),
    ([(0, 4), (2, 6), (6, 10)], [(0, 4), (6, 10)], [(4, 6)]),
    ([(0, 10), (3, 12)], [(0, 10)], []),
])
def test_counts_each_file_once(there, chosen, gaps):
    ranges = [Range(*one) for one in there]
    assert cover(ranges, 10) == ([Range(*one) for one in chosen], [Range(*one) for one in gaps])


def test_cuts_by_files_and_bytes():
    plan = Plan(list("abcdefg"), [1, 1, 1, 9, 1, 1, 1])
    partitions = list(plan.partitions(2, 5))
    assert [(one.begin, one.end) for one in partitions] == [(0, 2), (2, 3), (3, 4), (4, 6), (6, 7)]
    assert list(cut([Range(1, 4), Range(5, 7)], partitions)) == [Range(1, 2), Range(2, 3), Range(3, 4), Range(5, 6),
                                                                 Range(6, 7)]
    assert Plan.load(Plan(["a\udcff\n"], [3]).dump()).names == ["a\udcff\n"]
