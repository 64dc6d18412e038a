#!/bin/sh
# Installs the Python package from a copy of its folder (pip, offline, no build isolation) into a
# temporary directory and runs unittest there, with that directory on the path and the source
# folder not on it.
#   run_installed.sh PYTHON PACKAGE_DIR TEST_DIR TEST_MODULE...
set -eu
python=$1 package=$2 tests=$(cd "$3" && pwd)
shift 3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
# A copy, because setuptools writes build/ and *.egg-info/ beside the sources.
cp -R "$package" "$tmp/src"
# pip itself runs without the sanitizer runtime that a build preloads for the tests.
env -u LD_PRELOAD PIP_DISABLE_PIP_VERSION_CHECK=1 "$python" -m pip install --quiet --no-index \
  --no-build-isolation --no-deps --no-cache-dir --root-user-action=ignore --target "$tmp/site" \
  "$tmp/src"
cd "$tmp"
PYTHONPATH="$tmp/site:$tests" VANTOR_INSTALLED_AT="$tmp/site" "$python" -m unittest -v "$@"
