#!/usr/bin/env bash
# Static Arm estimate of the vector kernels' hot loops and of a whole frame on a phone.
#   scripts/arm_estimate.sh [--loops]     (--loops also lists every innermost loop found)
#
# Compiles the kernel files with clang for AArch64 and 32-bit Arm (-S; loops not unrolled, so
# that one iteration of a loop in the listing is one iteration in the source, except for the
# bilateral filter, whose fixed 7x7 window loops must unroll into its 8-pixel step), takes each
# innermost loop from its header label to the branch back to it, and runs llvm-mca on it for a
# little core (Cortex-A55 model) and a big one (Cortex-X2, which LLVM 14 schedules with its
# Cortex-A57 model; 32-bit Arm has that model only). The frame estimate combines the cycles
# per iteration with the iterations each worker runs per frame and the bytes each stage moves.
# Needs clang and llvm-mca (Debian's llvm / clang packages); not part of CI.
set -euo pipefail
cd "$(dirname "$0")/.."
for tool in clang llvm-mca llvm-cxxfilt python3; do
  command -v "$tool" >/dev/null || { echo "arm_estimate: $tool not found (apt-get install clang llvm)" >&2; exit 1; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

declare -A targets=(
  [a64]="--target=aarch64-linux-gnu"
  [a32]="--target=armv7a-linux-gnueabihf -march=armv7-a -mfpu=neon -mfloat-abi=hard"
)
kernels="resample/restore_neon resample/deinterleave_neon resample/upsample_neon
         filters/box_filter_neon filters/bilateral_neon"
for isa in a64 a32; do
  for k in $kernels; do
    # shellcheck disable=SC2086
    unroll=-fno-unroll-loops
    [ "$k" = filters/bilateral_neon ] && unroll=
    clang ${targets[$isa]} -O3 $unroll -std=c++17 -DNDEBUG -Isrc -Iinclude \
      -S -o "$work/$isa.$(basename "$k").s" "src/$k.cpp"
  done
done

python3 - "$work" "${1:-}" <<'EOF'
import glob, os, re, subprocess, sys

work, verbose = sys.argv[1], sys.argv[2] == "--loops"
CPUS = {"a64": [("A55", "cortex-a55"), ("X2", "cortex-x2")], "a32": [("A57", "cortex-a57")]}
TRIPLE = {"a64": "aarch64-linux-gnu", "a32": "armv7a-linux-gnueabihf"}

def demangle(name):
    return subprocess.run(["llvm-cxxfilt", name], capture_output=True, text=True).stdout.strip()

def loops(path):
    """Innermost loops: (function, header, instructions) from header label to back branch."""
    lines = open(path).read().split("\n")
    out, func = [], None
    headers = [i for i, l in enumerate(lines) if "Inner Loop Header" in l]
    for i, l in enumerate(lines):
        m = re.match(r"^([A-Za-z_][\w.$]*):", l)
        if m and not m.group(1).startswith(".L"):
            func = m.group(1)
        if i not in headers:
            continue
        # The header's label: the nearest label at or above the comment (clang marks only
        # loops that hold no other loop as inner).
        lab_line = i
        while not re.match(r"^\.?L?BB\w+:", lines[lab_line]):
            lab_line -= 1
        label = lines[lab_line].split(":")[0]
        body, last_branch = [], None
        k = lab_line + 1
        while k < len(lines) and not re.match(r"^[A-Za-z_][\w.$]*:", lines[k]) \
                and not lines[k].strip().startswith(".cfi_endproc"):
            if re.search(r"(?<![\w.])" + re.escape(label) + r"(?!\w)", lines[k]) \
                    and not lines[k].startswith(label):
                last_branch = k
            k += 1
        if last_branch is None:
            continue
        for x in lines[lab_line + 1:last_branch + 1]:
            s = x.split("//")[0].split("@")[0].strip()
            if not s or s.startswith(".") or s.endswith(":"):
                continue
            body.append(s)
        out.append((demangle(func), label, body))
    return out

def mca(isa, cpu, body):
    src = "\n".join(body) + "\n"
    r = subprocess.run(["llvm-mca", "-mtriple=" + TRIPLE[isa], "-mcpu=" + cpu, "-iterations=200"],
                       input=src, capture_output=True, text=True)
    m = re.search(r"Total Cycles:\s+(\d+)", r.stdout)
    return int(m.group(1)) / 200 if m else float("nan")

# Hot loops: (name, file, function the loop is inlined into, which of its innermost loops (the
# largest or the smallest: the short blend path is the smaller of two), unit of one iteration,
# iterations per frame from W, HA, H).
KERNELS = [
    ("box filter step", "box_filter_neon", r"^box_filter_col_neon", max,
     "32 px, one row", lambda w, ha, h: w / 32 * ha),
    ("deinterleave 4:2:0", "deinterleave_neon", r"^deinterleave_yuv420_uv_downsample_neon", max,
     "128 VU bytes", lambda w, ha, h: ha / 16 * w / 128),
    ("deinterleave 4:2:2 luma", "deinterleave_neon", r"^deinterleave_yuv422_uv_downsample_neon",
     min, "128 px, one row", lambda w, ha, h: ha * w / 128),
    ("bilateral centre", "bilateral_neon", r"^bilateral_filter_span3_center_neon", max,
     "8 block px", lambda w, ha, h: 3 * (w / 16) * (ha / 16) / 8),
    ("upsample y", "upsample_neon", r"^upsample_y_neon", max,
     "16 px, one row", lambda w, ha, h: w * ha / 16),
    ("upsample uv420", "upsample_neon", r"^upsample_uv420_neon", max,
     "16 px, one row", lambda w, ha, h: (w / 2) * (ha / 2) / 16),
    ("restore luma 4:2:0", "restore_neon", r"^restore_interleave_yuv420_neon", max,
     "16 px", lambda w, ha, h: w * h / 16),
    ("restore chroma 4:2:0", "restore_neon", r"chroma420_pass", min,
     "16 VU pairs", lambda w, ha, h: w * h / 2 / 32),
    ("restore 4:2:2", "restore_neon", r"^restore_interleave_yuv422_neon", min,
     "32 px", lambda w, ha, h: w * h / 32),
]

found = {}
for path in sorted(glob.glob(os.path.join(work, "*.s"))):
    isa, stem = os.path.basename(path).split(".")[:2]
    for func, label, body in loops(path):
        found.setdefault((isa, stem), []).append((func, label, body))
        if verbose:
            print(f"{isa} {stem:18} {len(body):4} instr  {label:10} {func[:90]}")

cycles = {}
print("Hot loop of each vector kernel: instructions and cycles per iteration (llvm-mca, LLVM 14)")
print(f"{'kernel':26} {'unit':16} {'a64 ins':>7} {'A55':>6} {'X2':>6} | {'a32 ins':>7} {'A57':>6}")
for name, stem, pattern, pick, unit, _ in KERNELS:
    row = [f"{name:26} {unit:16}"]
    for isa in ("a64", "a32"):
        cands = [l for l in found.get((isa, stem), []) if re.search(pattern, l[0])]
        if stem == "restore_neon":  # leave out the short setup and tail loops
            cands = [l for l in cands if len(l[2]) >= 20]
        if not cands:
            row.append(f"{'-':>7}" + " " * 7 * len(CPUS[isa]))
            continue
        func, label, body = pick(cands, key=lambda l: len(l[2]))
        row.append(f"{len(body):7}")
        for tag, cpu in CPUS[isa]:
            c = mca(isa, cpu, body)
            cycles[(name, tag)] = c
            row.append(f"{c:6.1f}")
        if isa == "a64":
            row.append("|")
    print(" ".join(row))

# ---- frame estimate ---------------------------------------------------------------------------
# A phone: 4 big cores at 2.4 GHz, 4 little at 1.8 GHz, LPDDR4X: 4 x 16-bit channels at 4266 MT/s
# is 34 GB/s peak; 15 GB/s of reads plus writes is taken as what the cores reach together.
BIG_HZ, LITTLE_HZ, DRAM = 2.4e9, 1.8e9, 15e9
HANDOFF = 20e-6  # broadcast to first start plus last report to the driver's wake-up, per stage

def stage_bytes(w, ha, h, nv21):
    blocks = (w / 16) * (ha / 16)
    return {
        "deinterleave": (ha / 16) * w + 2 * blocks if nv21 else 2 * w * h + w * ha + 2 * blocks,
        "box filter": 3 * w * ha,
        "three planes": 3 * blocks + w * ha + (w * ha / 2 if nv21 else w * ha),
        "interleave": (5 * w * h + w * h) if nv21 else 7 * w * h,
        "chroma move": w * h if nv21 and h % 16 else 0,
        "luma decimation": (ha / 16) * w,
    }

def frame(w, h, nv21, tag, hz):
    ha = (h + 15) // 16 * 16
    it = {k[0]: k[5](w, ha, h) for k in KERNELS}
    cyc = lambda k: cycles.get((k, tag), float("nan")) * it[k] / hz
    # Compute time of the slowest worker of each stage: strips and bands split four ways; the
    # three-plane stage waits for the luma worker or a chroma worker, whichever is longer.
    bil = cyc("bilateral centre") / 3  # the iterations above cover the three planes
    compute = {
        "deinterleave": (cyc("deinterleave 4:2:0") if nv21 else cyc("deinterleave 4:2:2 luma")) / 4,
        "box filter": cyc("box filter step") / 4,
        "three planes": max(bil + cyc("upsample y"),
                            bil + cyc("upsample uv420") * (1 if nv21 else 2)),
        "interleave": (cyc("restore luma 4:2:0") + cyc("restore chroma 4:2:0")) / 4 if nv21
                      else cyc("restore 4:2:2") / 4,
        "chroma move": 0.0,
        "luma decimation": 0.0,
    }
    b = stage_bytes(w, ha, h, nv21)
    total = 0.0
    parts = {}
    for s in compute:
        t = max(compute[s], b[s] / DRAM) + (HANDOFF if s in ("deinterleave", "box filter",
                                                              "three planes", "interleave") else 0)
        parts[s] = t
        total += t
    return total, parts

print()
print("Estimated frame time on a phone, ms (compute per stage from the cycles above, memory at")
print(f"{DRAM / 1e9:.0f} GB/s read + write, {HANDOFF * 1e6:.0f} us hand-off per worker stage; "
      "each stage takes the longer of the two)")
print(f"{'frame':12} {'4 big cores (X2 model, 2.4 GHz)':>34} {'4 little cores (A55, 1.8 GHz)':>32}")
for label, w, h, nv21 in [("1080p NV21", 1920, 1080, True), ("1080p YUYV", 1920, 1080, False),
                          ("4K NV21", 3840, 2160, True)]:
    big, _ = frame(w, h, nv21, "X2", BIG_HZ)
    little, _ = frame(w, h, nv21, "A55", LITTLE_HZ)
    print(f"{label:12} {big * 1e3:34.2f} {little * 1e3:32.2f}")
_, parts = frame(1920, 1080, True, "A55", LITTLE_HZ)
print("1080p NV21 on little cores by stage, ms: " +
      ", ".join(f"{k} {v * 1e3:.2f}" for k, v in parts.items()))
EOF
