#!/usr/bin/env bash
# Times vantor against FFmpeg's chroma denoisers on one clip and measures what each leaves of
# the colour blotches.
#
#   bench/peers.sh                    1080p (30 frames) and 4K (10 frames)
#   VANTOR_PEERS_SIZES="1920x1080:30" VANTOR_PEERS_REPEAT=5 bench/peers.sh
# The tool is built in $VANTOR_BUILD_ROOT/host (build/host), the clips go to $VANTOR_PEERS_DIR
# ($VANTOR_BUILD_ROOT/peers).
#
# The clip: FFmpeg's smooth `gradients` source with its `testsrc2` pattern over the middle
# (sharp colour edges and fine detail), then low-frequency chroma blotches (random values on a
# grid of 32 x 32 pixels, enlarged bicubically) and fine noise on all planes, as NV21. The clean
# clip before the noise is kept as the reference for PSNR.
#
# Speed: each FFmpeg filter's cost per frame is the wall time of its command minus that of the
# same command with `null` in its place (same input, same format conversions), the best of
# VANTOR_PEERS_REPEAT runs (3). vantor's is the time inside vantor_run as `vantor denoise`
# reports it, best of the same number of runs. "1 thread" and "2 threads" confine every program
# to 1 or 2 CPUs with taskset; FFmpeg also gets -filter_threads N, and vantor's workers share
# those CPUs. Ratios are the filter's ms per frame over vantor's (capture) at the same count.
# vantor's capture scenario runs its threads at niceness -8 (when the user may raise priority);
# FFmpeg runs at the same niceness, so that neither gets more of a busy machine than the other.
# Quality: PSNR of U and V together, and of Y, against the clean clip, over all frames.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh >/dev/null

sizes=${VANTOR_PEERS_SIZES:-"1920x1080:30 3840x2160:10"}
repeat=${VANTOR_PEERS_REPEAT:-3}
root=${VANTOR_BUILD_ROOT:-build}
work=${VANTOR_PEERS_DIR:-$root/peers}
python=/usr/bin/python3

cmake -S . -B "$root/host" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$root/host" --target vantor_cli -j "$(nproc)" >/dev/null
tool=$root/host/tools/vantor
mkdir -p "$work"

# name|filter: the FFmpeg filters, each run on yuv420p between the same two conversions.
filters=(
  "hqdn3d|hqdn3d=luma_spatial=0.01:chroma_spatial=12:luma_tmp=0.01:chroma_tmp=9"
  "chromanr 5x5|chromanr=thres=30"
  "chromanr 21x21/3|chromanr=thres=30:sizew=10:sizeh=10:stepw=3:steph=3"
  "bilateral U,V|bilateral=sigmaS=16:sigmaR=0.08:planes=6"
)

make_clip() {  # width height frames
    local w=$1 h=$2 n=$3 noise_w=$(($1 / 32)) noise_h=$(($2 / 32))
    ffmpeg -v error -nostdin -y \
        -f lavfi -i "gradients=s=${w}x${h}:n=4:c0=0x9a6e58:c1=0x5a7fa0:c2=0x7c9a5c:c3=0xb89a70:seed=7:speed=0.002" \
        -f lavfi -i "testsrc2=s=$((w / 2))x$((h / 2))" \
        -f lavfi -i "nullsrc=s=${noise_w}x${noise_h},format=yuv444p,geq=lum=128:cb='128+16*random(1)-8':cr='128+16*random(2)-8',scale=${w}x${h}:flags=bicubic,format=yuv420p" \
        -filter_complex "[0:v]format=yuv420p[bg];[bg][1:v]overlay=$((w / 4)):$((h / 4)),split[c0][c1];[c1][2:v]blend=c0_expr=A:c1_expr='A+B-128':c2_expr='A+B-128',noise=c0s=3:c1s=4:c2s=4:allf=t,format=nv21[noisy];[c0]format=nv21[clean]" \
        -map "[clean]" -frames:v "$n" -f rawvideo "$work/clean_${w}x${h}.nv21" \
        -map "[noisy]" -frames:v "$n" -f rawvideo "$work/noisy_${w}x${h}.nv21"
}

calc() { awk "BEGIN { printf \"%.6f\", $* }"; }
less() { awk "BEGIN { exit !($1 < $2) }"; }

# Best wall time in seconds of a command over `repeat` runs.
best_seconds() {
    local best="" t0 t1 dt
    for ((r = 0; r < repeat; ++r)); do
        t0=$EPOCHREALTIME
        "$@" >/dev/null 2>&1
        t1=$EPOCHREALTIME
        dt=$(calc "$t1 - $t0")
        if [ -z "$best" ] || less "$dt" "$best"; then best=$dt; fi
    done
    echo "$best"
}

niceness=()
if nice -n -8 true 2>/dev/null; then niceness=(nice -n -8); fi

ffmpeg_run() {  # cpus threads w h filter [output]
    local cpus=$1 threads=$2 w=$3 h=$4 filter=$5 out=${6:-}
    local sink=(-f null -)
    [ -n "$out" ] && sink=(-f rawvideo -y "$out")
    "${niceness[@]}" taskset -c "$cpus" ffmpeg -v error -nostdin -threads "$threads" -filter_threads "$threads" \
        -f rawvideo -pix_fmt nv21 -s "${w}x${h}" -i "$work/noisy_${w}x${h}.nv21" \
        -vf "format=yuv420p,$filter,format=nv21" "${sink[@]}"
}

