# Enforces IEEE 754 arithmetic in everything built here, whatever flags the user gives. The library
# promises the same bits in every build, and its text sources test for NaN and infinities.
#
# Options after the user's revert each flag that relaxes the arithmetic. One by one, because
# -fno-fast-math of g++ does not reset a flag that was given by its own name. -ffp-contract=off
# keeps a -march with fused multiply-add from changing results.
#
# On the link line the driver adds crtfastm.o for -ffast-math and -funsafe-math-optimizations unless
# they are reverted. Its constructor makes every process that loads the library flush subnormal
# numbers to zero.
set(VN_FLOATING_POINT_FLAGS
    -fno-fast-math -fno-unsafe-math-optimizations -fno-finite-math-only -fno-associative-math
    -fno-reciprocal-math -fsigned-zeros -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    list(APPEND VN_FLOATING_POINT_FLAGS -fno-single-precision-constant)
else()
    list(APPEND VN_FLOATING_POINT_FLAGS -fno-approx-func -fdenormal-fp-math=ieee)
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    list(APPEND VN_FLOATING_POINT_FLAGS -mfpmath=sse)
endif()

# -Ofast is -O3 with fast arithmetic; it adds crtfastm.o even if -fno-fast-math follows. The start
# files that -mpc and -mdaz-ftz add cannot be removed.
function(vn_strict_flags variable name)
    string(REGEX MATCH "-mpc(32|64|80)|-mdaz-ftz" flag "${${variable}}")
    if(flag)
        message(FATAL_ERROR "${name} contains ${flag}, which changes the floating-point mode of "
                            "every process that loads the library; remove it")
    endif()
    string(REPLACE "-Ofast" "-O3" strict "${${variable}}")
    set(${variable} "${strict}" PARENT_SCOPE)
endfunction()

foreach(kind IN ITEMS C_COMPILER_ARG1 CXX_COMPILER_ARG1 C_FLAGS CXX_FLAGS
        SHARED_LINKER_FLAGS MODULE_LINKER_FLAGS EXE_LINKER_FLAGS)
    vn_strict_flags(CMAKE_${kind} CMAKE_${kind})
    foreach(config IN LISTS CMAKE_CONFIGURATION_TYPES CMAKE_BUILD_TYPE)
        string(TOUPPER ${config} config)
        vn_strict_flags(CMAKE_${kind}_${config} CMAKE_${kind}_${config})
    endforeach()
endforeach()
foreach(property IN ITEMS COMPILE_OPTIONS LINK_OPTIONS)   # flags of a surrounding project
    get_directory_property(options ${property})
    vn_strict_flags(options ${property})
    set_directory_properties(PROPERTIES ${property} "${options}")
endforeach()

add_compile_options(${VN_FLOATING_POINT_FLAGS})
add_link_options(-fno-fast-math -fno-unsafe-math-optimizations)
