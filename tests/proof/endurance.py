#!/usr/bin/env python3
"""Nothing grows: endurance.py PROGRAM-FOLDER SAMPLES-FOLDER [CYCLES] [LINKS].

CYCLES (10000) times the module is loaded, initialised, asked to scan a file, released and unloaded in one process, whose
memory and open files must stay as they are. LINKS (1000000) hard links to the samples are scanned by tavrik-scan, once
while folders are moved and deleted and files are written, grown and cut; its memory must be that of a scan of a
hundredth of them."""
import ctypes
import os
import subprocess
import sys
import tempfile

WARM_UP = 200  # cycles after which nothing may grow
SLACK_KIB = 1024  # by which memory may differ all the same
SCAN_SLACK = 1.25


class Input(ctypes.Structure):
    _fields_ = [("size", ctypes.c_uint32), ("zero", ctypes.c_uint32), ("name", ctypes.c_char_p),
                ("bytes", ctypes.c_void_p), ("length", ctypes.c_uint64), ("stream", ctypes.c_void_p)]


def resident_kib():
    with open("/proc/self/statm", encoding="ascii") as file:
        return int(file.read().split()[1]) * (os.sysconf("SC_PAGE_SIZE") // 1024)


def open_files():
    return len(os.listdir("/proc/self/fd"))


def cycle(library, module_path, file):
    pointers = [ctypes.c_void_p() for _ in range(3)]
    module, scanner, report = pointers
    given = Input(ctypes.sizeof(Input), 0, file, None, 0, None)
    status = library.tavrik_module_open(module_path, ctypes.byref(module), None)
    status = status or library.tavrik_scanner_open(module, None, ctypes.byref(scanner), None)
    status = status or library.tavrik_scan(scanner, ctypes.byref(given), None, ctypes.byref(report), None)
    library.tavrik_report_free(report)
    library.tavrik_scanner_close(scanner)
    library.tavrik_module_close(module)
    if status != 0:
        sys.exit(f"endurance: status {status}")


def cycles(programs, sample, count):
    library = ctypes.CDLL(f"{programs}/libtavrik.so")
    module_path = f"{programs}/tavrik2.hbx".encode()
    before = None
    for number in range(count):
        if number == min(WARM_UP, count // 2):
            before = resident_kib(), open_files()
        cycle(library, module_path, sample.encode())
    after = resident_kib(), open_files()
    loaded = "tavrik2.hbx" in open("/proc/self/maps", encoding="utf-8").read()
    print(f"{count} cycles: {before[0]} KiB and {before[1]} open files after the first, {after[0]} and {after[1]} after "
          f"all; the module is {'still loaded' if loaded else 'unloaded'}")
    return after[0] <= before[0] + SLACK_KIB and after[1] == before[1] and not loaded


def peak_kib(programs, folder, changes=None):
    """The most memory of a scan, with its exit code."""
    child = os.fork()
    if child == 0:
        with open(os.devnull, "w", encoding="ascii") as out:
            os.dup2(out.fileno(), 1)
            os.dup2(out.fileno(), 2)
        os.execv(f"{programs}/tavrik-scan", ["tavrik-scan", "-q", "-r", folder])
    if changes:
        changes()
    _, status, usage = os.wait4(child, 0)
    return usage.ru_maxrss, os.waitstatus_to_exitcode(status)


def make_links(folder, samples, count):
    for number in range(count):
        if number % 1000 == 0:
            os.mkdir(f"{folder}/{number // 1000}")
        os.link(samples[number % len(samples)], f"{folder}/{number // 1000}/{number}.exe")


def scans(programs, samples_folder, count):
    with tempfile.TemporaryDirectory(dir=os.path.dirname(os.path.abspath(samples_folder))) as folder:
        few, many = f"{folder}/few", f"{folder}/many"
        samples = [entry.path for entry in os.scandir(samples_folder) if entry.is_file()]
        os.mkdir(few)
        os.mkdir(many)
        make_links(few, samples, max(count // 100, len(samples)))
        make_links(many, samples, count)
        small, _ = peak_kib(programs, few)
        large, code = peak_kib(programs, many)
        print(f"{count} links: {large} KiB at most, {small} KiB for a hundredth; exit code {code}")

        def change():
            with open(min(samples, key=os.path.getsize), "rb") as file:
                content = file.read()
            for number in range(count // 1000):
                moved = f"{many}/moved{number}"
                os.rename(f"{many}/{number}", moved)
                if number % 2:
                    subprocess.run(["rm", "-r", moved], check=True)
                else:  # new files, since the links are those of the samples
                    for growing in range(10):
                        with open(f"{moved}/new{growing}.exe", "wb", buffering=0) as file:
                            for start in range(0, len(content), len(content) // 4 + 1):
                                file.write(content[start:start + len(content) // 4 + 1])
                            file.truncate(len(content) // 2)

        changed, changed_code = peak_kib(programs, many, change)
        print(f"the same while folders are moved and deleted and files are written: {changed} KiB at most, exit code {changed_code}")
        return large <= small * SCAN_SLACK and code == 1 and changed <= small * SCAN_SLACK and changed_code in (0, 1, 2)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    bounds = [int(text) for text in sys.argv[3:]] + [10_000, 1_000_000][len(sys.argv) - 3:]
    sample = sorted(entry.path for entry in os.scandir(sys.argv[2]) if entry.name.startswith("entry07"))[0]
    good = cycles(sys.argv[1], sample, bounds[0])
    sys.exit(0 if scans(sys.argv[1], sys.argv[2], bounds[1]) and good else 1)
