# Writes the copyright file that travels with the binary packages: NOTICES.md and the full notices
# of what is linked in statically, taken from the very sources and packages the build uses.

# The first comment of a source file that speaks of copyright.
function(vn_read_notice variable file)
    file(READ ${file} text LIMIT 4096)
    string(FIND "${text}" "Copyright" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "${file} begins with no copyright notice")
    endif()
    string(SUBSTRING "${text}" 0 ${at} before)
    string(FIND "${before}" "/*" begin REVERSE)
    string(SUBSTRING "${text}" ${begin} -1 text)
    string(FIND "${text}" "*/" end)
    math(EXPR end "${end} + 2")
    string(SUBSTRING "${text}" 0 ${end} text)
    set(${variable} "${text}" PARENT_SCOPE)
endfunction()

function(vn_write_copyright output)
    file(READ ${PROJECT_SOURCE_DIR}/NOTICES.md notices)
    vn_read_notice(fdlibm ${VN_NEWLIB_DIR}/libm/math/k_cos.c)
    vn_read_notice(dtoa ${VN_NEWLIB_DIR}/libc/stdlib/dtoa.c)
    vn_read_notice(gdtoa ${VN_NEWLIB_DIR}/libc/stdlib/gdtoa-gethex.c)
    set(decimal "See the copyright file of the decimal floating-point library.\n")
    set(file /usr/share/doc/libintelrdfpmath-dev/copyright)
    if(EXISTS ${file})
        file(READ ${file} decimal)
    endif()
    set(json "See the copyright file of nlohmann-json.\n")
    set(file /usr/share/doc/nlohmann-json3-dev/copyright)
    if(EXISTS ${file})
        file(READ ${file} json)
    endif()
    set(rule "\n----------------------------------------------------------------------------\n")
    file(CONFIGURE OUTPUT ${output} @ONLY CONTENT
"@notices@
# The notices in full
@rule@FDLIBM mathematics@rule@
@fdlibm@
@rule@Conversion between doubles and decimal text@rule@
@dtoa@

@gdtoa@
@rule@Decimal floating-point library (BID)@rule@
@decimal@
@rule@JSON for Modern C++ (in vninfo)@rule@
@json@")
endfunction()
