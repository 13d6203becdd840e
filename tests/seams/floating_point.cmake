# The library must return the same results in hosts of several kinds, and when it is built with
# flags that relax floating-point arithmetic.
set(same_results Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/same_results.py)
set(fast_math -ffast-math -ffinite-math-only -funsafe-math-optimizations)

add_executable(floating_point_print floating_point_print.cpp)
add_executable(floating_point_print_fast floating_point_print.cpp)
target_compile_definitions(floating_point_print_fast PRIVATE VN_FLUSHING)
add_test(NAME floating_point_hosts_test
    COMMAND ${same_results} $<TARGET_FILE:floating_point_print>
            -- $<TARGET_FILE:floating_point_print_fast>)
set(hosts floating_point_print floating_point_print_fast)
set(tests floating_point_hosts_test)

if(TARGET vncommon_jar)
    find_package(Java REQUIRED COMPONENTS Development)
    set(class ${CMAKE_CURRENT_BINARY_DIR}/FloatingPointTest.class)
    add_custom_command(OUTPUT ${class}
        COMMAND ${Java_JAVAC_EXECUTABLE} -Xlint:all -d ${CMAKE_CURRENT_BINARY_DIR}
                ${CMAKE_CURRENT_SOURCE_DIR}/jni/FloatingPointTest.java
        DEPENDS jni/FloatingPointTest.java VERBATIM)
    add_custom_target(floating_point_class ALL DEPENDS ${class})
    add_library(floating_point_jni MODULE floating_point_jni.cpp)
    add_library(floating_point_jni_fast MODULE floating_point_jni.cpp)
    set(java ${Java_JAVA_EXECUTABLE} -Xcheck:jni -cp ${CMAKE_CURRENT_BINARY_DIR} FloatingPointTest
        $<TARGET_FILE:vncommon>)
    add_test(NAME floating_point_jvm_test
        COMMAND ${same_results} $<TARGET_FILE:floating_point_print>
                -- ${java} $<TARGET_FILE:floating_point_jni>
                -- ${java} $<TARGET_FILE:floating_point_jni_fast>)
    list(APPEND hosts floating_point_jni floating_point_jni_fast)
    list(APPEND tests floating_point_jvm_test)
endif()

foreach(host IN LISTS hosts)
    target_compile_options(${host} PRIVATE ${VN_WARNINGS})
    target_include_directories(${host} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${host} PRIVATE vncommon)
    if(host MATCHES "_fast$")
        target_compile_options(${host} PRIVATE ${fast_math})
        target_link_options(${host} PRIVATE ${fast_math})
    endif()
endforeach()

# Keeps its builds: only the first run is slow.
add_test(NAME user_flags_test
    COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/user_flags_test.py
            --cmake ${CMAKE_COMMAND} --generator ${CMAKE_GENERATOR} --source ${PROJECT_SOURCE_DIR}
            --folder ${CMAKE_CURRENT_BINARY_DIR}/user_flags
            --program $<TARGET_FILE:floating_point_print>)
list(APPEND tests user_flags_test)
set_tests_properties(${tests} PROPERTIES LABELS seams TIMEOUT 1800)