vantor_ms() {  # cpus w h scenario
    local best="" ms
    for ((r = 0; r < repeat; ++r)); do
        ms=$(taskset -c "$1" "$tool" denoise -s "$2x$3" --format nv21 --scenario "$4" \
                 "$work/noisy_$2x$3.nv21" "$work/out_vantor_$4_$2x$3.nv21" 2>&1 |
             sed -n 's/.*: \([0-9.]*\) ms per frame.*/\1/p')
        if [ -z "$best" ] || less "$ms" "$best"; then best=$ms; fi
    done
    echo "$best"
}

psnr() {  # file clean w h -> "chroma luma"
    "$python" - "$1" "$2" "$3" "$4" <<'PY'
import sys
import numpy as np
out, clean, w, h = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
a = np.fromfile(out, np.uint8).reshape(-1, h * 3 // 2, w).astype(np.float64)
b = np.fromfile(clean, np.uint8).reshape(-1, h * 3 // 2, w).astype(np.float64)
def db(x, y):
    mse = np.mean((x - y) ** 2)
    return 99.0 if mse == 0 else 10 * np.log10(255.0 ** 2 / mse)
print("%.2f %.2f" % (db(a[:, h:], b[:, h:]), db(a[:, :h], b[:, :h])))
PY
}

echo "vantor against FFmpeg $(ffmpeg -version | head -n 1 | awk '{print $3}') chroma denoisers," \
     "$(nproc) CPUs, best of $repeat runs"
for clip in $sizes; do
    size=${clip%%:*}
    frames=${clip##*:}
    w=${size%x*}
    h=${size#*x}
    make_clip "$w" "$h" "$frames"
    clean=$work/clean_${w}x${h}.nv21

    declare -A ms1 ms2 quality
    for scenario in capture preview; do
        ms1[vantor $scenario]=$(vantor_ms 0 "$w" "$h" "$scenario")
        ms2[vantor $scenario]=$(vantor_ms 0,1 "$w" "$h" "$scenario")
        quality[vantor $scenario]=$(psnr "$work/out_vantor_${scenario}_${w}x${h}.nv21" "$clean" "$w" "$h")
    done
    base1=$(best_seconds ffmpeg_run 0 1 "$w" "$h" null)
    base2=$(best_seconds ffmpeg_run 0,1 2 "$w" "$h" null)
    names=()
    for entry in "${filters[@]}"; do
        name=${entry%%|*}
        filter=${entry#*|}
        names+=("$name")
        t1=$(best_seconds ffmpeg_run 0 1 "$w" "$h" "$filter")
        t2=$(best_seconds ffmpeg_run 0,1 2 "$w" "$h" "$filter")
        ms1[$name]=$(calc "($t1 - $base1) * 1000 / $frames")
        ms2[$name]=$(calc "($t2 - $base2) * 1000 / $frames")
        out=$work/out_$(echo "$name" | tr -c 'a-z0-9\n' '_')_${w}x${h}.nv21
        ffmpeg_run 0,1 2 "$w" "$h" "$filter" "$out"
        quality[$name]=$(psnr "$out" "$clean" "$w" "$h")
    done
    quality[noisy]=$(psnr "$work/noisy_${w}x${h}.nv21" "$clean" "$w" "$h")

    echo
    echo "${w}x${h} NV21, $frames frames; ms per frame; x vantor = that ms over vantor capture's"
    printf '%-20s %9s %9s %10s %10s %11s %10s\n' "denoiser" "1 thread" "2 threads" \
        "x vantor 1" "x vantor 2" "chroma PSNR" "luma PSNR"
    read -r c l <<<"${quality[noisy]}"
    printf '%-20s %9s %9s %10s %10s %11s %10s\n' "(noisy input)" - - - - "$c" "$l"
    v1=${ms1[vantor capture]}
    v2=${ms2[vantor capture]}
    fastest1="" fastest2=""
    for name in "vantor capture" "vantor preview" "${names[@]}"; do
        read -r c l <<<"${quality[$name]}"
        printf '%-20s %9.2f %9.2f %10.1f %10.1f %11s %10s\n' "$name" "${ms1[$name]}" \
            "${ms2[$name]}" "$(calc "${ms1[$name]} / $v1")" "$(calc "${ms2[$name]} / $v2")" \
            "$c" "$l"
        case $name in vantor*) continue ;; esac
        if [ -z "$fastest1" ] || less "${ms1[$name]}" "${ms1[$fastest1]}"; then fastest1=$name; fi
        if [ -z "$fastest2" ] || less "${ms2[$name]}" "${ms2[$fastest2]}"; then fastest2=$name; fi
    done
    printf 'fastest FFmpeg filter: %s at 1 thread (%.1fx vantor), %s at 2 threads (%.1fx vantor)\n' \
        "$fastest1" "$(calc "${ms1[$fastest1]} / $v1")" \
        "$fastest2" "$(calc "${ms2[$fastest2]} / $v2")"
    unset ms1 ms2 quality
done
