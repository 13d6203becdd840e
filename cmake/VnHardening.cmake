# The hardening flags of distributions, where the compiler supports them. They are off in a
# surrounding project, which decides for itself, and in sanitizer, coverage and fuzzing builds.
if(PROJECT_IS_TOP_LEVEL AND NOT VN_SANITIZE AND NOT VN_COVERAGE AND NOT VN_FUZZ)
    set(VN_HARDENING_DEFAULT ON)
else()
    set(VN_HARDENING_DEFAULT OFF)
endif()
option(VN_HARDENING "Protect stacks, returns and buffers as distributions do"
       ${VN_HARDENING_DEFAULT})
set(VN_HARDENING_FLAGS)
if(NOT VN_HARDENING)
    return()
endif()

include(CheckCXXCompilerFlag)
set(VN_HARDENING_CANDIDATES -fstack-protector-strong -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    list(APPEND VN_HARDENING_CANDIDATES -fcf-protection)
endif()
foreach(flag IN LISTS VN_HARDENING_CANDIDATES)
    string(MAKE_C_IDENTIFIER "VN_HAVE${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
        list(APPEND VN_HARDENING_FLAGS ${flag})
    endif()
endforeach()
add_compile_options(${VN_HARDENING_FLAGS})
# glibc: _FORTIFY_SOURCE needs optimisation. A level set by the user is kept. Not in builds with
# tests: these replace C library functions by name, and the checked variants have other names.
if(NOT VN_BUILD_TESTS AND NOT "${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}" MATCHES "_FORTIFY_SOURCE|-O0|-Og")
    set(VN_OPTIMISED $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
    add_compile_options($<${VN_OPTIMISED}:-U_FORTIFY_SOURCE> $<${VN_OPTIMISED}:-D_FORTIFY_SOURCE=2>)
endif()
add_link_options(-Wl,-z,relro -Wl,-z,now)
