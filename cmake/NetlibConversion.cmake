# netlib's conversion between doubles and decimal text as the object library vn_netlib, out of the
# unpacked upstream sources.
#
# The headers that upstream asks for are ours (text/netlib), and so are its memory and its powers
# of five (text/dtoamemory.cpp). Upstream's slips are corrected in copies below the build folder.
set(VN_NETLIB_DIR ${CMAKE_BINARY_DIR}/upstream/netlib)
set(VN_NETLIB_SOURCES)

# Puts a text below the build folder. An unchanged file keeps its time, so that configuring again
# compiles nothing.
function(vn_netlib_write name text)
    set(file ${VN_NETLIB_DIR}/${name})
    file(WRITE ${file}.new "${text}")
    file(COPY_FILE ${file}.new ${file} ONLY_IF_DIFFERENT)
    if(name MATCHES "\\.c$")
        list(APPEND VN_NETLIB_SOURCES ${file})
        set(VN_NETLIB_SOURCES ${VN_NETLIB_SOURCES} PARENT_SCOPE)
    endif()
endfunction()

foreach(name IN ITEMS mprec.h gdtoa.h gdtoa-hexnan.c)
    file(READ ${VN_NEWLIB_DIR}/libc/stdlib/${name} text)
    vn_netlib_write(${name} "${text}")
endforeach()

# The digits go into the caller's area instead of a block.
file(READ ${VN_NEWLIB_DIR}/libc/stdlib/dtoa.c text)
vn_correct_text(text "_REENT_MP_RESULT(ptr) = eBalloc (ptr, _REENT_MP_RESULT_K(ptr));" "")
vn_correct_text(text "s = s0 = (char *) _REENT_MP_RESULT(ptr);" "s = s0 = ptr->_digits;")
vn_netlib_write(dtoa.c "${text}")

# Memory and powers of five are supplied by us.
file(READ ${VN_NEWLIB_DIR}/libc/stdlib/mprec.c text)
vn_correct_text(text "_Bigint *\nBalloc (struct _reent *ptr, int k)\n"
                     "#if 0\n_Bigint *\nBalloc (struct _reent *ptr, int k)\n")
vn_correct_text(text "_Bigint *\nmultadd (struct _reent *ptr,\n"
                     "#endif\n_Bigint *\nmultadd (struct _reent *ptr,\n")
vn_correct_text(text "_Bigint *\npow5mult (struct _reent * ptr, _Bigint * b, int k)\n"
                     "#if 0\n_Bigint *\npow5mult (struct _reent * ptr, _Bigint * b, int k)\n")
vn_correct_text(text "_Bigint *\nlshift (struct _reent * ptr, _Bigint * b, int k)\n"
                     "#endif\n_Bigint *\nlshift (struct _reent * ptr, _Bigint * b, int k)\n")
vn_netlib_write(mprec.c "${text}")

# Decimal text: only the first 16 digits make the first approximation. The rest would wrap it
# round, which costs the last place of subnormal results with 19 and more integer digits.
file(READ ${VN_NEWLIB_DIR}/libc/stdlib/strtod.c text)
vn_correct_text(text "\t\telse\n\t\t\tz = 10*z + c - '0';"
                     "\t\telse if (nd < DBL_DIG + 1)\n\t\t\tz = 10*z + c - '0';")
# Hexadecimal text: the range error of results that overflow or vanish, as for decimal text.
vn_correct_text(text "\t\t\t  }}\n\t\t\tgoto ret;"
                     "\t\t\t  }}
			if ((i & STRTOG_Overflow) || ((i & STRTOG_Underflow) && dval(rv) == 0.))
				ptr->_errno = ERANGE;
			goto ret;")
vn_netlib_write(strtod.c "${text}")

file(READ ${VN_NEWLIB_DIR}/libc/stdlib/gdtoa-gethex.c text)
# Rounding looks at every bit below the highest one lost, the lowest included ...
vn_correct_text(text "if (k > 1 && any_on(b,k-1))" "if (k > 0 && any_on(b,k))")
# ... and, for results of half the smallest subnormal, at those lost before.
vn_correct_text(text "(n < 2 || any_on(b,n-1))" "(n < 2 || lostbits || any_on(b,n-1))")
# A huge exponent stays huge instead of wrapping round.
vn_correct_text(text "e1 = 10*e1 + n - 0x10;"
                     "if (e1 < 100000000)\n\t\t\t\te1 = 10*e1 + n - 0x10;")
vn_netlib_write(gdtoa-gethex.c "${text}")

add_library(vn_netlib OBJECT ${VN_NETLIB_SOURCES})
set_target_properties(vn_netlib PROPERTIES
    POSITION_INDEPENDENT_CODE ON C_STANDARD 11 C_EXTENSIONS ON)
target_include_directories(vn_netlib PRIVATE ${PROJECT_SOURCE_DIR}/text/netlib/include)
target_compile_definitions(vn_netlib PRIVATE _REENT_ONLY)
target_compile_options(vn_netlib PRIVATE
    -w -fwrapv -ffp-contract=off -fno-fast-math -fno-sanitize=all)
list(APPEND VN_UPSTREAM_OBJECTS $<TARGET_OBJECTS:vn_netlib>)
