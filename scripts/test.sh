#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test: on the host, for 32-bit Arm with
# NEON under qemu-arm and for AArch64 under qemu-aarch64; then the reliability runs: every test
# under AddressSanitizer with UndefinedBehaviorSanitizer, the threading and whole-frame tests
# under ThreadSanitizer, the libFuzzer target for a short time, the soak (leaks checked by
# LeakSanitizer) and the overload run; last the Debian packages and the builds that use the library
# as other projects do (scripts/consumer.sh).
#
#   scripts/test.sh [STEP ...]    STEP: host arm32 aarch64 asan tsan fuzz soak overload consumer
#                                 (default: all of them, in that order)
#
# A failed step does not stop the later ones. The summary at the end lists every step with its
# counts and time; the last line is the total, "N passed, N failed". Exits 1 if anything failed.
#
# Environment (defaults are the CI's short forms; scripts/reliability.sh runs the long ones):
#   VANTOR_FUZZ_SECONDS  seconds of fuzzing (120)
#   VANTOR_SOAK_FRAMES   frames through one handle in the soak (500)
#   VANTOR_SOAK_CYCLES   vantor_init/vantor_deinit cycles in the soak (20)
#   VANTOR_OVERLOAD_SECONDS  length of the overload run (5)
#   VANTOR_BUILD_ROOT    where the build directories go (build)
set -uo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh || exit 1

root=${VANTOR_BUILD_ROOT:-build}
fuzz_seconds=${VANTOR_FUZZ_SECONDS:-120}
soak_frames=${VANTOR_SOAK_FRAMES:-500}
soak_cycles=${VANTOR_SOAK_CYCLES:-20}
overload_seconds=${VANTOR_OVERLOAD_SECONDS:-5}
jobs=$(nproc)
logs=$root/ci-logs
mkdir -p "$logs"

# Sanitizer settings for every sanitized program: stop at the first finding and fail.
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:halt_on_error=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
export LSAN_OPTIONS=report_objects=1
# The race the library keeps on purpose (the unlocked slot-index update) is suppressed by
# tests/tsan.supp, which says why.
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$PWD/tests/tsan.supp"

summary=()
total_passed=0
total_failed=0
record() {  # step passed failed seconds note
    summary+=("$(printf '%-9s %5d passed, %3d failed  %5d s  %s' "$1" "$2" "$3" "$4" "$5")")
    total_passed=$((total_passed + $2))
    total_failed=$((total_failed + $3))
    echo "=== $1: $2 passed, $3 failed ($4 s) $5"
}

build() {  # configuration
    echo "=== $1: build"
    scripts/build.sh "$1" >"$logs/$1.build.log" 2>&1 && return 0
    tail -n 60 "$logs/$1.build.log"
    return 1
}

# Runs ctest in a build directory and records the step from ctest's own summary line.
ctest_step() {  # step directory [ctest arguments]
    local step=$1 dir=$2 t0=$step_start
    shift 2
    echo "=== $step: test"
    # --timeout: a limit for tests that set none, so that a hung test fails instead of
    # holding the run for ctest's default 1500 s.
    (cd "$dir" && ctest --output-on-failure --no-tests=error --timeout 600 -j "$jobs" "$@") 2>&1 |
        tee "$logs/$step.ctest.log"
    local line failed total
    line=$(grep -Eo '[0-9]+ tests? failed out of [0-9]+' "$logs/$step.ctest.log" | tail -n 1)
    if [ -z "$line" ]; then
        record "$step" 0 1 $((SECONDS - t0)) "(ctest gave no summary)"
        return
    fi
    failed=$(echo "$line" | awk '{print $1}')
    total=$(echo "$line" | awk '{print $NF}')
    record "$step" $((total - failed)) "$failed" $((SECONDS - t0)) "$*"
}

step_plain() {  # host | arm32 | aarch64
    local t0=$SECONDS
    build "$1" || { record "$1" 0 1 $((SECONDS - t0)) "(build failed)"; return; }
    ctest_step "$1" "$root/$1"
}

step_asan() {
    local t0=$SECONDS
    build asan || { record asan 0 1 $((SECONDS - t0)) "(build failed)"; return; }
    # The soak has a step of its own on this build, with its figures printed.
    ctest_step asan "$root/asan" -LE soak
}

step_tsan() {
    local t0=$SECONDS
    # Only the programs of the threaded tests are built.
    VANTOR_BUILD_TARGETS=vantor_threaded_tests build tsan ||
        { record tsan 0 1 $((SECONDS - t0)) "(build failed)"; return; }
    ctest_step tsan "$root/tsan" -L 'pipeline|entry|threads'
}

