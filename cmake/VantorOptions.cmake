# Build options and the flags that follow from them.

option(VANTOR_TESTS "Build the tests" ${VANTOR_TOP_LEVEL})
set(VANTOR_SANITIZE "" CACHE STRING "Sanitizer build: empty, address (with undefined) or thread")

set(_vantor_host_default ${VANTOR_TOP_LEVEL})
if(CMAKE_CROSSCOMPILING OR ANDROID)
  set(_vantor_host_default OFF)
endif()
option(VANTOR_BENCH "Build the Google Benchmark programs" ${_vantor_host_default})
option(VANTOR_TOOLS "Build the command-line tool" ${_vantor_host_default})

set(VANTOR_WARNINGS -Wall -Wextra -Wno-unused-parameter)

# Vector kernels use NEON intrinsics; off Arm they go through SIMDe's translation.
check_cxx_source_compiles("
#if !defined(__ARM_NEON) && !defined(__ARM_NEON__)
#error no neon
#endif
int main() { return 0; }" VANTOR_HAVE_NATIVE_NEON)
if(NOT VANTOR_HAVE_NATIVE_NEON)
  find_path(VANTOR_SIMDE_INCLUDE_DIR simde/arm/neon.h)
  if(NOT VANTOR_SIMDE_INCLUDE_DIR)
    message(FATAL_ERROR "No native NEON and no SIMDe headers: install libsimde-dev")
  endif()
endif()

if(VANTOR_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined -fno-sanitize-recover=all)
elseif(VANTOR_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT VANTOR_SANITIZE STREQUAL "")
  message(FATAL_ERROR "VANTOR_SANITIZE must be empty, address or thread")
endif()

# Stage timestamps in every frame record, read by bench/stages.cpp. Off in every shipped build:
# the frame path then has no clock call.
option(VANTOR_PROFILE "Record per-stage timestamps of each frame (profiling builds only)" OFF)
if(VANTOR_PROFILE)
  add_compile_definitions(VTR_PROFILE=1)
endif()
