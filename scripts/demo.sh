#!/usr/bin/env bash
# Builds the library on the host and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
scripts/build.sh host
build/host/bench/vantor_bench_filters --benchmark_min_time=0.2
