# Sources of the fuzz target, also built with a plain main as the corpus replay of test builds.
set(VANTOR_FUZZ_SOURCES
    ${PROJECT_SOURCE_DIR}/fuzz/fuzz_vantor.cpp ${PROJECT_SOURCE_DIR}/tests/twin/twin_main.cpp
    ${PROJECT_SOURCE_DIR}/tests/twin/twin_filters.cpp
    ${PROJECT_SOURCE_DIR}/tests/twin/twin_resample.cpp
    ${PROJECT_SOURCE_DIR}/tests/support/frames.cpp ${PROJECT_SOURCE_DIR}/tests/support/log_capture.cpp
    ${PROJECT_SOURCE_DIR}/tests/entry/frame_model.cpp)
