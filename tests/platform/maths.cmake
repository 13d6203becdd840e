# Tests of the mathematics: the unit test, the JDK as oracle, the same bits from other compilers and
# flags, and no call of the system's mathematics.
vn_test(maths_test)
vn_not_under_valgrind(maths_test "memcheck computes long double, the oracle here, in 64 bits"
    Maths.FunctionsThatTheJdkLacksAgainstWiderArithmetic Maths.GammaAtSmallAndNegativeArguments)

add_executable(maths_checksum maths_checksum.cpp)
target_compile_options(maths_checksum PRIVATE ${VN_WARNINGS})
target_link_libraries(maths_checksum PRIVATE vncommon)
target_compile_definitions(maths_test PRIVATE
    VN_MATHS_CHECKSUM="$<TARGET_FILE:maths_checksum>"
    VN_MATHS_EXPECTED="${CMAKE_CURRENT_SOURCE_DIR}/maths_checksums.txt")
add_dependencies(maths_test maths_checksum)

# Compiles everything itself, with the flags of the FDLIBM build except the optimisation level. The
# result does not depend on the preset, so the sanitizers' suites would only repeat it.
if(NOT VN_SANITIZE)
    set(flags ${VN_FDLIBM_FLAGS})
    set(cFlags ${VN_FDLIBM_INCLUDES} ${VN_FDLIBM_UPSTREAM_INCLUDE})
    list(TRANSFORM cFlags PREPEND -I)
    foreach(definition IN LISTS VN_FDLIBM_DEFINITIONS)
        list(APPEND cFlags -D${definition})
    endforeach()
    set(cxxFlags -I${PROJECT_SOURCE_DIR}/include -I${PROJECT_SOURCE_DIR})
    list(TRANSFORM flags PREPEND --flag=)
    list(TRANSFORM cFlags PREPEND --c-flag=)
    list(TRANSFORM cxxFlags PREPEND --cxx-flag=)
    add_test(NAME maths_same_bits_test
        COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/maths_same_bits.py
                --expected ${CMAKE_CURRENT_SOURCE_DIR}/maths_checksums.txt
                ${flags} ${cFlags} ${cxxFlags}
                ${VN_FDLIBM_UPSTREAM_SOURCES}
                ${PROJECT_SOURCE_DIR}/platform/fdlibm/support.c
                ${PROJECT_SOURCE_DIR}/platform/maths.cpp
                ${CMAKE_CURRENT_SOURCE_DIR}/maths_checksum.cpp)
    set_tests_properties(maths_same_bits_test PROPERTIES TIMEOUT 1800)
endif()

add_test(NAME maths_symbols_test
    COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/check_maths_symbols.py
            --nm ${CMAKE_NM} --library $<TARGET_FILE:vncommon> $<TARGET_OBJECTS:vn_fdlibm>
            $<FILTER:$<TARGET_OBJECTS:vncommon_objects>,INCLUDE,/maths\\.cpp>
    COMMAND_EXPAND_LISTS)

# With -flto, too, signgam must be the C library's variable. This builds a small library of the same
# parts with the options of maths.cpp. Not with clang, which needs a linker plugin for -flto.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT VN_COVERAGE)
    get_source_file_property(options ${PROJECT_SOURCE_DIR}/platform/maths.cpp
        DIRECTORY ${PROJECT_SOURCE_DIR} COMPILE_OPTIONS)
    set_source_files_properties(${PROJECT_SOURCE_DIR}/platform/maths.cpp PROPERTIES
        COMPILE_OPTIONS "${options}")
    add_library(maths_lto MODULE ${PROJECT_SOURCE_DIR}/platform/maths.cpp
        ${PROJECT_SOURCE_DIR}/text/numbers/decimal.cpp $<TARGET_OBJECTS:vn_fdlibm>)
    target_include_directories(maths_lto PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
    target_compile_options(maths_lto PRIVATE -flto)
    target_link_libraries(maths_lto PRIVATE ${VN_PRIVATE_LIBRARIES})
    target_link_options(maths_lto PRIVATE -flto -Wl,--exclude-libs,ALL)
    add_test(NAME maths_lto_test
        COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/check_maths_symbols.py
                --nm ${CMAKE_NM} --library $<TARGET_FILE:maths_lto> $<TARGET_OBJECTS:vn_fdlibm>
        COMMAND_EXPAND_LISTS)
endif()

# scripts/soak --maths runs the same program with a count of a million or more.
find_package(Java COMPONENTS Development)
if(Java_JAVAC_EXECUTABLE)
    set(oracle ${CMAKE_CURRENT_BINARY_DIR}/StrictMathOracle.class)
    add_custom_command(OUTPUT ${oracle}
        COMMAND ${Java_JAVAC_EXECUTABLE} -d ${CMAKE_CURRENT_BINARY_DIR}
                ${CMAKE_CURRENT_SOURCE_DIR}/StrictMathOracle.java
        DEPENDS StrictMathOracle.java VERBATIM)
    add_executable(maths_strictmath maths_strictmath.cpp ${oracle})
    target_compile_options(maths_strictmath PRIVATE ${VN_WARNINGS})
    target_link_libraries(maths_strictmath PRIVATE vncommon_inner)
    add_test(NAME maths_strictmath_test
        COMMAND maths_strictmath ${Java_JAVA_EXECUTABLE} ${CMAKE_CURRENT_BINARY_DIR} 10000 1)
    set_tests_properties(maths_strictmath_test PROPERTIES TIMEOUT 1800)
else()
    message(STATUS "No JDK: the mathematics is not compared with StrictMath")
endif()
