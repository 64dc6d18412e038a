#!/usr/bin/env bash
# Configures and builds one configuration into $VANTOR_BUILD_ROOT/NAME (default build/NAME).
#   scripts/build.sh host|arm32|aarch64|asan|tsan|fuzz [extra cmake arguments]
#
# asan: AddressSanitizer with UndefinedBehaviorSanitizer, no recovery (any finding fails).
# tsan: ThreadSanitizer.
# fuzz: the libFuzzer targets under fuzz/, built with clang (-fsanitize=fuzzer,address,undefined).
#
# VANTOR_BUILD_SUBDIRS="tests/entry tests/pipeline" builds only the targets of those source
# directories (and what they need) instead of everything.
set -euo pipefail
cd "$(dirname "$0")/.."
name=${1:?usage: scripts/build.sh host|arm32|aarch64|asan|tsan|fuzz [cmake args]}
shift
root=${VANTOR_BUILD_ROOT:-build}
# Sanitizer builds: light optimisation and line tables only, which keep the reports readable and
# the build short; the random twin trials are the same code the plain builds run 300 times.
sanitized=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g1"
           -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1" -DVANTOR_TWIN_TRIALS=100)
case "$name" in
  host)    args=(-DCMAKE_BUILD_TYPE=Release) ;;
  arm32)   args=(-DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake) ;;
  aarch64) args=(-DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake) ;;
  asan)    args=("${sanitized[@]}" -DVANTOR_SANITIZE=address -DVANTOR_BENCH=OFF) ;;
  tsan)    args=("${sanitized[@]}" -DVANTOR_SANITIZE=thread -DVANTOR_BENCH=OFF -DVANTOR_TOOLS=OFF) ;;
  fuzz)    args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
                 -DVANTOR_SANITIZE=address -DVANTOR_FUZZ=ON
                 -DVANTOR_TESTS=OFF -DVANTOR_BENCH=OFF -DVANTOR_TOOLS=OFF) ;;
  *) echo "unknown configuration $name" >&2; exit 2 ;;
esac
cmake -S . -B "$root/$name" "${args[@]}" "$@" >/dev/null
if [ -n "${VANTOR_BUILD_SUBDIRS:-}" ]; then
  # The shared library too: some tests inspect it.
  cmake --build "$root/$name" -j "$(nproc)" --target vantor
  for d in $VANTOR_BUILD_SUBDIRS; do
    make -C "$root/$name/$d" -j "$(nproc)"
  done
else
  cmake --build "$root/$name" -j "$(nproc)"
fi
