#!/usr/bin/env bash
# Builds the wheel out of an installation of a build tree, installs it into a fresh virtual environment, runs the
# package's tests and the type checker there, and prints its figures.
# Usage: wheel_test.sh BUILD_FOLDER PYTHON_FOLDER [FOLDER_FOR_THE_WHEEL]
set -euo pipefail
build=$1 source=$2 out=${3:-}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cmake --install "$build" --prefix "$folder/prefix" --strip >/dev/null
"$source/tests/build_wheel.sh" "$folder/prefix" "$folder/wheel"
ls "$folder/wheel"
python3 -m venv "$folder/venv"
"$folder/venv/bin/pip" --quiet --disable-pip-version-check install "$(echo "$folder"/wheel/*.whl)[test,cluster,parquet]"
"$build/bin/tavrik-samples" "$folder/samples" >/dev/null
cd "$folder" # so that the package is the installed one
"$folder/venv/bin/mypy" --config-file "$source/pyproject.toml" --cache-dir "$folder/mypy" -p tavrik
TAVRIK_SAMPLES=$folder/samples TAVRIK_TOOLS=$build/bin "$folder/venv/bin/python" -m pytest -q -p no:cacheprovider --show-capture=no -W ignore \
    "$source/tests"
"$folder/venv/bin/python" "$source/tests/figures.py" "$folder/samples" "$build/bin/tavrik-scan"
[[ -z $out ]] || { mkdir -p "$out" && cp "$folder"/wheel/*.whl "$out"; }
