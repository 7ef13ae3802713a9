#!/usr/bin/env bash
# Installs the .deb in a fresh Debian 12, compiles the example there with the flags of pkg-config, and scans a sample with
# it, with the tool, and with five lines of Python and the wheel. Needs root, debootstrap and a network.
# Usage: clean_root_test.sh DEB SAMPLE WHEEL
set -euo pipefail
deb=$1 sample=$2 wheel=$3
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

debootstrap --variant=minbase --include=gcc,libc6-dev,pkg-config,libstdc++6,libgcc-s1 bookworm "$root" >"$root.log" 2>&1 ||
    { tail "$root.log"; exit 1; }
rm -f "$root.log"
cp "$deb" "$sample" "$wheel" "$root/root/"
chroot "$root" bash -euxc '
    cd /root
    apt-get install -y -qq --no-install-recommends ./*.deb python3-venv python3-cffi >/dev/null
    cp /usr/share/doc/tavrik2/examples/scan_file.c .
    cc scan_file.c -o scan_file $(pkg-config --cflags --libs tavrik)
    ./scan_file ./*.exe || (($? == 1))
    tavrik-scan -q ./*.exe || (($? == 1))
    tavrik-rules show 173 >rule.txt
    grep Worm.Autorun.LD4 rule.txt
    tavrik-corpus add programs.store ./*.exe
    tavrik-corpus hunt programs.store >hits.txt || (($? == 1))
    for tool in tavrik-scan tavrik-rules tavrik-corpus; do
        $tool --version
        test -s /usr/share/bash-completion/completions/$tool
    done
    # Of the wheel only its own files: cffi is the one of Debian, and no index is asked.
    python3 -m venv --system-site-packages environment
    environment/bin/pip install --quiet --no-index ./*.whl
    cat >scan.py <<TEXT
import sys
import tavrik

report = tavrik.Scanner().scan(sys.argv[1])
print(report.name, report.findings)
TEXT
    environment/bin/python scan.py ./*.exe >found.txt
    cat found.txt
    grep "entry=7," found.txt'
