# What distributions compile their packages with, where the compiler has it. A surrounding project
# decides for itself; sanitizers do the same and more; coverage and fuzzing look at plain code.
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
# Checked calls of the C library need the optimiser. A user's own level stays. Tests replace
# functions of the C library by name, which the checked ones do not have.
if(NOT VN_BUILD_TESTS AND NOT "${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}" MATCHES "_FORTIFY_SOURCE|-O0|-Og")
    set(VN_OPTIMISED $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
    add_compile_options($<${VN_OPTIMISED}:-U_FORTIFY_SOURCE> $<${VN_OPTIMISED}:-D_FORTIFY_SOURCE=2>)
endif()
add_link_options(-Wl,-z,relro -Wl,-z,now)
