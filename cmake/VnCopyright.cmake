# Writes the copyright file of the binary packages in Debian's machine-readable format (DEP-5). It
# covers the library and has the full notices of everything linked in statically, taken from the
# sources and packages of this build.

# The first comment of a source file that contains a copyright notice.
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
    string(SUBSTRING "${text}" 0 ${end} text)
    string(REGEX REPLACE "(^|\n)[ \t]*/?\\*+" "\\1" text "${text}")
    set(${variable} "${text}" PARENT_SCOPE)
endfunction()

# The copyright file of a distribution package: the source of its notice.
function(vn_read_package_notice variable package)
    set(file /usr/share/doc/${package}/copyright)
    set(text "See the copyright file of ${package}.")
    if(EXISTS ${file})
        file(READ ${file} text)
    endif()
    set(${variable} "${text}" PARENT_SCOPE)
endfunction()

# Formats text as the continuation of a field: lines begin with a blank, empty lines contain a dot.
function(vn_field_text variable text)
    string(REGEX REPLACE "[ \t\r]+\n" "\n" text "\n${text}\n")
    string(REGEX REPLACE "^\n+" "" text "${text}")
    string(REGEX REPLACE "\n+$" "" text "${text}")
    string(REGEX REPLACE "\n" "\n " text " ${text}")
    string(REGEX REPLACE "\n (\n|$)" "\n .\\1" text "${text}")
    string(REGEX REPLACE "\n (\n|$)" "\n .\\1" text "${text}")
    set(${variable} "${text}" PARENT_SCOPE)
endfunction()

# vn_stanza(variable files copyright licence notice): appends one.
function(vn_stanza variable files copyright licence notice)
    vn_field_text(notice "${notice}")
    string(APPEND ${variable} "
Files: ${files}
Copyright: ${copyright}
License: ${licence}
${notice}
")
    set(${variable} "${${variable}}" PARENT_SCOPE)
endfunction()

function(vn_write_copyright output)
    vn_read_notice(fdlibm ${VN_NEWLIB_DIR}/libm/math/k_cos.c)
    vn_read_notice(dtoa ${VN_NEWLIB_DIR}/libc/stdlib/dtoa.c)
    vn_read_notice(gdtoa ${VN_NEWLIB_DIR}/libc/stdlib/gdtoa-gethex.c)
    vn_read_package_notice(decimal libintelrdfpmath-dev)
    vn_read_package_notice(json nlohmann-json3-dev)
    set(text "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: vncommon
Source: ${VN_PACKAGE_HOMEPAGE}
Comment: The stanzas after the first are about what is linked in from other packages.
")
    vn_stanza(text "*" "libvncommon developers" "not-stated"
        "The owner has not stated a licence.")
    vn_stanza(text "newlib/libm/*" "1993 Sun Microsystems, Inc." "Sun" "${fdlibm}")
    vn_stanza(text "newlib/libc/stdlib/dtoa.c newlib/libc/stdlib/mprec.* newlib/libc/stdlib/strtod.c"
        "1991 AT&T" "AT&T" "${dtoa}")
    vn_stanza(text "newlib/libc/stdlib/gdtoa*" "1998 Lucent Technologies" "Lucent" "${gdtoa}")
    vn_stanza(text "libbid/*" "2007-2018 Intel Corp." "BSD-3-clause" "${decimal}")
    vn_stanza(text "nlohmann/*" "2013-2022 Niels Lohmann" "Expat" "${json}")
    file(WRITE ${output} "${text}")
endfunction()
