#!/usr/bin/env bash
# Configures and builds one configuration into build/NAME.
#   scripts/build.sh host|arm32|aarch64|asan|tsan [extra cmake arguments]
set -euo pipefail
cd "$(dirname "$0")/.."
name=${1:?usage: scripts/build.sh host|arm32|aarch64|asan|tsan [cmake args]}
shift
case "$name" in
  host)    args=(-DCMAKE_BUILD_TYPE=Release) ;;
  arm32)   args=(-DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake) ;;
  aarch64) args=(-DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake) ;;
  asan)    args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANTOR_SANITIZE=address -DVANTOR_BENCH=OFF) ;;
  tsan)    args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANTOR_SANITIZE=thread -DVANTOR_BENCH=OFF -DVANTOR_TOOLS=OFF) ;;
  *) echo "unknown configuration $name" >&2; exit 2 ;;
esac
cmake -S . -B "build/$name" "${args[@]}" "$@" >/dev/null
cmake --build "build/$name" -j "$(nproc)"
