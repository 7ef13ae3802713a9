#!/usr/bin/env bash
# Builds the wheel out of an installation of a build tree, installs it into a fresh virtual environment, and runs the
# package's tests and the type checker there.
# Usage: wheel_test.sh BUILD_FOLDER PYTHON_FOLDER [FOLDER_FOR_THE_WHEEL]
set -euo pipefail
build=$1 source=$2 out=${3:-}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cmake --install "$build" --prefix "$folder/prefix" --strip >/dev/null
python3 -m venv "$folder/venv"
pip=("$folder/venv/bin/pip" --quiet --disable-pip-version-check)
"${pip[@]}" wheel "$source" --no-deps --wheel-dir "$folder/wheel" \
    --config-settings="cmake.define.CMAKE_PREFIX_PATH=$folder/prefix" --config-settings="build-dir=$folder/build"
ls "$folder/wheel"
"${pip[@]}" install "$(echo "$folder"/wheel/*.whl)[test,cluster,parquet]"
"$build/bin/tavrik-samples" "$folder/samples" >/dev/null
cd "$folder" # so that the package is the installed one
TAVRIK_SAMPLES=$folder/samples "$folder/venv/bin/python" -m pytest -q -rP -p no:cacheprovider "$source/tests"
"$folder/venv/bin/python" "$source/tests/figures.py" "$folder/samples" "$build/bin/tavrik-scan"
"$folder/venv/bin/mypy" --config-file "$source/pyproject.toml" --cache-dir "$folder/mypy" -p tavrik
[[ -z $out ]] || { mkdir -p "$out" && cp "$folder"/wheel/*.whl "$out"; }
