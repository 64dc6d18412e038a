#!/usr/bin/env bash
# Configures and builds one configuration of CMakePresets.json into $VANTOR_BUILD_ROOT/NAME
# (default build/NAME):
#   scripts/build.sh host|arm32|aarch64|asan|tsan|fuzz|profile [extra cmake arguments]
#
# profile: Release with the per-stage timestamps (VANTOR_PROFILE); builds the benchmarks only.
# asan: AddressSanitizer with UndefinedBehaviorSanitizer, no recovery (any finding fails).
# tsan: ThreadSanitizer.
# fuzz: the libFuzzer targets under fuzz/, built with clang (-fsanitize=fuzzer,address,undefined).
# Sanitizer builds use light optimisation and line tables only, which keep the reports readable
# and the build short.
#
# VANTOR_BUILD_TARGETS="a b" builds only those targets (and what they need) instead of all.
# Any generator works: CMAKE_GENERATOR=Ninja scripts/build.sh host.
set -euo pipefail
cd "$(dirname "$0")/.."
name=${1:?usage: scripts/build.sh host|arm32|aarch64|asan|tsan|fuzz [cmake args]}
shift
root=${VANTOR_BUILD_ROOT:-build}
cmake --preset "$name" -B "$root/$name" "$@" >/dev/null
targets=()
if [ "$name" = profile ] && [ -z "${VANTOR_BUILD_TARGETS:-}" ]; then
  VANTOR_BUILD_TARGETS="vantor_bench_stages vantor_bench_frames"
fi
for t in ${VANTOR_BUILD_TARGETS:-}; do
  targets+=(--target "$t")
done
cmake --build "$root/$name" -j "$(nproc)" "${targets[@]}"
