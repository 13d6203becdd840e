# FDLIBM as the object library vn_fdlibm, out of the unpacked upstream sources.
#
# The package departs from FDLIBM 5.3, the release that binds, in a few places. They are corrected
# in copies below the build folder; the tests compare the result with an independent build.
set(VN_FDLIBM_CORRECTED ${CMAKE_BINARY_DIR}/upstream/fdlibm)

set(VN_FDLIBM_UPSTREAM_SOURCES)
foreach(name IN ITEMS
        e_acos e_acosh e_asin e_atan2 e_atanh e_cosh e_exp e_fmod e_log e_log10 e_rem_pio2 e_sinh
        er_lgamma k_cos k_rem_pio2 k_sin s_asinh s_atan s_cos s_erf s_floor s_frexp s_sin s_tan
        s_tanh)
    list(APPEND VN_FDLIBM_UPSTREAM_SOURCES ${VN_NEWLIB_DIR}/libm/math/${name}.c)
endforeach()
foreach(name IN ITEMS
        s_cbrt s_copysign s_expm1 s_ilogb s_log1p s_modf s_nextafter s_rint s_scalbn)
    list(APPEND VN_FDLIBM_UPSTREAM_SOURCES ${VN_NEWLIB_DIR}/libm/common/${name}.c)
endforeach()

# Puts the corrected text of libm/math/<name>.c into the build and among the sources. An unchanged
# file keeps its time, so that configuring again compiles nothing.
function(vn_fdlibm_add_corrected name text)
    set(file ${VN_FDLIBM_CORRECTED}/${name}.c)
    file(WRITE ${file}.new "${text}")
    file(COPY_FILE ${file}.new ${file} ONLY_IF_DIFFERENT)
    list(APPEND VN_FDLIBM_UPSTREAM_SOURCES ${file})
    set(VN_FDLIBM_UPSTREAM_SOURCES ${VN_FDLIBM_UPSTREAM_SOURCES} PARENT_SCOPE)
endfunction()

# tan beside an odd multiple of pi/2 (reduced argument below 2^-28): the reciprocal takes the tail
# of the argument in, or one result in a hundred there is off in the last place.
file(READ ${VN_NEWLIB_DIR}/libm/math/k_tan.c text)
vn_correct_text(text "else return (iy==1)? x: -one/x;"
                     "else return (iy==1)? x: vn_fdNegativeReciprocal(x, y);")
vn_fdlibm_add_corrected(k_tan "${text}")

# pow: every NaN argument gives NaN, for the bases 1 and -1 too; so do 1 and -1 to an infinite
# power; and a negative base to an odd integer power above 2^31 keeps its sign when the result
# overflows or vanishes.
file(READ ${VN_NEWLIB_DIR}/libm/math/e_pow.c text)
vn_correct_text(text "if(((ix-0x3ff00000)|lx)==0) return one;\n\t    else return nan(\"\");"
                     "return x+y;")
vn_correct_text(text "return one;\t\t/* +-1**+-inf = 1 */"
                     "return y-y;\t\t/* +-1**+-inf is NaN */")
vn_correct_text(text "if(ix<0x3fefffff) return (hy<0)? huge*huge:tiny*tiny;"
                     "s = (hx<0 && yisint==1)? -one : one;
	    if(ix<0x3fefffff) return (hy<0)? s*huge*huge:s*tiny*tiny;")
vn_correct_text(text "if(ix>0x3ff00000) return (hy>0)? huge*huge:tiny*tiny;"
                     "if(ix>0x3ff00000) return (hy>0)? s*huge*huge:s*tiny*tiny;")
vn_fdlibm_add_corrected(e_pow "${text}")

set(VN_FDLIBM_INCLUDES ${PROJECT_SOURCE_DIR}/platform/fdlibm/include ${PROJECT_SOURCE_DIR})
set(VN_FDLIBM_UPSTREAM_INCLUDE ${VN_NEWLIB_DIR}/libm/common)
# Without __OBSOLETE_MATH exp, log and pow are newer code with other results.
set(VN_FDLIBM_DEFINITIONS __OBSOLETE_MATH=1 _DEFAULT_SOURCE)
# After the optimisation level, in this order. The results do not depend on the level itself.
set(VN_FDLIBM_FLAGS -fno-fast-math -fno-math-errno -ffp-contract=off -fwrapv
                    -fno-sanitize=all)
add_subdirectory(${PROJECT_SOURCE_DIR}/platform/fdlibm)
list(APPEND VN_UPSTREAM_OBJECTS $<TARGET_OBJECTS:vn_fdlibm>)

# The wrappers round and compare by the same rules.
set_source_files_properties(${PROJECT_SOURCE_DIR}/platform/maths.cpp PROPERTIES
    COMPILE_OPTIONS "-fno-fast-math;-ffp-contract=off")
