#!/usr/bin/env bash
# Plants known faults one at a time and tells which ones the host test suite catches.
#   scripts/plant_faults.sh [ID-REGEX]     (default: every fault of the table)
#   VANTOR_FAULT_REV=COMMIT                (default HEAD: the tree and tests to measure)
#   VANTOR_FAULT_TESTS=REGEX               (only the tests ctest -R selects: which ones catch it)
#
# Works on a private copy of the committed tree ($VANTOR_BUILD_ROOT/tree, default
# build-faults/tree), so the checkout others work in is never changed: each fault replaces one
# exact snippet of one file, the host build there is rebuilt incrementally and the whole host
# suite runs with --stop-on-failure (the twin harness with 100 trials, as in the sanitizer
# builds; benchmarks are not built). The file is put back after each fault, and on any exit.
# A fault counts as caught when the build or some test fails.
set -uo pipefail
cd "$(dirname "$0")/.."
root=$(realpath -m "${VANTOR_BUILD_ROOT:-build-faults}")
tree=$root/tree build=$root/host only=${1:-.}
mkdir -p "$tree" "$root/orig"

# Refresh the copy from the commit, keeping the times of unchanged files so the build stays warm.
rm -rf "$root/head" && mkdir -p "$root/head" && git archive "${VANTOR_FAULT_REV:-HEAD}" | tar -x -C "$root/head"
(cd "$root/head" && find . -type f) | while read -r f; do
  cmp -s "$root/head/$f" "$tree/$f" || { mkdir -p "$(dirname "$tree/$f")" && cp "$root/head/$f" "$tree/$f"; }
done
rm -rf "$root/head"
cmake -S "$tree" -B "$build" -DCMAKE_BUILD_TYPE=Release -DVANTOR_BENCH=OFF \
      -DVANTOR_TWIN_TRIALS=100 >/dev/null || exit 1
cmake --build "$build" -j2 >"$root/build.log" 2>&1 || { echo "clean build fails" >&2; exit 1; }
suite() {
  ctest --test-dir "$build" --stop-on-failure -j2 --timeout 300 ${VANTOR_FAULT_TESTS:+-R "$VANTOR_FAULT_TESTS"} \
    >"$root/ctest.log" 2>&1
}
start=$(date +%s)
suite || { echo "the suite fails without a fault: see $root/ctest.log" >&2; exit 1; }
echo "clean suite passes in $(($(date +%s) - start)) s"

