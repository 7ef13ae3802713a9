#!/usr/bin/env bash
# Installs the .deb in a fresh Debian 12, compiles the example there with the flags of pkg-config, scans a sample with it
# and with the tool, and, where a wheel is given, with five lines of Python. Needs root, debootstrap and a network.
# Usage: clean_root_test.sh DEB SAMPLE [WHEEL]
set -euo pipefail
deb=$1 sample=$2 wheel=${3:-}
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

include=gcc,libc6-dev,pkg-config,libstdc++6,libgcc-s1
[[ -z $wheel ]] || include+=,python3-cffi,python3-pip
debootstrap --variant=minbase --include="$include" bookworm "$root" >"$root.log" 2>&1 || { tail "$root.log"; exit 1; }
rm -f "$root.log"
cp "$deb" "$sample" ${wheel:+"$wheel"} "$root/root/"
chroot "$root" bash -euxc '
    cd /root
    dpkg -i ./*.deb
    cp /usr/share/doc/tavrik2/examples/scan_file.c .
    cc scan_file.c -o scan_file $(pkg-config --cflags --libs tavrik)
    ./scan_file ./*.exe || (($? == 1))
    tavrik-scan -q ./*.exe || (($? == 1))
    tavrik-rules show 173 | head -1
    for wheel in *.whl; do
        [[ -e $wheel ]] || break
        pip install --break-system-packages --no-index --no-deps "$wheel"
        python3 -c "
import tavrik, glob
report = tavrik.Scanner().scan(glob.glob(\"*.exe\")[0])
for finding in report.findings:
    print(report.name, finding.kind_name, hex(finding.offset))
assert report"
    done'
