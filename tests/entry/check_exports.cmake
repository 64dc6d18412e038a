# Checks the dynamic symbol table of libvantor.so: every defined symbol must be one of the
# names the library exports, and each of those names must be there.
#   cmake -DNM=<nm> -DCXXFILT=<c++filt> -DLIB=<libvantor.so> -DOUT=<dir> -P check_exports.cmake
set(allowed
  vantor_init vantor_run vantor_deinit vantor_wait_ready vantor_frame_status
  deinterleave_yuv420_uv_downsample_neon deinterleave_yuv422_uv_downsample_neon
  deinterleave_uv422_uv_downsample_neon uv_downsample
  upsample_uv420 upsample_uv422 upsample_uv420_neon upsample_uv_neon upsample_y upsample_y_neon
  uv_upsample
  restore_interleave_yuv420_neon restore_interleave_yuv422_neon restore_interleave_uv420_neon
  restore_interleave_uv422_neon
  box_filter_col box_filter_col_neon
  bilateral_filter bilateral_filter_span3 bilateral_process_block
  bilateral_filter_span3_center_neon
  vector_ldr vector_str vector_set vector_sub_abs vector_min vector_max vector_add vector_sub
  vector_mul vector_div vector_shr
  vantor_run_thread vantor_deinterleave vantor_box_filter vantor_yuv vantor_interleave
  y_low_downsample
  vantor_run_signal vantor_wait_signal vantor_timedwait_signal vantor_timedlock
  setCurrentThreadAffinityMask)

execute_process(COMMAND ${NM} -D --defined-only ${LIB} OUTPUT_VARIABLE raw RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIB}")
endif()
file(WRITE ${OUT}/exports_raw.txt "${raw}")
execute_process(COMMAND ${CXXFILT} INPUT_FILE ${OUT}/exports_raw.txt
                OUTPUT_VARIABLE demangled RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${CXXFILT} failed")
endif()

string(REPLACE "\n" ";" lines "${demangled}")
set(seen "")
set(bad "")
foreach(line IN LISTS lines)
  # "address type name", the name possibly with a parameter list.
  if(NOT line MATCHES "^[0-9a-fA-F]+ [A-Za-z] (.+)$")
    continue()
  endif()
  set(symbol "${CMAKE_MATCH_1}")
  string(REGEX REPLACE "\\(.*$" "" name "${symbol}")
  list(FIND allowed "${name}" at)
  if(at EQUAL -1)
    list(APPEND bad "${symbol}")
  else()
    list(APPEND seen "${name}")
  endif()
endforeach()

set(missing "")
foreach(name IN LISTS allowed)
  list(FIND seen "${name}" at)
  if(at EQUAL -1)
    list(APPEND missing "${name}")
  endif()
endforeach()

if(bad OR missing)
  string(REPLACE ";" "\n  " bad_text "${bad}")
  string(REPLACE ";" "\n  " missing_text "${missing}")
  message(FATAL_ERROR "unexpected exports:\n  ${bad_text}\nmissing exports:\n  ${missing_text}")
endif()
list(LENGTH seen count)
message(STATUS "${count} exported symbols, all allowed")
