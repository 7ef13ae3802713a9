#!/usr/bin/env bash
# Installs the .deb in a fresh Debian 12, compiles the example there with the flags of pkg-config, and scans a sample with
# it and with the tool. Needs root, debootstrap and a network.
# Usage: clean_root_test.sh DEB SAMPLE
set -euo pipefail
deb=$1 sample=$2
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

debootstrap --variant=minbase --include=gcc,libc6-dev,pkg-config,libstdc++6,libgcc-s1 bookworm "$root" >"$root.log" 2>&1 ||
    { tail "$root.log"; exit 1; }
rm -f "$root.log"
cp "$deb" "$sample" "$root/root/"
chroot "$root" bash -euxc '
    cd /root
    apt-get install -y -qq --no-install-recommends ./*.deb >/dev/null
    cp /usr/share/doc/tavrik2/examples/scan_file.c .
    cc scan_file.c -o scan_file $(pkg-config --cflags --libs tavrik)
    ./scan_file ./*.exe || (($? == 1))
    tavrik-scan -q ./*.exe || (($? == 1))
    tavrik-rules show 173 >rule.txt
    grep Worm.Autorun.LD4 rule.txt'