# id <TAB> file <TAB> original snippet <TAB> faulty snippet (each snippet must occur once)
faults=$(cat <<'EOF'
box.round	src/filters/box_filter.cpp	(sum + 32) >> 6	(sum + 31) >> 6
box.band_tail	src/filters/box_filter.cpp	for (int32_t x = w32; x < width; ++x)	for (int32_t x = w32 + 1; x < width; ++x)
box.neon_short	src/filters/box_filter_neon.cpp	step(b, r0, row(-VTR_BOX_REACH), zero, zero);	step(b, r0, row(-VTR_BOX_REACH + 1), zero, zero);
box.neon_high	src/filters/box_filter_neon.cpp	vqsubq_u8(vqaddq_u8(vdupq_n_u8(128), up), down)	vqsubq_u8(vqaddq_u8(vdupq_n_u8(127), up), down)
bil.table	src/filters/bilateral.cpp	{64, 62, 57, 50, 41, 33,	{64, 62, 57, 50, 40, 33,
bil.start_weight	src/filters/bilateral.cpp	uint32_t weight_sum = 1;	uint32_t weight_sum = 0;
bil.mirror	src/filters/bilateral.cpp	i = (i < 0 ? -i : i) % period;	i = (i < 0 ? -i - 1 : i) % period;
bil.neon_poly	src/filters/bilateral_neon.cpp	vdupq_n_s16(-298)	vdupq_n_s16(-297)
bil.vector_min	src/filters/bilateral.cpp	vector_min(d, 13, n);	vector_min(d, 12, n);
deint.c420	src/resample/deinterleave.cpp	second_out[out_offset + b / 16] = in[b + 1];	second_out[out_offset + b / 16] = in[b + 3];
deint.neon422	src/resample/deinterleave_neon.cpp	vst1_u8(second, vmovn_u16(gather_u16(in + 3, 32)));	vst1_u8(second, vmovn_u16(gather_u16(in + 5, 32)));
deint.strip420_bottom	src/resample/deinterleave_strip.cpp	vu_in + static_cast<ptrdiff_t>(hb) * (w / 2) + x;	vu_in + static_cast<ptrdiff_t>(hb / 2) * (w / 2) + x;
deint.strip422_chroma	src/resample/deinterleave_strip.cpp	second_out[block_at(width, band_row, x)] = in[2 * x + 3];	second_out[block_at(width, band_row, x)] = in[2 * x + 1];
deint.pad_rows	src/resample/deinterleave_strip.cpp	r < hb + VTR_BLOCK; ++r)	r < hb + VTR_BLOCK - 1; ++r)
deint.decimate16	src/resample/deinterleave_strip.cpp	src[16 * r * w + 16 * c]	src[16 * r * w + 16 * c + 1]
up.neon_table	src/resample/upsample_neon.cpp	upsample_uv420_neon_table1[8] = {16, 14, 12, 10, 8, 6, 4, 2}	upsample_uv420_neon_table1[8] = {16, 14, 12, 10, 8, 6, 5, 2}
up.odd_edge_weight	src/resample/upsample.cpp	const int32_t wb = (y * (16 / vf)) % 16;	const int32_t wb = (y * (16 / vf)) % 15;
up.odd_edge_422	src/resample/upsample.cpp	(wa * top[sx] + wb * bottom[sx]) >> 4	(wa * top[sx] + wb * bottom[sx] + 8) >> 4
rest.c_luma	src/resample/restore.cpp	return clamp(a + b - 128, 0, 255);	return clamp(a + b - 127, 0, 255);
rest.neon_capture	src/resample/restore_neon.cpp	vcgeq_u8(vabdq_u8(t, yo), vdupq_n_u8(2))	vcgeq_u8(vabdq_u8(t, yo), vdupq_n_u8(3))
rest.neon_tail	src/resample/restore_neon.cpp	memcpy(vu, vu_in, 16);\n        memcpy(u1, up_first, 8);	memcpy(vu, vu_in, 16);\n        memcpy(u1, up_first, 7);
rest.neon_numerator	src/resample/restore_neon.cpp	vshlq_n_u16(sad, 6)	vshlq_n_u16(sad, 5)
drv.strip_height	src/pipeline/driver.cpp	rows : t->height - (VTR_STRIP_COUNT - 1) * rows;	rows : t->aligned_height - (VTR_STRIP_COUNT - 1) * rows;
drv.box_height	src/pipeline/driver.cpp	job->height = t->aligned_height;	job->height = t->height;
drv.stage_message	src/pipeline/driver.cpp	{vantor_yuv, "vantor_yuv is fail.. ret = %d"},	{vantor_yuv, "vantor_yuv failed.. ret = %d"},
sig.deadline	src/pipeline/signal.cpp	if (now.tv_nsec > VTR_NSEC_PER_SEC) {	if (now.tv_nsec >= VTR_NSEC_PER_SEC) {
sig.reset	src/pipeline/signal.cpp	*counter = 0;	*counter = 1;
entry.null_run	src/entry/run.cpp	VTR handler is NULL~!!!!!	VTR handler is NULL~!!!!
entry.fits	src/entry/run.cpp	return width <= h->init_width && aligned	return width <= h->init_width + 16 && aligned
entry.thread_msg	src/entry/init.cpp	thread create fail to vantor_v"	thread create fail to vantor_V"
teardown.quit	src/pipeline/workers.cpp	for (box_filter_job& job : t->box_filter_job)\n        job.quit = 1;	for (box_filter_job& job : t->box_filter_job)\n        (void)job;
teardown.release	src/pipeline/workers.cpp	t->orphaned != 0 && t->live_workers == 0	t->orphaned != 0 && t->live_workers <= 1
status.late	src/pipeline/driver.cpp	VANTOR_FRAME_LATE_DEINTERLEAVE << stage	VANTOR_FRAME_LATE_DEINTERLEAVE
status.refused	src/pipeline/driver.cpp	vtr_status_add(t, VANTOR_FRAME_REFUSED_DEINTERLEAVE << stage);	(void)0;
status.not_run	src/entry/run.cpp	vtr_status_set(&h->thread[index], VANTOR_FRAME_NOT_RUN);	vtr_status_set(&h->thread[index], VANTOR_FRAME_OK);
tool.alpha	tools/color.cpp	memcpy(&rgb[3 * i], &p.pixels[4 * i], 3);	memcpy(&rgb[3 * i], &p.pixels[4 * i + 1], 3);
tool.max	tools/compare.cpp	s.max = std::max(s.max, d);	s.max = std::max(s.max, d - 1);
tool.p99	tools/compare.cpp	(change.size() * 99 + 99) / 100	change.size() * 99 / 100
EOF
)

current=
restore() { [ -n "$current" ] && cp "$root/orig/file" "$tree/$current"; current=; }
trap restore EXIT
trap 'exit 130' INT TERM

caught=0 planted=0 missed=()
printf '%-24s %-8s %s\n' fault result 'first failure'
while IFS=$'\t' read -r id file old new; do
  [[ $id =~ $only ]] || continue
  cp "$tree/$file" "$root/orig/file" && current=$file
  if ! python3 - "$tree/$file" "$old" "$new" <<'PY'; then
import sys
path, old, new = sys.argv[1], sys.argv[2].replace('\\n', '\n'), sys.argv[3].replace('\\n', '\n')
text = open(path).read()
if text.count(old) != 1:
    sys.exit(f"snippet occurs {text.count(old)} times")
open(path, 'w').write(text.replace(old, new))
PY
    printf '%-24s %-8s %s\n' "$id" ERROR "snippet not found in $file"; restore; continue
  fi
  planted=$((planted + 1))
  if ! cmake --build "$build" -j2 >"$root/build.log" 2>&1; then
    result=caught first=build
  elif suite; then
    result=MISSED first=- missed+=("$id")
  else
    result=caught first=$(grep -A1 'tests FAILED' "$root/ctest.log" | tail -1 | sed -E 's/^\s*[0-9]+ - //')
  fi
  [ "$result" = caught ] && caught=$((caught + 1))
  printf '%-24s %-8s %s\n' "$id" "$result" "$first"
  restore
done <<<"$faults"
cmake --build "$build" -j2 >"$root/build.log" 2>&1
echo "caught $caught / planted $planted; missed: ${missed[*]:-none}"
