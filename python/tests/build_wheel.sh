#!/usr/bin/env bash
# Builds the wheel of an installed library.
# Usage: build_wheel.sh PREFIX FOLDER_FOR_THE_WHEEL
set -euo pipefail
prefix=$1 out=$2
source=$(dirname "$(dirname "$(realpath "$0")")")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
python3 -m venv "$folder/venv"
"$folder/venv/bin/pip" --quiet --disable-pip-version-check wheel "$source" --no-deps --wheel-dir "$out" \
    --config-settings="cmake.define.CMAKE_PREFIX_PATH=$prefix" --config-settings="build-dir=$folder/build"
