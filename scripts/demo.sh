#!/usr/bin/env bash
# Builds everything on the host and runs the main job: `vantor demo` denoises a built-in
# synthetic scene in both scenarios, writes before/after/comparison pictures to out/demo and
# prints its table. Arguments go to `vantor demo` (e.g. --out DIR, -s 3840x2160).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
scripts/build.sh host
"${VANTOR_BUILD_ROOT:-build}/host/tools/vantor" demo "$@"
