#!/usr/bin/env bash
# The long forms of the reliability runs that CI runs short:
#   the fuzz target for FUZZ_SECONDS (default 600),
#   the soak: 10000 frames through one handle and 200 init/deinit cycles, under
#     AddressSanitizer with LeakSanitizer,
#   the overload: four handles on four threads, 1080p frames for 60 s.
#
#   scripts/reliability.sh [FUZZ_SECONDS]
# Prints each run's figures and the same summary as scripts/test.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
export VANTOR_FUZZ_SECONDS=${1:-600}
export VANTOR_SOAK_FRAMES=${VANTOR_SOAK_FRAMES:-10000}
export VANTOR_SOAK_CYCLES=${VANTOR_SOAK_CYCLES:-200}
export VANTOR_OVERLOAD_SECONDS=${VANTOR_OVERLOAD_SECONDS:-60}
exec scripts/test.sh fuzz soak overload
