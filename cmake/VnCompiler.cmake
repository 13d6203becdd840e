# Language level, warnings and sanitizers of our own sources.
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
if(NOT CMAKE_CXX_STANDARD OR CMAKE_CXX_STANDARD LESS 20)   # users may request a later one
    set(CMAKE_CXX_STANDARD 20)
endif()
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_UNITY_BUILD OFF)   # our sources and upstream's do not support it
add_compile_definitions(_GNU_SOURCE)

set(VN_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<OR:$<C_COMPILER_ID:Clang>,$<CXX_COMPILER_ID:Clang>>:-Wthread-safety>)

if(PROJECT_IS_TOP_LEVEL)
    set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
    find_program(VN_CCACHE ccache)
    if(VN_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
        set(CMAKE_C_COMPILER_LAUNCHER ${VN_CCACHE})
        set(CMAKE_CXX_COMPILER_LAUNCHER ${VN_CCACHE})
    endif()
endif()

if(VN_SANITIZE)
    add_compile_options(-fsanitize=${VN_SANITIZE} -fno-omit-frame-pointer -g)
    add_link_options(-fsanitize=${VN_SANITIZE})
    if(VN_SANITIZE MATCHES undefined)
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()

if(VN_FUZZ)   # coverage for libFuzzer; only the programs of fuzz/ link its main function
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()
