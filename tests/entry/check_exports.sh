#!/bin/sh
# Checks the dynamic symbol table of libvantor.so: every defined symbol must be one of the names
# the library exports, and each of those names must be there. Runs the toolchain's nm, so it
# works for the cross builds without the emulator.
#   check_exports.sh NM CXXFILT LIB
allowed='vantor_init vantor_run vantor_deinit vantor_wait_ready vantor_frame_status
deinterleave_yuv420_uv_downsample_neon deinterleave_yuv422_uv_downsample_neon
deinterleave_uv422_uv_downsample_neon uv_downsample
upsample_uv420 upsample_uv422 upsample_uv420_neon upsample_uv_neon upsample_y upsample_y_neon
uv_upsample
restore_interleave_yuv420_neon restore_interleave_yuv422_neon restore_interleave_uv420_neon
restore_interleave_uv422_neon
box_filter_col box_filter_col_neon
bilateral_filter bilateral_filter_span3 bilateral_process_block bilateral_filter_span3_center_neon
vector_ldr vector_str vector_set vector_sub_abs vector_min vector_max vector_add vector_sub
vector_mul vector_div vector_shr
vantor_run_thread vantor_deinterleave vantor_box_filter vantor_yuv vantor_interleave
y_low_downsample
vantor_run_signal vantor_wait_signal vantor_timedwait_signal vantor_timedlock
setCurrentThreadAffinityMask'
raw=$("$1" -D --defined-only "$3") || { echo "$1 failed on $3"; exit 1; }
# "address type name", the name demangled and cut before its parameter list.
names=$(echo "$raw" | "$2" | sed -n 's/^[0-9a-fA-F]* [A-Za-z] \([^(]*\).*$/\1/p' | sort -u)
bad=$(echo "$names" | grep -vxF "$(echo $allowed | tr ' ' '\n')")
missing=$(echo $allowed | tr ' ' '\n' | grep -vxF "$names")
[ -z "$bad$missing" ] || { printf 'unexpected exports:\n%s\nmissing exports:\n%s\n' "$bad" "$missing"; exit 1; }
echo "$(echo "$names" | wc -l) exported symbols, all allowed"
