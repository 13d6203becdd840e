# Adds coverage counters to the library's own sources, not to tests and upstream sources. A process
# writes its counters at exit; tests/support/coverage_exit.cpp handles signals and _exit().
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    message(FATAL_ERROR "VN_COVERAGE needs g++: scripts/coverage reads what gcov reports")
endif()
set(VN_COVERAGE_EXIT ${PROJECT_SOURCE_DIR}/tests/support/coverage_exit.cpp)
target_sources(vncommon_objects PRIVATE ${VN_COVERAGE_EXIT})
target_compile_options(vncommon_objects PRIVATE --coverage -fprofile-update=atomic -O0)
set_source_files_properties(${VN_COVERAGE_EXIT} PROPERTIES
    COMPILE_OPTIONS "-fno-profile-arcs;-fno-test-coverage")
list(APPEND VN_PRIVATE_LIBRARIES --coverage -Wl,--wrap=_exit -Wl,--undefined=__wrap__exit)