# Runs one fuzz target for fuzz_seconds on a scratch copy of its seed corpus; prints libFuzzer's
# figures in one line. Returns libFuzzer's status.
fuzz_one() {  # target
    local t=$1 bin=$root/fuzz/fuzz/$1 work=$root/fuzz/run/$1
    rm -rf "$work" && mkdir -p "$work/corpus" "$work/artifacts"
    "$bin" -max_total_time="$fuzz_seconds" -print_final_stats=1 -timeout=30 -rss_limit_mb=4096 \
        -artifact_prefix="$work/artifacts/" "$work/corpus" "fuzz/corpus/${t#fuzz_}" \
        >"$logs/$t.log" 2>&1
    local rc=$?
    local runs rate
    runs=$(grep -Eo 'stat::number_of_executed_units: +[0-9]+' "$logs/$t.log" | awk '{print $2}')
    rate=$(grep -Eo 'stat::average_exec_per_sec: +[0-9]+' "$logs/$t.log" | awk '{print $2}')
    if [ $rc -eq 0 ]; then
        echo "fuzz: $t ${runs:-?} executions, ${rate:-?}/s in ${fuzz_seconds} s, no finding"
    else
        echo "fuzz: $t FAILED (status $rc) after ${runs:-?} executions; log $logs/$t.log"
        grep -E -A 40 'ERROR: |runtime error|Test unit written|Base64:' "$logs/$t.log" | head -n 80
    fi
    return $rc
}

step_fuzz() {
    local t0=$SECONDS
    build fuzz || { record fuzz 0 1 $((SECONDS - t0)) "(build failed)"; return; }
    echo "=== fuzz: fuzz_vantor for $fuzz_seconds s"
    if fuzz_one fuzz_vantor; then
        record fuzz 1 0 $((SECONDS - t0)) "(fuzz_vantor x $fuzz_seconds s)"
    else
        record fuzz 0 1 $((SECONDS - t0)) "(fuzz_vantor x $fuzz_seconds s)"
    fi
}

# A standalone program that prints its own figures; one test in the summary.
program_step() {  # step program [arguments]
    local step=$1 t0=$SECONDS
    shift
    echo "=== $step: $*"
    if [ ! -x "$1" ]; then
        record "$step" 0 1 $((SECONDS - t0)) "(missing $1)"
        return
    fi
    if "$@" 2>&1 | tee "$logs/$step.log"; then
        record "$step" 1 0 $((SECONDS - t0)) ""
    else
        record "$step" 0 1 $((SECONDS - t0)) "(see $logs/$step.log)"
    fi
}

step_soak() {
    # On the AddressSanitizer build: LeakSanitizer checks the handles that come and go.
    build asan || { record soak 0 1 0 "(build failed)"; return; }
    program_step soak "$root/asan/tests/reliability/vantor_stress" soak \
        --frames "$soak_frames" --cycles "$soak_cycles"
}

# scripts/consumer.sh: the README's example built against an install, pkg-config, the source tree
# and the Debian packages, and the library against Debian's liblog; its own counts.
step_consumer() {
    local t0=$SECONDS line passed failed
    echo "=== consumer: scripts/consumer.sh"
    VANTOR_BUILD_ROOT=$root scripts/consumer.sh 2>&1 | tee "$logs/consumer.log"
    line=$(grep -E '^consumer: [0-9]+ passed, [0-9]+ failed$' "$logs/consumer.log" | tail -n 1)
    if [ -z "$line" ]; then
        record consumer 0 1 $((SECONDS - t0)) "(no summary)"
        return
    fi
    read -r _ passed _ failed _ <<<"$line"
    record consumer "$passed" "$failed" $((SECONDS - t0)) ""
}

step_overload() {
    build host || { record overload 0 1 0 "(build failed)"; return; }
    program_step overload "$root/host/tests/reliability/vantor_stress" overload \
        --seconds "$overload_seconds"
}

steps=("$@")
[ ${#steps[@]} -gt 0 ] || steps=(host arm32 aarch64 asan tsan fuzz soak overload consumer)
start=$SECONDS
for s in "${steps[@]}"; do
    step_start=$SECONDS
    case "$s" in
        host | arm32 | aarch64) step_plain "$s" ;;
        asan) step_asan ;;
        tsan) step_tsan ;;
        fuzz) step_fuzz ;;
        soak) step_soak ;;
        overload) step_overload ;;
        consumer) step_consumer ;;
        *) echo "unknown step $s" >&2; exit 2 ;;
    esac
done

echo "=== summary ($((SECONDS - start)) s)"
printf '%s\n' "${summary[@]}"
echo "total: $total_passed passed, $total_failed failed"
[ "$total_failed" -eq 0 ]
