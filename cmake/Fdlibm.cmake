# Builds FDLIBM as the object library vn_fdlibm, from the unpacked and patched upstream sources.
#
# Our results must be those of FDLIBM 5.3. newlib differs from it in a few places, which
# cmake/patches reverts. The tests compare the result with an independent build.
set(VN_FDLIBM_UPSTREAM_SOURCES)
foreach(name IN ITEMS
        e_acos e_acosh e_asin e_atan2 e_atanh e_cosh e_exp e_fmod e_log e_log10 e_pow e_rem_pio2
        e_sinh er_lgamma k_cos k_rem_pio2 k_sin k_tan s_asinh s_atan s_cos s_erf s_floor s_frexp
        s_sin s_tan s_tanh)
    list(APPEND VN_FDLIBM_UPSTREAM_SOURCES ${VN_NEWLIB_DIR}/libm/math/${name}.c)
endforeach()
foreach(name IN ITEMS
        s_cbrt s_copysign s_expm1 s_ilogb s_log1p s_modf s_nextafter s_rint s_scalbn)
    list(APPEND VN_FDLIBM_UPSTREAM_SOURCES ${VN_NEWLIB_DIR}/libm/common/${name}.c)
endforeach()

set(VN_FDLIBM_INCLUDES ${PROJECT_SOURCE_DIR}/platform/fdlibm/include ${PROJECT_SOURCE_DIR})
set(VN_FDLIBM_UPSTREAM_INCLUDE ${VN_NEWLIB_DIR}/libm/common)
# Without __OBSOLETE_MATH newlib selects newer code for exp, log and pow, with different results.
set(VN_FDLIBM_DEFINITIONS __OBSOLETE_MATH=1 _DEFAULT_SOURCE)
# These must follow the optimisation level, in this order. The level does not change the results.
set(VN_FDLIBM_FLAGS -fno-fast-math -fno-math-errno -ffp-contract=off -fwrapv
                    -fno-sanitize=all)
add_subdirectory(${PROJECT_SOURCE_DIR}/platform/fdlibm)
list(APPEND VN_UPSTREAM_OBJECTS $<TARGET_OBJECTS:vn_fdlibm>)

# The wrappers need the same rules for rounding and comparison.
set_source_files_properties(${PROJECT_SOURCE_DIR}/platform/maths.cpp PROPERTIES
    COMPILE_OPTIONS "-fno-fast-math;-ffp-contract=off")
