#!/usr/bin/env python3
"""The Python package's tests on a library with the thread sanitizer: python_threads.py ROOT PROGRAMS SAMPLES.

They run in an environment of their own beside the programs, on the sources of the package and the library of that build. The
interpreter is not instrumented; its locks are those of the C library, which the sanitizer knows."""
import os
import pathlib
import shutil
import subprocess
import sys
import venv


def main():
    root, programs, samples = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    folder = programs.parent / "python"
    package = folder / "package" / "tavrik"
    python = folder / "venv" / "bin" / "python"
    if not python.exists():
        venv.create(folder / "venv", with_pip=True)
    pip = [python, "-m", "pip", "--quiet", "--disable-pip-version-check", "install", "cffi", "pytest"]
    subprocess.run(pip, check=True)
    (package / "lib").mkdir(parents=True, exist_ok=True)
    for source in (root / "python/src/tavrik").glob("*.py"):
        shutil.copy(source, package)
    shutil.copy(root / "include/tavrik/tavrik.h", package / "lib")
    sanitizer = subprocess.run(["g++", "-print-file-name=libtsan.so"], check=True, capture_output=True, text=True).stdout.strip()
    environment = {**os.environ, "LD_PRELOAD": sanitizer, "PYTHONPATH": str(package.parent), "TAVRIK_SAMPLES": str(samples),
                   "TAVRIK_LIBRARY": str(programs / "libtavrik.so"), "TAVRIK_TOOLS": str(programs)}
    tests = [root / "python/tests/test_tavrik.py"]
    return subprocess.run([python, "-m", "pytest", "-q", "-p", "no:cacheprovider", *tests], env=environment, check=False).returncode


if __name__ == "__main__":
    sys.exit(main())
