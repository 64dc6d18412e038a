#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test: on the host, for 32-bit Arm with
# NEON under qemu-arm and for AArch64 under qemu-aarch64.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh

run() {
  local name=$1
  echo "=== $name: build"
  scripts/build.sh "$name"
  echo "=== $name: test"
  (cd "build/$name" && ctest --output-on-failure -j "$(nproc)")
}

run host
run arm32
run aarch64
echo "=== all test runs passed"
